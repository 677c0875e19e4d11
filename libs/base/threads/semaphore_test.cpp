#include "base/threads/semaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "base/system/system.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::Stopwatch;

TEST(Semaphore, TrywaitTakesExactlyTheUnitsThatWerePosted) {
    Semaphore s(0);
    EXPECT_EQ(s.trywait(), -1) << "an empty semaphore gave a unit";
    EXPECT_EQ(s.post(), 0);
    EXPECT_EQ(s.trywait(), 0);
    EXPECT_EQ(s.trywait(), -1) << "one post gave two units";

    Semaphore three(3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(three.trywait(), 0) << "initial unit " << i;
    EXPECT_EQ(three.trywait(), -1) << "more units than the initial count";
}

TEST(Semaphore, CountOutsideThePlatformRangeIsRefusedNotUndefined) {
    Semaphore negative(-1);
    EXPECT_EQ(negative.post(), -1);
    EXPECT_EQ(negative.trywait(), -1);
    EXPECT_EQ(negative.wait(), -1) << "must fail, not block on an unmade semaphore";

    Semaphore tooBig(0x80000000L);
    EXPECT_EQ(tooBig.trywait(), -1);

    Semaphore full(0x7FFFFFFF);
    EXPECT_EQ(full.post(), -1) << "a post beyond the maximum must be refused";
    EXPECT_EQ(full.trywait(), 0);
    EXPECT_EQ(full.post(), 0);
}

// Each try that fails sleeps a millisecond; zero tries make no try at all.
TEST(Semaphore, PollingMakesExactlyTheTriesAskedFor) {
    Semaphore s(1);
    EXPECT_EQ(s.trywait(0), -1);
    EXPECT_EQ(s.trywait(1), 0) << "a unit there at once, or trywait(0) took it";

    Stopwatch clock;
    EXPECT_EQ(s.trywait(30), -1);
    EXPECT_GE(clock.elapsedMs(), 28.0) << "gave up before sleeping after each try";
    EXPECT_LT(clock.elapsedMs(), 2000.0);

    // Negative tries wait without limit.
    for (long tries : {5000L, -5L}) {
        std::thread poster([&] {
            System::sleep(30);
            s.post();
        });
        EXPECT_EQ(s.trywait(tries), 0) << "a unit posted meanwhile, tries " << tries;
        poster.join();
        EXPECT_EQ(s.trywait(), -1) << "the polled unit was not taken, tries " << tries;
    }
}

// Threads 0 and 1 post; 2 waits with wait() and 3 with negative tries.
TEST(Semaphore, EveryPostIsTakenOnceByExactlyOneWaiter) {
    Semaphore s(0);
    constexpr int kPerThread = 5000;
    std::atomic<long> taken{0};
    testing::runTogether(4, [&](int index) {
        for (int i = 0; i < kPerThread; ++i) {
            if (index < 2) {
                ASSERT_EQ(s.post(), 0);
            } else {
                ASSERT_EQ(index == 2 ? s.wait() : s.trywait(-5), 0);
                ++taken;
            }
        }
    });
    EXPECT_EQ(taken, 2 * kPerThread);
    EXPECT_EQ(s.trywait(), -1) << "units left over";
}

}  // namespace
}  // namespace mirel
