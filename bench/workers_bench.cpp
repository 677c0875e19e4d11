// Semaphore and Barrier against their baselines, two threads each:
//   ping-pong, one post and one wait each way per iteration: Semaphore against a raw sem_t;
//   one rendezvous of two threads per iteration: Barrier::enter against std::barrier.
#include <benchmark/benchmark.h>
#include <semaphore.h>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <thread>

#include "base/threads/barrier.h"
#include "base/threads/semaphore.h"

namespace {

struct RawSem {
    explicit RawSem(unsigned int initial) { sem_init(&s, 0, initial); }
    ~RawSem() { sem_destroy(&s); }
    void wait() {
        while (sem_wait(&s) != 0 && errno == EINTR) {
        }
    }
    void post() { sem_post(&s); }
    sem_t s;
};

struct MirelSem {
    explicit MirelSem(unsigned int initial) : s(initial) {}
    void wait() { s.wait(); }
    void post() { s.post(); }
    mirel::Semaphore s;
};

template <typename Sem>
void PingPong(benchmark::State& state) {
    Sem ping(0), pong(0);
    const auto rounds = state.max_iterations;
    std::thread partner([&] {
        for (benchmark::IterationCount i = 0; i < rounds; ++i) {
            ping.wait();
            pong.post();
        }
    });
    for (auto _ : state) {
        ping.post();
        pong.wait();
    }
    partner.join();
}

struct MirelBarrier {
    mirel::Barrier b{2};
    void enter() { b.enter(); }
};

struct StdBarrier {
    std::barrier<> b{2};
    void enter() { b.arrive_and_wait(); }
};

template <typename B>
void BarrierRound(benchmark::State& state) {
    B barrier;
    const auto rounds = state.max_iterations;
    std::thread partner([&] {
        for (benchmark::IterationCount i = 0; i < rounds; ++i) barrier.enter();
    });
    for (auto _ : state) barrier.enter();
    partner.join();
}

BENCHMARK(PingPong<RawSem>)->Name("PingPong/sem_t")->UseRealTime();
BENCHMARK(PingPong<MirelSem>)->Name("PingPong/Semaphore")->UseRealTime();
BENCHMARK(BarrierRound<StdBarrier>)->Name("BarrierRound/std::barrier")->UseRealTime();
BENCHMARK(BarrierRound<MirelBarrier>)->Name("BarrierRound/Barrier")->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
