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

// What a handler does to its own observer once it has logged.
enum Then { kStay, kDetach, kDestroy };

void note(Log& log, std::string entry, Observer* self, Then then) {
    log.push_back(std::move(entry));
    if (then == kDetach) self->remove();
    if (then == kDestroy) delete self;
}

std::string linked(const Observer& o) { return o.isLinked() ? " linked" : ""; }

// Logs its tag per change and "<tag>:gone" (" linked" while still linked) at the end.
struct Recorder : SettingObserver {
    Recorder(Setting* s, Log& log, std::string tag, Then then = kStay)
        : SettingObserver(s), log(log), tag(std::move(tag)), then(then) {}
    void onSettingChanged(const Event&) override { note(log, tag, this, then); }
    void onSettingPreDelete(const Event&) override { log.push_back(tag + ":gone" + linked(*this)); }
    Log& log;
    std::string tag;
    Then then;
};

struct GroupRecorder : SettingGroupObserver {
    GroupRecorder(SettingGroup* g, Log& log, std::string tag, Then then = kStay)
        : SettingGroupObserver(g), log(log), tag(std::move(tag)), then(then) {}
    void onGroupSettingChanged(const Event& e) override {
        log.push_back(tag + ":" + e.setting->getName().toStdString());
    }
    void onGroupPreDelete(const Event&) override { note(log, tag + ":gone" + linked(*this), this, then); }
    Log& log;
    std::string tag;
    Then then;
};

TEST(SettingObserver, NewestFirstThenTheGroupsObserversAndAnyMayLeave) {
    SettingGroup g("G");
    IntSetting s(g, "s", 0);
    Log log;
    GroupRecorder g1(&g, log, "g1");
    Recorder o1(&s, log, "o1");
    GroupRecorder g2(&g, log, "g2");
    auto o2 = std::make_unique<Recorder>(&s, log, "o2");
    Recorder o3(&s, log, "o3");
    Recorder loose(nullptr, log, "loose");  // attached to nothing: never told
    s.set(1);
    EXPECT_EQ(log, (Log{"o3", "o2", "o1", "g2:s", "g1:s"}));
    o2.reset();   // the middle
    o3.remove();  // the head
    o3.remove();  // unlinked already: nothing
    o1.remove();  // the last
    Recorder d(&s, log, "d");  // the list still works after being emptied
    log.clear();
    s.set(2);
    EXPECT_EQ(log, (Log{"d", "g2:s", "g1:s"}));
}

// Disabled observers hear nothing but are still detached when the setting goes; the
// enabled ones are detached before being told.
TEST(SettingObserver, DisabledObserversHearNothingButStillLeaveWhenTheSettingGoes) {
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
    EXPECT_EQ(log, (Log{"on", "off", "on", "on:gone"}));
    EXPECT_FALSE(off.isLinked()) << "left pointing at a dead setting";
    EXPECT_EQ(g.getSettingCount(), 0);
}

TEST(SettingObserver, AHandlerMayDestroyOrDetachItsOwnObserver) {
    SettingGroup g("G");
    IntSetting s(g, "s", 0);
    Log log;
    Recorder last(&s, log, "last");
    Recorder detaches(&s, log, "detaches", kDetach);
    new Recorder(&s, log, "destroys", kDestroy);
    Recorder first(&s, log, "first");
    s.set(1);
    s.set(2);
    EXPECT_EQ(log, (Log{"first", "destroys", "detaches", "last", "first", "last"}));
}

// Group observers are told of its end while still linked (so one may destroy itself);
// the setting lives on groupless and tells only its own observers.
TEST(SettingGroupObserver, ToldOfTheGroupsEndWhileLinkedAndTheSettingLivesOn) {
    auto g = std::make_unique<SettingGroup>("G");
    IntSetting s(*g, "s", 0);
    Log log;
    Recorder own(&s, log, "own");
    GroupRecorder older(g.get(), log, "older");
    new GroupRecorder(g.get(), log, "destroys", kDestroy);
    g.reset();
    EXPECT_FALSE(older.isLinked());
    EXPECT_EQ(s.getGroup(), nullptr);
    s.set(5);
    EXPECT_EQ(s.getValue(), 5);
    EXPECT_EQ(log, (Log{"destroys:gone linked", "older:gone linked", "own"}));
}

}  // namespace
}  // namespace mirel
