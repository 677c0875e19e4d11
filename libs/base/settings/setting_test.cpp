#include "base/settings/setting.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/memory/heapmanager.h"
#include "base/settings/settinggroup.h"

namespace mirel {
namespace {

struct CountingObserver : SettingObserver {
    using SettingObserver::SettingObserver;
    void onSettingChanged(const Event&) override { ++changed; }
    void onSettingPreDelete(const Event&) override { ++preDeleted; }
    int changed = 0;
    int preDeleted = 0;
};

class SettingTest : public ::testing::Test {
protected:
    void TearDown() override { Setting::sCurrentModifier = 1; }
    SettingGroup group{"SettingTest"};
};

// Construction ------------------------------------------------------------------------------

TEST_F(SettingTest, StartsAtItsDefaultWithNoModifier) {
    IntSetting i(group, "count", 7);
    TypedSetting<QString> t(group, "label", "north");
    EXPECT_EQ(i.getValue(), 7);
    EXPECT_EQ(i.getDefault(), 7);
    EXPECT_EQ(t.getValue(), "north");
    EXPECT_EQ(i.getModifier(), 0u);
    EXPECT_EQ(i.getName(), "count");
    EXPECT_EQ(i.getGroup(), &group);
    EXPECT_EQ(i.getType(), 1u);
    EXPECT_EQ(t.getType(), 4u);
    i.set(9);
    EXPECT_EQ(i.getDefault(), 7) << "the default never follows the value";
}

// The modifier stamp ------------------------------------------------------------------------

TEST_F(SettingTest, EverySetStampsTheModifierButOnlyAChangeNotifies) {
    IntSetting s(group, "stamped", 3);
    CountingObserver watch(s);
    Setting::sCurrentModifier = 41;
    s.set(3);
    EXPECT_EQ(s.getModifier(), 41u) << "an unchanged set still stamps";
    EXPECT_EQ(watch.changed, 0);
    Setting::sCurrentModifier = 42;
    s.set(4);
    EXPECT_EQ(s.getModifier(), 42u);
    EXPECT_EQ(watch.changed, 1);
    Setting::sCurrentModifier = 43;
    s.fromString("4");
    EXPECT_EQ(s.getModifier(), 43u) << "fromString goes through set";
    EXPECT_EQ(watch.changed, 1);
}

TEST_F(SettingTest, TextSetValOnlyStampsTheModifier) {
    TypedSetting<QString> t(group, "text", "kept");
    CountingObserver watch(t);
    Setting::sCurrentModifier = 77;
    t.setVal(12.5);
    EXPECT_EQ(t.getValue(), "kept");
    EXPECT_EQ(t.getModifier(), 77u);
    EXPECT_EQ(watch.changed, 0);
    EXPECT_EQ(t.getVal(), 0.0);
    t.set("3.5");
    EXPECT_EQ(t.getVal(), 0.0) << "text never reads as a number";
}

// Text forms --------------------------------------------------------------------------------

TEST_F(SettingTest, IntegerTextForms) {
    struct Row {
        const char* text;
        int value;
    };
    const Row rows[] = {
        {"42", 42},          {"  -17 tail", -17}, {"+8", 8},   {"12abc", 12},
        {"abc", 0},          {"", 0},             {"0x1f", 31}, {"2147483647", 2147483647},
        {"-2147483648", -2147483647 - 1},
    };
    for (const Row& r : rows) {
        IntSetting s(group, "n", 99);
        s.fromString(r.text);
        EXPECT_EQ(s.getValue(), r.value) << r.text;
    }
    IntSetting s(group, "n", -1234567);
    EXPECT_EQ(s.toString(), "-1234567") << "plain decimal, no digit grouping";
    s.set(0);
    EXPECT_EQ(s.toString(), "0");
}

TEST_F(SettingTest, TextKeepsOnlyTheFirstWordWhenReadBack) {
    TypedSetting<QString> t(group, "words", "");
    t.set("two words");
    EXPECT_EQ(t.toString(), "two words") << "written whole";
    t.fromString(t.toString());
    EXPECT_EQ(t.getValue(), "two");
    t.fromString("\t  lead  trail");
    EXPECT_EQ(t.getValue(), "lead");
    t.fromString("   ");
    EXPECT_TRUE(t.getValue().isEmpty());
    t.fromString(QString::fromUtf8("Zürich-Nord x"));
    EXPECT_EQ(t.getValue(), QString::fromUtf8("Zürich-Nord"));
}

// Numbers -----------------------------------------------------------------------------------

TEST_F(SettingTest, IntegerNumbersTruncateTowardZero) {
    struct Row {
        double in;
        int out;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Row rows[] = {
        {2.9, 2}, {-2.9, -2}, {0.99, 0}, {-0.5, 0}, {1e12, 2147483647}, {-1e12, -2147483647 - 1},
        {nan, 0},
    };
    for (const Row& r : rows) {
        IntSetting s(group, "n", 5);
        s.setVal(r.in);
        EXPECT_EQ(s.getValue(), r.out) << r.in;
    }
    IntSetting s(group, "n", -3);
    EXPECT_EQ(s.getVal(), -3.0);
}

// Allocation --------------------------------------------------------------------------------

TEST_F(SettingTest, GroupsAndSettingsLiveInTheManagerTheyArePlacedIn) {
    auto* pool = new MemoryPool("settings", 1 << 16);
    HeapManager manager(pool);
    TestThenAdd(pool->referenceCount(), -1);
    auto* g = new (&manager) SettingGroup("Pooled");
    auto* s = new (&manager) IntSetting(*g, "n", 1);
    auto* t = new (&manager) TypedSetting<QString>(*g, "t", "x");
    EXPECT_TRUE(MemoryPool::isPointerFromPool(g));
    EXPECT_TRUE(MemoryPool::isPointerFromPool(s));
    EXPECT_GE(manager.getAllocatedSize(), sizeof(SettingGroup) + sizeof(IntSetting));
    EXPECT_EQ(g->getSettingCount(), 2);
    delete s;
    delete t;
    delete g;
    EXPECT_EQ(manager.getAllocatedSize(), 0u) << "plain delete must find the manager again";
}

}  // namespace
}  // namespace mirel
