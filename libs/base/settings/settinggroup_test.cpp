#include "base/settings/settinggroup.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "base/settings/setting.h"

namespace mirel {
namespace {

// Every live group, newest first, by walking the indices until null.
std::vector<SettingGroup*> walkGroups() {
    std::vector<SettingGroup*> list;
    for (int i = 0; SettingGroup* g = SettingGroup::getGroup(i); ++i) list.push_back(g);
    return list;
}

std::vector<Setting*> members(const SettingGroup& g) {
    std::vector<Setting*> list;
    for (int i = 0; i < g.getSettingCount(); ++i) list.push_back(g.getSetting(i));
    return list;
}

// The group list -----------------------------------------------------------------------------

TEST(SettingGroup, IndicesWalkFromTheNewestAndSurviveRemovals) {
    const std::vector<SettingGroup*> before = walkGroups();
    const int count = SettingGroup::getGroupCount();
    auto a = std::make_unique<SettingGroup>("A");
    auto b = std::make_unique<SettingGroup>("B");
    auto c = std::make_unique<SettingGroup>("C");
    EXPECT_EQ(SettingGroup::getGroupCount(), count + 3);
    EXPECT_EQ(SettingGroup::getGroup(-5), c.get()) << "below 1 is the head";
    b.reset();  // the middle
    c.reset();  // the head
    std::vector<SettingGroup*> expected{a.get()};
    expected.insert(expected.end(), before.begin(), before.end());
    EXPECT_EQ(walkGroups(), expected);
    a.reset();
    EXPECT_EQ(walkGroups(), before);
    EXPECT_EQ(SettingGroup::getGroupCount(), count);
}

TEST(SettingGroup, DuplicateNamesFindTheNewest) {
    SettingGroup older("Twin");
    {
        SettingGroup newer("Twin");
        EXPECT_EQ(SettingGroup::getGroup("Twin"), &newer);
    }
    EXPECT_EQ(SettingGroup::getGroup("Twin"), &older);
    EXPECT_EQ(SettingGroup::getGroup("twin"), nullptr) << "names compare exactly";
}

// Settings in a group ------------------------------------------------------------------------

TEST(SettingGroup, SettingsKeepJoiningOrderLeaveOnDestructionAndAreIndexedChecked) {
    SettingGroup g("Members");
    IntSetting a(g, "a", 1);
    auto b = std::make_unique<IntSetting>(g, "b", 2);
    TypedSetting<QString> c(g, "c", "x");
    IntSetting dup(g, "a", 4);
    EXPECT_EQ(members(g), (std::vector<Setting*>{&a, b.get(), &c, &dup}));
    b.reset();
    EXPECT_EQ(members(g), (std::vector<Setting*>{&a, &c, &dup}));
    EXPECT_EQ(g.getSetting("a"), &a) << "the first in array order";
    EXPECT_EQ(g.getSetting("b"), nullptr);
    EXPECT_EQ(g.getSetting("A"), nullptr) << "case-sensitive";
    for (int bad : {3, -1}) {
        try {
            g.getSetting(bad);
            ADD_FAILURE() << "no throw for " << bad;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "vector [] access out of range");
        }
    }
}

}  // namespace
}  // namespace mirel
