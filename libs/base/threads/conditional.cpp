// Conditional over a pthread condition variable that waits on the SpinLock's own mutex.
#include "base/threads/conditional.h"

#include <pthread.h>
#include <sys/time.h>

#include <cstdint>

#include "base/threads/spinlock.h"
#include "base/threads/spinlockdata_p.h"

namespace mirel {

struct ConditionalData {
    ConditionalData() { pthread_cond_init(&cond, nullptr); }
    ~ConditionalData() { pthread_cond_destroy(&cond); }
    pthread_cond_t cond;
};

namespace {

// The SpinLock keeps its owner and depth beside the mutex. pthread releases and retakes
// only the mutex, so the bookkeeping is parked here for the length of the wait: while the
// waiter is blocked the lock must read as free (another thread may take it), and when the
// waiter returns it must own the lock again at its old depth, or its next unlock() would
// be refused and the mutex stay locked for ever.
class ParkedOwnership {
public:
    explicit ParkedOwnership(SpinLockData* d)
        : mState(d->state), mCount(mState.count.load(std::memory_order_relaxed)) {
        mState.owner.store(0, std::memory_order_relaxed);
        mState.count.store(0, std::memory_order_relaxed);
    }
    ~ParkedOwnership() {
        mState.owner.store(detail::tCurrentThread, std::memory_order_relaxed);
        mState.count.store(mCount, std::memory_order_relaxed);
    }

    ParkedOwnership(const ParkedOwnership&) = delete;
    ParkedOwnership& operator=(const ParkedOwnership&) = delete;

private:
    detail::SpinLockState& mState;
    std::int32_t mCount;
};

// A thread that has never taken a lock has no identity yet, and so holds none.
bool heldByCaller(const SpinLockData* d) {
    const pthread_t self = detail::tCurrentThread;
    return self != 0 && d->state.owner.load(std::memory_order_relaxed) == self;
}

// The deadline is worked out in 32-bit signed words on purpose: a limit beyond about
// 2,147,483 ms wraps, and the wrapped deadline is whatever the words make of it (an
// invalid one is refused by the platform, which reads as a time-out). Unsigned arithmetic
// gives the wrap without undefined behaviour.
timespec deadlineAfter(unsigned long ms) {
    timeval now;
    gettimeofday(&now, nullptr);
    const std::uint32_t addUs = static_cast<std::uint32_t>(ms) * 1000u;
    auto usec = static_cast<std::int32_t>(static_cast<std::uint32_t>(now.tv_usec) + addUs);
    const std::int32_t carry = usec / 1000000;
    usec %= 1000000;
    timespec deadline;
    deadline.tv_sec = now.tv_sec + carry;
    deadline.tv_nsec = static_cast<long>(usec) * 1000L;
    return deadline;
}

}  // namespace

Conditional::Conditional() : mData(new ConditionalData) {}

Conditional::~Conditional() { delete mData; }

int Conditional::wait(SpinLock& lock) {
    SpinLockData* d = lock.data();
    if (!heldByCaller(d)) return -1;
    ParkedOwnership parked(d);
    // The platform's result is not reported: a wait ends with the mutex held either way.
    pthread_cond_wait(&mData->cond, &d->region);
    return 0;
}

int Conditional::timedwait(SpinLock& lock, unsigned long ms) {
    SpinLockData* d = lock.data();
    if (!heldByCaller(d)) return -1;
    const timespec deadline = deadlineAfter(ms);
    ParkedOwnership parked(d);
    return pthread_cond_timedwait(&mData->cond, &d->region, &deadline) == 0 ? 0 : -1;
}

int Conditional::signal() {
    pthread_cond_signal(&mData->cond);
    return 0;
}

int Conditional::broadcast() {
    pthread_cond_broadcast(&mData->cond);
    return 0;
}

}  // namespace mirel
