// The tool as a person meets it: exit statuses, one-line errors and JSON that parses.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace {

struct Result {
    int status;
    QString out;
    QString err;
};

Result mirel(const QStringList& args) {
    QProcess p;
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
    for (const char* name : {"tour", "sysinfo", "locks", "pool"}) EXPECT_TRUE(r.out.contains(name)) << name;

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

TEST(Tool, SysinfoAndTourSpeakJson) {
    QJsonObject info = parseJson(mirel({"sysinfo", "--json"}));
    EXPECT_GE(info["processors"].toInt(), 1);

    Result tour = mirel({"tour", "--json"});
    ASSERT_EQ(tour.status, 0) << tour.err.toStdString();
    QJsonArray steps = parseJson(tour)["tour"].toArray();
    ASSERT_GE(steps.size(), 2);
    for (const auto& step : steps) EXPECT_FALSE(step.toObject()["step"].toString().isEmpty());
}

}  // namespace
