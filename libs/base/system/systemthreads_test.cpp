#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>

#include "base/system/system.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

// Spawn and join -----------------------------------------------------------------------------

struct Seen {
    std::atomic<int> ran{0};
    pthread_t self[64] = {};
};

// The start record belongs to the new thread; the leak checker of the ASan build fails this
// test if any of the records is not freed.
TEST(SystemThreads, SpawnedThreadsRunTheirBodyAsThemselvesAndJoin) {
    Seen seen;
    pthread_t threads[64];
    for (auto& t : threads) {
        t = System::spawn(
            [](void* arg) -> void* {
                auto* s = static_cast<Seen*>(arg);
                s->self[s->ran.fetch_add(1)] = System::getCurrentThread();
                return nullptr;
            },
            &seen);
        ASSERT_NE(t, pthread_t{0});
    }
    for (auto t : threads) EXPECT_EQ(System::join(t), 0);
    ASSERT_EQ(seen.ran.load(), 64);
    for (pthread_t self : seen.self) {
        EXPECT_EQ(std::count_if(std::begin(threads), std::end(threads),
                                [&](pthread_t t) { return pthread_equal(t, self); }),
                  1);
    }
    // The platform's error passes through.
    EXPECT_EQ(System::join(System::getCurrentThread()), EDEADLK);
}

// The main-thread mark ------------------------------------------------------------

TEST(SystemThreads, OnlyTheThreadMarkedWithTheMainValueIsMain) {
    ASSERT_EQ(System::setMainThreadId(System::kMainThreadMark), 0);
    EXPECT_TRUE(System::isMainThread());
    bool mainElsewhere = true, markedElsewhere = true;
    std::thread([&] {
        mainElsewhere = System::isMainThread();
        System::setMainThreadId(1);
        markedElsewhere = System::isMainThread();
    }).join();
    EXPECT_FALSE(mainElsewhere);
    EXPECT_FALSE(markedElsewhere);
    EXPECT_TRUE(System::isMainThread()) << "another thread's mark must not touch ours";
    ASSERT_EQ(System::setMainThreadId(1), 0);
    EXPECT_FALSE(System::isMainThread());
    System::setMainThreadId(System::kMainThreadMark);
}

// Sleep ----------------------------------------------------------------------------------------

TEST(SystemSleep, SleepsSecondsAndMillisecondsAndRefusesNegativeTimes) {
    testing::Stopwatch clock;
    EXPECT_EQ(System::sleep(1050), 0);
    EXPECT_GE(clock.elapsedMs(), 1045.0);
    EXPECT_LT(clock.elapsedMs(), 3000.0);

    testing::Stopwatch atOnce;
    EXPECT_EQ(System::sleep(0), 0);
    errno = 0;
    EXPECT_EQ(System::sleep(-5), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_LT(atOnce.elapsedMs(), 1000.0);
}

}  // namespace
}  // namespace mirel
