// The tool as a person meets it: exit statuses, one-line errors and JSON that parses.
#include <gtest/gtest.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

namespace {

struct Result {
    int status;
    QString out;
    QString err;
};

Result mirel(const QStringList& args, const QString& configHome = QString()) {
    QProcess p;
    if (!configHome.isEmpty()) {
        // The settings store of the child, away from the user's.
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", configHome);
        env.insert("HOME", configHome);
        p.setProcessEnvironment(env);
    }
    p.start(MIREL_TOOL_PATH, args);
    EXPECT_TRUE(p.waitForFinished(120000)) << args.join(' ').toStdString();
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
}

QJsonObject parseJson(const Result& run) {
    QJsonParseError error;
    QJsonDocument doc = QJsonDocument::fromJson(run.out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << run.out.toStdString();
    return doc.object();
}

// Errors ------------------------------------------------------------------------------------

TEST(Tool, BadInvocationsGiveOneLineAndStatusTwo) {
    const QList<QStringList> cases = {
        {},
        {"no-such-command"},
        {"--no-such-option"},
        {"locks", "--threads", "zero"},
        {"locks", "--threads", "0"},
        {"locks", "--frobnicate"},
        {"sysinfo", "stray"},
        {"pool", "--min-size", "100", "--max-size", "10"},
        {"pool", "--blocks", "-3"},
        {"pool", "--name", ""},
        {"settings", "set"},
        {"settings", "set", "osName", "Linux"},
        {"settings", "set", "Version/", "Linux"},
        {"settings", "set", "NoSuchGroup/osName", "Linux"},
        {"settings", "set", "Version/noSuchSetting", "1"},
        {"settings", "set", "Version/osMajor", "six"},
        {"settings", "set", "Version/osMajor", "6", "extra"},
        {"settings", "set", "Version/osName", "x", "--number"},
        {"settings", "set", "Version/osName", "x", "--modifier", "-1"},
        {"settings", "unset"},
        {"settings", "--rollback"},
        {"version", "--set-type", "two"},
        {"version", "stray"},
    };
    for (const QStringList& args : cases) {
        Result r = mirel(args);
        EXPECT_EQ(r.status, 2) << args.join(' ').toStdString();
        if (!args.isEmpty()) {
            EXPECT_TRUE(r.err.startsWith("mirel: ")) << r.err.toStdString();
            EXPECT_EQ(r.err.count('\n'), 1) << r.err.toStdString();
        }
    }
}

// Help and version ----------------------------------------------------------------------------

TEST(Tool, HelpListsCommandsAndEachCommandHasItsOwn) {
    Result r = mirel({"--help"});
    EXPECT_EQ(r.status, 0);
    for (const char* name : {"tour", "sysinfo", "locks", "pool", "settings", "version"}) EXPECT_TRUE(r.out.contains(name)) << name;

    Result sub = mirel({"locks", "--help"});
    EXPECT_EQ(sub.status, 0);
    EXPECT_TRUE(sub.out.contains("--threads"));
    EXPECT_TRUE(sub.out.contains("--json"));
    EXPECT_TRUE(sub.out.contains("mirel locks"));

    Result v = mirel({"--version"});
    EXPECT_EQ(v.status, 0);
    EXPECT_TRUE(v.out.startsWith("mirel ")) << v.out.toStdString();
}

// Results ------------------------------------------------------------------------------------

TEST(Tool, LocksReportsAnExactCountAsJson) {
    Result r = mirel({"locks", "--threads", "3", "--iterations", "20000", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["threads"].toInt(), 3);
    EXPECT_EQ(o["counter"].toDouble(), o["expected"].toDouble());
    EXPECT_EQ(o["expected"].toDouble(), 80000.0);
    EXPECT_EQ(o["unlocksUntilRefused"].toInt(), 3);
    EXPECT_EQ(o["timedLockResult"].toInt(), -1);
    EXPECT_GE(o["timedLockWaitedMs"].toDouble(), 45.0);
}

TEST(Tool, PoolAccountsEveryByteItHandsOut) {
    Result r = mirel({"pool", "--blocks", "1000", "--min-size", "64", "--max-size", "64", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["blocksAllocated"].toDouble(), 1000.0);
    EXPECT_EQ(o["blocksFreed"].toDouble(), 500.0);
    // Blocks alternate between the managers and the odd ones (the second's) were freed.
    QJsonArray managers = o["managers"].toArray();
    EXPECT_EQ(managers[0].toDouble(), 500.0 * 64);
    EXPECT_EQ(managers[1].toDouble(), 0.0);
    EXPECT_EQ(o["poolAllocatedBytes"].toDouble(), 500.0 * 64);
    EXPECT_GE(o["ranges"].toArray().size(), 1);
    EXPECT_GE(o["footprint"].toDouble(), o["inUseBytes"].toDouble());
}

TEST(Tool, SettingsListsTheVersionGroupInOrder) {
    Result r = mirel({"settings", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["groupCount"].toInt(), 1);
    QJsonObject version = o["groups"].toArray()[0].toObject();
    EXPECT_EQ(version["name"].toString(), "Version");
    const QStringList names = {"appName", "appVersion", "osName", "osMajor",
                               "osMinor", "osBuild",    "osPatch", "ramSize"};
    QJsonArray settings = version["settings"].toArray();
    ASSERT_EQ(settings.size(), names.size());
    for (int i = 0; i < names.size(); ++i) {
        QJsonObject s = settings[i].toObject();
        EXPECT_EQ(s["name"].toString(), names[i]);
        EXPECT_EQ(s["type"].toString(), i < 3 ? "text" : "int") << i;
        EXPECT_EQ(s["value"], s["default"]) << i;
        EXPECT_EQ(s["modifier"].toInt(), 0);
    }
}

TEST(Tool, SettingsSetTellsBothObserversAndStampsTheModifier) {
    Result r = mirel({"settings", "set", "Version/osName", "Linux", "--modifier", "9", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["before"].toString(), "");
    EXPECT_EQ(o["after"].toString(), "Linux");
    EXPECT_EQ(o["modifier"].toInt(), 9);
    QJsonArray events = o["events"].toArray();
    ASSERT_EQ(events.size(), 2);
    EXPECT_EQ(events[0].toObject()["observer"].toString(), "setting") << "the setting's own first";
    EXPECT_EQ(events[1].toObject()["observer"].toString(), "group");
    EXPECT_EQ(events[1].toObject()["value"].toString(), "Linux");

    // The same value: stamped, nobody told.
    QJsonObject same = parseJson(mirel({"settings", "set", "Version/osMajor", "0", "--modifier", "5", "--json"}));
    EXPECT_FALSE(same["changed"].toBool());
    EXPECT_EQ(same["modifier"].toInt(), 5);
    EXPECT_TRUE(same["events"].toArray().isEmpty());

    // Text keeps its first word; a number leaves text alone.
    EXPECT_EQ(parseJson(mirel({"settings", "set", "Version/osName", "Debian Linux", "--json"}))["after"], "Debian");
    QJsonObject number = parseJson(mirel({"settings", "set", "Version/osMajor", "6.9", "--number", "--json"}));
    EXPECT_EQ(number["after"].toInt(), 6);
    EXPECT_EQ(parseJson(mirel({"settings", "set", "Version/osName", "6.9", "--number", "--json"}))["after"], "");
}

TEST(Tool, SettingsRollbackIsSilent) {
    QJsonObject o = parseJson(mirel({"settings", "set", "Version/ramSize", "2048", "--rollback", "--json"}));
    EXPECT_EQ(o["after"].toInt(), 2048);
    EXPECT_EQ(o["afterRollback"].toInt(), 0);
    EXPECT_EQ(o["eventsDuringRollback"].toInt(), 0);
    EXPECT_EQ(o["events"].toArray().size(), 2);
}

TEST(Tool, VersionShowsTheIdentityAndTheSettingsFilesOfThisMachine) {
    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    Result r = mirel({"version", "--json"}, home.path());
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["version"].toString(), "4.0.1563");
    EXPECT_EQ(o["versionTag"].toString(), "beta");
    EXPECT_EQ(o["company"].toString(), "Vantor");
    EXPECT_EQ(o["commonSettingsRegistryPath"].toString(), "Software/Vantor/VMCommonSettings");
    EXPECT_EQ(o["idsByType"].toObject()["4"].toString(), "mv_nv");
    const QString appName = o["appSettingsRegistryPath"].toString().section('/', -1);
    QJsonObject files = o["settingsFiles"].toObject();
    EXPECT_EQ(files["userCommon"].toString(), home.path() + "/Vantor/VMCommonSettings.conf");
    EXPECT_EQ(files["userApp"].toString(), home.path() + "/Vantor/" + appName + ".conf");
    EXPECT_TRUE(files["globalApp"].toString().endsWith("/Vantor/" + appName + ".conf"));
    EXPECT_FALSE(files["globalCommon"].toString().startsWith(home.path()));
    EXPECT_TRUE(QDir(home.path()).isEmpty()) << "showing the paths must not write anything";

    const int type = o["appType"].toInt();
    QJsonObject to5 = parseJson(mirel({"version", "--set-type", "5", "--json"}, home.path()))["setType"].toObject();
    QJsonObject to3 = parseJson(mirel({"version", "--set-type", "3", "--json"}, home.path()))["setType"].toObject();
    EXPECT_EQ(to5["from"].toInt(), type);
    if (type == 2) {
        EXPECT_TRUE(to5["taken"].toBool()) << "2 and 5 share group 2";
        EXPECT_FALSE(to3["taken"].toBool()) << "3 is in group 255";
    }
}

TEST(Tool, SysinfoAndTourSpeakJson) {
    QJsonObject info = parseJson(mirel({"sysinfo", "--json"}));
    EXPECT_GE(info["processors"].toInt(), 1);

    QTemporaryDir home;  // the tour opens the settings store
    ASSERT_TRUE(home.isValid());
    Result tour = mirel({"tour", "--json"}, home.path());
    ASSERT_EQ(tour.status, 0) << tour.err.toStdString();
    QJsonArray steps = parseJson(tour)["tour"].toArray();
    ASSERT_GE(steps.size(), 2);
    for (const auto& step : steps) EXPECT_FALSE(step.toObject()["step"].toString().isEmpty());
}

}  // namespace
