#include "base/version/versioninfo.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

#include <cstdlib>
#include <memory>

#include "base/version/versioninfoimpl_p.h"

namespace mirel {
namespace {

// The real settings store, kept away from the user's: Qt reads XDG_CONFIG_HOME once, at
// the first QSettings of the process, so it is set before main().
const QString gConfigHome = [] {
    static QTemporaryDir dir;
    setenv("XDG_CONFIG_HOME", qPrintable(dir.path()), 1);
    setenv("HOME", qPrintable(dir.path()), 1);
    return dir.path();
}();

// The identity table as the application's documentation gives it.
struct Row {
    int type;
    const char* name;
    const char* settingsName;
    const char* id;
    int group;
};
const Row kTable[] = {
    {0, "Vantor Mirel Fleet", "VantorMirelFleet", "VantorMirelMacStudio", 0},
    {1, "Vantor Mirel Studio", "VantorMirelStudio", "VantorMirelMacStudio", 1},
    {2, "Vantor Mirel Extra", "VantorMirelExtra", "VantorMirelMac", 2},
    {3, "Vantor Mirel Extra", "VantorMirelExtra", "VantorMirelMac", 255},
    {4, "Vantor Mirel Extra", "VantorMirelExtra", "mv_nv", 255},
    {5, "Vantor Mirel", "VantorMirelExtra", "VantorMirelMac", 2},
    {255, "UNKNOWN", "UNKNOWN", "mv_UNKNOWN", 255},
};

// Absent types read as an empty row of group 255.
const Row& row(int type) {
    static const Row absent{-1, "", "", "", 255};
    for (const Row& r : kTable) {
        if (r.type == type) return r;
    }
    return absent;
}

class VersionInfoTest : public ::testing::Test {
protected:
    void SetUp() override { VersionInfo::shutdown(); }
    void TearDown() override { VersionInfo::shutdown(); }
};

// The table ------------------------------------------------------------------------------

// The identity of `type`, in the group and settings of `origin`: those never move.
void expectIdentity(const VersionInfoImpl& impl, int type, int origin) {
    EXPECT_EQ(impl.mAppType, type) << origin << " -> " << type;
    EXPECT_EQ(impl.mAppName, row(type).name) << origin << " -> " << type;
    EXPECT_EQ(impl.mAppID, row(type).id) << origin << " -> " << type;
    EXPECT_EQ(impl.mAppGroup, row(origin).group) << origin << " -> " << type;
    EXPECT_EQ(impl.mAppSettingsRegistryPath, QString("Software/Vantor/") + row(origin).settingsName);
}

// setAppType moves the type, name and id only within a group.
TEST(VersionInfoImpl, EveryEditionStartsFromItsRowAndSwitchesOnlyWithinItsGroup) {
    const int types[] = {0, 1, 2, 3, 4, 5, 9, 255};
    for (int from : types) {
        expectIdentity(VersionInfoImpl(from), from, from);
        for (int to : types) {
            VersionInfoImpl impl(from);
            impl.setAppType(to);
            expectIdentity(impl, row(from).group == row(to).group ? to : from, from);
        }
    }
    VersionInfoImpl control(0);
    control.mControlType = 1;
    control.initialize(0);
    expectIdentity(control, 5, 5);
}

// The static face ------------------------------------------------------------------------

TEST_F(VersionInfoTest, IdentityOfTheConfiguredEditionUntilShutdown) {
    const Row& r = row(MIREL_EDITION);
    EXPECT_EQ(VersionInfo::getAppType(), MIREL_EDITION);
    EXPECT_EQ(VersionInfo::getAppGroup(), r.group);
    EXPECT_EQ(VersionInfo::getAppNameW(), QString(r.name).toStdWString());
    EXPECT_EQ(VersionInfo::getAppIDW(), QString(r.id).toStdWString());
    EXPECT_EQ(VersionInfo::getAppCompanyW(), L"Vantor");
    EXPECT_EQ(VersionInfo::getAppVersionW(), L"4.0.1563");
    EXPECT_EQ(VersionInfo::getAppVersionTagW(), L"beta");
    EXPECT_EQ(VersionInfo::getCommonSettingsRegistryPath(), "Software/Vantor/VMCommonSettings");
    EXPECT_EQ(VersionInfo::getAppSettingsRegistryPath(), QString("Software/Vantor/") + r.settingsName);
    EXPECT_EQ(VersionInfo::getIDFromType(VersionInfo::kAppExtraNv), "mv_nv");

    VersionInfo::setAppType(VersionInfo::kAppControl);
    VersionInfo::setControlType(true);
    EXPECT_TRUE(VersionInfo::isControlType());
    VersionInfo::shutdown();
    EXPECT_EQ(VersionInfo::getAppType(), MIREL_EDITION) << "shutdown forgets switches and flags";
    EXPECT_FALSE(VersionInfo::isControlType());
}

// Settings locations -----------------------------------------------------------------------

// Written through the library, found on disk and read back by a fresh QSettings; a later
// type switch does not move them.
TEST_F(VersionInfoTest, UserSettingsAreFilesBelowTheConfigHome) {
    const QString appFile = gConfigHome + "/Vantor/" + row(MIREL_EDITION).settingsName + ".conf";
    const QString commonFile = gConfigHome + "/Vantor/VMCommonSettings.conf";
    {
        std::unique_ptr<QSettings> app(VersionInfo::createUserAppSettings());
        std::unique_ptr<QSettings> common(VersionInfo::createUserCommonSettings());
        EXPECT_EQ(app->fileName(), appFile);
        EXPECT_EQ(common->fileName(), commonFile);
        EXPECT_EQ(app->scope(), QSettings::UserScope);
        app->setValue("window/width", 1280);
        app->setValue("label", "two words");
        common->setValue("shared", true);
    }
    ASSERT_TRUE(QFileInfo::exists(appFile));
    QSettings fresh(appFile, QSettings::IniFormat);
    EXPECT_EQ(fresh.value("window/width").toInt(), 1280);
    EXPECT_EQ(fresh.value("label").toString(), "two words");
    EXPECT_TRUE(QSettings(commonFile, QSettings::IniFormat).value("shared").toBool());

    VersionInfo::setAppType(VersionInfo::kAppControl);
    EXPECT_EQ(std::unique_ptr<QSettings>(VersionInfo::createUserAppSettings())->fileName(), appFile);
}

TEST_F(VersionInfoTest, GlobalSettingsAreForAllUsersAndNotBelowTheConfigHome) {
    std::unique_ptr<QSettings> app(VersionInfo::createGlobalAppSettings());
    std::unique_ptr<QSettings> common(VersionInfo::createGlobalCommonSettings());
    EXPECT_EQ(app->scope(), QSettings::SystemScope);
    EXPECT_EQ(common->scope(), QSettings::SystemScope);
    EXPECT_EQ(app->applicationName(), row(MIREL_EDITION).settingsName);
    EXPECT_TRUE(common->fileName().endsWith("/Vantor/VMCommonSettings.conf"))
        << qPrintable(common->fileName());
    EXPECT_FALSE(common->fileName().startsWith(gConfigHome));
}

}  // namespace
}  // namespace mirel
