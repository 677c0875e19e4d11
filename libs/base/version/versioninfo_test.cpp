// The application's identity, and its settings as real files below a temporary home.
#include "base/version/versioninfo.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QSettings>

#include <memory>

#include "base/testing/tempenv.h"
#include "base/version/versioninfoimpl_p.h"

namespace mirel {
namespace {

const QString gHome = testing::temporaryHome();

// The identity table as the application's documentation gives it.
struct Row {
    int type;
    const char *name, *settingsName, *id;
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

// From the configured edition to every type of the table and one outside it: the switch is
// taken only within the group, and the group and the settings never move.
TEST_F(VersionInfoTest, TheConfiguredEditionSwitchesOnlyWithinItsGroup) {
    const Row& home = row(MIREL_EDITION);
    for (int to : {0, 1, 2, 3, 4, 5, 9, 255}) {
        VersionInfo::shutdown();
        const auto type = static_cast<VersionInfo::AppType>(to);
        EXPECT_EQ(VersionInfo::getIDFromType(type), row(to).id) << to;
        VersionInfo::setAppType(type);
        const int now = home.group == row(to).group ? to : MIREL_EDITION;
        EXPECT_EQ(VersionInfo::getAppType(), now) << to;
        EXPECT_EQ(VersionInfo::getAppNameW(), QString(row(now).name).toStdWString()) << to;
        EXPECT_EQ(VersionInfo::getAppIDW(), QString(row(now).id).toStdWString()) << to;
        EXPECT_EQ(VersionInfo::getAppGroup(), home.group) << to;
        EXPECT_EQ(VersionInfo::getAppSettingsRegistryPath(), QString("Software/Vantor/") + home.settingsName);
    }
}

// Through VersionInfo only the configured edition's group shows; here the table that every
// edition builds is checked row by row.
TEST_F(VersionInfoTest, EveryEditionBuildsTheWholeTable) {
    for (const Row& edition : kTable) {
        VersionInfoImpl identity(edition.type);
        for (int type : {0, 1, 2, 3, 4, 5, 9, 255}) {
            const VersionInfoImpl::AppInfo& got = identity.lookup(type);
            const Row& want = row(type);
            EXPECT_EQ(QStringList({got.displayName, got.settingsName, got.appID}),
                      QStringList({want.name, want.settingsName, want.id}))
                << "edition " << edition.type << ", type " << type;
            EXPECT_EQ(got.group, want.group) << "edition " << edition.type << ", type " << type;
        }
    }
}

TEST_F(VersionInfoTest, FixedFactsAndShutdownForgetsSwitchesAndFlags) {
    EXPECT_EQ(VersionInfo::getAppCompanyW(), L"Vantor");
    EXPECT_EQ(VersionInfo::getAppVersionW(), L"4.0.1563");
    EXPECT_EQ(VersionInfo::getAppVersionTagW(), L"beta");
    EXPECT_EQ(VersionInfo::getCommonSettingsRegistryPath(), "Software/Vantor/VMCommonSettings");

    VersionInfo::setAppType(VersionInfo::kAppControl);
    VersionInfo::setControlType(true);
    EXPECT_TRUE(VersionInfo::isControlType());
    VersionInfo::shutdown();
    EXPECT_EQ(VersionInfo::getAppType(), MIREL_EDITION);
    EXPECT_FALSE(VersionInfo::isControlType());
}

// Settings locations -----------------------------------------------------------------------

// Written through the library, found on disk and read back by a fresh QSettings; a later
// type switch does not move them. The global ones are for all users, not below the home.
TEST_F(VersionInfoTest, UserSettingsAreFilesBelowTheConfigHomeAndGlobalOnesAreNot) {
    const QString appFile = gHome + "/Vantor/" + row(MIREL_EDITION).settingsName + ".conf";
    const QString commonFile = gHome + "/Vantor/VMCommonSettings.conf";
    {
        std::unique_ptr<QSettings> app(VersionInfo::createUserAppSettings());
        std::unique_ptr<QSettings> common(VersionInfo::createUserCommonSettings());
        EXPECT_EQ(app->fileName(), appFile);
        EXPECT_EQ(common->fileName(), commonFile);
        app->setValue("window/width", 1280);
        common->setValue("shared", true);
    }
    EXPECT_EQ(QSettings(appFile, QSettings::IniFormat).value("window/width").toInt(), 1280);
    EXPECT_TRUE(QSettings(commonFile, QSettings::IniFormat).value("shared").toBool());
    for (int to : {0, 1, 2, 3, 4, 5, 255}) {
        VersionInfo::setAppType(static_cast<VersionInfo::AppType>(to));
        EXPECT_EQ(std::unique_ptr<QSettings>(VersionInfo::createUserAppSettings())->fileName(), appFile) << to;
    }

    std::unique_ptr<QSettings> app(VersionInfo::createGlobalAppSettings());
    std::unique_ptr<QSettings> common(VersionInfo::createGlobalCommonSettings());
    EXPECT_EQ(app->scope(), QSettings::SystemScope);
    EXPECT_EQ(app->applicationName(), row(MIREL_EDITION).settingsName);
    EXPECT_TRUE(common->fileName().endsWith("/Vantor/VMCommonSettings.conf")) << qPrintable(common->fileName());
    EXPECT_FALSE(common->fileName().startsWith(gHome));
}

}  // namespace
}  // namespace mirel
