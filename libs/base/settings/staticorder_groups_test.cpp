// The groups of the static-construction test, in their own translation unit.
#include "base/settings/staticorder_test.h"

namespace statictest {

mirel::SettingGroup gEarly __attribute__((init_priority(1100)))("Early");
mirel::SettingGroup gLate __attribute__((init_priority(2000)))("Late");
mirel::SettingGroup gLater __attribute__((init_priority(2500)))("Later");

}  // namespace statictest
