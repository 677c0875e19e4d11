// Statics shared by the static-construction test's translation units. init_priority fixes
// their order across the units (lower first): settings of "Late" and "Later" before those
// groups, settings of "Early" after it, and one more of "Late" after its group.
#pragma once

#include "base/settings/setting.h"
#include "base/settings/settinggroup.h"

namespace statictest {

extern mirel::SettingGroup gEarly;  // 1100
extern mirel::SettingGroup gLate;   // 2000
extern mirel::SettingGroup gLater;  // 2500

extern mirel::IntSetting a1;                // Late, 1000
extern mirel::IntSetting x1;                // Later, 1001
extern mirel::TypedSetting<QString> a2;     // Late, 1002
extern mirel::IntSetting e1;                // Early, 1200
extern mirel::IntSetting c1;                // Late, 1500
extern mirel::TypedSetting<QString> x2;     // Later, 1600
extern mirel::IntSetting a3;                // Late, 3000

// What x2 held right after being set at 1700, before its group existed.
extern int gObservedBeforeAdoption;

}  // namespace statictest
