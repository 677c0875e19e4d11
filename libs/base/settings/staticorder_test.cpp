// Settings and groups constructed as statics of different translation units, before main():
// settings made before their group wait as orphans and are adopted, newest first.
#include <gtest/gtest.h>

#include <vector>

#include "base/settings/staticorder_test.h"

namespace statictest {

int gObservedBeforeAdoption = -1;  // constant-initialised: set before any constructor runs

namespace {

using mirel::Setting;
using mirel::SettingGroup;

std::vector<Setting*> members(const SettingGroup& g) {
    std::vector<Setting*> list;
    for (int i = 0; i < g.getSettingCount(); ++i) list.push_back(g.getSetting(i));
    return list;
}

TEST(StaticOrder, OrphansAreAdoptedNewestFirstThenLaterSettingsAppend) {
    EXPECT_EQ(members(gLate), (std::vector<Setting*>{&c1, &a2, &a1, &a3}));
    EXPECT_EQ(members(gLater), (std::vector<Setting*>{&x2, &x1}))
        << "adopting Late's orphans must not disturb Later's";
    EXPECT_EQ(members(gEarly), (std::vector<Setting*>{&e1}));
    for (Setting* s : members(gLate)) EXPECT_EQ(s->getGroup(), &gLate);
}

TEST(StaticOrder, AValueSetBeforeAdoptionIsKept) {
    EXPECT_EQ(gObservedBeforeAdoption, 1);
    EXPECT_EQ(x2.getValue(), "early");
    EXPECT_EQ(gLater.getSetting("x2"), &x2);
}

TEST(StaticOrder, TheLibrarysOwnGroupIsOlderThanTheApplications) {
    // The library's initialisers run before the program's: its "Version" group comes
    // after every group of the program in the newest-first list.
    ASSERT_EQ(SettingGroup::getGroupCount(), 4);
    EXPECT_EQ(SettingGroup::getGroup(0), &gLater);
    EXPECT_EQ(SettingGroup::getGroup(1), &gLate);
    EXPECT_EQ(SettingGroup::getGroup(2), &gEarly);
    ASSERT_NE(SettingGroup::getGroup(3), nullptr);
    EXPECT_EQ(SettingGroup::getGroup(3)->getName(), "Version");
    EXPECT_EQ(SettingGroup::getGroup(4), nullptr);
}

}  // namespace
}  // namespace statictest
