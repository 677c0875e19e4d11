#include "base/threads/semaphore.h"

#include <gtest/gtest.h>

#include <thread>

#include "base/system/system.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::Stopwatch;

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

}  // namespace
}  // namespace mirel
