// QtTimerManager on a real Qt event loop (offscreen platform): QTimer peers, and methods
// handed over from worker threads.
#include "base/timer/qttimermanager.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "base/system/system.h"
#include "base/testing/qtapplication.h"

namespace mirel {
namespace {

// The main thread is marked as such so that methods can check where they run.
const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(new testing::QtApplicationEnvironment(
    [] { System::setMainThreadId(System::kMainThreadMark); }));

}  // namespace

// Runs the event loop until `done()` or `ms` milliseconds; whether `done()` came true.
bool processEventsUntil(const std::function<bool()>& done, int ms) {
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > ms) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

namespace {

void processEventsFor(int ms) {
    processEventsUntil([] { return false; }, ms);
}

// Records where and how often it ran; only the thread that runs it touches it.
struct WhereMethod : Timer::SyncMethod {
    void execute() override {
        onMainThread = System::isMainThread();
        ++runs;
    }
    bool onMainThread = false;
    int runs = 0;
};

TEST(QtTimerManager, ExecuteWaitsUntilTheMethodHasRunOnTheEventLoopThread) {
    QtTimerManager manager;
    WhereMethod here;
    Timer::execute(here, true);  // no event loop is running: posting would never return
    EXPECT_EQ(here.runs, 1) << "on the event-loop thread itself it runs at once";
    EXPECT_TRUE(here.onMainThread);

    constexpr int kWorkers = 3, kCalls = 40;
    std::atomic<int> finished{0}, notRunOnReturn{0}, offMain{0};
    std::vector<std::thread> workers;
    for (int w = 0; w < kWorkers; ++w) {
        workers.emplace_back([&] {
            for (int i = 0; i < kCalls; ++i) {
                WhereMethod method;
                Timer::execute(method, true);
                // Returning before the method ran would show here (and as a race to TSan).
                if (method.runs != 1) ++notRunOnReturn;
                if (!method.onMainThread) ++offMain;
            }
            ++finished;
        });
    }
    EXPECT_TRUE(processEventsUntil([&] { return finished == kWorkers; }, 20000));
    for (auto& t : workers) t.join();
    EXPECT_EQ(notRunOnReturn, 0);
    EXPECT_EQ(offMain, 0) << "methods must run on the event-loop thread";
}

// Deletes itself when run, as an asynchronously handed-over method must.
struct SelfDeletingMethod : Timer::SyncMethod {
    SelfDeletingMethod(std::atomic<int>* ranOnMain, std::atomic<std::int32_t>* done)
        : mRanOnMain(ranOnMain) {
        doneFlag = done;
    }
    void execute() override {
        if (System::isMainThread()) mRanOnMain->fetch_add(1);
        delete this;
    }
    std::atomic<int>* mRanOnMain;
};

// Posted methods run on the loop, and those still queued when the manager goes run then:
// nothing handed over is lost.
TEST(QtTimerManager, AsyncMethodsArePostedRunOnTheLoopAndDeleteThemselves) {
    std::atomic<int> ranOnMain{0};
    std::atomic<std::int32_t> done[4] = {1, 1, 1, 1};
    {
        QtTimerManager manager;
        Timer::executeAsync(*new SelfDeletingMethod(&ranOnMain, &done[0]));
        EXPECT_EQ(done[0], 1) << "executeAsync must post, not run at once";
        std::thread([&] {
            Timer::executeAsync(*new SelfDeletingMethod(&ranOnMain, &done[1]));
            Timer::execute(*new SelfDeletingMethod(&ranOnMain, &done[2]), false);
        }).join();
        EXPECT_TRUE(processEventsUntil([&] { return ranOnMain == 3; }, 5000));
        Timer::executeAsync(*new SelfDeletingMethod(&ranOnMain, &done[3]));
    }
    EXPECT_EQ(ranOnMain, 4);
    for (auto& d : done) EXPECT_EQ(d, 0) << "not deleted after running";
}

// Records when each firing came, in milliseconds since start().
struct IntervalObserver : ITimer::IObserver {
    void start(Timer& timer, unsigned int interval, bool singleShot) {
        clock.start();
        timer.start(interval, singleShot);
    }
    void onTimer(TimerEvent& event) override {
        firings.push_back(clock.elapsed());
        if (!System::isMainThread()) ++offMain;
        if (stopAfter != 0 && static_cast<int>(firings.size()) == stopAfter) event.timer->stop();
    }
    QElapsedTimer clock;
    std::vector<qint64> firings;
    int offMain = 0;
    int stopAfter = 0;
};

TEST(QtTimerManager, TimersFireEveryIntervalOrOnceOnTheLoopThreadUntilStopped) {
    QtTimerManager manager;
    Timer repeating, once;
    IntervalObserver every, single;
    every.stopAfter = 3;
    repeating.addObserver(every);
    once.addObserver(single);
    every.start(repeating, 100, false);
    single.start(once, 20, true);
    EXPECT_TRUE(repeating.isActive());
    ASSERT_TRUE(processEventsUntil([&] { return every.firings.size() >= 3; }, 5000));
    EXPECT_FALSE(repeating.isActive());
    EXPECT_FALSE(once.isActive());
    processEventsFor(150);
    ASSERT_EQ(every.firings.size(), 3u) << "fired after stop()";
    // A late firing shortens the next gap (the schedule is kept), so firing k is checked
    // against k intervals from the start. Load only delays a timer: one that fires early (by
    // more than the clock's truncation) is a coarse one.
    for (int k = 1; k <= 3; ++k) {
        EXPECT_GE(every.firings[k - 1], k * 100 - 1) << "firing " << k << " came early";
        EXPECT_LT(every.firings[k - 1], 2000 * k);
    }
    ASSERT_EQ(single.firings.size(), 1u);
    EXPECT_GE(single.firings[0], 19);
    EXPECT_EQ(every.offMain + single.offMain, 0);
}

TEST(QtTimerManager, WhicheverOfManagerAndTimerGoesFirstNothingFiresAfterwards) {
    IntervalObserver observer;
    auto* manager = new QtTimerManager;
    {
        Timer gone;
        gone.addObserver(observer);
        gone.start(5, false);
    }
    processEventsFor(50);
    EXPECT_TRUE(observer.firings.empty()) << "a destroyed timer's QTimer still fired";

    Timer timer;
    timer.addObserver(observer);
    timer.start(5, false);
    delete manager;
    EXPECT_EQ(timer.peer, nullptr) << "the manager's peers must detach from their timers";
    EXPECT_FALSE(timer.isActive());
    timer.start(5, false);
    processEventsFor(50);
    EXPECT_TRUE(observer.firings.empty());
}

}  // namespace
}  // namespace mirel
