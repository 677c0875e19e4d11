#include "base/version/versionoptions.h"

#include <gtest/gtest.h>

namespace mirel {
namespace {

TEST(VersionOptions, TheLibraryHoldsOneVersionGroupWithItsKeysInOrder) {
    SettingGroup* g = SettingGroup::getGroup("Version");
    ASSERT_NE(dynamic_cast<VersionOptions*>(g), nullptr) << "made by the library's static initialiser";
    const struct {
        const char* name;
        unsigned int type;
    } keys[] = {{"appName", kTextSettingType}, {"appVersion", kTextSettingType},
                {"osName", kTextSettingType},  {"osMajor", kIntSettingType},
                {"osMinor", kIntSettingType},  {"osBuild", kIntSettingType},
                {"osPatch", kIntSettingType},  {"ramSize", kIntSettingType}};
    ASSERT_EQ(g->getSettingCount(), 8);
    for (int i = 0; i < 8; ++i) {
        Setting* s = g->getSetting(i);
        EXPECT_EQ(s->getName(), keys[i].name);
        EXPECT_EQ(s->getType(), keys[i].type) << keys[i].name;
        EXPECT_EQ(s->toString(), keys[i].type == kIntSettingType ? "0" : "") << keys[i].name;
    }
}

}  // namespace
}  // namespace mirel
