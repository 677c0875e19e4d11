#include "base/status/statussubsys.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QString>

#include <functional>
#include <memory>

#include "base/testing/testutil.h"

namespace mirel {
namespace {

// A subsystem that prints its own severities, so that its words can be printed whole.
class NamedSubsys : public StatusSubsys {
public:
    NamedSubsys(unsigned short id, const QString& name, QString message = QString())
        : StatusSubsys(id, name), mMessage(std::move(message)) {}
    const QString& getSeverityString(StatusCode status) const override {
        return mSeverities[statusSeverity(status)];
    }
    const QString& getErrorString(StatusCode) const override { return mMessage; }

private:
    QString mMessage;
    QString mSeverities[4] = {"ok", "info", "warn", "ERR"};
};

// The library's own subsystem, and the fall-backs -------------------------------------------------

// The table's edges and its gap at 0x15, the info codes from 0x80, and the null string for
// warnings and no-error words.
TEST(StatusApp, EveryWordFindsItsMessageOrTheNullString) {
    const struct {
        StatusCode word;
        const char* message;
    } rows[] = {
        {0xC0000000, "Invalid argument"},          {0xC0000006, "File not found"},
        {0xC0000014, "Requested URL not valid"},   {0xC0000016, "Attempt to read past end of file"},
        {0x40000080, "Action in progress"},        {0x40000081, "Action already queued"},
        {0x80000006, nullptr}, {0x00000006, nullptr}, {0xC0000015, nullptr}, {0xC0000017, nullptr},
        {0xC000FFFF, nullptr}, {0x4000007F, nullptr}, {0x40000000, nullptr}, {0x40000082, nullptr},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(StatusGetErrorString(r.word), r.message ? QString::fromLatin1(r.message) : QString())
            << std::hex << r.word;
        EXPECT_EQ(StatusGetErrorString(r.word).isNull(), r.message == nullptr) << std::hex << r.word;
        EXPECT_EQ(StatusGetSubsysName(r.word), QStringLiteral("APP"));
    }
}

// An empty name becomes a generic one. The subsystem field is 14 bits: the two above it
// belong to the severity, so a number above 0x3fff is never found.
TEST(StatusFallback, UnknownSubsystemsAndEmptyNamesGiveTheGenericTexts) {
    EXPECT_EQ(StatusGetPrintable(0xC0ABCDEF), QStringLiteral("Could not decode error 0xc0abcdef"));
    EXPECT_EQ(StatusGetPrintable(0x00050001), QStringLiteral("Could not decode error 0x50001"))
        << "no padding";
    EXPECT_EQ(StatusGetSubsysName(0xC0050000), QStringLiteral("Invalid"));
    EXPECT_TRUE(StatusGetErrorString(0xC0050006).isNull());
    const char* severities[] = {"No Error", "Info", "Warning", "Error"};
    for (unsigned s = 0; s < 4; ++s) {
        EXPECT_EQ(StatusGetSeverityString(makeStatusCode(s, 0x1234, 9)), QString::fromLatin1(severities[s]));
    }
    NamedSubsys unnamed(7, QString()), high(0x4001, QString());
    EXPECT_EQ(StatusGetSubsysName(0xC0070000), QStringLiteral("Unknown (7)"));
    EXPECT_EQ(high.name, QStringLiteral("Unknown (16385)"));
    EXPECT_EQ(StatusGetSubsysName(0xC0010000), QStringLiteral("Invalid"));
}

// Registration ----------------------------------------------------------------------------------

// The newest subsystem of a number is found, and destroying it uncovers the older one (here
// the library's own "APP") or the fall-backs.
TEST(StatusRegistry, ASubsystemIsFoundFromConstructionUntilDestructionNewestFirst) {
    {
        NamedSubsys app2(0, "APP2", "shadowing");
        // Were APP still found first, asking for its severity would never return: stop here.
        ASSERT_EQ(StatusGetSubsysName(0xC0000006), QStringLiteral("APP2"));
        EXPECT_EQ(StatusGetSeverityString(0xC0000006), QStringLiteral("ERR"));
        EXPECT_EQ(StatusGetErrorString(0xC0000006), QStringLiteral("shadowing"));
        const StatusCode word = makeStatusCode(kSeverityWarning, 300, 12);
        auto net = std::make_unique<NamedSubsys>(300, "NET", "Link down");
        EXPECT_EQ(StatusGetSubsysName(word), QStringLiteral("NET"));
        EXPECT_EQ(StatusGetErrorString(word), QStringLiteral("Link down"));
        EXPECT_EQ(StatusGetSeverityString(word), QStringLiteral("warn"));
        net.reset();
        EXPECT_EQ(StatusGetSubsysName(word), QStringLiteral("Invalid"));
        EXPECT_EQ(StatusGetSeverityString(word), QStringLiteral("Warning"));
        EXPECT_EQ(StatusGetPrintable(word), QStringLiteral("Could not decode error 0x812c000c"));
    }
    EXPECT_EQ(StatusGetErrorString(0xC0000006), QStringLiteral("File not found"));
}

TEST(StatusRegistry, SubsystemsComeAndGoSafelyOnManyThreads) {
    std::atomic<int> wrong{0};
    testing::runTogether(4, [&](int t) {
        const unsigned short id = static_cast<unsigned short>(1000 + t);
        const StatusCode word = makeStatusCode(kSeverityError, id, 1);
        const QString name = QStringLiteral("T%1").arg(t);
        for (int i = 0; i < 300; ++i) {
            auto s = std::make_unique<NamedSubsys>(id, name);
            if (StatusGetSubsysName(word) != name) ++wrong;
            if (StatusGetSubsysName(0xC0000000) != QStringLiteral("APP")) ++wrong;
            s.reset();
            if (StatusGetSubsysName(word) != QStringLiteral("Invalid")) ++wrong;
        }
    });
    EXPECT_EQ(wrong.load(), 0);
}

// Printable text ------------------------------------------------------------------------------------

// Five substitutions into four markers: the message is filled before the code, so a marker
// inside it is filled too, and the last finds no marker left.
TEST(StatusPrintable, FillsTheTemplateInFiveSubstitutions) {
    const struct {
        StatusCode word;
        const char* message;
        const char* printable;
    } rows[] = {
        {makeStatusCode(3, 42, 7), "Timeout", "ERR|NET|Error code Timeout (0x    7)"},
        {makeStatusCode(2, 42, 65535), "Full", "warn|NET|Error code Full (0x65535)"},
        {makeStatusCode(0, 42, 0), "", "ok|NET|Error code  (0x    0)"},
        {makeStatusCode(3, 42, 12), "at 50%4", "ERR|NET|Error code at 50   12 (0x   12)"},
    };
    static int warnings = 0;
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext&, const QString&) { warnings += type == QtWarningMsg; });
    for (const auto& r : rows) {
        NamedSubsys net(42, "NET", QString::fromLatin1(r.message));
        EXPECT_EQ(StatusGetPrintable(r.word), QString::fromLatin1(r.printable));
    }
    qInstallMessageHandler(previous);
    EXPECT_EQ(warnings, 4) << "one per word: Qt's, for the substitution with no marker left";
}

// Subsystem 0's severities never return ---------------------------------------------------------

// Runs `body` in a child process that a timer signal ends after `ms` milliseconds of its
// own: true when the body returned first.
bool returnsInChild(const std::function<void()>& body, long ms) {
    const pid_t pid = fork();
    if (pid == 0) {
        itimerval timer{};
        timer.it_value = {ms / 1000, ms % 1000 * 1000};
        setitimer(ITIMER_REAL, &timer, nullptr);
        body();
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) || WTERMSIG(status) == SIGALRM) << "the child failed otherwise";
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The same calls on other subsystems show that a call that returns is seen to return.
TEST(StatusNeverReturns, SeverityAndPrintableOfSubsystemZeroWordsHang) {
    for (StatusCode word : {0xC0000006u, 0x00000000u}) {
        EXPECT_FALSE(returnsInChild([word] { StatusGetSeverityString(word); }, 300)) << std::hex << word;
    }
    EXPECT_FALSE(returnsInChild([] { StatusGetPrintable(0xC0000001); }, 300));
    EXPECT_TRUE(returnsInChild([] { StatusGetSeverityString(0xC0050006); }, 5000));
    EXPECT_TRUE(returnsInChild([] { NamedSubsys s(0x55, "S"); StatusGetPrintable(0xC0550006); }, 5000));
}

}  // namespace
}  // namespace mirel
