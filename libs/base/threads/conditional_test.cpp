#include "base/threads/conditional.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "base/system/system.h"
#include "base/testing/testutil.h"
#include "base/threads/spinlock.h"

namespace mirel {
namespace {

using testing::runTogether;
using testing::takenElsewhere;
using testing::Stopwatch;

// Time-outs --------------------------------------------------------------------------------

TEST(Conditional, TimedwaitRunsOutAndHandsTheLockBackAtItsDepth) {
    SpinLock lock;
    Conditional cond;
    lock.lock(kWaitForever);
    lock.lock(kWaitForever);
    Stopwatch clock;
    EXPECT_EQ(cond.timedwait(lock, 50), -1);
    const double ms = clock.elapsedMs();
    EXPECT_GE(ms, 45.0);
    EXPECT_LT(ms, 2000.0);
    EXPECT_EQ(lock.unlock(), 0) << "the waiter no longer owns the lock";
    EXPECT_TRUE(takenElsewhere(lock)) << "the depth of 2 was lost";
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_FALSE(takenElsewhere(lock));
}

// A zero limit has passed already. The deadline is 32-bit arithmetic on purpose, so a limit
// past its range (here 50 minutes) must not become a wait of that length either: it wraps to
// a deadline the platform refuses.
TEST(Conditional, ZeroAndOutOfRangeLimitsEndAtOnce) {
    SpinLock lock;
    Conditional cond;
    CSMutex hold(lock);
    for (unsigned long ms : {0ul, 3000000ul}) {
        Stopwatch clock;
        EXPECT_EQ(cond.timedwait(lock, ms), -1) << ms;
        EXPECT_LT(clock.elapsedMs(), 1000.0) << ms;
    }
}

// Waking -----------------------------------------------------------------------------------

TEST(Conditional, SignalEndsATimedWaitLongBeforeItsLimit) {
    SpinLock lock;
    Conditional cond;
    bool flag = false;  // guarded by `lock`
    int result = 1;
    Stopwatch clock;
    std::thread waiter([&] {
        CSMutex hold(lock);
        while (!flag) {
            result = cond.timedwait(lock, 20000);
            if (result != 0) break;
        }
    });
    System::sleep(30);
    {
        CSMutex hold(lock);
        flag = true;
        cond.signal();
    }
    waiter.join();
    EXPECT_EQ(result, 0);
    EXPECT_LT(clock.elapsedMs(), 10000.0);
}

TEST(Conditional, BroadcastWakesEveryWaiter) {
    SpinLock lock;
    Conditional cond;
    int go = 0, waiting = 0;  // guarded by `lock`
    constexpr int kWaiters = 4;
    std::vector<std::thread> waiters;
    std::atomic<int> woke{0};
    for (int i = 0; i < kWaiters; ++i) {
        waiters.emplace_back([&] {
            CSMutex hold(lock);
            ++waiting;
            while (go == 0) cond.wait(lock);
            ++woke;
        });
    }
    for (;;) {
        lock.lock(kWaitForever);
        const int seen = waiting;
        lock.unlock();
        if (seen == kWaiters) break;
        System::sleep(1);
    }
    {
        CSMutex hold(lock);
        go = 1;
        cond.broadcast();
    }
    for (auto& t : waiters) t.join();
    EXPECT_EQ(woke, kWaiters);
}

// Ownership across the wait ------------------------------------------------------------------

// Others take and release the lock while the waiter is blocked. Unless the waiter's
// ownership is restored when it wakes, its unlock() is refused and the mutex stays locked.
TEST(Conditional, WaiterOwnsTheLockAgainAfterOthersUsedItMeanwhile) {
    SpinLock lock;
    Conditional cond;
    long items = 0;  // guarded by `lock`
    long consumed = 0;
    constexpr int kProducers = 2, kPerProducer = 3000;
    std::atomic<int> badUnlocks{0};
    runTogether(kProducers + 1, [&](int index) {
        if (index < kProducers) {
            for (int i = 0; i < kPerProducer; ++i) {
                CSMutex hold(lock);
                CSMutex nested(lock);  // producers hold it two levels deep
                ++items;
                cond.signal();
            }
            return;
        }
        while (consumed < long{kProducers} * kPerProducer) {
            lock.lock(kWaitForever);
            while (items == 0) cond.wait(lock);
            consumed += items;
            items = 0;
            if (lock.unlock() != 0) {
                ++badUnlocks;
                return;
            }
        }
    });
    EXPECT_EQ(badUnlocks, 0);
    EXPECT_EQ(consumed, long{kProducers} * kPerProducer);
    EXPECT_FALSE(takenElsewhere(lock)) << "the lock was left held";
}

TEST(Conditional, WaitWithoutHoldingTheLockIsRefused) {
    SpinLock lock;
    Conditional cond;
    EXPECT_EQ(cond.wait(lock), -1);
    EXPECT_EQ(cond.timedwait(lock, 10), -1);

    std::atomic<bool> held{false}, release{false};
    std::thread owner([&] {
        lock.lock(kWaitForever);
        held = true;
        while (!release) System::sleep(1);
        lock.unlock();
    });
    while (!held) System::sleep(1);
    EXPECT_EQ(cond.wait(lock), -1) << "the lock is held, but by another thread";
    release = true;
    owner.join();
}

}  // namespace
}  // namespace mirel
