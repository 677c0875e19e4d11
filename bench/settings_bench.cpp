// IntSetting::set of a changed value with two observers attached, against the plainest
// code that does the same work: a virtual setter that stores the value and calls two
// observers through a std::vector of pointers.
#include <benchmark/benchmark.h>

#include <vector>

#include "base/settings/observer.h"
#include "base/settings/setting.h"
#include "base/settings/settinggroup.h"
#include "settings_bench_baseline.h"

namespace {

struct Counting : mirel::SettingObserver {
    using SettingObserver::SettingObserver;
    void onSettingChanged(const Event&) override { ++calls; }
    void onSettingPreDelete(const Event&) override {}
    long calls = 0;
};

void IntSettingSet(benchmark::State& state) {
    mirel::SettingGroup group("Bench");
    mirel::IntSetting setting(group, "value", 0);
    Counting first(setting), second(setting);
    int value = 0;
    for (auto _ : state) {
        setting.set(++value);  // always a change: stamp, store, both observers told
        benchmark::ClobberMemory();
    }
    if (first.calls != second.calls || first.calls != value) state.SkipWithError("observers missed a change");
}

// The baseline: the setter lives in another translation unit, as IntSetting::set lives in the
// library, so that neither the setter nor the observer calls can be devirtualised here.
struct PlainCounting : PlainObserver {
    void changed(int) override { ++calls; }
    long calls = 0;
};

void PlainVirtualSet(benchmark::State& state) {
    PlainCounting first, second;
    PlainValue* target = makePlainIntValue({&first, &second});
    int value = 0;
    for (auto _ : state) {
        target->set(++value);
        benchmark::ClobberMemory();
    }
    delete target;
    if (first.calls != second.calls || first.calls != value) state.SkipWithError("observers missed a change");
}

BENCHMARK(PlainVirtualSet)->Name("Set/plain_virtual_and_vector");
BENCHMARK(IntSettingSet)->Name("Set/IntSetting");

}  // namespace

BENCHMARK_MAIN();
