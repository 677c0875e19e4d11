// The arena against the process allocator (glibc's malloc/free unless one is preloaded), on
// the same fixed-seed traces in the same run:
//   Churn     random sizes 16..512 B, 10,000 live blocks, 10 million replacements
//   LifoPairs malloc(64) then free, on a fresh heap
//   LifoPairsAfterChurn  the same after a churn phase whose blocks were all given back
//   Mixed     log-uniform sizes 16 B..64 KiB, 100,000 live blocks, 1 million replacements
// and the peak resident memory of a fragmenting workload, each allocator in a process of
// its own (mimalloc and jemalloc through LD_PRELOAD when their libraries are installed):
//   Fragmentation  1 million blocks of 16..512 B, every other one freed, then 500,000
//                  blocks of 32..1024 B; every block is written in full
//
//   mspace_bench [benchmark flags]      timings, ratios, then the footprint table
//   mspace_bench --footprint mspace|malloc
//                                       one footprint case (used by the above)
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "base/memory/mspace.h"

namespace {

using mirel::mspace;

// ---- allocators -----------------------------------------------------------------------------

struct SystemHeap {
    static constexpr const char* kName = "malloc";
    void* alloc(std::size_t n) { return std::malloc(n); }
    void release(void* p) { std::free(p); }
};

struct Arena {
    static constexpr const char* kName = "mspace";
    mspace m = mirel::create_mspace(0, 0);
    ~Arena() { mirel::destroy_mspace(m); }
    void* alloc(std::size_t n) { return mirel::mspace_malloc(m, n); }
    void release(void* p) { mirel::mspace_free(m, p); }
};

// ---- traces, made before anything is timed ---------------------------------------------------

struct Trace {
    std::size_t live;
    std::vector<std::uint32_t> initial;  // sizes of the first `live` blocks
    std::vector<std::uint32_t> victim;   // block replaced at each step
    std::vector<std::uint32_t> size;     // and the size of its replacement
};

Trace makeTrace(std::uint64_t seed, std::size_t live, std::size_t steps, bool logUniform,
                std::uint32_t lo, std::uint32_t hi) {
    std::mt19937_64 rng(seed);
    std::uniform_int_distribution<std::uint32_t> uniform(lo, hi);
    std::uniform_real_distribution<double> logs(std::log(lo), std::log(hi + 1.0));
    auto pick = [&] {
        return logUniform ? static_cast<std::uint32_t>(std::exp(logs(rng))) : uniform(rng);
    };
    Trace t{live, {}, {}, {}};
    for (std::size_t i = 0; i < live; ++i) t.initial.push_back(pick());
    std::uniform_int_distribution<std::uint32_t> slot(0, static_cast<std::uint32_t>(live - 1));
    t.victim.reserve(steps);
    t.size.reserve(steps);
    for (std::size_t i = 0; i < steps; ++i) {
        t.victim.push_back(slot(rng));
        t.size.push_back(pick());
    }
    return t;
}

const Trace& churnTrace() {
    static const Trace t = makeTrace(1, 10000, 10000000, false, 16, 512);
    return t;
}
const Trace& mixedTrace() {
    static const Trace t = makeTrace(2, 100000, 1000000, true, 16, 65536);
    return t;
}

// ---- timed workloads -----------------------------------------------------------------------

// Replays a trace: the live set is built and torn down outside the timing; each step frees
// one block and allocates its replacement, and writes its first byte as a user would. One
// heap serves all iterations, as the process heap does.
template <class Heap>
void replay(benchmark::State& state, const Trace& t) {
    std::vector<void*> blocks(t.live);
    Heap heap;
    for (auto _ : state) {
        state.PauseTiming();
        for (std::size_t i = 0; i < t.live; ++i) {
            blocks[i] = heap.alloc(t.initial[i]);
            static_cast<char*>(blocks[i])[0] = 1;
        }
        state.ResumeTiming();
        const std::size_t steps = t.victim.size();
        for (std::size_t i = 0; i < steps; ++i) {
            void*& b = blocks[t.victim[i]];
            heap.release(b);
            b = heap.alloc(t.size[i]);
            static_cast<char*>(b)[0] = 1;
        }
        state.PauseTiming();
        for (void* b : blocks) heap.release(b);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * t.victim.size()));
}

template <class Heap>
void Churn(benchmark::State& state) {
    replay<Heap>(state, churnTrace());
}

template <class Heap>
void Mixed(benchmark::State& state) {
    replay<Heap>(state, mixedTrace());
}

template <class Heap>
void LifoPairs(benchmark::State& state) {
    Heap heap;
    for (auto _ : state) {
        void* p = heap.alloc(64);
        benchmark::DoNotOptimize(p);
        heap.release(p);
    }
    state.SetItemsProcessed(state.iterations());
}

// The same pair on a heap that has been used: a churn phase (the churn trace's first million
// replacements) and then every block given back, before anything is timed.
template <class Heap>
void LifoPairsAfterChurn(benchmark::State& state) {
    Heap heap;
    const Trace& t = churnTrace();
    std::vector<void*> blocks(t.live);
    for (std::size_t i = 0; i < t.live; ++i) blocks[i] = heap.alloc(t.initial[i]);
    for (std::size_t i = 0; i < 1000000; ++i) {
        void*& b = blocks[t.victim[i]];
        heap.release(b);
        b = heap.alloc(t.size[i]);
        static_cast<char*>(b)[0] = 1;
    }
    for (void* b : blocks) heap.release(b);
    for (auto _ : state) {
        void* p = heap.alloc(64);
        benchmark::DoNotOptimize(p);
        heap.release(p);
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK_TEMPLATE(Churn, SystemHeap)->Name("Churn/malloc")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Churn, Arena)->Name("Churn/mspace")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(LifoPairs, SystemHeap)->Name("LifoPairs/malloc");
BENCHMARK_TEMPLATE(LifoPairs, Arena)->Name("LifoPairs/mspace");
BENCHMARK_TEMPLATE(LifoPairsAfterChurn, SystemHeap)->Name("LifoPairsAfterChurn/malloc");
BENCHMARK_TEMPLATE(LifoPairsAfterChurn, Arena)->Name("LifoPairsAfterChurn/mspace");
BENCHMARK_TEMPLATE(Mixed, SystemHeap)->Name("Mixed/malloc")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Mixed, Arena)->Name("Mixed/mspace")->Unit(benchmark::kMillisecond);

// Prints the usual table, then mspace's time as a multiple of malloc's for each workload,
// from the medians when repetitions were asked for and from the single runs otherwise.
// CPU time, not wall time: on a shared machine time spent descheduled is noise.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            std::string name = r.benchmark_name();
            bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
            if (!median && r.run_type != Run::RT_Iteration) continue;
            if (r.run_type == Run::RT_Iteration && r.repetitions > 1) continue;
            std::string base = name.substr(0, name.find('_'));
            times_[base] = r.GetAdjustedCPUTime();
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nmspace CPU time / malloc CPU time (malloc is %s):\n",
                    systemAllocator().c_str());
        for (const char* w : {"Churn", "LifoPairs", "LifoPairsAfterChurn", "Mixed"}) {
            auto a = times_.find(std::string(w) + "/mspace");
            auto b = times_.find(std::string(w) + "/malloc");
            if (a != times_.end() && b != times_.end() && b->second > 0)
                std::printf("  %-20s %.2fx\n", w, a->second / b->second);
        }
    }
    static std::string systemAllocator() {
        Dl_info info{};
        void* fn = reinterpret_cast<void*>(&std::malloc);
        if (dladdr(fn, &info) != 0 && info.dli_fname != nullptr) return info.dli_fname;
        return "unknown";
    }

private:
    std::map<std::string, double> times_;
};

// ---- footprint ------------------------------------------------------------------------------

// The peak resident size of this address space. (ru_maxrss would not do: Linux carries it
// over from the parent through fork and exec.)
long peakKiB() {
    FILE* f = std::fopen("/proc/self/status", "r");
    if (f == nullptr) return -1;
    char line[256];
    long kib = -1;
    while (std::fgets(line, sizeof line, f) != nullptr)
        if (std::sscanf(line, "VmHWM: %ld kB", &kib) == 1) break;
    std::fclose(f);
    return kib;
}

template <class Heap>
int fragment() {
    std::mt19937_64 rng(3);
    std::uniform_int_distribution<std::uint32_t> first(16, 512), second(32, 1024);
    std::vector<std::uint32_t> sizes1(1000000), sizes2(500000);
    for (auto& s : sizes1) s = first(rng);
    for (auto& s : sizes2) s = second(rng);
    std::vector<void*> blocks1(sizes1.size()), blocks2(sizes2.size());
    long before = peakKiB();  // the traces and the process itself
    Heap heap;
    for (std::size_t i = 0; i < sizes1.size(); ++i) {
        blocks1[i] = heap.alloc(sizes1[i]);
        std::memset(blocks1[i], 1, sizes1[i]);
    }
    for (std::size_t i = 1; i < sizes1.size(); i += 2) heap.release(blocks1[i]);
    for (std::size_t i = 0; i < sizes2.size(); ++i) {
        blocks2[i] = heap.alloc(sizes2[i]);
        std::memset(blocks2[i], 2, sizes2[i]);
    }
    long peak = peakKiB();
    std::printf("%ld %ld\n", peak, before);
    return 0;
}

struct Footprint {
    std::string label;
    long peak = -1, before = -1;
};

// Runs this program again for one footprint case, optionally with a preloaded allocator.
Footprint measureChild(const char* self, const std::string& label, const char* heap,
                       const char* preload) {
    Footprint f{label};
    int fds[2];
    if (pipe(fds) != 0) return f;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        close(fds[0]);
        close(fds[1]);
        if (preload != nullptr) setenv("LD_PRELOAD", preload, 1);
        else unsetenv("LD_PRELOAD");
        execl(self, self, "--footprint", heap, static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    char buf[128] = {};
    std::size_t got = 0;
    for (ssize_t n; got + 1 < sizeof buf && (n = read(fds[0], buf + got, sizeof buf - 1 - got)) > 0;)
        got += static_cast<std::size_t>(n);
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) std::sscanf(buf, "%ld %ld", &f.peak, &f.before);
    return f;
}

void footprintTable(const char* self) {
    const char* kLibs = "/usr/lib/x86_64-linux-gnu/";
    std::string mimalloc = std::string(kLibs) + "libmimalloc.so.2";
    std::string jemalloc = std::string(kLibs) + "libjemalloc.so.2";
    std::vector<Footprint> rows = {measureChild(self, "mspace", "mspace", nullptr),
                                   measureChild(self, "glibc malloc", "malloc", nullptr)};
    if (access(mimalloc.c_str(), R_OK) == 0)
        rows.push_back(measureChild(self, "mimalloc", "malloc", mimalloc.c_str()));
    if (access(jemalloc.c_str(), R_OK) == 0)
        rows.push_back(measureChild(self, "jemalloc", "malloc", jemalloc.c_str()));
    std::printf("\nFragmentation: peak resident memory, each in a process of its own\n");
    std::printf("  %-14s %12s %12s %14s %16s\n", "allocator", "peak KiB", "before KiB",
                "workload KiB", "mspace ratio");
    const Footprint& arena = rows[0];
    for (const Footprint& f : rows) {
        if (f.peak < 0) {
            std::printf("  %-14s failed\n", f.label.c_str());
            continue;
        }
        long work = f.peak - f.before;
        std::printf("  %-14s %12ld %12ld %14ld", f.label.c_str(), f.peak, f.before, work);
        if (&f != &arena && arena.peak > 0)
            std::printf("   %.3fx (%.3fx of peaks)", double(arena.peak - arena.before) / work,
                        double(arena.peak) / f.peak);
        std::printf("\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--footprint") == 0) {
        if (std::strcmp(argv[2], "mspace") == 0) return fragment<Arena>();
        if (std::strcmp(argv[2], "malloc") == 0) return fragment<SystemHeap>();
        std::fprintf(stderr, "mspace_bench: --footprint takes mspace or malloc\n");
        return 2;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    churnTrace();
    mixedTrace();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    footprintTable("/proc/self/exe");
    return 0;
}
