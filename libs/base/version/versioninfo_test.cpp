#include "base/version/versioninfo.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

#include <cstdlib>
#include <memory>

#include "base/version/versioninfoimpl_p.h"

namespace mirel {
namespace {

// The real settings store, kept away from the user's: Qt reads XDG_CONFIG_HOME once, at
// the first QSettings of the process, so this runs before any test.
class ConfigHome : public ::testing::Environment {
public:
    void SetUp() override {
        mDir = std::make_unique<QTemporaryDir>();
        ASSERT_TRUE(mDir->isValid());
        path = mDir->path();
        setenv("XDG_CONFIG_HOME", qPrintable(path), 1);
        setenv("HOME", qPrintable(path), 1);
    }
    void TearDown() override { mDir.reset(); }
    static inline QString path;

private:
    std::unique_ptr<QTemporaryDir> mDir;
};
const auto* const gConfigHome = ::testing::AddGlobalTestEnvironment(new ConfigHome);

struct Row {
    int type;
    const char* name;
    const char* settingsName;
    const char* id;
    int group;
};
// The identity table as the application's documentation gives it.
const Row kTable[] = {
    {0, "Vantor Mirel Fleet", "VantorMirelFleet", "VantorMirelMacStudio", 0},
    {1, "Vantor Mirel Studio", "VantorMirelStudio", "VantorMirelMacStudio", 1},
    {2, "Vantor Mirel Extra", "VantorMirelExtra", "VantorMirelMac", 2},
    {3, "Vantor Mirel Extra", "VantorMirelExtra", "VantorMirelMac", 255},
    {4, "Vantor Mirel Extra", "VantorMirelExtra", "mv_nv", 255},
    {5, "Vantor Mirel", "VantorMirelExtra", "VantorMirelMac", 2},
    {255, "UNKNOWN", "UNKNOWN", "mv_UNKNOWN", 255},
};

const Row& row(int type) {
    for (const Row& r : kTable) {
        if (r.type == type) return r;
    }
    static const Row absent{-1, "", "", "", 255};
    return absent;
}

class VersionInfoTest : public ::testing::Test {
protected:
    void SetUp() override { VersionInfo::shutdown(); }
    void TearDown() override { VersionInfo::shutdown(); }
};

// The table ------------------------------------------------------------------------------

TEST(VersionInfoImpl, EveryEditionStartsFromItsRow) {
    for (const Row& r : kTable) {
        VersionInfoImpl impl(r.type);
        EXPECT_EQ(impl.mAppType, r.type);
        EXPECT_EQ(impl.mAppName, r.name) << r.type;
        EXPECT_EQ(impl.mAppID, r.id) << r.type;
        EXPECT_EQ(impl.mAppGroup, r.group) << r.type;
        EXPECT_EQ(impl.mAppSettingsRegistryPath, QString("Software/Vantor/") + r.settingsName);
        EXPECT_EQ(impl.mCommonSettingsRegistryPath, "Software/Vantor/VMCommonSettings");
        EXPECT_EQ(impl.mInitialized, 1);
    }
    VersionInfoImpl odd(9);
    EXPECT_EQ(odd.mAppGroup, 255);
    EXPECT_TRUE(odd.mAppName.isEmpty());
    EXPECT_EQ(odd.mAppSettingsRegistryPath, "Software/Vantor/");
}

TEST(VersionInfoImpl, SetAppTypeMovesOnlyWithinAGroup) {
    const int types[] = {0, 1, 2, 3, 4, 5, 9, 255};
    for (int from : types) {
        for (int to : types) {
            VersionInfoImpl impl(from);
            const QString settingsPath = impl.mAppSettingsRegistryPath;
            impl.setAppType(to);
            const bool allowed = row(from).group == row(to).group;
            const int expected = allowed ? to : from;
            EXPECT_EQ(impl.mAppType, expected) << from << " -> " << to;
            EXPECT_EQ(impl.mAppName, row(expected).name) << from << " -> " << to;
            EXPECT_EQ(impl.mAppID, row(expected).id) << from << " -> " << to;
            EXPECT_EQ(impl.mAppGroup, row(from).group) << "the group never changes";
            EXPECT_EQ(impl.mAppSettingsRegistryPath, settingsPath) << "nor do the settings";
        }
    }
}

TEST(VersionInfoImpl, TheControlFlagMakesTypeFiveWhenTheIdentityIsBuilt) {
    VersionInfoImpl impl(0);
    impl.mControlType = 1;
    impl.initialize(0);
    EXPECT_EQ(impl.mAppType, 5);
    EXPECT_EQ(impl.mAppName, "Vantor Mirel");
    EXPECT_EQ(impl.mAppGroup, 2);
}

// The static face ------------------------------------------------------------------------

TEST_F(VersionInfoTest, IdentityOfTheConfiguredEdition) {
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
    EXPECT_FALSE(VersionInfo::isControlType());
}

TEST_F(VersionInfoTest, IdsByTypeAndTheRowsALookupAdds) {
    EXPECT_EQ(VersionInfo::getIDFromType(VersionInfo::kAppExtraNv), "mv_nv");
    EXPECT_EQ(VersionInfo::getIDFromType(VersionInfo::kAppFleet), "VantorMirelMacStudio");
    EXPECT_EQ(VersionInfo::getIDFromType(static_cast<VersionInfo::AppType>(9)), "");
    // The lookup of 9 added an empty group-255 row: from a group-255 type it is reachable.
    if (VersionInfo::getAppGroup() == 255) {
        VersionInfo::setAppType(static_cast<VersionInfo::AppType>(9));
        EXPECT_EQ(VersionInfo::getAppType(), 9);
        EXPECT_TRUE(VersionInfo::getAppIDW().empty());
    }
}

TEST_F(VersionInfoTest, ShutdownForgetsSwitchesAndFlags) {
    VersionInfo::setAppType(VersionInfo::kAppControl);
    VersionInfo::setControlType(true);
    EXPECT_TRUE(VersionInfo::isControlType());
    VersionInfo::shutdown();
    EXPECT_EQ(VersionInfo::getAppType(), MIREL_EDITION);
    EXPECT_FALSE(VersionInfo::isControlType());
}

// Settings locations -----------------------------------------------------------------------

TEST_F(VersionInfoTest, UserSettingsAreFilesBelowTheConfigHome) {
    const QString home = ConfigHome::path;
    const QString appFile = home + "/Vantor/" + row(MIREL_EDITION).settingsName + ".conf";
    const QString commonFile = home + "/Vantor/VMCommonSettings.conf";
    {
        std::unique_ptr<QSettings> app(VersionInfo::createUserAppSettings());
        std::unique_ptr<QSettings> common(VersionInfo::createUserCommonSettings());
        EXPECT_EQ(app->fileName(), appFile);
        EXPECT_EQ(common->fileName(), commonFile);
        EXPECT_EQ(app->scope(), QSettings::UserScope);
        EXPECT_EQ(app->format(), QSettings::NativeFormat);
        app->setValue("window/width", 1280);
        app->setValue("label", "two words");
        common->setValue("shared", true);
        app->sync();
        EXPECT_EQ(app->status(), QSettings::NoError);
    }
    ASSERT_TRUE(QFileInfo::exists(appFile));
    ASSERT_TRUE(QFileInfo::exists(commonFile));

    QSettings fresh(appFile, QSettings::IniFormat);
    EXPECT_EQ(fresh.value("window/width").toInt(), 1280);
    EXPECT_EQ(fresh.value("label").toString(), "two words");
    std::unique_ptr<QSettings> again(VersionInfo::createUserCommonSettings());
    EXPECT_TRUE(again->value("shared").toBool());
}

TEST_F(VersionInfoTest, GlobalSettingsAreForAllUsersAndNotBelowTheConfigHome) {
    std::unique_ptr<QSettings> app(VersionInfo::createGlobalAppSettings());
    std::unique_ptr<QSettings> common(VersionInfo::createGlobalCommonSettings());
    EXPECT_EQ(app->scope(), QSettings::SystemScope);
    EXPECT_EQ(common->organizationName(), "Vantor");
    EXPECT_EQ(common->applicationName(), "VMCommonSettings");
    EXPECT_EQ(app->applicationName(), row(MIREL_EDITION).settingsName);
    EXPECT_TRUE(common->fileName().endsWith("/Vantor/VMCommonSettings.conf")) << qPrintable(common->fileName());
    EXPECT_FALSE(common->fileName().startsWith(ConfigHome::path));
}

TEST_F(VersionInfoTest, SettingsStayWhereTheyWereFirstPlaced) {
    std::unique_ptr<QSettings> before(VersionInfo::createUserAppSettings());
    VersionInfo::setAppType(VersionInfo::kAppControl);
    std::unique_ptr<QSettings> after(VersionInfo::createUserAppSettings());
    EXPECT_EQ(before->fileName(), after->fileName());
}

}  // namespace
}  // namespace mirel
