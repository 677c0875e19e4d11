// The baseline of settings_bench: a value behind a virtual setter that tells its observers
// through a std::vector of pointers.
#pragma once

#include <vector>

struct PlainObserver {
    virtual ~PlainObserver() = default;
    virtual void changed(int value) = 0;
};

struct PlainValue {
    virtual ~PlainValue() = default;
    virtual void set(int value) = 0;
};

// Stores the value, then calls every observer in order.
PlainValue* makePlainIntValue(std::vector<PlainObserver*> observers);
