// Kept apart from settings_bench.cpp so that the calls stay virtual there.
#include "settings_bench_baseline.h"

namespace {

struct PlainIntValue : PlainValue {
    void set(int v) override {
        value = v;
        for (PlainObserver* o : observers) o->changed(v);
    }
    int value = 0;
    std::vector<PlainObserver*> observers;
};

}  // namespace

PlainValue* makePlainIntValue(std::vector<PlainObserver*> observers) {
    auto* p = new PlainIntValue;
    p->observers = std::move(observers);
    return p;
}
