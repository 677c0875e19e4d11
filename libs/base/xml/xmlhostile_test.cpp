// Files from the network and from users: entity bombs, absurd nesting, huge flat lists and
// huge files must end in a tree or an error, quickly, without exhausting memory or stack.
#include <gtest/gtest.h>

#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <functional>

#include "base/testing/files.h"
#include "base/testing/testutil.h"
#include "base/testing/toolrunner.h"
#include "base/xml/xmlreader.h"
#include "base/xml/xmltree.h"

namespace mirel {
namespace {

// The probe's "NAME value" line.
QString field(const testing::ToolRun& run, const QString& name) {
    return QRegularExpression("^" + name + " (.*)$", QRegularExpression::MultilineOption).match(run.out).captured(1);
}

using Hostile = testing::TempFolderTest;

// Runs `body` on a thread with a small stack: a reader or teardown that recursed once per
// level would overflow it many times over.
void onSmallStack(const std::function<void()>& body) {
    std::unique_ptr<QThread> thread(QThread::create(body));
    thread->setStackSize(1u << 20);
    thread->start();
    ASSERT_TRUE(thread->wait(QDeadlineTimer(300000)));
}

// Ten references at each of nine levels: a billion laughs.
QByteArray laughs() {
    QByteArray doc = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n <!ENTITY lol0 \"lol\">\n";
    for (int i = 1; i <= 9; ++i) {
        doc += " <!ENTITY lol" + QByteArray::number(i) + " \"" + ("&lol" + QByteArray::number(i - 1) + ";").repeated(10) + "\">\n";
    }
    return doc + "]>\n<lolz>&lol9;</lolz>\n";
}

// One 64 KB entity referenced 20,000 times: 1.3 GB of text from 200 KB.
QByteArray quadratic() {
    return "<!DOCTYPE q [<!ENTITY big \"" + QByteArray(64 * 1024, 'a') + "\">]>\n<q>" + QByteArray("&big;").repeated(20000) +
           "</q>\n";
}

TEST_F(Hostile, EntityBombsAreRefusedQuicklyInLittleMemory) {
    // Peak memory is measured in a fresh process, where AddressSanitizer's quarantine would
    // otherwise count every block ever freed as still in use.
    qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":quarantine_size_mb=0");
    const testing::ToolRunner probe(XML_PROBE_PATH);
    for (const QByteArray& bomb : {laughs(), quadratic()}) {
        const QString path = write(bomb);
        testing::Stopwatch watch;
        {
            XmlReader reader(path);
            EXPECT_TRUE(reader.error.startsWith("Parse error: ") && reader.root == nullptr) << reader.error.toStdString();
        }
        EXPECT_LT(watch.elapsedMs(), 2000.0);

        const testing::ToolRun run = probe({"memory", path});
        ASSERT_EQ(run.status, 0) << run.err.toStdString();
        const long growthKiB = field(run, "growthKiB").toLong();
        EXPECT_TRUE(field(run, "error").startsWith("Parse error: ") && growthKiB >= 0 && growthKiB < 32 * 1024)
            << run.out.toStdString();
    }
}

// A whole deep document, and one that breaks at the bottom so that the deep partial tree is
// thrown away, both read and freed on a small stack.
TEST_F(Hostile, NestingTwoHundredThousandDeepIsReadAndFreedWithoutRecursion) {
    constexpr int kDepth = 200000;
    const QByteArray open = QByteArray("<e>").repeated(kDepth);
    const QString whole = write(open + " bottom " + QByteArray("</e>").repeated(kDepth), "whole.xml");
    const QString broken = write(open + "</f>", "broken.xml");
    onSmallStack([&] {
        XmlReader reader(whole);
        ASSERT_FALSE(reader.getErrorsOccurred()) << reader.error.toStdString();
        XmlReader copy(reader);  // the last of the two frees the tree
        EXPECT_EQ(XmlTree(copy.root).getValue(QStringLiteral("e/").repeated(kDepth)), "bottom");

        XmlReader partial(broken);
        EXPECT_TRUE(partial.error.startsWith("Parse error: mismatched tag")) << partial.error.toStdString();
        EXPECT_EQ(partial.root, nullptr);
    });
}

// The number of children of `root`, and the value of the last.
std::pair<int, QString> children(const XmlNode* root) {
    int count = 0;
    const XmlNode* last = nullptr;
    for (const XmlNode* n = root->firstChild; n != nullptr; last = n, n = n->nextSibling) ++count;
    return {count, last != nullptr ? last->value : QString()};
}

// Appending that walked the sibling list would take minutes here instead of well under a
// second; the bound leaves room for a loaded machine and the sanitizers.
TEST_F(Hostile, ThreeHundredThousandSiblingsAreReadInLinearTime) {
    constexpr int kCount = 300000;
    QByteArray doc = "<r>";
    for (int i = 0; i < kCount; ++i) doc += "<s>" + QByteArray::number(i) + "</s>";
    const QString path = write(doc + "</r>");
    testing::Stopwatch watch;
    {
        XmlReader reader(path);
        ASSERT_FALSE(reader.getErrorsOccurred());
        EXPECT_EQ(children(reader.root), std::make_pair(kCount, QString::number(kCount - 1)));
    }
    EXPECT_LT(watch.elapsedMs(), 15000.0);
}

// 100 MB, most of it the indentation of a pretty-printed file, read in one piece.
TEST_F(Hostile, HundredMegabyteFileIsRead) {
    constexpr int kElements = 10000;
    const QByteArray padding = "\n" + QByteArray(10 * 1024 - 1, ' ');
    QFile f(mDir.filePath("big.xml"));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("<big>");
    for (int i = 0; i < kElements; ++i) f.write("<e>" + padding + "value " + QByteArray::number(i) + padding + "</e>");
    f.write("</big>\n");
    f.close();
    ASSERT_GE(f.size(), 100LL * 1000 * 1000);
    XmlReader reader(f.fileName());
    ASSERT_FALSE(reader.getErrorsOccurred()) << reader.error.toStdString();
    EXPECT_EQ(children(reader.root), std::make_pair(kElements, QStringLiteral("value %1").arg(kElements - 1)));
}

// A process that links the library and draws text through Qt (which reads fontconfig's XML
// configuration with the UTF-8 expat) must hear nothing from fontconfig: the reader's
// UTF-16 expat stays out of the global scope. The same probe linked straight to libexpatw
// shows what the check looks for.
using ExpatScope = testing::TempFolderTest;

TEST_F(ExpatScope, FontconfigKeepsItsOwnExpatWhileTheReaderUsesTheUtf16One) {
    const QString path = write("<a>x</a>");
    const testing::ToolRun probe = testing::ToolRunner(XML_PROBE_PATH)({"gui", path});
    ASSERT_EQ(probe.status, 0) << probe.err.toStdString();
    EXPECT_EQ(field(probe, "read"), "ok");
    EXPECT_FALSE(field(probe, "global XML_ParserCreate").contains("libexpatw")) << probe.out.toStdString();
    EXPECT_FALSE(probe.err.contains("Fontconfig")) << probe.err.toStdString();

    const testing::ToolRun control = testing::ToolRunner(XML_PROBE_LINKED_PATH)({"gui", path});
    ASSERT_EQ(control.status, 0) << control.err.toStdString();
    EXPECT_TRUE(field(control, "global XML_ParserCreate").contains("libexpatw")) << control.out.toStdString();
    EXPECT_TRUE(control.err.contains("Fontconfig error")) << control.err.toStdString();
}

}  // namespace
}  // namespace mirel
