// Settings and groups constructed as statics of different translation units before main():
// the groups here, their settings in staticorder_settings_test.cpp, interleaved by
// init_priority so that the order never depends on the link.
#include <gtest/gtest.h>

#include <vector>

#include "base/settings/staticorder_test.h"

namespace statictest {

int gObservedBeforeAdoption = -1;  // constant-initialised: set before any constructor runs

mirel::SettingGroup gEarly __attribute__((init_priority(1100)))("Early");
mirel::SettingGroup gLate __attribute__((init_priority(2000)))("Late");
mirel::SettingGroup gLater __attribute__((init_priority(2500)))("Later");

namespace {

using mirel::Setting;
using mirel::SettingGroup;

std::vector<Setting*> members(const SettingGroup& g) {
    std::vector<Setting*> list;
    for (int i = 0; i < g.getSettingCount(); ++i) list.push_back(g.getSetting(i));
    return list;
}

// Orphans join newest first, settings made after their group append, and adopting one
// group's orphans leaves another's waiting. The library's initialisers run before the
// program's, so its "Version" group is the oldest.
TEST(StaticOrder, OrphansAreAdoptedNewestFirstThenLaterSettingsAppend) {
    EXPECT_EQ(members(gLate), (std::vector<Setting*>{&c1, &a2, &a1, &a3}));
    EXPECT_EQ(members(gLater), (std::vector<Setting*>{&x2, &x1}));
    EXPECT_EQ(members(gEarly), (std::vector<Setting*>{&e1}));
    for (Setting* s : members(gLate)) EXPECT_EQ(s->getGroup(), &gLate);
    EXPECT_EQ(gObservedBeforeAdoption, 1);
    EXPECT_EQ(x2.getValue(), "early") << "a value set before adoption is kept";
    ASSERT_EQ(SettingGroup::getGroupCount(), 4);
    EXPECT_EQ(SettingGroup::getGroup(0), &gLater);
    EXPECT_EQ(SettingGroup::getGroup(2), &gEarly);
    EXPECT_EQ(SettingGroup::getGroup(3), SettingGroup::getGroup("Version"));
}

}  // namespace
}  // namespace statictest
