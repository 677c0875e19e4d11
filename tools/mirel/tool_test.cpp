// The tool as a person meets it: exit statuses, one-line errors and JSON that parses.
#include <gtest/gtest.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>

#include "base/testing/toolrunner.h"

namespace mirel::testing {
namespace {

using Tool = ToolTest;

// Errors, help and the tour ---------------------------------------------------------------------

// Whatever the family, a refused argument is status 2, one line on standard error naming the
// command, and nothing on standard output.
TEST_F(Tool, BadArgumentsExitTwoWithOneLineNamingTheCommand) {
    // One row per check in the tool's code; the bounds of integer options are all one check.
    const QList<QStringList> cases = {
        {"no-such-command"}, {"--no-such-option"}, {"locks", "--frobnicate"}, {"sysinfo", "stray"},
        {"locks", "--threads", "zero"}, {"time", "--frames", "101"},
        {"status", "0xZZ"}, {"status", "0x100000000"}, {"random", "stray"}, {"random", "--range", "1"},
        {"random", "--range", "9", "3"}, {"random", "--range", "a", "3"},
        {"text"}, {"text", "a", "--units", "41"}, {"text", "--units", "10000"},
        {"pool", "--min-size", "100", "--max-size", "10"}, {"pool", "--name", ""},
        {"workers", "--no-ready", "--idle-wait", "-1"}, {"timer", "--single-shot", "--count", "2"},
        {"msgbox", "--type", "critical", "--close-after", "50"},
        {"msgbox"},  // no display here and no --close-after: nobody could close it
        {"settings", "set"}, {"settings", "set", "osName", "Linux"}, {"settings", "set", "NoSuchGroup/osName", "Linux"},
        {"settings", "set", "Version/noSuchSetting", "1"}, {"settings", "set", "Version/osMajor", "six"},
        {"settings", "set", "Version/osName", "x", "--number"}, {"settings", "unset"}, {"settings", "--rollback"},
        {"url"}, {"url", "frob"}, {"url", "support", "twelve"}, {"url", "localize"}, {"url", "localize", "a", "b"},
        {"plugin"}, {"resource", "211"}, {"resource", "211", ""},
        {"coords"}, {"coords", "--find", "-", "1 2"}, {"xml"}, {"dict"},
        {"date"}, {"date", "when"}, {"date", "parse"}, {"date", "add", "2006", "0", "1"},
        {"date", "add", "2006", "0", "x", "0", "0", "0", "0"}, {"date", "diff", "2006"}, {"date", "zone", "2006", "5"},
        {"memwindow"}, {"memwindow", "--list", "--reset"}, {"tour", "--quit-after", "100"},
    };
    for (const QStringList& args : cases) {
        const ToolRun r = mirel(args);
        const bool command = !args[0].startsWith('-') && args[0] != "no-such-command";
        EXPECT_EQ(r.status, 2) << args.join(' ').toStdString();
        EXPECT_TRUE(r.err.startsWith(command ? "mirel: " + args[0] + ": " : "mirel: ")) << r.err.toStdString();
        EXPECT_EQ(r.err.count('\n'), 1) << r.err.toStdString();
        EXPECT_TRUE(r.out.isEmpty()) << args.join(' ').toStdString() << ": " << r.out.toStdString();
    }
    const ToolRun none = mirel({});
    EXPECT_EQ(none.status, 2);
    EXPECT_TRUE(none.err.startsWith("Usage: mirel ")) << none.err.toStdString();
}

TEST_F(Tool, HelpListsCommandsAndEachCommandHasItsOwn) {
    const ToolRun r = mirel({"--help"});
    EXPECT_EQ(r.status, 0);
    for (const char* name : {"tour", "sysinfo", "locks", "pool", "status", "time", "random", "text", "hash",
                             "settings", "version", "workers", "timer", "msgbox", "xml", "dict", "coords",
                             "date", "url", "plugin", "resource"}) {
        EXPECT_TRUE(r.out.contains(QStringLiteral("\n  %1 ").arg(name))) << name;
    }
    const ToolRun sub = mirel({"locks", "--help"});
    EXPECT_EQ(sub.status, 0);
    EXPECT_TRUE(sub.out.startsWith("Usage: mirel locks")) << sub.out.toStdString();
    EXPECT_TRUE(mirel({"--version"}).out.startsWith("mirel "));
}

// Each family's steps are there once.
TEST_F(Tool, TourRunsEveryFamilysSteps) {
    QStringList titles;
    for (const QJsonValue step : mirel.json({"tour", "--json"})["tour"].toArray()) titles << step["step"].toString();
    for (const char* prefix :
         {"Status codes", "Text", "Hash table", "Clocks", "Random numbers", "XML", "Resource dictionary"}) {
        EXPECT_EQ(titles.filter(QRegularExpression(QStringLiteral("^") + prefix)).size(), 1) << prefix;
    }
}

// Memory, locks and workers ---------------------------------------------------------------------

TEST_F(Tool, LocksReportsAnExactCountAsJson) {
    const QJsonObject o = mirel.json({"locks", "--threads", "3", "--iterations", "20000", "--json"});
    EXPECT_TRUE(hasFields(o, {{"threads", 3}, {"counter", 80000}, {"expected", 80000}, {"unlocksUntilRefused", 3},
                              {"timedLockResult", -1}}));
}

TEST_F(Tool, PoolAccountsEveryByteItHandsOut) {
    const QJsonObject o = mirel.json({"pool", "--blocks", "1000", "--min-size", "64", "--max-size", "64", "--json"});
    // Blocks alternate between the managers and the odd ones (the second's) were freed.
    EXPECT_TRUE(hasFields(o, {{"blocksAllocated", 1000}, {"blocksFreed", 500}, {"managers", QJsonArray{500 * 64, 0}},
                              {"poolAllocatedBytes", 500 * 64}}));
}

TEST_F(Tool, WorkersRunExactRoundsAndTickWhenIdle) {
    const QJsonObject o = mirel.json({"workers", "--threads", "3", "--rounds", "300", "--json"});
    EXPECT_TRUE(hasFields(o, {{"rounds", 300}, {"handlerCalls", 900}, {"overlaps", 0}, {"liveAfterExit", 0},
                              {"startStatus", "0x00000000"}, {"secondStartStatus", "0xC0000002"}}));

    // Without ready the first round runs at once and each after it waits out 40 polls of 1 ms.
    const QJsonObject idle =
        mirel.json({"workers", "--threads", "2", "--rounds", "3", "--idle-wait", "40", "--no-ready", "--json"});
    EXPECT_EQ(idle["handlerCalls"].toDouble(), 6.0);
    EXPECT_GE(idle["elapsedMs"].toDouble(), 2 * 36.0);
}

// Settings and identity -------------------------------------------------------------------------

TEST_F(Tool, SettingsListSetAndRollBack) {
    const QJsonArray settings = mirel.json({"settings", "--json"})["groups"][0]["settings"].toArray();
    EXPECT_TRUE(hasFields(settings[2].toObject(), {{"name", "osName"}, {"type", "text"}}));
    EXPECT_TRUE(hasFields(settings[3].toObject(), {{"name", "osMajor"}, {"type", "int"}}));

    const QJsonObject o = mirel.json({"settings", "set", "Version/osName", "Linux", "--modifier", "9", "--json"});
    EXPECT_TRUE(hasFields(o, {{"before", ""}, {"after", "Linux"}, {"modifier", 9}}));
    EXPECT_EQ(o["events"][0]["observer"], "setting") << "the setting's own first";
    EXPECT_EQ(o["events"][1]["observer"], "group");

    // The same value: stamped, nobody told.
    EXPECT_TRUE(hasFields(mirel.json({"settings", "set", "Version/osMajor", "0", "--modifier", "5", "--json"}),
                          {{"changed", false}, {"modifier", 5}, {"events", QJsonArray()}}));
    EXPECT_EQ(mirel.json({"settings", "set", "Version/osMajor", "6.9", "--number", "--json"})["after"], 6);

    // A snapshot taken before the change puts the value back without telling anyone.
    const QJsonObject rolled = mirel.json({"settings", "set", "Version/ramSize", "2048", "--rollback", "--json"});
    EXPECT_TRUE(hasFields(rolled, {{"after", 2048}, {"afterRollback", 0}, {"eventsDuringRollback", 0}}));
}

TEST_F(Tool, VersionShowsTheIdentityAndTheSettingsFilesOfThisMachine) {
    const QJsonObject o = mirel.json({"version", "--json"});
    EXPECT_TRUE(hasFields(o, {{"version", "4.0.1563"}, {"company", "Vantor"}}));
    EXPECT_TRUE(o["settingsFiles"]["userApp"].toString().startsWith(mirel.home() + "/config/Vantor/"));
    EXPECT_TRUE(QDir(mirel.home()).isEmpty()) << "showing the paths must not write anything";
    EXPECT_EQ(QJsonValue(mirel.json({"version", "--set-type", "5", "--json"})["setType"])["from"], o["appType"]);
}

// Time, timers and the message box --------------------------------------------------------------

TEST_F(Tool, TimeShowsTheClocksAndTimesFrames) {
    const QJsonObject o = mirel.json({"time", "--frames", "3", "--interval", "30", "--json"});
    EXPECT_EQ(o["variableGlobalDT"].toArray().size(), 3);
    EXPECT_GE(o["variableGlobalDT"][2].toDouble(), 0.027) << "frames not --interval apart";
    EXPECT_TRUE(hasFields(o, {{"fixedGlobalDT", 0.04}, {"currentFrame", 4}}));
}

TEST_F(Tool, TimerAndMsgboxRunOnTheEventLoop) {
    const QJsonObject o = mirel.json({"timer", "--interval", "30", "--count", "3", "--round-trips", "20", "--json"});
    const QJsonArray firings = o["firings"].toArray();
    ASSERT_EQ(firings.size(), 3);
    EXPECT_TRUE(firings[2]["onMainThread"].toBool());
    EXPECT_GE(firings[2]["intervalMs"].toDouble(), 25.0) << "fired well before its interval";
    EXPECT_TRUE(hasFields(o, {{"executeOnMainThread", true}, {"executeRoundTrips", 20}}));
    const QJsonObject once = mirel.json({"timer", "--single-shot", "--interval", "20", "--round-trips", "0", "--json"});
    EXPECT_EQ(once["firingCount"].toDouble(), 1.0) << "a single shot fired again";

    const ToolRun r = mirel({"msgbox", "--type", "warning", "--title", "Disk", "--text", "Cache is full",
                             "--close-after", "50", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(hasFields(r.json(), {{"icon", "warning"}, {"title", "Disk"}, {"text", "Cache is full"}, {"buttons", 1},
                                     {"onMainThread", true}}));
    EXPECT_GE(r.json()["shownMs"].toDouble(), 45.0);
    EXPECT_TRUE(r.err.isEmpty()) << "Qt's offscreen notes leaked: " << r.err.toStdString();
}

// Status words, text, hashing and random numbers ------------------------------------------------

// Subsystem 0's own printable text never returns, so a tool that called it would hang here
// (the test waits for the process).
TEST_F(Tool, StatusDecodesWordsOfTheLibraryAndFallsBackForOthers) {
    const auto word = [&](const QString& w) { return mirel.json({"status", w, "--json"})["words"][0].toObject(); };
    EXPECT_TRUE(hasFields(word("0xC0000006"), {{"subsystemName", "APP"}, {"composedByTool", true},
                                               {"printable", "Error|APP|Error code File not found (0x    6)"}}));
    EXPECT_TRUE(hasFields(word("1073741953"), {{"word", "0x40000081"}}));  // a decimal word
    EXPECT_TRUE(hasFields(word("0x80000003"),
                          {{"message", QJsonValue::Null}, {"printable", "Warning|APP|Error code  (0x    3)"}}));
    EXPECT_TRUE(hasFields(word("0xc0050001"), {{"severityName", "Error"}, {"composedByTool", false},
                                               {"printable", "Could not decode error 0xc0050001"}}));

    const ToolRun text = mirel({"status", "0xC0000001"});
    EXPECT_TRUE(text.out.startsWith("0xc0000001  Error|APP|Error code Object already active (0x    1)\n"))
        << text.out.toStdString();
}

TEST_F(Tool, TextShowsEachFormOfTheText) {
    const QJsonObject o =
        mirel.json({"text", QString::fromUtf8("\xc3\xa9\xf0\x9f\x98\x80"), "--compare", "\xc3\x89", "--json"});
    EXPECT_TRUE(hasFields(o, {{"utf16", QJsonArray{0xe9, 0xd83d, 0xde00}}, {"wide", QJsonArray{0xe9, 0x1f600, 0}},
                              {"wideLength", 2}, {"percent", "%c3%a9%ed%a0%bd%ed%b8%80"}, {"qtUtf8Agrees", false},
                              {"roundTrip", true}}));
    EXPECT_EQ(mirel.json({"text", "abc", "--compare", "ABD", "--json"})["wcsicmp"], -1);
    EXPECT_EQ(mirel.json({"text", "--units", "dc00,41", "--json"})["wide"].toArray(), (QJsonArray{0xdc00, 0x41}));

    const ToolRun logged = mirel({"text", "note", "--log"});
    EXPECT_TRUE(QRegularExpression("^\\d+\\.\\d{6}: note\\n$").match(logged.err).hasMatch())
        << logged.err.toStdString();
}

TEST_F(Tool, HashReportsExactStatistics) {
    const QJsonObject o =
        mirel.json({"hash", "--elements", "1000", "--buckets", "100", "--lookups", "5000", "--json"});
    // Half the lookups are for stored keys, the rest for keys never stored.
    EXPECT_TRUE(hasFields(o, {{"buckets", 193}, {"elements", 1000}, {"lookups", 5000}, {"hits", 2500}}));
}

TEST_F(Tool, RandomSequencesAreReproducibleAndInRange) {
    const auto values = [&](QStringList s) { s.insert(1, "--json"); return mirel.json(s)["values"].toArray(); };
    const QJsonArray a = values({"random", "--seed", "42", "--count", "20"});
    ASSERT_EQ(a.size(), 20);
    EXPECT_EQ(a, values({"random", "--seed", "42", "--count", "20"}));
    for (const auto& v : a) EXPECT_TRUE(v.toDouble() >= 0.0 && v.toDouble() < 1.0) << v.toDouble();

    // A negative upper bound goes after "--", and so would anything else.
    for (const auto& v : values({"random", "--count", "30", "--range", "-10", "--", "-3"})) {
        EXPECT_TRUE(v.toInt() >= -10 && v.toInt() < -3) << v.toInt();
    }
    // An empty range is allowed: the library then gives LO plus its raw draw.
    for (const auto& v : values({"random", "--count", "5", "--range", "5", "5"})) EXPECT_GE(v.toInt(), 5);
}

}  // namespace
}  // namespace mirel::testing
