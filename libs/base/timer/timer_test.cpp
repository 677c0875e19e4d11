// Timer rules with a manager of the test's own, whose peers record what they are told.
#include "base/timer/timer.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace mirel {
namespace {

struct RecordingPeer : Timer::Peer {
    using Peer::Peer;
    ~RecordingPeer() override {
        if (onDestroy) onDestroy(timer);
    }
    void start(unsigned int, bool) override { active = true; }
    void stop() override { active = false; }
    bool isActive() const override { return active; }

    bool active = false;
    std::function<void(Timer*)> onDestroy;  // told the peer's `timer` as the peer goes
};

struct RecordingManager : Timer::Manager {
    Timer::Peer* createPeer(Timer* timer) override { return lastPeer = new RecordingPeer(timer); }
    void execute(Timer::SyncMethod& method, bool wait) override {
        waits.push_back(wait);
        method.execute();
    }
    void executeAsync(Timer::SyncMethod& method) override { execute(method, false); }

    RecordingPeer* lastPeer = nullptr;
    std::vector<bool> waits;
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

TEST(TimerObservers, AddedOnceNotifiedInOrderAndRemovedOnce) {
    RecordingManager manager;
    Timer timer;
    std::string log;
    NamedObserver a('A', log), b('B', log), c('C', log);
    for (auto* o : {&a, &b, &c}) EXPECT_TRUE(timer.addObserver(*o));
    EXPECT_FALSE(timer.addObserver(b)) << "a second add of the same observer";
    timer.fire();
    EXPECT_EQ(log, "ABC");
    EXPECT_EQ(b.lastTimer, &timer) << "the event must name the timer that fired";

    EXPECT_TRUE(timer.remObserver(b));
    EXPECT_FALSE(timer.remObserver(b)) << "removed twice";
    log.clear();
    timer.fire();
    EXPECT_EQ(log, "AC");
}

// The walk goes by position over the live list: a removal during a firing shifts the rest.
TEST(TimerObservers, RemovingDuringFireSkipsTheNextOneInThatFiringOnly) {
    RecordingManager manager;
    Timer timer;
    std::string log;
    NamedObserver a('A', log), b('B', log), c('C', log), d('D', log);
    for (auto* o : {&a, &b, &c}) timer.addObserver(*o);
    b.action = [&] { timer.remObserver(b); };
    timer.fire();
    timer.fire();
    EXPECT_EQ(log, "AB" "AC") << "B removed itself: that firing must skip C";

    timer.addObserver(d);
    c.action = [&] { timer.remObserver(a); };
    log.clear();
    timer.fire();
    timer.fire();
    EXPECT_EQ(log, "AC" "CD") << "C removed the earlier A: that firing must skip D";
}

TEST(TimerPeer, WhicheverGoesFirstLeavesTheOtherNoDanglingPointer) {
    RecordingManager manager;
    bool destroyed = false;
    Timer* seenByPeer = reinterpret_cast<Timer*>(1);  // not yet told
    {
        Timer timer;
        manager.lastPeer->onDestroy = [&](Timer* t) {
            destroyed = true;
            seenByPeer = t;
        };
    }
    EXPECT_TRUE(destroyed) << "the timer must delete its peer";
    EXPECT_EQ(seenByPeer, nullptr) << "the peer must no longer point at the dying timer";

    Timer timer;
    delete manager.lastPeer;  // as a manager going away would
    EXPECT_EQ(timer.peer, nullptr);
    timer.start(10, false);
    EXPECT_FALSE(timer.isActive());
}  // and the timer's destructor must not touch the deleted peer

TEST(TimerManager, TheLatestManagerIsInstalledAndDestroyingAnyUninstalls) {
    EXPECT_EQ(sManager.load(), nullptr);
    auto* first = new RecordingManager;
    auto* second = new RecordingManager;
    EXPECT_EQ(sManager.load(), second);
    Timer timer;
    EXPECT_EQ(timer.peer, second->lastPeer) << "the peer must come from the latest";
    delete first;
    EXPECT_EQ(sManager.load(), nullptr) << "destroying one that is not installed clears it too";
    delete second;
}

struct CountingMethod : Timer::SyncMethod {
    void execute() override { ++runs; }
    int runs = 0;
};

TEST(TimerManager, MethodsGoToTheInstalledManagerAndSayWhenTheyAreGone) {
    RecordingManager manager;
    CountingMethod method;
    Timer::execute(method, true);
    Timer::execute(method, false);
    Timer::executeAsync(method);
    EXPECT_EQ(manager.waits, (std::vector<bool>{true, false, false}));
    EXPECT_EQ(method.runs, 3);

    std::atomic<std::int32_t> done{1};
    auto* gone = new CountingMethod;
    gone->doneFlag = &done;
    delete gone;
    EXPECT_EQ(done, 0);
}

TEST(TimerDeathTest, UsingTimersWithoutAManagerEndsTheProcessWithAMessage) {
    ASSERT_EQ(sManager.load(), nullptr);
    EXPECT_DEATH({ Timer timer; }, "no Timer::Manager installed");
    CountingMethod method;
    EXPECT_DEATH(Timer::execute(method, true), "Timer::execute with no Timer::Manager");
    EXPECT_DEATH(Timer::executeAsync(method), "Timer::executeAsync with no Timer::Manager");
}

}  // namespace
}  // namespace mirel
