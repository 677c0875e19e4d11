// VersionInfo: who the application is (display name, company, version and tag, application
// ID, type and group) and where its persistent settings live. Everything is a static member;
// the first call of any of them builds the identity from a fixed table of application types,
// starting from the edition the build was configured as (CMake option MIREL_EDITION).
//
//   QSettings* s = VersionInfo::createUserAppSettings();   // ~/.config/Vantor/<name>.conf
//   s->setValue("window/width", 1280);
//   delete s;                                             // the caller owns it
//
// Not thread-safe: make the first call on the main thread before other threads use it.
#pragma once

#include <QString>

#include <string>

#include "base/mirel_export.h"

class QSettings;

namespace mirel {

class MIREL_EXPORT VersionInfo {
public:
    // Rows of the identity table. A type outside the table reads as an empty row of group
    // 255 (and is added to the table as such).
    enum AppType : int {
        kAppFleet = 0,
        kAppStudio = 1,
        kAppExtra = 2,
        kAppExtraType3 = 3,  // the texts of kAppExtra, group 255
        kAppExtraNv = 4,     // the texts of kAppExtra with ID "mv_nv", group 255
        kAppControl = 5,     // the control type: "Vantor Mirel", group 2
        kAppUnknown = 255,
    };

    // Builds the identity on first call; later calls do nothing.
    static void initialize();
    // Drops the identity; the next call of any function builds it afresh.
    static void shutdown();

    static std::wstring getAppNameW();
    static std::wstring getAppCompanyW();
    // "4.0.1563".
    static std::wstring getAppVersionW();
    static std::wstring getAppVersionTagW();
    static std::wstring getAppIDW();
    // "Software/Vantor/VMCommonSettings" for every type.
    static QString getCommonSettingsRegistryPath();
    // "Software/Vantor/" followed by the settings name of the type the identity was built
    // for.
    static QString getAppSettingsRegistryPath();

    static int getAppType();
    static int getAppGroup();
    // Switches to `type` (its name and ID) only when its group equals the current type's
    // group; otherwise nothing changes. Settings locations never change after the identity
    // is built.
    static void setAppType(AppType type);
    // The control-type flag, read when the identity is built.
    static void setControlType(bool control);
    static bool isControlType();
    // The application ID of `type`'s row; empty for a type outside the table.
    static QString getIDFromType(AppType type);

    // New settings objects in the toolkit's native format, organisation "Vantor": the common
    // settings ("VMCommonSettings") or this application's, for the current user or for all
    // users. On Linux these are INI files below $XDG_CONFIG_HOME (default ~/.config) and
    // below /etc/xdg. The caller owns the object and deletes it.
    static QSettings* createUserCommonSettings();
    static QSettings* createUserAppSettings();
    static QSettings* createGlobalCommonSettings();
    static QSettings* createGlobalAppSettings();
};

}  // namespace mirel
