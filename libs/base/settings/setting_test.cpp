#include "base/settings/setting.h"

#include <gtest/gtest.h>

#include <limits>

#include "base/settings/settinggroup.h"

namespace mirel {
namespace {

struct Counter : SettingObserver {
    using SettingObserver::SettingObserver;
    void onSettingChanged(const Event&) override { ++changed; }
    void onSettingPreDelete(const Event&) override {}
    int changed = 0;
};

class SettingTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(Setting::popAllSettings()) << "a frame leaked in"; }
    void TearDown() override {
        Setting::sCurrentModifier = 1;
        for (int i = 0; i < 10 && Setting::popAllSettings(); ++i) ADD_FAILURE() << "a frame was left open";
    }
    SettingGroup group{"SettingTest"};
};

// Setting a value -------------------------------------------------------------------------

TEST_F(SettingTest, EverySetStampsTheModifierButOnlyAChangeNotifies) {
    IntSetting s(group, "stamped", 3);
    TypedSetting<QString> t(group, "text", "kept");
    Counter watchS(s), watchT(t);
    EXPECT_EQ(s.getModifier(), 0u);
    Setting::sCurrentModifier = 41;
    s.set(3);
    t.setVal(12.5);  // a number is no text: only the stamp changes
    EXPECT_EQ(s.getModifier(), 41u);
    EXPECT_EQ(t.getModifier(), 41u);
    EXPECT_EQ(t.getValue(), "kept");
    EXPECT_EQ(watchS.changed + watchT.changed, 0);
    Setting::sCurrentModifier = 42;
    s.fromString("4");
    EXPECT_EQ(s.getModifier(), 42u);
    EXPECT_EQ(watchS.changed, 1);
    EXPECT_EQ(s.getDefault(), 3) << "the default never follows the value";
}

// Text and number forms -------------------------------------------------------------------

// Text gives one leading integer (0 when there is none); numbers truncate toward zero and
// saturate at int's ends.
TEST_F(SettingTest, IntegersReadOneLeadingNumberAndTruncateNumbers) {
    const struct {
        const char* text;
        int value;
    } texts[] = {
        {"42", 42}, {"  -17 tail", -17}, {"+8", 8},     {"12abc", 12},
        {"abc", 0}, {"", 0},             {"0x1f", 31},  {"-2147483648", -2147483647 - 1},
    };
    for (const auto& r : texts) {
        IntSetting s(group, "n", 99);
        s.fromString(r.text);
        EXPECT_EQ(s.getValue(), r.value) << r.text;
    }
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        double in;
        int out;
    } numbers[] = {{2.9, 2}, {-2.9, -2}, {-0.5, 0}, {1e12, 2147483647}, {-1e12, -2147483647 - 1}, {nan, 0}};
    for (const auto& r : numbers) {
        IntSetting s(group, "n", 5);
        s.setVal(r.in);
        EXPECT_EQ(s.getVal(), double(r.out)) << r.in;
    }
    IntSetting s(group, "n", -1234567);
    EXPECT_EQ(s.toString(), "-1234567") << "plain decimal, no digit grouping";
}

// Text is written whole but read back one word at a time: the round trip is lossy.
TEST_F(SettingTest, TextReadsBackItsFirstWordOnly) {
    const struct {
        const char* text;
        const char* value;
    } rows[] = {
        {"two words", "two"}, {"\t  lead  trail", "lead"}, {"Zürich-Nord x", "Zürich-Nord"},
    };
    for (const auto& r : rows) {
        TypedSetting<QString> t(group, "words", "");
        t.set(QString::fromUtf8(r.text));
        EXPECT_EQ(t.toString(), QString::fromUtf8(r.text)) << "written whole";
        t.fromString(t.toString());
        EXPECT_EQ(t.getValue(), QString::fromUtf8(r.value)) << r.text;
        EXPECT_EQ(t.getVal(), 0.0) << "text never reads as a number";
    }
}

// Snapshots -------------------------------------------------------------------------------

// Pops undo every change of the innermost frame, silently and without restoring the
// modifier; outer frames keep theirs, and an empty frame still pops once.
TEST_F(SettingTest, PopsUndoTheInnermostFrameSilently) {
    IntSetting a(group, "a", 1);
    TypedSetting<QString> t(group, "t", "start");
    Counter watch(a);
    Setting::pushAllSettings();
    a.set(2);
    Setting::pushAllSettings();
    Setting::pushAllSettings();
    a.set(3);
    Setting::sCurrentModifier = 9;
    a.set(4);
    t.set("inner");
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(a.getValue(), 2);
    EXPECT_EQ(t.getValue(), "start");
    EXPECT_EQ(watch.changed, 3) << "restoring is silent";
    EXPECT_EQ(a.getModifier(), 9u) << "the modifier is not restored";
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(a.getValue(), 2);
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(a.getValue(), 1);
    EXPECT_FALSE(a.popSetting()) << "every saved value was used up";
    EXPECT_FALSE(Setting::popAllSettings());
}

}  // namespace
}  // namespace mirel
