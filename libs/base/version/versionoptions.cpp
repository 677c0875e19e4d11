// The "Version" group and the library's one instance of it.
#include "base/version/versionoptions.h"

namespace mirel {

VersionOptions::VersionOptions()
    : SettingGroup("Version"),
      appName(*this, "appName", QString(), true),
      appVersion(*this, "appVersion", QString(), true),
      osName(*this, "osName", QString(), true),
      osMajor(*this, "osMajor", 0, true),
      osMinor(*this, "osMinor", 0, true),
      osBuild(*this, "osBuild", 0, true),
      osPatch(*this, "osPatch", 0, true),
      ramSize(*this, "ramSize", 0, true) {}

VersionOptions::~VersionOptions() = default;

namespace {

VersionOptions sVersionOptions;

}  // namespace

}  // namespace mirel
