// SpinLock over a plain pthread mutex, with ownership and recursion kept beside it, and
// the lazily elected process-wide locks.
#include "base/threads/spinlock.h"

#include <pthread.h>
#include <time.h>

#include "base/linux/linuxutil_p.h"
#include "base/threads/spinlockdata_p.h"

namespace mirel {

namespace detail {

__thread pthread_t tCurrentThread __attribute__((tls_model("initial-exec"))) = 0;

int lockRegion(SpinLockState* state) {
    return pthread_mutex_lock(&reinterpret_cast<SpinLockData*>(state)->region);
}

int unlockRegion(SpinLockState* state) {
    return pthread_mutex_unlock(&reinterpret_cast<SpinLockData*>(state)->region);
}

}  // namespace detail

namespace {

// The caller's pthread_self() value, cached per thread so that the inline re-entry paths
// read a thread-local word instead of calling into the C library.
__attribute__((noinline, cold)) pthread_t firstCurrentThread() {
    detail::tCurrentThread = pthread_self();
    return detail::tCurrentThread;
}

inline pthread_t currentThread() {
    pthread_t self = detail::tCurrentThread;
    return __builtin_expect(self != 0, 1) ? self : firstCurrentThread();
}

// Waits with a limit; kept out of line so that the common paths stay small.
// pthread_mutex_timedlock takes an absolute CLOCK_REALTIME deadline.
__attribute__((noinline)) int enterWithin(pthread_mutex_t* m, unsigned int ms) {
    if (ms == 0) return pthread_mutex_trylock(m);
    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += ms / 1000;
    deadline.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    return pthread_mutex_timedlock(m, &deadline);
}

}  // namespace

SpinLock::SpinLock(unsigned long spinCount) : mData(new SpinLockData) {
    if (linuxutil::onlineProcessors() > 1) mData->spinCount = static_cast<std::uint32_t>(spinCount);
    pthread_mutex_init(&mData->region, nullptr);
}

SpinLock::~SpinLock() {
    if (mData == nullptr) return;
    pthread_mutex_destroy(&mData->region);
    delete mData;
}

// Reached when the caller is not the owner and either waits with a limit or has not used a
// lock before; in the last case it cannot be the owner, since every owner has its identity.
int SpinLock::enter(unsigned int timeout) {
    SpinLockData* d = mData;
    const pthread_t self = currentThread();
    const int rc = timeout == kWaitForever ? pthread_mutex_lock(&d->region)
                                           : enterWithin(&d->region, timeout);
    if (rc != 0) return -1;
    d->state.owner.store(self, std::memory_order_relaxed);
    d->state.count.store(1, std::memory_order_relaxed);
    return 0;
}

void SpinLock::stealOwnership() {
    mData->state.owner.store(currentThread(), std::memory_order_relaxed);
}

int SpinLock::forceUnlock() {
    stealOwnership();
    return unlock();
}

long TestThenAdd(long volatile* value, long delta) {
    return __atomic_fetch_add(value, delta, __ATOMIC_SEQ_CST);
}

namespace detail {

void initLazyLock(std::atomic<SpinLock*>& lock, std::atomic<std::int32_t>& inited,
                  long volatile& interlock) {
    if (inited.load(std::memory_order_acquire) != 0) return;
    if (TestThenAdd(&interlock, 1) == 0) {
        lock.store(new SpinLock(0), std::memory_order_relaxed);
        inited.store(1, std::memory_order_release);
        return;
    }
    while (inited.load(std::memory_order_acquire) == 0) linuxutil::sleepMilliseconds(1);
    TestThenAdd(&interlock, -1);
}

template <typename Tag>
std::atomic<SpinLock*> LazyLock<Tag>::globalLock{nullptr};
template <typename Tag>
std::atomic<std::int32_t> LazyLock<Tag>::globalLockInited{0};
template <typename Tag>
long volatile LazyLock<Tag>::globalLockInterlock = 0;

template <typename Tag>
SpinLock* LazyLock<Tag>::gGlobalLock() {
    if (globalLockInited.load(std::memory_order_acquire) == 0) initGlobalLock();
    return globalLock.load(std::memory_order_acquire);
}

template <typename Tag>
void LazyLock<Tag>::initGlobalLock() {
    initLazyLock(globalLock, globalLockInited, globalLockInterlock);
}

template <typename Tag>
int LazyLock<Tag>::lock() {
    return gGlobalLock()->lock(kWaitForever);
}

template <typename Tag>
int LazyLock<Tag>::trylock() {
    return gGlobalLock()->trylock();
}

template <typename Tag>
int LazyLock<Tag>::unlock() {
    return gGlobalLock()->unlock();
}

template <typename Tag>
void LazyLock<Tag>::shutdown() {
    delete globalLock.exchange(nullptr, std::memory_order_acq_rel);
}

template class LazyLock<GlobalLock>;
template class LazyLock<BlockMainLock>;

}  // namespace detail
}  // namespace mirel
