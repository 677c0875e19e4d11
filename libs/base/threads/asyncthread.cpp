// The worker group: a round barrier on the group's lock and semaphores, per-worker wake-ups
// and pending-round counts, and the worker loop that ties them together.
#include "base/threads/asyncthread.h"

#include <pthread.h>

#include "base/linux/linuxutil_p.h"
#include "base/system/system.h"

namespace mirel {

namespace {
// A double start is reported with this word on purpose, although its text speaks of a cache.
constexpr StatusCode kAlreadyStarted = status::kCacheNodeNotValid;
}  // namespace

AsyncThreadHandler::~AsyncThreadHandler() = default;

AsyncThread::ThreadInfo::ThreadInfo() : wake(0) {}

AsyncThread::AsyncThread(AsyncThreadHandler* h, unsigned long count)
    : handler(h),
      threadCount(static_cast<std::uint32_t>(count)),
      threads(new ThreadInfo[threadCount]),
      lock(0),
      rendezvous{Semaphore(0), Semaphore(0), Semaphore(0)} {
    for (std::uint32_t i = 0; i < threadCount; ++i) threads[i].owner = this;
}

AsyncThread::~AsyncThread() {
    if (started.load(std::memory_order_acquire) != 0) exitThreads();
    delete[] threads;
}

int AsyncThread::syncThreads(unsigned long parties) {
    lock.lock(kWaitForever);
    Semaphore& gate = currentGate();
    ++arrivals;
    // Workers that have left count as arrived: they will never come again.
    if (static_cast<unsigned long>(arrivals) + mDeparted < parties) {
        lock.unlock();
        return gate.wait();
    }
    releaseRendezvous();
    lock.unlock();
    return 0;
}

// The caller holds `lock`. A rendezvous releases its waiters through a semaphore of its own:
// with a single one, a released thread that came straight back could take a release still
// meant for a slow waiter of the rendezvous before, and run a round ahead of it. Rounds
// alternate between two semaphores; a round cannot complete before every waiter of the one
// before has left and arrived again, so by the time a semaphore is used again, all of its
// earlier releases have been taken. The starting rendezvous has one more party, the thread
// in startThreads(), which never arrives again: it gets a third semaphore to itself.
Semaphore& AsyncThread::currentGate() { return rendezvous[mRound == 0 ? 2 : (mRound & 1u)]; }

// The caller holds `lock`: releases every thread waiting at the current rendezvous and leaves
// `arrivals` at 0 for the next.
void AsyncThread::releaseRendezvous() {
    Semaphore& gate = currentGate();
    arrivals -= 1;  // the caller is the one arrival that does not wait
    while (arrivals > 0) {
        gate.post();
        --arrivals;
    }
    arrivals = 0;
    ++mRound;
}

StatusCode AsyncThread::startThreads() {
    if (started.load(std::memory_order_acquire) != 0 || mClaimed.exchange(true)) {
        return kAlreadyStarted;
    }
    lock.lock(kWaitForever);
    exiting.store(0, std::memory_order_relaxed);
    lock.unlock();
    for (std::uint32_t i = 0; i < threadCount; ++i) {
        ThreadInfo& t = threads[i];
        t.thread = 0;
        // Meant to drain stale wake-ups, but trywait(0) never takes a unit, so this runs once
        // and drains nothing; kept as it is.
        while (t.wake.trywait(0) == 0) {
        }
        // One round signalled the way ready() signals it, pending count and wake-up
        // together, so that the first round runs at once whatever the idle wait.
        t.pending.store(1, std::memory_order_relaxed);
        t.wake.post();
    }
    for (std::uint32_t i = 0; i < threadCount; ++i) {
        threads[i].thread = System::spawn(asyncFunc, &threads[i]);
    }
    syncThreads(threadCount + 1ul);
    lock.lock(kWaitForever);
    started.store(1, std::memory_order_release);
    lock.unlock();
    return 0;
}

void* AsyncThread::asyncFunc(void* info) {
    auto* record = static_cast<ThreadInfo*>(info);
    AsyncThread* group = record->owner;
    group->asyncHandler(record);
    TestThenAdd(&group->liveCount, -1);
    return nullptr;
}

void AsyncThread::asyncHandler(ThreadInfo* info) {
    TestThenAdd(&liveCount, 1);
    unsigned long parties = threadCount + 1ul;  // the first rendezvous includes the starter
    for (;;) {
        syncThreads(parties);
        parties = threadCount;
        lock.lock(kWaitForever);
        if (exiting.load(std::memory_order_relaxed) != 0) {
            lock.unlock();
            break;
        }
        const std::uint32_t pending = info->pending.load(std::memory_order_relaxed);
        if (pending != 0) info->pending.store(pending - 1, std::memory_order_relaxed);
        const bool noWorkLeft = pending <= 1;
        lock.unlock();
        // Timed out or woken, the round runs: an idle worker is a ticker.
        if (noWorkLeft) info->wake.trywait(idleWaitTries.load(std::memory_order_relaxed));
        if (exiting.load(std::memory_order_acquire) != 0) break;
        handler->handleAsync();
    }
    info->pending.store(0, std::memory_order_relaxed);
    // Workers see the exit at different points of a round: one may already wait at the next
    // rendezvous when another decides to leave. Leaving counts as arriving for good, so the
    // ones still waiting are released, see the exit and leave in turn.
    CSMutex hold(lock);
    ++mDeparted;
    if (arrivals > 0 && static_cast<std::uint32_t>(arrivals) + mDeparted >= threadCount) {
        ++arrivals;  // stands in for the departed worker, the one arrival that does not wait
        releaseRendezvous();
    }
}

int AsyncThread::ready() {
    if (started.load(std::memory_order_acquire) == 0) return 0;
    CSMutex hold(lock);
    for (std::uint32_t i = 0; i < threadCount; ++i) {
        ThreadInfo& t = threads[i];
        const std::uint32_t pending = t.pending.load(std::memory_order_relaxed);
        // A worker with two rounds in hand is left alone: further signals merge.
        if (pending >= 2) continue;
        // Only a worker with nothing pending is, or is about to be, waiting for a wake-up.
        if (pending == 0) t.wake.post();
        t.pending.store(pending + 1, std::memory_order_relaxed);
    }
    return 0;
}

int AsyncThread::exitThreads() {
    if (started.load(std::memory_order_acquire) == 0) return 0;
    const pthread_t self = pthread_self();
    for (std::uint32_t i = 0; i < threadCount; ++i) {
        if (threads[i].thread != 0 && pthread_equal(threads[i].thread, self)) return -1;
    }
    lock.lock(kWaitForever);
    exiting.store(1, std::memory_order_release);
    for (std::uint32_t i = 0; i < threadCount; ++i) {
        if (threads[i].pending.load(std::memory_order_relaxed) == 0) threads[i].wake.post();
    }
    lock.unlock();
    while (__atomic_load_n(&liveCount, __ATOMIC_ACQUIRE) != 0) linuxutil::sleepMilliseconds(10);
    // Every worker has left its loop; joining only reclaims the threads.
    for (std::uint32_t i = 0; i < threadCount; ++i) {
        if (threads[i].thread != 0) {
            System::join(threads[i].thread);
            threads[i].thread = 0;
        }
    }
    exiting.store(0, std::memory_order_relaxed);
    return 0;
}

}  // namespace mirel
