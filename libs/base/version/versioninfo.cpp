// The identity table and the settings locations built from it.
#include "base/version/versioninfo.h"

#include <QSettings>

#include "base/version/versioninfoimpl_p.h"

#ifndef MIREL_EDITION
#error "MIREL_EDITION must name the application type the build is configured as"
#endif

namespace mirel {

const int VersionInfoImpl::kConfiguredEdition = MIREL_EDITION;

namespace {

VersionInfoImpl* _versionInfo = nullptr;

VersionInfoImpl& impl() {
    VersionInfo::initialize();
    return *_versionInfo;
}

QSettings* makeSettings(QSettings::Scope scope, const QString& name) {
    // The library's operator new places it through the frame's default (null) manager.
    return new QSettings(QSettings::NativeFormat, scope, impl().mCompany, name);
}

}  // namespace

VersionInfoImpl::VersionInfoImpl(int edition) { initialize(edition); }

void VersionInfoImpl::initialize(int edition) {
    mAppInfo[0] = {"Vantor Mirel Fleet", "VantorMirelFleet", "VantorMirelMacStudio", 0};
    mAppInfo[1] = {"Vantor Mirel Studio", "VantorMirelStudio", "VantorMirelMacStudio", 1};
    mAppInfo[2] = {"Vantor Mirel Extra", "VantorMirelExtra", "VantorMirelMac", 2};
    mAppInfo[5] = {"Vantor Mirel", "VantorMirelExtra", "VantorMirelMac", 2};
    // Rows 3 and 4 take row 2's texts but keep the group their rows were created with, 255,
    // which is what keeps setAppType() from moving between them and row 2.
    for (int type : {3, 4}) {
        AppInfo& row = lookup(type);
        const AppInfo& extra = mAppInfo[2];
        row.displayName = extra.displayName;
        row.settingsName = extra.settingsName;
        row.appID = extra.appID;
    }
    mAppInfo[4].appID = "mv_nv";
    mAppInfo[255] = {"UNKNOWN", "UNKNOWN", "mv_UNKNOWN", 255};

    const int type = mControlType != 0 ? 5 : edition;
    const AppInfo& row = lookup(type);
    mAppType = type;
    mAppGroup = row.group;
    mAppName = row.displayName;
    mAppID = row.appID;
    mAppSettingsName = row.settingsName;

    mCompany = "Vantor";
    mCommonSettingsName = "VMCommonSettings";
    mCommonSettingsRegistryPath = QStringLiteral("Software/%1/%2").arg(mCompany, mCommonSettingsName);
    mAppSettingsRegistryPath = QStringLiteral("Software/%1/%2").arg(mCompany, mAppSettingsName);

    mAppVersion = readAppVersion();
    mVersionTag = "beta";
    mInitialized = 1;
}

VersionInfoImpl::AppInfo& VersionInfoImpl::lookup(int type) {
    return mAppInfo[type];  // an absent type gets an empty row of group 255
}

void VersionInfoImpl::setAppType(int type) {
    const AppInfo wanted = lookup(type);
    const AppInfo& current = lookup(mAppType);
    if (wanted.group != current.group) return;
    mAppType = type;
    mAppID = wanted.appID;
    mAppName = wanted.displayName;
}

QString VersionInfoImpl::readAppVersion() {
    const unsigned short major = 4, minor = 0, build = 1563;
    return QString::asprintf("%hu.%hu.%04hu", major, minor, build);
}

void VersionInfo::initialize() {
    if (_versionInfo == nullptr) _versionInfo = new VersionInfoImpl;
}

void VersionInfo::shutdown() {
    delete _versionInfo;
    _versionInfo = nullptr;
}

// QString::toStdWString is UTF-16 to UTF-32 here (wchar_t is 32 bits).
std::wstring VersionInfo::getAppNameW() { return impl().mAppName.toStdWString(); }
std::wstring VersionInfo::getAppCompanyW() { return impl().mCompany.toStdWString(); }
std::wstring VersionInfo::getAppVersionW() { return impl().mAppVersion.toStdWString(); }
std::wstring VersionInfo::getAppVersionTagW() { return impl().mVersionTag.toStdWString(); }
std::wstring VersionInfo::getAppIDW() { return impl().mAppID.toStdWString(); }
QString VersionInfo::getCommonSettingsRegistryPath() { return impl().mCommonSettingsRegistryPath; }
QString VersionInfo::getAppSettingsRegistryPath() { return impl().mAppSettingsRegistryPath; }

int VersionInfo::getAppType() { return impl().mAppType; }
int VersionInfo::getAppGroup() { return impl().mAppGroup; }
void VersionInfo::setAppType(AppType type) { impl().setAppType(type); }
void VersionInfo::setControlType(bool control) { impl().mControlType = control ? 1 : 0; }
bool VersionInfo::isControlType() { return impl().mControlType != 0; }
QString VersionInfo::getIDFromType(AppType type) { return impl().lookup(type).appID; }

QSettings* VersionInfo::createUserCommonSettings() {
    return makeSettings(QSettings::UserScope, impl().mCommonSettingsName);
}
QSettings* VersionInfo::createUserAppSettings() {
    return makeSettings(QSettings::UserScope, impl().mAppSettingsName);
}
QSettings* VersionInfo::createGlobalCommonSettings() {
    return makeSettings(QSettings::SystemScope, impl().mCommonSettingsName);
}
QSettings* VersionInfo::createGlobalAppSettings() {
    return makeSettings(QSettings::SystemScope, impl().mAppSettingsName);
}

}  // namespace mirel
