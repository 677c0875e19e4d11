// SpinLock against the standard and POSIX recursive mutexes, uncontended: a lock+unlock
// pair, and re-entry by the owner (one more level taken and given back while held).
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <mutex>

#include "base/threads/spinlock.h"

namespace {

struct PosixRecursive {
    PosixRecursive() {
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&m, &attr);
        pthread_mutexattr_destroy(&attr);
    }
    ~PosixRecursive() { pthread_mutex_destroy(&m); }
    void lock() { pthread_mutex_lock(&m); }
    void unlock() { pthread_mutex_unlock(&m); }
    pthread_mutex_t m;
};

struct Spin {
    void lock() { l.lock(mirel::kWaitForever); }
    void unlock() { l.unlock(); }
    mirel::SpinLock l;
};

template <typename Lock>
void LockUnlock(benchmark::State& state) {
    Lock lock;
    for (auto _ : state) {
        lock.lock();
        lock.unlock();
        benchmark::ClobberMemory();
    }
}

template <typename Lock>
void Reentry(benchmark::State& state) {
    Lock lock;
    lock.lock();
    for (auto _ : state) {
        lock.lock();
        lock.unlock();
        benchmark::ClobberMemory();
    }
    lock.unlock();
}

BENCHMARK(LockUnlock<std::recursive_mutex>)->Name("LockUnlock/std::recursive_mutex");
BENCHMARK(LockUnlock<PosixRecursive>)->Name("LockUnlock/pthread_recursive");
BENCHMARK(LockUnlock<Spin>)->Name("LockUnlock/SpinLock");
BENCHMARK(Reentry<std::recursive_mutex>)->Name("Reentry/std::recursive_mutex");
BENCHMARK(Reentry<PosixRecursive>)->Name("Reentry/pthread_recursive");
BENCHMARK(Reentry<Spin>)->Name("Reentry/SpinLock");

}  // namespace

BENCHMARK_MAIN();
