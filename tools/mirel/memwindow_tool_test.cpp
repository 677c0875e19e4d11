// `mirel memwindow` and `mirel tour --gui` as a person meets them, run as child processes on
// the offscreen platform with their settings in a temporary folder.
#include <gtest/gtest.h>

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

class MemwindowTool : public ::testing::Test {
protected:
    Result run(const QString& program, const QStringList& args) {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", mHome.path());
        env.insert("HOME", mHome.path());
        env.insert("QT_QPA_PLATFORM", "offscreen");
        p.setProcessEnvironment(env);
        p.start(program, args);
        EXPECT_TRUE(p.waitForFinished(60000)) << args.join(' ').toStdString();
        if (p.state() != QProcess::NotRunning) {
            p.kill();
            p.waitForFinished();
        }
        return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
                QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
    }
    Result mirel(const QStringList& args) { return run(MIREL_TOOL_PATH, args); }

    QTemporaryDir mHome;
};

QJsonObject json(const Result& r) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(r.out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << r.out.toStdString();
    return doc.object();
}

TEST_F(MemwindowTool, BadArgumentsGiveOneLineAndStatusTwo) {
    const QList<QStringList> cases = {
        {"memwindow"},
        {"memwindow", "--id", "x"},
        {"memwindow", "--text", "t", "--auto-close", "soon"},
        {"memwindow", "--text", "t", "--auto-close", "-5"},
        {"memwindow", "--list", "--reset"},
        {"memwindow", "--text", "t", "stray"},
        {"tour", "--quit-after", "100"},
        {"tour", "--gui", "--quit-after", "never"},
    };
    for (const QStringList& args : cases) {
        const Result r = mirel(args);
        EXPECT_EQ(r.status, 2) << args.join(' ').toStdString();
        EXPECT_TRUE(r.err.startsWith("mirel: ")) << r.err.toStdString();
        EXPECT_EQ(r.err.count('\n'), 1) << r.err.toStdString();
    }
}

TEST_F(MemwindowTool, ATickedMessageIsSilencedInTheNextRunUntilReset) {
    Result r = mirel({"memwindow", "--id", "lowmem.tiles", "--text", "Short of memory", "--checked",
                      "--auto-close", "100"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, "0  the button was pressed\n");

    // Another process: silenced, so nothing is shown and no display is needed.
    r = mirel({"memwindow", "--id", "lowmem.tiles", "--text", "Short of memory", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QJsonObject o = json(r);
    EXPECT_EQ(o["result"].toInt(), -2);
    EXPECT_EQ(o["id"].toString(), "lowmem.tiles");

    r = mirel({"memwindow", "--list", "--json"});
    EXPECT_EQ(json(r)["silenced"].toArray(), QJsonArray{"lowmem.tiles"});

    r = mirel({"memwindow", "--reset"});
    EXPECT_EQ(r.status, 0);
    r = mirel({"memwindow", "--list"});
    EXPECT_EQ(r.out, "No message is silenced.\n");
    r = mirel({"memwindow", "--id", "lowmem.tiles", "--text", "Short of memory", "--auto-close", "50"});
    EXPECT_EQ(r.out, "0  the button was pressed\n");
}

TEST_F(MemwindowTool, WithNobodyToSeeTheWindowItFailsAndRecordsNothing) {
    const Result r = mirel({"memwindow", "--id", "lowmem.unseen", "--text", "t", "--checked"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains("no display")) << r.err.toStdString();
    EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
    EXPECT_EQ(mirel({"memwindow", "--list"}).out, "No message is silenced.\n")
        << "a window nobody saw must not silence its message";
}

TEST_F(MemwindowTool, TheGuiTourWalksThroughTheDemoAndEnds) {
    const Result r = mirel({"tour", "--gui", "--quit-after", "10500"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    for (const char* line : {"low-memory message with a link: result 0",
                             "low-memory message without a link: result 0",
                             "worker: message box handed to the event loop", "play: done"}) {
        EXPECT_TRUE(r.out.contains(line)) << line << "\n" << r.out.toStdString();
    }
    EXPECT_GE(r.out.count("status: frame "), 2) << "the timer drives the status line";
    // A walk-through never silences anything on its own.
    EXPECT_EQ(mirel({"memwindow", "--list"}).out, "No message is silenced.\n");
}

TEST_F(MemwindowTool, TheDemoRefusesABadQuitTime) {
    const Result r = run(MIREL_DEMO_PATH, {"--quit-after", "soon"});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.contains("--quit-after")) << r.err.toStdString();
}

}  // namespace
