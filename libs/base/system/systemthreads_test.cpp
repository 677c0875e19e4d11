#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <thread>

#include "base/system/system.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::Stopwatch;

// Spawn and join ---------------------------------------------------------------------------

void* doubleIt(void* arg) {
    auto* v = static_cast<std::intptr_t*>(arg);
    *v *= 2;
    return reinterpret_cast<void*>(std::intptr_t{0x5EED});
}

TEST(SystemThreads, SpawnRunsTheBodyWithItsArgumentAndJoinReturnsZero) {
    std::intptr_t value = 21;
    pthread_t t = System::spawn(doubleIt, &value);
    ASSERT_NE(t, pthread_t{0});
    EXPECT_EQ(System::join(t), 0);
    EXPECT_EQ(value, 42);
}

// The start record belongs to the new thread; the leak checker of the ASan build fails this
// test if any of the records is not freed.
TEST(SystemThreads, ManySpawnedThreadsAllRunAndFreeTheirRecords) {
    constexpr int kThreads = 64;
    std::atomic<int> ran{0};
    pthread_t threads[kThreads];
    for (auto& t : threads) {
        t = System::spawn(
            [](void* arg) -> void* {
                static_cast<std::atomic<int>*>(arg)->fetch_add(1);
                return nullptr;
            },
            &ran);
        ASSERT_NE(t, pthread_t{0});
    }
    for (auto t : threads) EXPECT_EQ(System::join(t), 0);
    EXPECT_EQ(ran.load(), kThreads);
}

TEST(SystemThreads, JoinPassesThePlatformErrorThrough) {
    pthread_t t = System::spawn([](void*) -> void* { return nullptr; }, nullptr);
    ASSERT_EQ(System::join(t), 0);
    pthread_t self = System::getCurrentThread();
    EXPECT_EQ(System::join(self), EDEADLK);
}

TEST(SystemThreads, CurrentThreadIsTheCallersOwn) {
    pthread_t inside = 0;
    pthread_t t = System::spawn(
        [](void* arg) -> void* {
            *static_cast<pthread_t*>(arg) = System::getCurrentThread();
            return nullptr;
        },
        &inside);
    System::join(t);
    EXPECT_TRUE(pthread_equal(inside, t));
    EXPECT_FALSE(pthread_equal(inside, System::getCurrentThread()));
}

// Thread-local storage and the main-thread mark --------------------------------------------

TEST(SystemThreads, ThreadStorageIsPerThread) {
    unsigned long key = System::createThreadKey();
    int mine = 1, theirs = 2;
    ASSERT_EQ(System::setThreadStorage(key, &mine), 0);
    void* seenThere = &mine;
    std::thread([&] {
        seenThere = System::getThreadStorage(key);
        System::setThreadStorage(key, &theirs);
    }).join();
    EXPECT_EQ(seenThere, nullptr) << "a new thread starts with no value";
    EXPECT_EQ(System::getThreadStorage(key), &mine);
}

// Runs in a fresh process so that no earlier test has marked a thread.
TEST(SystemThreadsDeathTest, NoThreadIsMainBeforeAnyMark) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(System::isMainThread() ? 1 : 0), ::testing::ExitedWithCode(0), "");
}

TEST(SystemThreads, OnlyTheThreadMarkedWithTheMainValueIsMain) {
    ASSERT_EQ(System::setMainThreadId(System::kMainThreadMark), 0);
    EXPECT_TRUE(System::isMainThread());

    bool mainElsewhere = true;
    pthread_t t = System::spawn(
        [](void* arg) -> void* {
            *static_cast<bool*>(arg) = System::isMainThread();
            return nullptr;
        },
        &mainElsewhere);
    System::join(t);
    EXPECT_FALSE(mainElsewhere);

    bool markedElsewhere = true;
    std::thread([&] {
        System::setMainThreadId(1);
        markedElsewhere = System::isMainThread();
    }).join();
    EXPECT_FALSE(markedElsewhere);
    EXPECT_TRUE(System::isMainThread()) << "another thread's mark must not touch ours";

    ASSERT_EQ(System::setMainThreadId(1), 0);
    EXPECT_FALSE(System::isMainThread());
    System::setMainThreadId(System::kMainThreadMark);
}

// Sleep ------------------------------------------------------------------------------------

TEST(SystemSleep, SleepsAtLeastTheRequestedTime) {
    Stopwatch clock;
    EXPECT_EQ(System::sleep(50), 0);
    double ms = clock.elapsedMs();
    EXPECT_GE(ms, 45.0);
    EXPECT_LT(ms, 2000.0);
}

TEST(SystemSleep, SplitsSecondsFromMilliseconds) {
    Stopwatch clock;
    EXPECT_EQ(System::sleep(1050), 0);
    double ms = clock.elapsedMs();
    EXPECT_GE(ms, 1045.0);
    EXPECT_LT(ms, 3000.0);
}

TEST(SystemSleep, ZeroAndNegativeReturnAtOnce) {
    Stopwatch clock;
    EXPECT_EQ(System::sleep(0), 0);
    errno = 0;
    EXPECT_EQ(System::sleep(-5), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_LT(clock.elapsedMs(), 1000.0);
}

TEST(SystemPlatform, ProcessorCountMatchesTheHardware) {
    EXPECT_GE(System::getNumProcessors(), 1);
    EXPECT_EQ(static_cast<unsigned>(System::getNumProcessors()), std::thread::hardware_concurrency());
}

}  // namespace
}  // namespace mirel
