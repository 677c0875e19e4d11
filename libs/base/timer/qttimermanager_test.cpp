// QtTimerManager on a real Qt event loop (offscreen platform): QTimer peers, and methods
// handed over from worker threads.
#include "base/timer/qttimermanager.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "base/system/system.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

// One QApplication for the whole binary, made on the main thread, which is marked as the
// main thread so that methods can check where they run.
class QtApplicationEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        static int argc = 1;
        static char name[] = "qttimermanager_test";
        static char* argv[] = {name, nullptr};
        mApp = new QApplication(argc, argv);
        System::setMainThreadId(System::kMainThreadMark);
    }
    void TearDown() override { delete mApp; }

private:
    QApplication* mApp = nullptr;
};

const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(new QtApplicationEnvironment);

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

// Methods ------------------------------------------------------------------------------------

// Records where and how often it ran; `ran` is only touched on the thread that runs it.
struct WhereMethod : Timer::SyncMethod {
    void execute() override {
        onMainThread = System::isMainThread();
        ++runs;
    }
    bool onMainThread = false;
    int runs = 0;
};

// Deletes itself when run, as an asynchronously handed-over method must.
struct SelfDeletingMethod : Timer::SyncMethod {
    explicit SelfDeletingMethod(std::atomic<int>* ranOnMain) : mRanOnMain(ranOnMain) {}
    void execute() override {
        if (System::isMainThread()) mRanOnMain->fetch_add(1);
        delete this;
    }
    std::atomic<int>* mRanOnMain;
};

TEST(QtTimerManager, WorkersWaitUntilTheirMethodHasRunOnTheEventLoopThread) {
    QtTimerManager manager;
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

TEST(QtTimerManager, ExecuteOnTheEventLoopThreadRunsAtOnce) {
    QtTimerManager manager;
    WhereMethod method;
    Timer::execute(method, true);  // no event loop is running: posting would never return
    EXPECT_EQ(method.runs, 1);
    EXPECT_TRUE(method.onMainThread);
}

TEST(QtTimerManager, AsyncMethodsArePostedRunOnTheLoopAndDeleteThemselves) {
    QtTimerManager manager;
    std::atomic<int> ranOnMain{0};
    std::atomic<std::int32_t> doneMain{1}, doneWorker{1}, doneNoWait{1};

    auto* fromMain = new SelfDeletingMethod(&ranOnMain);
    fromMain->doneFlag = &doneMain;
    Timer::executeAsync(*fromMain);
    EXPECT_EQ(doneMain, 1) << "executeAsync must post, not run at once";

    std::thread worker([&] {
        auto* m = new SelfDeletingMethod(&ranOnMain);
        m->doneFlag = &doneWorker;
        Timer::executeAsync(*m);  // returns although no loop runs yet
        auto* n = new SelfDeletingMethod(&ranOnMain);
        n->doneFlag = &doneNoWait;
        Timer::execute(*n, false);
    });
    worker.join();

    EXPECT_TRUE(processEventsUntil([&] { return ranOnMain == 3; }, 5000));
    EXPECT_EQ(doneMain, 0) << "not deleted after running";
    EXPECT_EQ(doneWorker, 0);
    EXPECT_EQ(doneNoWait, 0);
}

TEST(QtTimerManager, MethodsStillQueuedRunWhenTheManagerGoesAway) {
    std::atomic<int> ranOnMain{0};
    std::atomic<std::int32_t> done{1};
    {
        QtTimerManager manager;
        auto* m = new SelfDeletingMethod(&ranOnMain);
        m->doneFlag = &done;
        Timer::executeAsync(*m);
    }
    EXPECT_EQ(ranOnMain, 1);
    EXPECT_EQ(done, 0);
    EXPECT_EQ(sManager.load(), nullptr);
}

// Timers -------------------------------------------------------------------------------------

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

TEST(QtTimerManager, RepeatingTimerFiresEveryIntervalOnTheLoopThreadUntilStopped) {
    QtTimerManager manager;
    Timer timer;
    IntervalObserver observer;
    observer.stopAfter = 3;
    timer.addObserver(observer);
    observer.start(timer, 40, false);
    EXPECT_TRUE(timer.isActive());
    ASSERT_TRUE(processEventsUntil([&] { return observer.firings.size() >= 3; }, 5000));
    EXPECT_FALSE(timer.isActive());
    processEventsUntil([] { return false; }, 150);
    ASSERT_EQ(observer.firings.size(), 3u) << "fired after stop()";
    // A late firing shortens the next gap (the schedule is kept), so firing k is checked
    // against k firings from the start.
    for (int k = 1; k <= 3; ++k) {
        EXPECT_GE(observer.firings[k - 1], k * 40 - 2) << "firing " << k << " came early";
        EXPECT_LT(observer.firings[k - 1], 2000 * k);
    }
    EXPECT_EQ(observer.offMain, 0);
}

TEST(QtTimerManager, SingleShotTimerFiresOnce) {
    QtTimerManager manager;
    Timer timer;
    IntervalObserver observer;
    timer.addObserver(observer);
    observer.start(timer, 20, true);
    ASSERT_TRUE(processEventsUntil([&] { return !observer.firings.empty(); }, 5000));
    EXPECT_GE(observer.firings[0], 18);
    EXPECT_FALSE(timer.isActive());
    processEventsUntil([] { return false; }, 120);
    EXPECT_EQ(observer.firings.size(), 1u);
}

TEST(QtTimerManager, ManagerGoingFirstLeavesItsTimersInertNotDangling) {
    auto* manager = new QtTimerManager;
    Timer timer;
    IntervalObserver observer;
    timer.addObserver(observer);
    timer.start(5, false);
    ASSERT_NE(timer.peer, nullptr);
    delete manager;
    EXPECT_EQ(timer.peer, nullptr) << "the manager's peers must detach from their timers";
    EXPECT_FALSE(timer.isActive());
    timer.start(5, false);
    processEventsUntil([] { return false; }, 50);
    EXPECT_TRUE(observer.firings.empty());
}

TEST(QtTimerManager, TimerGoingFirstTakesItsQTimerWithIt) {
    QtTimerManager manager;
    IntervalObserver observer;
    {
        Timer timer;
        timer.addObserver(observer);
        timer.start(5, false);
    }
    processEventsUntil([] { return false; }, 50);
    EXPECT_TRUE(observer.firings.empty()) << "a destroyed timer's QTimer still fired";
}

}  // namespace
}  // namespace mirel
