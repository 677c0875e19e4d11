// Snapshots: pushAllSettings / popAllSettings over settings' own saved-value stacks.
#include <gtest/gtest.h>

#include "base/settings/setting.h"
#include "base/settings/settinggroup.h"

namespace mirel {
namespace {

struct Counter : SettingObserver {
    using SettingObserver::SettingObserver;
    void onSettingChanged(const Event&) override { ++changed; }
    void onSettingPreDelete(const Event&) override {}
    int changed = 0;
};

// Counts saves and restores, so that a record that changes nothing visible still shows.
struct CountingSetting : IntSetting {
    using IntSetting::IntSetting;
    void pushSetting() override {
        ++pushes;
        IntSetting::pushSetting();
    }
    bool popSetting() override {
        ++pops;
        return IntSetting::popSetting();
    }
    int pushes = 0;
    int pops = 0;
};

class Snapshot : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(Setting::popAllSettings()) << "a frame leaked in"; }
    void TearDown() override {
        int leaked = 0;
        while (Setting::popAllSettings()) ++leaked;
        EXPECT_EQ(leaked, 0);
        Setting::sCurrentModifier = 1;
    }
    SettingGroup group{"Snapshot"};
};

TEST_F(Snapshot, PopRestoresSeveralChangesSilently) {
    IntSetting a(group, "a", 1);
    Counter watch(a);
    Setting::pushAllSettings();
    a.set(2);
    Setting::sCurrentModifier = 9;
    a.set(3);
    EXPECT_EQ(watch.changed, 2);
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(a.getValue(), 1);
    EXPECT_EQ(watch.changed, 2) << "restoring is silent";
    EXPECT_EQ(a.getModifier(), 9u) << "the modifier is not restored";
    EXPECT_FALSE(a.popSetting()) << "every saved value was used up";
}

TEST_F(Snapshot, NestedFramesOnlyTheInnermostRecords) {
    IntSetting a(group, "a", 1);
    TypedSetting<QString> t(group, "t", "start");
    Setting::pushAllSettings();
    a.set(2);
    Setting::pushAllSettings();
    a.set(3);
    t.set("inner");
    a.set(4);
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(a.getValue(), 2);
    EXPECT_EQ(t.getValue(), "start");
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(a.getValue(), 1);
    EXPECT_FALSE(Setting::popAllSettings());
}

TEST_F(Snapshot, AnEmptyOuterFrameStillPopsOnce) {
    IntSetting a(group, "a", 1);
    Setting::pushAllSettings();
    Setting::pushAllSettings();
    a.set(5);
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(a.getValue(), 1);
    EXPECT_TRUE(Setting::popAllSettings()) << "the outer frame is still open";
    EXPECT_EQ(a.getValue(), 1);
    EXPECT_FALSE(Setting::popAllSettings());
    EXPECT_FALSE(Setting::popAllSettings());
}

TEST_F(Snapshot, OnlyEffectiveChangesAreRecorded) {
    CountingSetting a(group, "a", 7);
    Setting::pushAllSettings();
    a.set(7);
    a.fromString("7");
    EXPECT_EQ(a.pushes, 0);
    a.set(8);
    a.set(7);
    EXPECT_EQ(a.pushes, 2) << "one record per effective change";
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(a.pops, 2);
    EXPECT_EQ(a.getValue(), 7);
    a.set(9);
    EXPECT_EQ(a.pushes, 2) << "no frame open, nothing recorded";
}

TEST_F(Snapshot, GrouplessSettingsAreRecordedToo) {
    auto* g = new SettingGroup("Short");
    TypedSetting<QString> t(*g, "t", "a");
    delete g;
    Setting::pushAllSettings();
    t.set("b");
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(t.getValue(), "a");
}

TEST_F(Snapshot, PopSettingByItselfUsesTheSettingsOwnStack) {
    TypedSetting<QString> t(group, "t", "one");
    EXPECT_FALSE(t.popSetting());
    t.pushSetting();
    t.set("two");
    t.pushSetting();
    t.set("three");
    EXPECT_TRUE(t.popSetting());
    EXPECT_EQ(t.getValue(), "two");
    EXPECT_TRUE(t.popSetting());
    EXPECT_EQ(t.getValue(), "one");
    EXPECT_FALSE(t.popSetting());
    EXPECT_EQ(t.getValue(), "one");
}

}  // namespace
}  // namespace mirel
