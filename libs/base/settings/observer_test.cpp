#include "base/settings/observer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/settings/setting.h"
#include "base/settings/settinggroup.h"

namespace mirel {
namespace {

using Log = std::vector<std::string>;

// Writes "<tag>:<what>" for each call it gets.
struct Recorder : SettingObserver {
    Recorder(Setting* s, Log& log, std::string tag) : SettingObserver(s), log(log), tag(std::move(tag)) {}
    Recorder(Setting& s, Log& log, std::string tag) : SettingObserver(s), log(log), tag(std::move(tag)) {}
    void onSettingChanged(const Event& e) override {
        log.push_back(tag + ":changed");
        seen = e.setting;
    }
    void onSettingPreDelete(const Event& e) override {
        log.push_back(tag + ":predelete");
        seen = e.setting;
        linkedWhenTold = isLinked();
    }
    Log& log;
    std::string tag;
    Setting* seen = nullptr;
    bool linkedWhenTold = true;
};

struct GroupRecorder : SettingGroupObserver {
    GroupRecorder(SettingGroup* g, Log& log, std::string tag)
        : SettingGroupObserver(g), log(log), tag(std::move(tag)) {}
    GroupRecorder(SettingGroup& g, Log& log, std::string tag)
        : SettingGroupObserver(g), log(log), tag(std::move(tag)) {}
    void onGroupSettingChanged(const Event& e) override {
        log.push_back(tag + ":" + e.setting->getName().toStdString());
        group = e.group;
    }
    void onGroupPreDelete(const Event& e) override {
        log.push_back(tag + ":groupgone");
        group = e.group;
        linkedWhenTold = isLinked();
    }
    Log& log;
    std::string tag;
    SettingGroup* group = nullptr;
    bool linkedWhenTold = false;
};

// Order ----------------------------------------------------------------------------------

TEST(SettingObserver, NewestFirstThenTheGroupsObserversNewestFirst) {
    SettingGroup g("Order");
    IntSetting s(g, "s", 0);
    Log log;
    GroupRecorder g1(&g, log, "g1");
    Recorder o1(&s, log, "o1");
    GroupRecorder g2(g, log, "g2");
    Recorder o2(s, log, "o2");
    Recorder loose(nullptr, log, "loose");  // attached to nothing: never told
    s.set(1);
    EXPECT_EQ(log, (Log{"o2:changed", "o1:changed", "g2:s", "g1:s"}));
    EXPECT_FALSE(loose.isLinked());
    EXPECT_EQ(o1.seen, &s);
    EXPECT_EQ(g1.group, &g);
}

TEST(SettingObserver, DestroyingOneFromTheMiddleKeepsTheOthers) {
    SettingGroup g("Middle");
    IntSetting s(g, "s", 0);
    Log log;
    Recorder a(&s, log, "a");
    auto b = std::make_unique<Recorder>(&s, log, "b");
    Recorder c(&s, log, "c");
    b.reset();
    s.set(1);
    EXPECT_EQ(log, (Log{"c:changed", "a:changed"}));
    c.remove();
    c.remove();  // unlinked already: nothing
    a.remove();
    log.clear();
    s.set(2);
    EXPECT_TRUE(log.empty());
    Recorder d(&s, log, "d");  // the list still works after being emptied
    s.set(3);
    EXPECT_EQ(log, (Log{"d:changed"}));
}

// Enabled ----------------------------------------------------------------------------------

TEST(SettingObserver, DisabledObserversHearNothingButStillLeaveOnPreDelete) {
    Log log;
    auto g = std::make_unique<SettingGroup>("Disabled");
    auto s = std::make_unique<IntSetting>(*g, "s", 0);
    Recorder on(s.get(), log, "on");
    Recorder off(s.get(), log, "off");
    GroupRecorder gOff(g.get(), log, "goff");
    off.setEnabled(false);
    gOff.setEnabled(false);
    s->set(1);
    EXPECT_EQ(log, (Log{"on:changed"}));
    EXPECT_TRUE(off.isLinked());

    off.setEnabled(true);
    log.clear();
    s->set(2);
    EXPECT_EQ(log, (Log{"off:changed", "on:changed"}));

    off.setEnabled(false);
    log.clear();
    s.reset();
    EXPECT_EQ(log, (Log{"on:predelete"}));
    EXPECT_FALSE(off.isLinked()) << "a disabled observer must not be left pointing at a dead setting";
    EXPECT_FALSE(on.isLinked());
    EXPECT_FALSE(on.linkedWhenTold) << "detached before being told";

    log.clear();
    g.reset();
    EXPECT_TRUE(log.empty());
    EXPECT_FALSE(gOff.isLinked());
}

// Handlers that detach or destroy themselves ------------------------------------------------

struct SelfDestroyer : SettingObserver {
    SelfDestroyer(Setting* s, Log& log) : SettingObserver(s), log(log) {}
    void onSettingChanged(const Event&) override {
        log.push_back("self:changed");
        delete this;
    }
    void onSettingPreDelete(const Event&) override {}
    Log& log;
};

TEST(SettingObserver, AHandlerMayDestroyItsOwnObserver) {
    SettingGroup g("SelfDestroy");
    IntSetting s(g, "s", 0);
    Log log;
    Recorder after(&s, log, "after");
    new SelfDestroyer(&s, log);  // newest: told first, then gone
    Recorder first(&s, log, "first");
    GroupRecorder group(&g, log, "group");
    s.set(1);
    EXPECT_EQ(log, (Log{"first:changed", "self:changed", "after:changed", "group:s"}));
    log.clear();
    s.set(2);
    EXPECT_EQ(log, (Log{"first:changed", "after:changed", "group:s"}));
}

struct OneShot : SettingObserver {
    using SettingObserver::SettingObserver;
    void onSettingChanged(const Event&) override {
        ++calls;
        remove();
    }
    void onSettingPreDelete(const Event&) override {}
    int calls = 0;
};

TEST(SettingObserver, AHandlerMayDetachItself) {
    SettingGroup g("OneShot");
    IntSetting s(g, "s", 0);
    Log log;
    Recorder stays(&s, log, "stays");
    OneShot once(s);
    s.set(1);
    s.set(2);
    EXPECT_EQ(once.calls, 1);
    EXPECT_EQ(log.size(), 2u);
}

struct GroupSelfDestroyer : SettingGroupObserver {
    using SettingGroupObserver::SettingGroupObserver;
    void onGroupSettingChanged(const Event&) override {}
    void onGroupPreDelete(const Event&) override { delete this; }
};

TEST(SettingGroupObserver, ToldOfTheGroupsEndWhileLinkedThenDetached) {
    Log log;
    auto g = std::make_unique<SettingGroup>("Ending");
    IntSetting s(*g, "s", 0);
    GroupRecorder older(g.get(), log, "older");
    new GroupSelfDestroyer(g.get());
    GroupRecorder newer(g.get(), log, "newer");
    SettingGroup* address = g.get();
    g.reset();
    EXPECT_EQ(log, (Log{"newer:groupgone", "older:groupgone"}));
    EXPECT_TRUE(newer.linkedWhenTold);
    EXPECT_EQ(newer.group, address);
    EXPECT_FALSE(newer.isLinked());
    EXPECT_FALSE(older.isLinked());

    log.clear();
    s.set(1);  // groupless: nobody of the dead group may hear of it
    EXPECT_TRUE(log.empty());
}

TEST(SettingObserver, AGrouplessSettingStillTellsItsOwnObservers) {
    Log log;
    auto g = std::make_unique<SettingGroup>("Gone");
    IntSetting s(*g, "s", 0);
    Recorder own(&s, log, "own");
    g.reset();
    s.set(5);
    EXPECT_EQ(log, (Log{"own:changed"}));
}

TEST(SettingObserver, PreDeleteTellsEveryEnabledObserverOnceAndKeepsNone) {
    Log log;
    SettingGroup g("PreDelete");
    auto s = std::make_unique<TypedSetting<QString>>(g, "t", "x");
    Setting* address = s.get();
    Recorder a(s.get(), log, "a");
    Recorder b(s.get(), log, "b");
    s.reset();
    EXPECT_EQ(log, (Log{"b:predelete", "a:predelete"}));
    EXPECT_EQ(a.seen, address);
    EXPECT_EQ(g.getSettingCount(), 0);
    // a and b are destroyed after the setting: with links left behind this would touch
    // freed memory.
}

}  // namespace
}  // namespace mirel
