#include "base/status/statussubsys.h"

#include <gtest/gtest.h>
#include <signal.h>
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

// The library's own subsystem --------------------------------------------------------------------

TEST(StatusApp, EveryMessageOfTheTablesIsFoundByItsWord) {
    struct Row {
        StatusCode word;
        const char* message;
    };
    const Row rows[] = {
        {0xC0000000, "Invalid argument"},
        {0xC0000001, "Object already active"},
        {0xC0000002, "Cache node not valid"},
        {0xC0000003, "No reference held"},
        {0xC0000004, "Decode failed"},
        {0xC0000005, "No more memory"},
        {0xC0000006, "File not found"},
        {0xC0000007, "File open failed"},
        {0xC0000008, "I/O failed"},
        {0xC0000009, "No sockets available"},
        {0xC000000A, "Hostname not valid"},
        {0xC000000B, "Connect failed"},
        {0xC000000C, "Socket not connected"},
        {0xC000000D, "Socket receive timed out"},
        {0xC000000E, "Received invalid response"},
        {0xC000000F, "Texture already defined"},
        {0xC0000010, "Object already exists"},
        {0xC0000011, "Entry is defunct"},
        {0xC0000012, "Not implemented"},
        {0xC0000013, "Requested URL not found"},
        {0xC0000014, "Requested URL not valid"},
        {0xC0000016, "Attempt to read past end of file"},
        {0x40000080, "Action in progress"},
        {0x40000081, "Action already queued"},
        {status::kFileNotFound, "File not found"},
        {status::kActionAlreadyQueued, "Action already queued"},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(StatusGetErrorString(r.word), QString::fromLatin1(r.message)) << std::hex << r.word;
        EXPECT_EQ(StatusGetSubsysName(r.word), QStringLiteral("APP"));
    }
}

TEST(StatusApp, WordsWithoutAMessageGiveTheNullString) {
    const StatusCode words[] = {
        0x80000006,  // a warning: APP has no warning messages
        0x00000006,  // no error
        0xC0000015,  // the one gap in the error table
        0xC0000017,  // past the error table
        0xC000FFFF,
        0x4000007F,  // below the first info code
        0x40000000,
        0x40000082,  // past the info table
    };
    for (StatusCode w : words) EXPECT_TRUE(StatusGetErrorString(w).isNull()) << std::hex << w;
}

TEST(StatusApp, NameAndMessageOfSubsystemZeroReturnAtOnce) {
    EXPECT_EQ(StatusGetSubsysName(0x00000000), QStringLiteral("APP"));
    // Bits above the 14 of the subsystem field belong to the severity, not the number.
    EXPECT_EQ(StatusGetSubsysName(0xC0000000 | (0x4000u << 16)), QStringLiteral("APP"));
}

TEST(StatusLog, LogStreamsStartAsStandardError) {
    EXPECT_EQ(LM_ERROR, stderr);
    EXPECT_EQ(LM_NOTICE, stderr);
}

// Fall-backs for unknown subsystems ---------------------------------------------------------------

TEST(StatusFallback, UnknownSubsystemsGiveTheGenericTexts) {
    EXPECT_EQ(StatusGetPrintable(0x12345678), QStringLiteral("Could not decode error 0x12345678"));
    // Lower-case digits, no padding.
    EXPECT_EQ(StatusGetPrintable(0xC0ABCDEF), QStringLiteral("Could not decode error 0xc0abcdef"));
    EXPECT_EQ(StatusGetPrintable(0x00050001), QStringLiteral("Could not decode error 0x50001"));
    EXPECT_EQ(StatusGetSubsysName(0xC0050000), QStringLiteral("Invalid"));
    EXPECT_TRUE(StatusGetErrorString(0xC0050006).isNull());

    const char* severities[] = {"No Error", "Info", "Warning", "Error"};
    for (unsigned s = 0; s < 4; ++s) {
        EXPECT_EQ(StatusGetSeverityString(makeStatusCode(s, 0x1234, 9)),
                  QString::fromLatin1(severities[s]));
    }
}

// Registration ----------------------------------------------------------------------------------

TEST(StatusRegistry, ASubsystemIsFoundFromConstructionUntilDestruction) {
    const StatusCode word = makeStatusCode(kSeverityWarning, 300, 12);
    {
        NamedSubsys net(300, "NET", "Link down");
        EXPECT_EQ(StatusGetSubsysName(word), QStringLiteral("NET"));
        EXPECT_EQ(StatusGetErrorString(word), QStringLiteral("Link down"));
        EXPECT_EQ(StatusGetSeverityString(word), QStringLiteral("warn"));
    }
    EXPECT_EQ(StatusGetSubsysName(word), QStringLiteral("Invalid"));
    EXPECT_TRUE(StatusGetErrorString(word).isNull());
    EXPECT_EQ(StatusGetSeverityString(word), QStringLiteral("Warning"));
    EXPECT_EQ(StatusGetPrintable(word), QStringLiteral("Could not decode error 0x812c000c"));
}

TEST(StatusRegistry, DuplicateNumbersAreAcceptedAndTheNewestIsFound) {
    const StatusCode word = makeStatusCode(kSeverityError, 9, 1);
    auto first = std::make_unique<NamedSubsys>(9, "First");
    auto second = std::make_unique<NamedSubsys>(9, "Second");
    EXPECT_EQ(StatusGetSubsysName(word), QStringLiteral("Second"));
    second.reset();
    EXPECT_EQ(StatusGetSubsysName(word), QStringLiteral("First"));
    first.reset();
    EXPECT_EQ(StatusGetSubsysName(word), QStringLiteral("Invalid"));
}

TEST(StatusRegistry, ASecondSubsystemZeroShadowsAppUntilItIsGone) {
    {
        NamedSubsys app2(0, "APP2", "shadowing");
        // Were APP still found first, asking for its severity would never return: stop here.
        ASSERT_EQ(StatusGetSubsysName(0xC0000006), QStringLiteral("APP2"));
        // Subsystem 0 now prints, because the newest of the number can.
        EXPECT_EQ(StatusGetSeverityString(0xC0000006), QStringLiteral("ERR"));
        EXPECT_EQ(StatusGetErrorString(0xC0000006), QStringLiteral("shadowing"));
    }
    EXPECT_EQ(StatusGetSubsysName(0xC0000006), QStringLiteral("APP"));
    EXPECT_EQ(StatusGetErrorString(0xC0000006), QStringLiteral("File not found"));
}

TEST(StatusRegistry, NamesDefaultToUnknownAndNumbersAboveFourteenBitsAreNeverFound) {
    NamedSubsys unnamed(7, QString());
    EXPECT_EQ(unnamed.name, QStringLiteral("Unknown (7)"));
    EXPECT_EQ(StatusGetSubsysName(makeStatusCode(kSeverityError, 7, 0)),
              QStringLiteral("Unknown (7)"));

    NamedSubsys high(0x4001, QString());
    EXPECT_EQ(high.name, QStringLiteral("Unknown (16385)"));
    // A word can only say 0x0001 and finds no such subsystem.
    EXPECT_EQ(StatusGetSubsysName(0xC0010000), QStringLiteral("Invalid"));
}

TEST(StatusRegistry, SubsystemsComeAndGoSafelyOnManyThreads) {
    constexpr int kThreads = 4, kRounds = 300;
    std::atomic<int> wrong{0};
    testing::runTogether(kThreads, [&](int t) {
        const unsigned short id = static_cast<unsigned short>(1000 + t);
        const StatusCode word = makeStatusCode(kSeverityError, id, 1);
        const QString name = QStringLiteral("T%1").arg(t);
        for (int i = 0; i < kRounds; ++i) {
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

struct CapturedWarnings {
    CapturedWarnings() { sWarnings = 0, sPrevious = qInstallMessageHandler(&CapturedWarnings::handle); }
    ~CapturedWarnings() { qInstallMessageHandler(sPrevious); }
    static void handle(QtMsgType type, const QMessageLogContext&, const QString&) {
        if (type == QtWarningMsg) ++sWarnings;
    }
    static inline int sWarnings = 0;
    static inline QtMessageHandler sPrevious = nullptr;
};

TEST(StatusPrintable, FillsTheTemplateInFiveSubstitutions) {
    struct Row {
        StatusCode word;
        const char* message;
        const char* printable;
    };
    const Row rows[] = {
        {makeStatusCode(3, 42, 7), "Timeout", "ERR|NET|Error code Timeout (0x    7)"},
        {makeStatusCode(1, 42, 4660), "Busy", "info|NET|Error code Busy (0x 4660)"},
        {makeStatusCode(2, 42, 65535), "Full", "warn|NET|Error code Full (0x65535)"},
        {makeStatusCode(0, 42, 0), "", "ok|NET|Error code  (0x    0)"},
        // The message is substituted before the code, so a marker inside it is filled
        // too: successive substitution, kept as it is.
        {makeStatusCode(3, 42, 12), "at 50%4", "ERR|NET|Error code at 50   12 (0x   12)"},
    };
    for (const Row& r : rows) {
        NamedSubsys net(42, "NET", QString::fromLatin1(r.message));
        CapturedWarnings warnings;
        EXPECT_EQ(StatusGetPrintable(r.word), QString::fromLatin1(r.printable));
        // The fifth substitution finds no marker left: Qt warns and changes nothing.
        EXPECT_EQ(warnings.sWarnings, 1);
    }
}

// Subsystem 0's severities never return ---------------------------------------------------------

enum class ChildEnd { Returned, StillRunning, Failed };

// Runs `body` in a child process. Returned: it came back within `waitMs`; StillRunning:
// it had not, measured from the moment the child reached it, and was killed.
ChildEnd runInChild(const std::function<void()>& body, double waitMs) {
    int ready[2];
    if (pipe(ready) != 0) return ChildEnd::Failed;
    const pid_t pid = fork();
    if (pid < 0) return ChildEnd::Failed;
    if (pid == 0) {
        close(ready[0]);
        const char go = 'g';
        if (write(ready[1], &go, 1) != 1) _exit(3);
        body();
        _exit(0);
    }
    close(ready[1]);
    char go = 0;
    const bool started = read(ready[0], &go, 1) == 1;
    close(ready[0]);
    testing::Stopwatch watch;
    int status = 0;
    while (started && watch.elapsedMs() < waitMs) {
        if (waitpid(pid, &status, WNOHANG) == pid) {
            return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? ChildEnd::Returned
                                                                  : ChildEnd::Failed;
        }
        usleep(2000);
    }
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return started ? ChildEnd::StillRunning : ChildEnd::Failed;
}

TEST(StatusNeverReturns, SeverityAndPrintableOfSubsystemZeroWordsHang) {
    for (StatusCode word : {0xC0000006u, 0x40000080u, 0x00000000u}) {
        EXPECT_EQ(runInChild([word] { StatusGetSeverityString(word); }, 300),
                  ChildEnd::StillRunning)
            << std::hex << word;
    }
    EXPECT_EQ(runInChild([] { StatusGetPrintable(0xC0000001); }, 300), ChildEnd::StillRunning);
}

// The harness itself: a call that returns is seen to return.
TEST(StatusNeverReturns, TheSameCallsOnOtherSubsystemsReturn) {
    EXPECT_EQ(runInChild([] { StatusGetSeverityString(0xC0050006); }, 5000), ChildEnd::Returned);
    EXPECT_EQ(runInChild([] { StatusGetPrintable(0xC0050006); }, 5000), ChildEnd::Returned);
    EXPECT_EQ(runInChild(
                  [] {
                      NamedSubsys s(0x55, "S");
                      StatusGetPrintable(0xC0550006);
                  },
                  5000),
              ChildEnd::Returned);
}

}  // namespace
}  // namespace mirel
