// The platform state behind a SpinLock, shared with the waiting primitives that wait on
// the lock's own mutex.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace mirel {

// `region` is a plain (non-recursive) mutex: the lock counts recursion itself.
// `owner` and `count` are read by other threads without holding the mutex, so they are
// atomics; only the owning thread ever finds its own identity in `owner`, which is what
// makes the unlocked read in lock() sound.
struct SpinLockData {
    pthread_mutex_t region;
    std::atomic<std::int32_t> count{0};
    std::uint32_t spinCount = 0;
    std::atomic<pthread_t> owner{0};
};

}  // namespace mirel
