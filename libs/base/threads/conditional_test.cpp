#include "base/threads/conditional.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "base/system/system.h"
#include "base/testing/lockholder.h"
#include "base/testing/testutil.h"
#include "base/threads/spinlock.h"

namespace mirel {
namespace {

using testing::Stopwatch;
using testing::takenElsewhere;

// The deadline is 32-bit arithmetic on purpose, so a limit past its range (here 50 minutes)
// must not become a wait of that length either: it wraps to a deadline the platform refuses.
TEST(Conditional, TimedwaitRunsOutAndHandsTheLockBackAtItsDepth) {
    SpinLock lock;
    Conditional cond;
    lock.lock(kWaitForever);
    lock.lock(kWaitForever);
    Stopwatch clock;
    EXPECT_EQ(cond.timedwait(lock, 50), -1);
    EXPECT_GE(clock.elapsedMs(), 45.0);
    EXPECT_LT(clock.elapsedMs(), 2000.0);
    for (unsigned long ms : {0ul, 3000000ul}) {
        Stopwatch quick;
        EXPECT_EQ(cond.timedwait(lock, ms), -1) << ms;
        EXPECT_LT(quick.elapsedMs(), 1000.0) << ms;
    }
    EXPECT_EQ(lock.unlock(), 0) << "the waiter no longer owns the lock";
    EXPECT_TRUE(takenElsewhere(lock)) << "the depth of 2 was lost";
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_FALSE(takenElsewhere(lock));
}

// `waiters` threads wait with a limit of 10 s, so that a wake-up that misses one fails here
// instead of hanging; returns how many were woken well before it.
int wokenBy(int waiters, int (Conditional::*wake)()) {
    SpinLock lock;
    Conditional cond;
    int waiting = 0, woken = 0;
    bool go = false;  // all guarded by `lock`
    std::vector<std::thread> threads;
    for (int i = 0; i < waiters; ++i) {
        threads.emplace_back([&] {
            CSMutex hold(lock);
            ++waiting;
            Stopwatch clock;
            while (!go && cond.timedwait(lock, 10000) == 0) {
            }
            if (go && clock.elapsedMs() < 5000.0) ++woken;
        });
    }
    for (bool all = false; !all; System::sleep(1)) {
        CSMutex hold(lock);
        all = waiting == waiters;
    }
    {
        CSMutex hold(lock);
        go = true;
        (cond.*wake)();
    }
    for (auto& t : threads) t.join();
    return woken;
}

TEST(Conditional, SignalWakesAWaiterAndBroadcastWakesEveryOne) {
    EXPECT_EQ(wokenBy(1, &Conditional::signal), 1);
    EXPECT_EQ(wokenBy(4, &Conditional::broadcast), 4);
}

// Another thread takes and releases the lock while the waiter is blocked. Unless the waiter's
// ownership is restored when it wakes, its unlock() is refused and the mutex stays locked.
TEST(Conditional, WaiterOwnsTheLockAgainAfterOthersUsedItMeanwhile) {
    SpinLock lock;
    Conditional cond;
    bool ready = false;  // guarded by `lock`
    lock.lock(kWaitForever);
    lock.lock(kWaitForever);
    std::thread other([&] {  // can take the lock only once the waiter waits
        CSMutex hold(lock);
        CSMutex nested(lock);
        ready = true;
        cond.signal();
    });
    while (!ready) cond.wait(lock);
    EXPECT_EQ(lock.unlock(), 0) << "the waiter no longer owns the lock";
    EXPECT_EQ(lock.unlock(), 0) << "the depth of 2 was lost";
    other.join();
    EXPECT_FALSE(takenElsewhere(lock)) << "the lock was left held";
}

TEST(Conditional, WaitWithoutHoldingTheLockIsRefused) {
    SpinLock lock;
    Conditional cond;
    EXPECT_EQ(cond.wait(lock), -1);
    EXPECT_EQ(cond.timedwait(lock, 10), -1);
    testing::LockHolder holder(lock);
    EXPECT_EQ(cond.wait(lock), -1) << "the lock is held, but by another thread";
}

}  // namespace
}  // namespace mirel
