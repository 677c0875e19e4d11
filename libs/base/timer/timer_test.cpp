// Timer rules with a manager of the test's own, whose peers record what they are told.
#include "base/timer/timer.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace mirel {
namespace {

struct RecordingPeer : Timer::Peer {
    using Peer::Peer;
    ~RecordingPeer() override {
        if (onDestroy) onDestroy(timer);
    }
    void start(unsigned int interval, bool singleShot) override {
        started.push_back({interval, singleShot});
        active = true;
    }
    void stop() override {
        ++stops;
        active = false;
    }
    bool isActive() const override { return active; }

    struct Start {
        unsigned int interval;
        bool singleShot;
    };
    std::vector<Start> started;
    int stops = 0;
    bool active = false;
    // Told the peer's `timer` pointer at the moment the peer is destroyed.
    std::function<void(Timer*)> onDestroy;
};

struct RecordingManager : Timer::Manager {
    Timer::Peer* createPeer(Timer* timer) override {
        lastPeer = new RecordingPeer(timer);
        return lastPeer;
    }
    void execute(Timer::SyncMethod& method, bool wait) override {
        executed.push_back({&method, wait});
        method.execute();
    }
    void executeAsync(Timer::SyncMethod& method) override { execute(method, false); }

    struct Call {
        Timer::SyncMethod* method;
        bool wait;
    };
    RecordingPeer* lastPeer = nullptr;
    std::vector<Call> executed;
};

// Appends its name to a shared log on every firing, then runs an optional action.
struct NamedObserver : ITimer::IObserver {
    NamedObserver(char n, std::string& log) : name(n), log(log) {}
    void onTimer(TimerEvent& event) override {
        log += name;
        lastTimer = event.timer;
        if (action) action();
    }
    char name;
    std::string& log;
    Timer* lastTimer = nullptr;
    std::function<void()> action;
};

// Observers ---------------------------------------------------------------------------------

TEST(TimerObservers, AddedOnceNotifiedInOrderAndRemovedOnce) {
    RecordingManager manager;
    Timer timer;
    std::string log;
    NamedObserver a('A', log), b('B', log), c('C', log);
    EXPECT_TRUE(timer.addObserver(a));
    EXPECT_TRUE(timer.addObserver(b));
    EXPECT_TRUE(timer.addObserver(c));
    EXPECT_FALSE(timer.addObserver(b)) << "a second add of the same observer";
    EXPECT_TRUE(timer.hasObserver(b));

    timer.fire();
    EXPECT_EQ(log, "ABC");
    EXPECT_EQ(b.lastTimer, &timer) << "the event must name the timer that fired";

    EXPECT_TRUE(timer.remObserver(b));
    EXPECT_FALSE(timer.remObserver(b)) << "removed twice";
    EXPECT_FALSE(timer.hasObserver(b));
    log.clear();
    timer.fire();
    EXPECT_EQ(log, "AC");
}

TEST(TimerObservers, RemovingDuringFireSkipsTheNextOneInThatFiringOnly) {
    RecordingManager manager;
    Timer timer;
    std::string log;
    NamedObserver a('A', log), b('B', log), c('C', log);
    for (auto* o : {&a, &b, &c}) timer.addObserver(*o);

    b.action = [&] { timer.remObserver(b); };
    timer.fire();
    EXPECT_EQ(log, "AB") << "B removed itself: the walk by position must skip C";
    log.clear();
    timer.fire();
    EXPECT_EQ(log, "AC");

    // Removing an earlier observer also shifts the rest under the walk.
    NamedObserver d('D', log);
    timer.addObserver(d);  // A, C, D
    c.action = [&] { timer.remObserver(a); };
    log.clear();
    timer.fire();
    EXPECT_EQ(log, "AC");
    log.clear();
    timer.fire();
    EXPECT_EQ(log, "CD");
}

// Peers -----------------------------------------------------------------------------------

TEST(TimerPeer, OperationsAreForwardedUnchanged) {
    RecordingManager manager;
    Timer timer;
    RecordingPeer* peer = manager.lastPeer;
    ASSERT_EQ(timer.peer, peer);
    EXPECT_EQ(peer->timer, &timer);
    timer.start(250, true);
    timer.start(0xFFFFFFFFu, false);
    EXPECT_TRUE(timer.isActive());
    timer.stop();
    EXPECT_FALSE(timer.isActive());
    ASSERT_EQ(peer->started.size(), 2u);
    EXPECT_EQ(peer->started[0].interval, 250u);
    EXPECT_TRUE(peer->started[0].singleShot);
    EXPECT_EQ(peer->started[1].interval, 0xFFFFFFFFu);
    EXPECT_FALSE(peer->started[1].singleShot);
    EXPECT_EQ(peer->stops, 1);
}

TEST(TimerPeer, TimerDestroyedFirstDetachesAndDeletesItsPeer) {
    RecordingManager manager;
    bool destroyed = false;
    Timer* seenByPeer = reinterpret_cast<Timer*>(1);
    {
        Timer timer;
        manager.lastPeer->onDestroy = [&](Timer* t) {
            destroyed = true;
            seenByPeer = t;
        };
    }
    EXPECT_TRUE(destroyed) << "the timer must delete its peer";
    EXPECT_EQ(seenByPeer, nullptr) << "the peer must no longer point at the dying timer";
}

TEST(TimerPeer, PeerDestroyedFirstLeavesTheTimerInert) {
    RecordingManager manager;
    Timer timer;
    delete manager.lastPeer;  // as a manager going away would
    EXPECT_EQ(timer.peer, nullptr);
    timer.start(10, false);
    timer.stop();
    EXPECT_FALSE(timer.isActive());
}  // and the timer's destructor must not touch the deleted peer

// Managers and methods ------------------------------------------------------------------------

TEST(TimerManager, TheLatestManagerIsInstalledAndDestroyingAnyUninstalls) {
    EXPECT_EQ(sManager.load(), nullptr);
    {
        RecordingManager first;
        EXPECT_EQ(sManager.load(), &first);
        {
            RecordingManager second;
            EXPECT_EQ(sManager.load(), &second);
            Timer timer;
            EXPECT_EQ(timer.peer, second.lastPeer) << "the peer must come from the latest";
            EXPECT_EQ(first.lastPeer, nullptr);
        }
        EXPECT_EQ(sManager.load(), nullptr) << "destroying the installed manager";
        RecordingManager third;
        {
            RecordingManager fourth;
        }
        EXPECT_EQ(sManager.load(), nullptr) << "destroying a later one clears it too";
    }
    EXPECT_EQ(sManager.load(), nullptr);
}

struct FlaggedMethod : Timer::SyncMethod {
    void execute() override { ++runs; }
    int runs = 0;
};

TEST(TimerManager, ExecuteGoesToTheInstalledManagerWithItsWaitFlag) {
    RecordingManager manager;
    FlaggedMethod method;
    Timer::execute(method, true);
    Timer::execute(method, false);
    Timer::executeAsync(method);
    ASSERT_EQ(manager.executed.size(), 3u);
    EXPECT_TRUE(manager.executed[0].wait);
    EXPECT_FALSE(manager.executed[1].wait);
    EXPECT_EQ(manager.executed[2].method, &method);
    EXPECT_EQ(method.runs, 3);
}

TEST(TimerManager, AMethodSaysWhenItIsGone) {
    std::atomic<std::int32_t> done{1};
    auto* method = new FlaggedMethod;
    ASSERT_NE(method, nullptr);
    method->doneFlag = &done;
    EXPECT_EQ(done, 1);
    delete method;
    EXPECT_EQ(done, 0);
}

using TimerDeathTest = ::testing::Test;

TEST_F(TimerDeathTest, UsingTimersWithoutAManagerEndsTheProcessWithAMessage) {
    ASSERT_EQ(sManager.load(), nullptr);
    EXPECT_DEATH({ Timer timer; }, "no Timer::Manager installed");
    FlaggedMethod method;
    EXPECT_DEATH(Timer::execute(method, true), "Timer::execute with no Timer::Manager");
    EXPECT_DEATH(Timer::executeAsync(method), "Timer::executeAsync with no Timer::Manager");
}

}  // namespace
}  // namespace mirel
