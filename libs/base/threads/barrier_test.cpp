#include "base/threads/barrier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "base/system/system.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::runTogether;
using testing::Stopwatch;

// One round --------------------------------------------------------------------------------

TEST(Barrier, NobodyLeavesBeforeTheLastArrivesAndTheLastReleasesAll) {
    Barrier barrier(3);
    std::atomic<int> left{0};
    std::vector<std::thread> early;
    for (int i = 0; i < 2; ++i) {
        early.emplace_back([&] {
            barrier.enter();
            ++left;
        });
    }
    System::sleep(50);
    EXPECT_EQ(left, 0) << "released before the third party arrived";
    barrier.enter();  // the third party: must not block
    for (auto& t : early) t.join();
    EXPECT_EQ(left, 2);
}

TEST(Barrier, ASinglePartyOrFewerNeverBlocks) {
    for (int parties : {1, 0, -3}) {
        Barrier barrier(parties);
        Stopwatch clock;
        for (int i = 0; i < 1000; ++i) barrier.enter();
        EXPECT_LT(clock.elapsedMs(), 2000.0) << "parties " << parties;
    }
}

// Many rounds ------------------------------------------------------------------------------

// Every enter() returns once all its round's parties are in: no thread may ever have left
// more often than complete rounds allow, and after R rounds each all R*N calls are back.
TEST(Barrier, ReusedRoundsReleaseExactlyOncePerArrival) {
    constexpr int kThreads = 4, kRounds = 400;
    Barrier barrier(kThreads);
    std::atomic<long> arrived{0}, left{0}, early{0};
    runTogether(kThreads, [&](int) {
        for (int r = 0; r < kRounds; ++r) {
            arrived.fetch_add(1);
            barrier.enter();
            const long out = left.fetch_add(1) + 1;
            const long complete = arrived.load() / kThreads * kThreads;
            if (out > complete) early.fetch_add(1);
        }
    });
    EXPECT_EQ(early, 0) << "a thread left a round that was not complete";
    EXPECT_EQ(left, long{kThreads} * kRounds);
}

}  // namespace
}  // namespace mirel
