// The tool as a person meets it: exit statuses, one-line errors and JSON that parses.
#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <cmath>
#include <cstdlib>

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
        {"status", "0xZZ"},
        {"status", "0x100000000"},
        {"status", "-1"},
        {"time", "--frames", "101"},
        {"random", "--count", "0"},
        {"random", "--seed", "4294967296"},
        {"random", "--range", "1"},
        {"random", "--range", "9", "3"},
        {"random", "--range", "a", "3"},
        {"random", "stray"},
        {"text"},
        {"text", "a", "--units", "41"},
        {"text", "--units", "10000"},
        {"hash", "--buckets", "0"},
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
        {"workers", "--threads", "0"},
        {"workers", "--rounds", "many"},
        {"workers", "--idle-wait", "-2"},
        {"workers", "--no-ready", "--idle-wait", "-1"},
        {"timer", "--interval", "0"},
        {"timer", "--single-shot", "--count", "2"},
        {"msgbox", "--type", "critical"},
        {"msgbox"},  // no display here and no --close-after: nobody could close it
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
    for (const char* name : {"tour", "sysinfo", "locks", "pool", "status", "time", "random", "text",
                             "hash", "settings", "version", "workers", "timer", "msgbox"}) {
        EXPECT_TRUE(r.out.contains(name)) << name;
    }

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
    // The process heap ran the same workload beside the pool.
    EXPECT_GT(o["heap"].toObject()["nsPerAlloc"].toDouble(), 0.0);
    EXPECT_GT(o["heap"].toObject()["nsPerFree"].toDouble(), 0.0);
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

TEST(Tool, WorkersRunExactRoundsWithoutOverlapAndRefuseASecondStart) {
    Result r = mirel({"workers", "--threads", "3", "--rounds", "300", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["rounds"].toDouble(), 300.0);
    EXPECT_EQ(o["handlerCalls"].toDouble(), 900.0);
    EXPECT_EQ(o["overlaps"].toDouble(), 0.0);
    EXPECT_EQ(o["startStatus"].toString(), "0x00000000");
    EXPECT_EQ(o["secondStartStatus"].toString(), "0xC0000002");
    EXPECT_EQ(o["secondStartMessage"].toString(), "Cache node not valid");
    EXPECT_EQ(o["liveAfterExit"].toDouble(), 0.0);
    EXPECT_GT(o["roundsPerSecond"].toDouble(), 0.0);
}

TEST(Tool, WorkersWithoutReadyTickAtTheIdleWait) {
    Result r = mirel({"workers", "--threads", "2", "--rounds", "3", "--idle-wait", "40",
                      "--no-ready", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["handlerCalls"].toDouble(), 6.0);
    // The first round runs at once; each of the two after it waits out 40 polls of 1 ms.
    EXPECT_GE(o["elapsedMs"].toDouble(), 2 * 36.0);
    EXPECT_LT(o["elapsedMs"].toDouble(), 5000.0);
}

TEST(Tool, TimerFiresOnTheEventLoopAtItsInterval) {
    Result r = mirel({"timer", "--interval", "30", "--count", "3", "--round-trips", "20", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    QJsonArray firings = o["firings"].toArray();
    ASSERT_EQ(firings.size(), 3);
    double total = 0;
    for (const auto& f : firings) {
        EXPECT_TRUE(f.toObject()["onMainThread"].toBool());
        total += f.toObject()["intervalMs"].toDouble();
    }
    EXPECT_GE(total, 3 * 30.0 - 3.0) << "three firings came early";
    EXPECT_LT(total, 6000.0);
    EXPECT_TRUE(o["executeOnMainThread"].toBool());
    EXPECT_EQ(o["executeRoundTrips"].toDouble(), 20.0);

    Result once = mirel({"timer", "--single-shot", "--interval", "20", "--round-trips", "0", "--json"});
    ASSERT_EQ(once.status, 0) << once.err.toStdString();
    EXPECT_EQ(parseJson(once)["firingCount"].toDouble(), 1.0) << "a single shot fired again";
}

TEST(Tool, MsgboxShowsTheBoxOnTheEventLoopThreadAndClosesIt) {
    Result r = mirel({"msgbox", "--type", "warning", "--title", "Disk", "--text", "Cache is full",
                      "--close-after", "50", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["icon"].toString(), "warning");
    EXPECT_EQ(o["title"].toString(), "Disk");
    EXPECT_EQ(o["text"].toString(), "Cache is full");
    EXPECT_EQ(o["buttons"].toInt(), 1);
    EXPECT_TRUE(o["onMainThread"].toBool());
    EXPECT_GE(o["shownMs"].toDouble(), 45.0);
    EXPECT_TRUE(r.err.isEmpty())
        << "Qt's offscreen notes leaked: " << r.err.toStdString();
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

// Status words --------------------------------------------------------------------------------

QJsonObject decoded(const QString& word) {
    Result r = mirel({"status", word, "--json"});
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    return parseJson(r)["words"].toArray().at(0).toObject();
}

// Subsystem 0's own printable text never returns, so a tool that called it would hang here
// (the test waits for the process).
TEST(Tool, StatusDecodesWordsOfTheLibraryAndFallsBackForOthers) {
    QJsonObject app = decoded("0xC0000006");
    EXPECT_EQ(app["severity"].toInt(), 3);
    EXPECT_EQ(app["severityName"].toString(), "Error");
    EXPECT_EQ(app["subsystem"].toInt(), 0);
    EXPECT_EQ(app["subsystemName"].toString(), "APP");
    EXPECT_EQ(app["code"].toInt(), 6);
    EXPECT_EQ(app["message"].toString(), "File not found");
    EXPECT_EQ(app["printable"].toString(), "Error|APP|Error code File not found (0x    6)");

    QJsonObject info = decoded("1073741953");  // 0x40000081 in decimal
    EXPECT_EQ(info["word"].toString(), "0x40000081");
    EXPECT_EQ(info["printable"].toString(), "Info|APP|Error code Action already queued (0x  129)");

    QJsonObject warning = decoded("0x80000003");
    EXPECT_TRUE(warning["message"].isNull());
    EXPECT_EQ(warning["printable"].toString(), "Warning|APP|Error code  (0x    3)");

    QJsonObject unknown = decoded("0xc0050001");
    EXPECT_EQ(unknown["subsystemName"].toString(), "Invalid");
    EXPECT_EQ(unknown["severityName"].toString(), "Error");
    EXPECT_EQ(unknown["printable"].toString(), "Could not decode error 0xc0050001");

    Result list = mirel({"status", "--json"});
    ASSERT_EQ(list.status, 0);
    const QJsonArray messages = parseJson(list)["messages"].toArray();
    ASSERT_EQ(messages.size(), 24);
    EXPECT_EQ(messages.at(21).toObject()["word"].toString(), "0xc0000016");
    EXPECT_EQ(messages.at(21).toObject()["message"].toString(), "Attempt to read past end of file");

    Result text = mirel({"status", "0xC0000001"});
    EXPECT_TRUE(text.out.startsWith("0xc0000001  Error|APP|Error code Object already active (0x    1)\n"))
        << text.out.toStdString();
}

// Clocks ----------------------------------------------------------------------------------------

TEST(Tool, TimeShowsTheClocksAndTimesFrames) {
    const double before = static_cast<double>(QDateTime::currentMSecsSinceEpoch());
    Result r = mirel({"time", "--frames", "3", "--interval", "30", "--json"});
    const double after = static_cast<double>(QDateTime::currentMSecsSinceEpoch());
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_GE(o["getSystemTime"].toDouble(), before);
    EXPECT_LE(o["getSystemTime"].toDouble(), after);
    EXPECT_LE(std::fabs(o["getCurrTime"].toDouble() - before / 1000.0), 3.0);
    EXPECT_GE(o["getTime"].toDouble(), o["getStartTime"].toDouble());
    EXPECT_DOUBLE_EQ(o["fixedGlobalDT"].toDouble(), 0.04);
    const QJsonArray dts = o["variableGlobalDT"].toArray();
    ASSERT_EQ(dts.size(), 3);
    for (const auto& dt : dts) {
        EXPECT_GE(dt.toDouble(), 0.027);
        EXPECT_LE(dt.toDouble(), 0.2);
    }
    EXPECT_EQ(o["currentFrame"].toInt(), 4);
    EXPECT_EQ(o["planetRadius"].toDouble(), 6371000.0);
}

// Random numbers ----------------------------------------------------------------------------------

QJsonArray values(const QStringList& args) {
    Result r = mirel(args + QStringList{"--json"});
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    return parseJson(r)["values"].toArray();
}

TEST(Tool, RandomSequencesAreReproducibleAndRight) {
    const QJsonArray a = values({"random", "--seed", "42", "--count", "20", "--range", "-5", "5"});
    EXPECT_EQ(a, values({"random", "--seed", "42", "--count", "20", "--range", "-5", "5"}));
    EXPECT_NE(a, values({"random", "--seed", "43", "--count", "20", "--range", "-5", "5"}));
    ASSERT_EQ(a.size(), 20);
    // The tool's process and this one share the C library's generator: seeding takes two
    // draws, then each value is LO plus a draw modulo the span.
    std::srand(42);
    std::rand();
    std::rand();
    for (const auto& v : a) EXPECT_EQ(v.toInt(), -5 + std::rand() % 10);

    // An empty range gives LO plus the raw draw.
    const QJsonArray raw = values({"random", "--seed", "7", "--count", "3", "--range", "5", "5"});
    std::srand(7);
    std::rand();
    std::rand();
    for (const auto& v : raw) EXPECT_EQ(v.toInt(), 5 + std::rand());

    // A negative upper bound goes after "--", and so would anything else.
    Result negative = mirel({"random", "--json", "--count", "30", "--range", "-10", "--", "-3"});
    ASSERT_EQ(negative.status, 0) << negative.err.toStdString();
    for (const auto& v : parseJson(negative)["values"].toArray()) {
        EXPECT_GE(v.toInt(), -10);
        EXPECT_LT(v.toInt(), -3);
    }

    // Seed 0 is the default seed.
    EXPECT_EQ(values({"random", "--seed", "0", "--count", "5"}),
              values({"random", "--seed", "3141592", "--count", "5"}));
    for (const auto& v : values({"random", "--seed", "9", "--count", "50"})) {
        EXPECT_GE(v.toDouble(), 0.0);
        EXPECT_LT(v.toDouble(), 1.0);
    }
}

// Text and hash table ---------------------------------------------------------------------------

TEST(Tool, TextShowsEachFormOfTheText) {
    Result r = mirel({"text", QString::fromUtf8("\xc3\xa9\xf0\x9f\x98\x80"), "--compare", "\xc3\x89", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["utf16"].toArray(), (QJsonArray{0xe9, 0xd83d, 0xde00}));
    EXPECT_EQ(o["wide"].toArray(), (QJsonArray{0xe9, 0x1f600, 0}));
    EXPECT_EQ(o["wideLength"].toInt(), 2);
    EXPECT_EQ(o["utf8"].toArray(),
              (QJsonArray{0xc3, 0xa9, 0xed, 0xa0, 0xbd, 0xed, 0xb8, 0x80}));
    EXPECT_EQ(o["percent"].toString(), "%c3%a9%ed%a0%bd%ed%b8%80");
    EXPECT_FALSE(o["qtUtf8Agrees"].toBool());
    EXPECT_TRUE(o["roundTrip"].toBool());

    QJsonObject cmp = parseJson(mirel({"text", "abc", "--compare", "ABD", "--json"}));
    EXPECT_EQ(cmp["wcsicmp"].toInt(), -1);
    EXPECT_TRUE(cmp["qtUtf8Agrees"].toBool());

    QJsonObject units = parseJson(mirel({"text", "--units", "dc00,41", "--json"}));
    EXPECT_EQ(units["wide"].toArray(), (QJsonArray{0xdc00, 0x41}));

    Result logged = mirel({"text", "note", "--log"});
    EXPECT_EQ(logged.status, 0);
    EXPECT_TRUE(QRegularExpression("^\\d+\\.\\d{6}: note\\n$").match(logged.err).hasMatch())
        << logged.err.toStdString();
}

TEST(Tool, HashReportsExactStatistics) {
    Result r = mirel({"hash", "--elements", "1000", "--buckets", "100", "--lookups", "5000", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QJsonObject o = parseJson(r);
    EXPECT_EQ(o["buckets"].toDouble(), 193.0);
    EXPECT_EQ(o["elements"].toDouble(), 1000.0);
    EXPECT_EQ(o["lookups"].toDouble(), 5000.0);
    // Half the lookups are for stored keys, the rest for keys never stored.
    EXPECT_EQ(o["hits"].toDouble(), 2500.0);
    // Every miss walks its whole chain; 1000 elements over 193 buckets make that non-zero.
    EXPECT_GT(o["probes"].toDouble(), 2500.0);
}

TEST(Tool, TourIncludesEveryFamily) {
    Result tour = mirel({"tour", "--json"});
    ASSERT_EQ(tour.status, 0) << tour.err.toStdString();
    QStringList titles;
    for (const auto& step : parseJson(tour)["tour"].toArray()) titles << step.toObject()["step"].toString();
    for (const char* prefix : {"Status codes", "Text", "Hash table", "Clocks", "Random numbers"}) {
        EXPECT_EQ(titles.filter(QRegularExpression(QStringLiteral("^") + prefix)).size(), 1) << prefix;
    }
}

}  // namespace
