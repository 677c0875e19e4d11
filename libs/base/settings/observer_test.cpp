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

std::string str(const QString& s) { return s.toStdString(); }
std::string linked(const Observer& o) { return o.isLinked() ? " linked" : ""; }

// Logs "<tag>:<setting>" per change; a pre-delete entry says whether it was still linked.
struct Recorder : SettingObserver {
    Recorder(Setting* s, Log& log, std::string tag)
        : SettingObserver(s), log(log), tag(std::move(tag)) {}
    void onSettingChanged(const Event& e) override { log.push_back(tag + ":" + str(e.setting->getName())); }
    void onSettingPreDelete(const Event& e) override {
        log.push_back(tag + ":predelete " + str(e.setting->getName()) + linked(*this));
    }
    Log& log;
    std::string tag;
};

struct GroupRecorder : SettingGroupObserver {
    GroupRecorder(SettingGroup* g, Log& log, std::string tag)
        : SettingGroupObserver(g), log(log), tag(std::move(tag)) {}
    void onGroupSettingChanged(const Event& e) override {
        log.push_back(tag + ":" + str(e.group->getName()) + "/" + str(e.setting->getName()));
    }
    void onGroupPreDelete(const Event& e) override {
        log.push_back(tag + ":gone " + str(e.group->getName()) + linked(*this));
    }
    Log& log;
    std::string tag;
};

// Order and unlinking -----------------------------------------------------------------------

TEST(SettingObserver, NewestFirstThenTheGroupsObserversNewestFirst) {
    SettingGroup g("G");
    IntSetting s(g, "s", 0);
    Log log;
    GroupRecorder g1(&g, log, "g1");
    Recorder o1(&s, log, "o1");
    GroupRecorder g2(&g, log, "g2");
    Recorder o2(&s, log, "o2");
    Recorder loose(nullptr, log, "loose");  // attached to nothing: never told
    s.set(1);
    EXPECT_EQ(log, (Log{"o2:s", "o1:s", "g2:G/s", "g1:G/s"}));
}

TEST(SettingObserver, RemovingAnyObserverKeepsTheOthers) {
    SettingGroup g("G");
    IntSetting s(g, "s", 0);
    Log log;
    Recorder a(&s, log, "a");
    auto b = std::make_unique<Recorder>(&s, log, "b");
    Recorder c(&s, log, "c");
    b.reset();  // the middle
    s.set(1);
    EXPECT_EQ(log, (Log{"c:s", "a:s"}));
    c.remove();  // the head
    c.remove();  // unlinked already: nothing
    a.remove();
    Recorder d(&s, log, "d");  // the list still works after being emptied
    log.clear();
    s.set(2);
    EXPECT_EQ(log, (Log{"d:s"}));
}

// Disabled observers hear nothing but are still detached when the setting goes; the
// enabled ones are detached before being told.
TEST(SettingObserver, DisabledObserversHearNothingButStillLeaveOnPreDelete) {
    SettingGroup g("G");
    auto s = std::make_unique<IntSetting>(g, "s", 0);
    Log log;
    Recorder on(s.get(), log, "on");
    Recorder off(s.get(), log, "off");
    GroupRecorder gOff(&g, log, "goff");
    off.setEnabled(false);
    gOff.setEnabled(false);
    s->set(1);
    off.setEnabled(true);
    s->set(2);
    off.setEnabled(false);
    s.reset();
    EXPECT_EQ(log, (Log{"on:s", "off:s", "on:s", "on:predelete s"}));
    EXPECT_FALSE(off.isLinked()) << "left pointing at a dead setting";
    EXPECT_EQ(g.getSettingCount(), 0);
}

// Handlers that detach or destroy themselves ------------------------------------------------

struct SelfRemover : Recorder {
    SelfRemover(Setting* s, Log& log, std::string tag, bool destroy)
        : Recorder(s, log, std::move(tag)), destroy(destroy) {}
    void onSettingChanged(const Event& e) override {
        Recorder::onSettingChanged(e);
        if (destroy) delete this; else remove();
    }
    bool destroy;
};

TEST(SettingObserver, AHandlerMayDestroyOrDetachItsOwnObserver) {
    SettingGroup g("G");
    IntSetting s(g, "s", 0);
    Log log;
    Recorder last(&s, log, "last");
    SelfRemover detaches(&s, log, "detaches", false);
    new SelfRemover(&s, log, "destroys", true);
    Recorder first(&s, log, "first");
    s.set(1);
    s.set(2);
    EXPECT_EQ(log, (Log{"first:s", "destroys:s", "detaches:s", "last:s", "first:s", "last:s"}));
}

struct GroupSelfDestroyer : SettingGroupObserver {
    using SettingGroupObserver::SettingGroupObserver;
    void onGroupSettingChanged(const Event&) override {}
    void onGroupPreDelete(const Event&) override { delete this; }
};

// Group observers are told of its end while still linked (so one may destroy itself);
// the setting lives on groupless and tells only its own observers.
TEST(SettingGroupObserver, ToldOfTheGroupsEndWhileLinkedAndTheSettingLivesOn) {
    auto g = std::make_unique<SettingGroup>("G");
    IntSetting s(*g, "s", 0);
    Log log;
    Recorder own(&s, log, "own");
    GroupRecorder older(g.get(), log, "older");
    new GroupSelfDestroyer(g.get());
    GroupRecorder newer(g.get(), log, "newer");
    g.reset();
    EXPECT_FALSE(older.isLinked());
    EXPECT_EQ(s.getGroup(), nullptr);
    s.set(5);
    EXPECT_EQ(s.getValue(), 5);
    EXPECT_EQ(log, (Log{"newer:gone G linked", "older:gone G linked", "own:s"}));
}

}  // namespace
}  // namespace mirel
