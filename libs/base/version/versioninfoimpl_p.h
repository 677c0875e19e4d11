// The identity behind VersionInfo: the application-type table and the facts derived from
// it. Private to the library; exported only so that the tests can build one for any
// edition.
#pragma once

#include <QString>

#include <map>

#include "base/memory/memoryobject.h"
#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT VersionInfoImpl : public MemoryObject {
public:
    struct AppInfo {
        QString displayName;
        QString settingsName;
        QString appID;
        int group = 255;
    };

    // The edition this build was configured as.
    static const int kConfiguredEdition;

    // Builds the identity for `edition` (initialize()).
    explicit VersionInfoImpl(int edition = kConfiguredEdition);

    // Fills the table and every field; the control-type flag, when set, makes the type 5.
    void initialize(int edition);
    // The row of `type`, created empty with group 255 when absent.
    AppInfo& lookup(int type);
    // Same-group switch only (see VersionInfo::setAppType).
    void setAppType(int type);
    static QString readAppVersion();

    std::map<int, AppInfo> mAppInfo;
    QString mAppName;
    QString mCompany;
    QString mAppVersion;
    QString mVersionTag;
    QString mCommonSettingsName;
    QString mCommonSettingsRegistryPath;
    QString mAppSettingsName;
    QString mAppSettingsRegistryPath;
    QString mAppID;
    int mInitialized = 0;
    int mControlType = 0;
    int mAppType = 255;
    int mAppGroup = 255;
};

}  // namespace mirel
