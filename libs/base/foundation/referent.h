// Referent: the base of shared value objects with an intrusive reference count (DateTime
// derives from it). The last release() deletes the object through orphaned().
//
// The count starts at 0, and a copy starts at 0 too: holders count references, not the
// object's history. addRef() and release() are atomic, so holders on different threads
// may share an object; the object's own data is not protected.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/memory/memoryobject.h"
#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT Referent : public MemoryObject {
public:
    Referent() : mRefCount(0) {}
    Referent(const Referent&) : mRefCount(0) {}
    // Assigning the value of another object leaves this one's holders as they were.
    Referent& operator=(const Referent&) { return *this; }
    virtual ~Referent();

    // Takes one reference.
    void addRef() { mRefCount.fetch_add(1, std::memory_order_relaxed); }
    // Gives one back; the call that brings the count to 0 calls orphaned(), after which the
    // object must not be touched. Releasing a reference never taken is a caller's error.
    void release() {
        if (mRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1) orphaned();
    }
    // The current count; only a hint while other threads hold references.
    std::int32_t getRefCount() const { return mRefCount.load(std::memory_order_relaxed); }

protected:
    // Called once the last reference is gone: deletes the object (memory back through
    // doDelete). Override to recycle instead.
    virtual void orphaned();

private:
    std::atomic<std::int32_t> mRefCount;
};

}  // namespace mirel
