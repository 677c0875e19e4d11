// SpinLock over a plain pthread mutex, with ownership and recursion kept beside it, and
// the lazily elected process-wide locks.
#include "base/threads/spinlock.h"

#include <pthread.h>
#include <time.h>

#include "base/system/system.h"
#include "base/threads/spinlockdata_p.h"

namespace mirel {

namespace {

constexpr unsigned int kWaitForever = 0xFFFFFFFFu;

// Only the owner writes count, so a load and a store suffice; a locked read-modify-write
// would triple the cost of re-entry for nothing.
inline void addToCount(SpinLockData* d, std::int32_t delta) {
    d->count.store(d->count.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
}

// pthread_mutex_timedlock takes an absolute CLOCK_REALTIME deadline.
int lockWithin(pthread_mutex_t* m, unsigned int ms) {
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
    if (System::getNumProcessors() > 1) mData->spinCount = static_cast<std::uint32_t>(spinCount);
    pthread_mutex_init(&mData->region, nullptr);
}

SpinLock::~SpinLock() {
    if (mData == nullptr) return;
    pthread_mutex_destroy(&mData->region);
    delete mData;
}

int SpinLock::lock(unsigned int timeout) {
    pthread_t self = pthread_self();
    if (mData->owner.load(std::memory_order_relaxed) == self) {
        addToCount(mData, 1);
        return 0;
    }
    int rc;
    if (timeout == kWaitForever) {
        rc = pthread_mutex_lock(&mData->region);
    } else if (timeout == 0) {
        rc = pthread_mutex_trylock(&mData->region);
    } else {
        rc = lockWithin(&mData->region, timeout);
    }
    if (rc != 0) return -1;
    mData->owner.store(self, std::memory_order_relaxed);
    mData->count.store(1, std::memory_order_relaxed);
    return 0;
}

int SpinLock::trylock() { return lock(0); }

int SpinLock::unlock() {
    if (mData->owner.load(std::memory_order_relaxed) != pthread_self()) return -1;
    addToCount(mData, -1);
    if (mData->count.load(std::memory_order_relaxed) > 0) return 0;
    mData->owner.store(0, std::memory_order_relaxed);
    pthread_mutex_unlock(&mData->region);
    return 0;
}

void SpinLock::stealOwnership() {
    mData->owner.store(pthread_self(), std::memory_order_relaxed);
}

int SpinLock::forceUnlock() {
    stealOwnership();
    return unlock();
}

CSMutex::CSMutex(SpinLock& lock) : mLock(lock) { mLock.lock(kWaitForever); }

CSMutex::~CSMutex() { mLock.unlock(); }

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
    while (inited.load(std::memory_order_acquire) == 0) System::sleep(1);
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
