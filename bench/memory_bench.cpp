// The allocation frame against its baselines, in one run:
//   - HeapManager::alloc + Free of 64 bytes (pool lock, header, registry look-up on the way
//     back) against the bare arena pair and against glibc, with the pool's locked pair
//     and the arena under a bare pthread mutex between them to show where the time goes;
//   - the same on a churn of 10,000 live blocks of 16..512 bytes;
//   - Free of a process-heap block (the registry look-up every library delete pays) with
//     1, 4, 16 and 64 pools alive, against plain free.
//
//   memory_bench [--second-thread] [benchmark flags]
// With --second-thread a thread is started first and stays blocked for the whole run, as in
// an application: once a process has a second thread, every lock and unlock of a mutex is
// an atomic read-modify-write, for the floor rows and the pool alike.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "base/memory/heapmanager.h"
#include "base/memory/memorypool.h"
#include "base/memory/mspace.h"

namespace {

using namespace mirel;

// A pool with a manager holding the only reference.
struct ManagedPool {
    ManagedPool() : pool(new MemoryPool("bench", 1 << 20)), manager(pool) {
        TestThenAdd(pool->referenceCount(), -1);
    }
    MemoryPool* pool;
    HeapManager manager;
};

void Pair64_HeapManager(benchmark::State& state) {
    ManagedPool p;
    for (auto _ : state) {
        void* b = p.manager.alloc(64);
        benchmark::DoNotOptimize(b);
        Free(b);
    }
}

void Pair64_BareArena(benchmark::State& state) {
    mspace arena = create_mspace(0, 0);
    for (auto _ : state) {
        void* b = mspace_malloc(arena, 64);
        benchmark::DoNotOptimize(b);
        mspace_free(arena, b);
    }
    destroy_mspace(arena);
}

// The pool's own pair: the arena under the pool's lock, without header or look-up.
void Pair64_PoolLocked(benchmark::State& state) {
    ManagedPool p;
    for (auto _ : state) {
        void* b = p.pool->malloc(64);
        benchmark::DoNotOptimize(b);
        p.pool->free(b);
    }
}

// The least a pair can cost when each call into the arena holds a lock the way the pool
// must: a bare pthread mutex, with no ownership words, no header and no look-up.
pthread_mutex_t gFloorMutex = PTHREAD_MUTEX_INITIALIZER;

void* lockedMalloc(mspace arena, unsigned long size) {
    pthread_mutex_lock(&gFloorMutex);
    void* b = mspace_malloc(arena, size);
    pthread_mutex_unlock(&gFloorMutex);
    return b;
}

void lockedFree(mspace arena, void* b) {
    pthread_mutex_lock(&gFloorMutex);
    mspace_free(arena, b);
    pthread_mutex_unlock(&gFloorMutex);
}

void Pair64_ArenaUnderMutex(benchmark::State& state) {
    mspace arena = create_mspace(0, 0);
    for (auto _ : state) {
        void* b = lockedMalloc(arena, 64);
        benchmark::DoNotOptimize(b);
        lockedFree(arena, b);
    }
    destroy_mspace(arena);
}

// The managed pair without the look-up (the block goes straight back to its manager), and
// the look-up of a pool pointer alone: together they split the frame's share of the pair.
void Pair64_HeapManagerNoLookup(benchmark::State& state) {
    ManagedPool p;
    for (auto _ : state) {
        void* b = p.manager.alloc(64);
        benchmark::DoNotOptimize(b);
        p.manager.free(b);
    }
}

void Lookup_PoolPointer(benchmark::State& state) {
    ManagedPool p;
    void* b = p.manager.alloc(64);
    for (auto _ : state) {
        benchmark::DoNotOptimize(b);
        benchmark::DoNotOptimize(MemoryPool::isPointerFromPool(b));
    }
    Free(b);
}

void Pair64_Glibc(benchmark::State& state) {
    for (auto _ : state) {
        void* b = std::malloc(64);
        benchmark::DoNotOptimize(b);
        std::free(b);
    }
}

// The churn trace: which slot to replace and the new size, fixed before timing.
struct Churn {
    static constexpr int kLive = 10000;
    static constexpr int kSteps = 1 << 20;
    Churn() {
        std::mt19937 rng(42);
        std::uniform_int_distribution<int> slot(0, kLive - 1), size(16, 512);
        for (int i = 0; i < kLive; ++i) initial.push_back(size(rng));
        for (int i = 0; i < kSteps; ++i) steps.push_back({slot(rng), size(rng)});
    }
    std::vector<int> initial;
    std::vector<std::pair<int, int>> steps;
};

const Churn& churn() {
    static const Churn c;
    return c;
}

template <typename Alloc, typename Release>
void runChurn(benchmark::State& state, Alloc alloc, Release release) {
    const Churn& c = churn();
    std::vector<void*> live;
    for (int s : c.initial) live.push_back(alloc(s));
    std::size_t i = 0;
    for (auto _ : state) {
        auto [slot, size] = c.steps[i++ & (Churn::kSteps - 1)];
        release(live[slot]);
        // DoNotOptimize on a local: given the vector element, GCC 12 kept the new pointer
        // in a stack temporary and never stored it into the vector.
        void* b = alloc(size);
        benchmark::DoNotOptimize(b);
        live[slot] = b;
    }
    for (void* p : live) release(p);
}

void Churn_HeapManager(benchmark::State& state) {
    ManagedPool p;
    runChurn(state, [&](int s) { return p.manager.alloc(s); }, [](void* b) { Free(b); });
}

void Churn_BareArena(benchmark::State& state) {
    mspace arena = create_mspace(0, 0);
    runChurn(state, [&](int s) { return mspace_malloc(arena, s); },
             [&](void* b) { mspace_free(arena, b); });
    destroy_mspace(arena);
}

void Churn_ArenaUnderMutex(benchmark::State& state) {
    mspace arena = create_mspace(0, 0);
    runChurn(state, [&](int s) { return lockedMalloc(arena, s); },
             [&](void* b) { lockedFree(arena, b); });
    destroy_mspace(arena);
}

// Process-heap blocks freed through the frame while state.range(0) pools are alive.
void HeapFree_Frame(benchmark::State& state) {
    std::vector<std::unique_ptr<MemoryPool>> pools;
    for (int i = 0; i < state.range(0); ++i) {
        pools.push_back(std::make_unique<MemoryPool>("bench", 1 << 16));
    }
    for (auto _ : state) {
        void* b = std::malloc(64);
        benchmark::DoNotOptimize(b);
        Free(b);
    }
}

void HeapFree_Glibc(benchmark::State& state) {
    for (auto _ : state) {
        void* b = std::malloc(64);
        benchmark::DoNotOptimize(b);
        std::free(b);
    }
}

BENCHMARK(Pair64_Glibc);
BENCHMARK(Pair64_BareArena);
BENCHMARK(Pair64_ArenaUnderMutex);
BENCHMARK(Pair64_PoolLocked);
BENCHMARK(Pair64_HeapManagerNoLookup);
BENCHMARK(Pair64_HeapManager);
BENCHMARK(Lookup_PoolPointer);
BENCHMARK(Churn_BareArena);
BENCHMARK(Churn_ArenaUnderMutex);
BENCHMARK(Churn_HeapManager);
BENCHMARK(HeapFree_Glibc);
BENCHMARK(HeapFree_Frame)->Arg(1)->Arg(4)->Arg(16)->Arg(64);

// Parked until the run ends.
class SecondThread {
public:
    SecondThread()
        : mThread([this] {
              std::unique_lock<std::mutex> lock(mMutex);
              mWake.wait(lock, [this] { return mDone; });
          }) {}
    ~SecondThread() {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mDone = true;
        }
        mWake.notify_one();
        mThread.join();
    }

private:
    std::mutex mMutex;
    std::condition_variable mWake;
    bool mDone = false;
    std::thread mThread;
};

}  // namespace

int main(int argc, char** argv) {
    std::unique_ptr<SecondThread> second;
    if (argc > 1 && std::strcmp(argv[1], "--second-thread") == 0) {
        second = std::make_unique<SecondThread>();
        benchmark::AddCustomContext("second thread", "alive");
        --argc;
        for (int i = 1; i < argc; ++i) argv[i] = argv[i + 1];
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
