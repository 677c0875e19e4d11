// Locks: SpinLock, the library's one mutual-exclusion primitive; CSMutex, its scoped
// holder; GlobalLock and BlockMainLock, two process-wide locks made on first use; and
// TestThenAdd, the atomic add their lazy creation relies on.
//
// SpinLock is recursive and owned: the thread that holds it may lock it again and must
// unlock it once per successful lock; any other thread's unlock() is refused. Use CSMutex
// for a lock held over a block. Operations return 0 on success and -1 on failure; nothing
// throws.
//
// The hand-over operations stealOwnership() and forceUnlock() let a thread release a lock
// another thread took. They write the owner without waiting, so they are correct only while
// the lock is held and the threads have synchronised otherwise (a join, a semaphore).
#pragma once

#include <sys/types.h>  // pthread_t

#include <atomic>
#include <cstdint>

#include "base/mirel_export.h"

namespace mirel {

struct SpinLockData;

namespace detail {

// The words of a lock that its inline paths read; the platform mutex follows them in
// SpinLockData. Only the owning thread finds its own identity in `owner`, which makes the
// unsynchronised read of it sound; `count` is written by the owner alone.
struct SpinLockState {
    std::atomic<pthread_t> owner{0};
    std::atomic<std::int32_t> count{0};
};

// Lock (waiting without limit) and unlock the platform mutex behind `state`; the results
// are the platform's. They keep the mutex's type out of this header and cost one jump.
MIREL_EXPORT int lockRegion(SpinLockState* state);
MIREL_EXPORT int unlockRegion(SpinLockState* state);

// The calling thread's pthread_self() value once the thread has used a lock, else 0.
// Initial-exec keeps the read a single thread-pointer-relative load.
MIREL_EXPORT extern __thread pthread_t tCurrentThread __attribute__((tls_model("initial-exec")));

}  // namespace detail

// The timeout that makes SpinLock::lock() wait without limit.
inline constexpr unsigned int kWaitForever = 0xFFFFFFFFu;

class MIREL_EXPORT SpinLock {
public:
    // `spinCount` is recorded when the machine has more than one processor and is otherwise
    // unused; the library passes 0.
    explicit SpinLock(unsigned long spinCount = 0);
    // Does not check whether the lock is held.
    ~SpinLock();

    // Waits at most `timeout` milliseconds (kWaitForever: without limit; 0: not at all). The
    // owner re-enters at once whatever the timeout. 0 when the caller holds the lock, else -1.
    int lock(unsigned int timeout) {
        detail::SpinLockState* s = state();
        const pthread_t self = detail::tCurrentThread;
        if (self != 0 && s->owner.load(std::memory_order_relaxed) == self) {
            s->count.store(s->count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
            return 0;
        }
        // Waiting without limit is the common case, and needs nothing but the mutex.
        if (timeout == kWaitForever && self != 0) {
            if (detail::lockRegion(s) != 0) return -1;
            s->owner.store(self, std::memory_order_relaxed);
            s->count.store(1, std::memory_order_relaxed);
            return 0;
        }
        return enter(timeout);
    }
    // lock() that never waits.
    int trylock() { return lock(0); }
    // Removes one level of the caller's ownership; the lock is free when none is left.
    // -1, with nothing changed, when the caller is not the owner.
    int unlock() {
        detail::SpinLockState* s = state();
        const pthread_t self = detail::tCurrentThread;
        // A thread that never took a lock has no identity yet, and so owns nothing.
        if (self == 0 || s->owner.load(std::memory_order_relaxed) != self) return -1;
        const std::int32_t count = s->count.load(std::memory_order_relaxed);
        if (count > 1) {
            s->count.store(count - 1, std::memory_order_relaxed);
            return 0;
        }
        s->count.store(0, std::memory_order_relaxed);
        s->owner.store(0, std::memory_order_relaxed);
        return detail::unlockRegion(s);
    }
    // Makes the caller the owner without waiting and without touching the depth.
    void stealOwnership();
    // stealOwnership() then unlock(): removes exactly one level, so a lock held twice stays
    // held, now by the caller.
    int forceUnlock();

    // The platform state, for the waiting primitives that share the lock's mutex.
    SpinLockData* data() const { return mData; }

    SpinLock(const SpinLock&) = delete;
    SpinLock& operator=(const SpinLock&) = delete;

private:
    // The paths above are inline: re-entry is one thread-local read and an increment, and
    // the first level is the mutex call itself. Waiting with a limit, and a thread's first
    // lock, go through here.
    int enter(unsigned int timeout);
    detail::SpinLockState* state() const;

    SpinLockData* mData;
};

// SpinLockData begins with its SpinLockState, so the state sits at the data's address.
inline detail::SpinLockState* SpinLock::state() const {
    return reinterpret_cast<detail::SpinLockState*>(mData);
}

// Holds `lock` (waiting without limit) for the life of the scope; results are discarded.
class MIREL_EXPORT CSMutex {
public:
    explicit CSMutex(SpinLock& lock) : mLock(lock) { mLock.lock(kWaitForever); }
    ~CSMutex() { mLock.unlock(); }

    CSMutex(const CSMutex&) = delete;
    CSMutex& operator=(const CSMutex&) = delete;

private:
    SpinLock& mLock;
};

// Atomically adds `delta` to `*value`; returns the value held before the addition.
MIREL_EXPORT long TestThenAdd(long volatile* value, long delta);

namespace detail {

// Elects exactly one creator of a lazily made process-wide lock: the first thread through
// the interlock creates it and publishes `inited`; every other thread sleeps a millisecond
// at a time until then. The creator never gives its interlock count back, so no second
// creator can ever be elected.
MIREL_EXPORT void initLazyLock(std::atomic<SpinLock*>& lock, std::atomic<std::int32_t>& inited,
                               long volatile& interlock);

// The statics and operations shared by the process-wide locks; each `Tag` has its own.
template <typename Tag>
class MIREL_EXPORT LazyLock {
public:
    // The lock, made on first call; null once shutdown() has destroyed it.
    static SpinLock* gGlobalLock();
    static void initGlobalLock();
    // Wait without limit.
    static int lock();
    static int trylock();
    static int unlock();
    // Destroys the lock, if made, for good: it is never made again. Before first use there
    // is nothing to destroy, and first use still makes the lock.
    static void shutdown();

    static std::atomic<SpinLock*> globalLock;
    // 1 once globalLock has been made; never cleared.
    static std::atomic<std::int32_t> globalLockInited;
    static long volatile globalLockInterlock;
};

}  // namespace detail

// A process-wide lock created on first use, with no initialisation call. shutdown() is
// one-way and belongs to process tear-down: once it has destroyed the lock, gGlobalLock() is
// null and lock(), trylock() and unlock() must not be called. The library guards its
// status-subsystem registry and first clock reading with it.
class MIREL_EXPORT GlobalLock : public detail::LazyLock<GlobalLock> {};

// A second process-wide lock, identical to GlobalLock, for the application; the library
// itself never takes it.
class MIREL_EXPORT BlockMainLock : public detail::LazyLock<BlockMainLock> {};

extern template class detail::LazyLock<GlobalLock>;
extern template class detail::LazyLock<BlockMainLock>;

}  // namespace mirel
