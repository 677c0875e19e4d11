// AsyncThread: a fixed group of worker threads that call one handler in lock-step rounds.
//
// In every round each worker calls AsyncThreadHandler::handleAsync() once, and no worker
// starts its next round before every worker has finished the current one. Between rounds an
// idle worker waits for the owner's ready(), but at most `idleWaitTries` milliseconds: when
// the wait runs out it runs a round anyway, so the group doubles as a periodic ticker.
//
//   AsyncThread group(&handler, 4);
//   group.idleWaitTries = 100;   // tick at least every ~100 ms
//   group.startThreads();        // every worker runs a first round at once
//   group.ready();               // one more round, now
//   group.exitThreads();         // workers leave; the group cannot be started again
//
// Signals are merged: a worker holds at most two rounds of signalled work, so ready() calls
// made while the workers are busy give at most two further rounds.
#pragma once

#include <sys/types.h>  // pthread_t, and nothing else of the platform's thread API

#include <atomic>
#include <cstdint>

#include "base/mirel_export.h"
#include "base/status/statuscode.h"
#include "base/threads/semaphore.h"
#include "base/threads/spinlock.h"

namespace mirel {

// The owner's work. handleAsync() runs on every worker at once, so it must be safe to call
// concurrently. The group does not own its handler.
class MIREL_EXPORT AsyncThreadHandler {
public:
    virtual void handleAsync() = 0;
    virtual ~AsyncThreadHandler();
};

class MIREL_EXPORT AsyncThread {
public:
    // One worker's record. `pending` counts rounds signalled and not yet taken (at most 2).
    struct MIREL_EXPORT ThreadInfo {
        ThreadInfo();
        AsyncThread* owner = nullptr;
        pthread_t thread = 0;   // 0 before start and after the worker was joined
        Semaphore wake;         // posted by ready() and exitThreads()
        std::atomic<std::uint32_t> pending{0};
    };

    // A group of `threadCount` workers for `handler`; nothing starts yet.
    AsyncThread(AsyncThreadHandler* handler, unsigned long threadCount);
    // Call exitThreads() first; a group still running is stopped here rather than left with
    // workers on freed memory.
    ~AsyncThread();

    // Starts the workers and returns once all of them have reached their first rendezvous;
    // each then runs one round at once. 0, or status::kCacheNodeNotValid when the group was
    // started before (also after exitThreads(): a group runs once).
    StatusCode startThreads();
    // Signals one more round of work to every worker. Does nothing before startThreads().
    // Returns 0.
    int ready();
    // Stops the workers and waits until every one has left (polling every 10 ms) and has
    // been joined. 0; -1 without effect when called from one of the group's own workers,
    // which could never see itself leave.
    int exitThreads();
    // The round barrier: blocks until `parties` threads have called it. 0, or -1 when the
    // wait failed.
    int syncThreads(unsigned long parties);

    // The thread body handed to System::spawn; `info` is a ThreadInfo of this group.
    static void* asyncFunc(void* info);
    // The worker loop.
    void asyncHandler(ThreadInfo* info);

    AsyncThread(const AsyncThread&) = delete;
    AsyncThread& operator=(const AsyncThread&) = delete;

    // The group's state, open to inspection. The owner sets idleWaitTries and may read
    // liveCount (with an atomic load); everything else belongs to the group.
    AsyncThreadHandler* handler;
    std::atomic<std::int32_t> exiting{0};   // set while exitThreads() waits for the workers
    std::atomic<std::int32_t> started{0};   // set by startThreads(); never cleared
    std::uint32_t threadCount;
    long volatile liveCount = 0;            // workers inside their body; only via TestThenAdd
    ThreadInfo* threads;
    SpinLock lock;                          // guards started, exiting, arrivals and pending
    // The round barrier's waiters: [2] at the starting rendezvous, then by round parity.
    Semaphore rendezvous[3];
    std::int32_t arrivals = 0;              // arrivals at the current rendezvous
    // How long an idle worker waits for ready(), in 1 ms polls: negative without limit, 0
    // not at all. Set it before startThreads(); -1 until then.
    std::atomic<std::int32_t> idleWaitTries{-1};

private:
    Semaphore& currentGate();
    void releaseRendezvous();

    std::uint32_t mRound = 0;               // rendezvous completed; guarded by `lock`
    std::uint32_t mDeparted = 0;            // workers that have left; guarded by `lock`
    std::atomic<bool> mClaimed{false};      // one startThreads() only, even when raced
};

}  // namespace mirel
