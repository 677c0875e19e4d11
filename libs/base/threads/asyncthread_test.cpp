#include "base/threads/asyncthread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "base/status/statuscode.h"
#include "base/system/system.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::Stopwatch;

// Counts calls; optionally runs a body on each.
class CountingHandler : public AsyncThreadHandler {
public:
    void handleAsync() override {
        if (body) body();
        calls.fetch_add(1);
    }
    std::function<void()> body;
    std::atomic<long> calls{0};
};

// Waits until `done()` holds, for at most `ms`.
bool eventually(const std::function<bool()>& done, int ms = 5000) {
    Stopwatch clock;
    while (!done()) {
        if (clock.elapsedMs() > ms) return false;
        System::sleep(1);
    }
    return true;
}

long liveCountOf(AsyncThread& group) { return __atomic_load_n(&group.liveCount, __ATOMIC_ACQUIRE); }

TEST(AsyncThread, NoWorkerStartsARoundBeforeAllFinishedThePrevious) {
    constexpr long kWorkers = 4, kRounds = 600;
    CountingHandler handler;
    std::atomic<long> overlaps{0};
    // Each worker numbers its own rounds: entering round k, it must find every call of rounds
    // 1..k-1 finished, by all workers, or some worker ran ahead of a slower one.
    handler.body = [&] {
        thread_local long round = 0;
        if (handler.calls.load() < round++ * kWorkers) overlaps.fetch_add(1);
        std::this_thread::yield();  // lets the others into this round, for an early leaver to overtake
    };
    AsyncThread group(&handler, kWorkers);
    group.idleWaitTries = 0;  // back-to-back rounds: the hardest case for the round barrier
    ASSERT_EQ(group.startThreads(), 0u);
    ASSERT_TRUE(eventually([&] { return handler.calls >= kWorkers * kRounds; }, 60000));
    EXPECT_EQ(group.exitThreads(), 0);
    EXPECT_EQ(overlaps, 0) << "rounds overlapped";
    EXPECT_EQ(liveCountOf(group), 0);
}

// Idle workers here wait for ready() without limit: the first round must not depend on it,
// signals before the start leave no trace, and exitThreads() must wake the workers to leave.
TEST(AsyncThread, StartRunsOneRoundAtOnceAndExitWakesIdleWorkers) {
    CountingHandler handler;
    AsyncThread group(&handler, 3);
    group.idleWaitTries = -1;
    EXPECT_EQ(group.ready(), 0);
    EXPECT_EQ(group.exitThreads(), 0);
    ASSERT_EQ(group.startThreads(), 0u);
    EXPECT_EQ(liveCountOf(group), 3) << "startThreads returned before every worker was in";
    ASSERT_TRUE(eventually([&] { return handler.calls >= 3; })) << "no first round";
    System::sleep(100);
    EXPECT_EQ(handler.calls, 3) << "exactly one round without a signal";

    EXPECT_EQ(group.exitThreads(), 0);
    EXPECT_EQ(liveCountOf(group), 0);
    EXPECT_EQ(handler.calls, 3) << "leaving must not run a round";
}

// The refusal is reported with this word on purpose, although its text speaks of a cache.
TEST(AsyncThread, AGroupStartsOnceOnlyEvenWhenStartsRace) {
    CountingHandler handler;
    AsyncThread group(&handler, 2);
    group.idleWaitTries = 20000;
    std::atomic<int> zeros{0}, refused{0};
    testing::runTogether(3, [&](int) {
        const StatusCode rc = group.startThreads();
        if (rc == 0) ++zeros;
        if (rc == status::kCacheNodeNotValid) ++refused;
    });
    EXPECT_EQ(zeros, 1);
    EXPECT_EQ(refused, 2);
    EXPECT_EQ(liveCountOf(group), 2);
    EXPECT_EQ(group.exitThreads(), 0);
    EXPECT_EQ(group.startThreads(), status::kCacheNodeNotValid) << "restarted after exitThreads";
    EXPECT_EQ(liveCountOf(group), 0) << "the refused start spawned workers";
}

// A worker's own exitThreads() could never see itself leave; the group's destructor stops
// the workers rather than leave them on freed memory.
TEST(AsyncThread, ExitFromAWorkerIsRefusedAndDestroyingARunningGroupStopsIt) {
    CountingHandler handler;
    std::atomic<int> fromWorker{1};
    {
        AsyncThread group(&handler, 2);
        group.idleWaitTries = 0;
        // The first round may run before startThreads() has marked the group started.
        handler.body = [&] {
            if (group.started != 0) fromWorker = group.exitThreads();
        };
        ASSERT_EQ(group.startThreads(), 0u);
        ASSERT_TRUE(eventually([&] { return handler.calls >= 10 && fromWorker != 1; }));
    }
    EXPECT_EQ(fromWorker, -1);
    const long after = handler.calls;
    System::sleep(30);
    EXPECT_EQ(handler.calls, after) << "workers still running after the group was destroyed";
}

// Idle ticks and signals ---------------------------------------------------------------------

TEST(AsyncThread, IdleWorkersTickAfterTheirWaitRunsOut) {
    CountingHandler handler;
    AsyncThread group(&handler, 2);
    group.idleWaitTries = 50;
    Stopwatch clock;
    ASSERT_EQ(group.startThreads(), 0u);
    ASSERT_TRUE(eventually([&] { return handler.calls >= 2 * 4; }, 10000))
        << "idle workers stopped ticking";
    const double ms = clock.elapsedMs();
    EXPECT_EQ(group.exitThreads(), 0);
    // The first round runs at once, the three after it wait out the idle limit.
    EXPECT_GE(ms, 3 * 45.0) << "rounds came faster than the idle wait allows";
}

TEST(AsyncThread, ReadyGivesOneRoundAtOnceAndSignalsBeyondTwoWhileBusyMerge) {
    CountingHandler handler;
    AsyncThread group(&handler, 2);
    group.idleWaitTries = 20000;
    Semaphore gate(0);
    std::atomic<int> inFirstRound{0};
    std::atomic<bool> firstRoundDone{false};
    handler.body = [&] {
        if (!firstRoundDone) {
            ++inFirstRound;
            gate.wait();
        }
    };
    ASSERT_EQ(group.startThreads(), 0u);
    ASSERT_TRUE(eventually([&] { return inFirstRound == 2; }));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(group.ready(), 0);
    firstRoundDone = true;
    gate.post();
    gate.post();
    ASSERT_TRUE(eventually([&] { return handler.calls >= 6; }));
    System::sleep(150);
    EXPECT_EQ(handler.calls, 6) << "three signals while busy must give exactly two rounds";

    // Idle again, each signal gives one round at once, not after the idle limit.
    for (long round = 4; round <= 5; ++round) {
        EXPECT_EQ(group.ready(), 0);
        ASSERT_TRUE(eventually([&] { return handler.calls >= 2 * round; })) << "round " << round;
    }
    System::sleep(50);
    EXPECT_EQ(handler.calls, 10) << "one ready() gave more than one round";
    EXPECT_EQ(group.exitThreads(), 0);
}

}  // namespace
}  // namespace mirel
