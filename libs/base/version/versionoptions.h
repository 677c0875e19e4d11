// VersionOptions: the settings group "Version", which publishes the application's identity
// and the platform facts as settings. The library keeps one as a static, alive from load
// to unload; find it with SettingGroup::getGroup("Version"). What writes its values is up
// to the application.
#pragma once

#include <QString>

#include "base/mirel_export.h"
#include "base/settings/setting.h"
#include "base/settings/settinggroup.h"

namespace mirel {

class MIREL_EXPORT VersionOptions : public SettingGroup {
public:
    VersionOptions();
    ~VersionOptions() override;

    // In the group's order; texts start empty, numbers at 0.
    TypedSetting<QString> appName;
    TypedSetting<QString> appVersion;
    TypedSetting<QString> osName;
    IntSetting osMajor;
    IntSetting osMinor;
    IntSetting osBuild;
    IntSetting osPatch;
    IntSetting ramSize;
};

}  // namespace mirel
