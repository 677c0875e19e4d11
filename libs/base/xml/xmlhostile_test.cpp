// Files from the network and from users: entity bombs, absurd nesting, huge flat lists and
// huge files must end in a tree or an error, quickly, without exhausting memory or stack.
#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QThread>

#include <functional>

#include "base/testing/files.h"
#include "base/testing/testutil.h"
#include "base/xml/xmlpathfinder.h"
#include "base/xml/xmlreader.h"
#include "base/xml/xmltree.h"

namespace mirel {
namespace {

struct Probe {
    int status;
    QString out;
    QString err;
};

Probe runProbe(const QString& program, const QStringList& args, const QString& extraAsanOptions = {}) {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    if (!extraAsanOptions.isEmpty()) {
        const QString asan = env.value("ASAN_OPTIONS");
        env.insert("ASAN_OPTIONS", asan.isEmpty() ? extraAsanOptions : asan + ":" + extraAsanOptions);
    }
    p.setProcessEnvironment(env);
    p.start(program, args);
    EXPECT_TRUE(p.waitForFinished(120000)) << program.toStdString();
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromLocal8Bit(p.readAllStandardOutput()),
            QString::fromLocal8Bit(p.readAllStandardError())};
}

QString field(const QString& out, const QString& name) {
    for (const QString& line : out.split('\n')) {
        if (line.startsWith(name + ' ')) return line.mid(name.size() + 1);
    }
    return {};
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

// Entity expansion -----------------------------------------------------------------------------------------

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
    const struct {
        const char* name;
        QByteArray doc;
    } bombs[] = {{"billion laughs", laughs()}, {"quadratic blow-up", quadratic()}};
    for (const auto& bomb : bombs) {
        const QString path = write(bomb.doc, QString::fromLatin1(bomb.name) + ".xml");
        testing::Stopwatch watch;
        {
            XmlReader reader(path);
            EXPECT_TRUE(reader.error.startsWith("Parse error: ")) << bomb.name << ": " << reader.error.toStdString();
            EXPECT_EQ(reader.root, nullptr) << bomb.name;
        }
        EXPECT_LT(watch.elapsedMs(), 2000.0) << bomb.name;

        // Peak memory in a fresh process. AddressSanitizer's quarantine would otherwise count
        // every block ever freed as still in use.
        Probe probe = runProbe(XML_PROBE_PATH, {"memory", path}, "quarantine_size_mb=0");
        ASSERT_EQ(probe.status, 0) << probe.err.toStdString();
        EXPECT_TRUE(field(probe.out, "error").startsWith("Parse error: ")) << probe.out.toStdString();
        EXPECT_LT(field(probe.out, "growthKiB").toLong(), 32 * 1024) << bomb.name;
        EXPECT_GE(field(probe.out, "growthKiB").toLong(), 0) << probe.out.toStdString();
    }
}

// Shape ----------------------------------------------------------------------------------------------------

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
        int depth = 1;
        XmlNode* node = reader.root;
        for (; node->firstChild != nullptr; ++depth) node = node->firstChild;
        EXPECT_EQ(depth, kDepth);
        EXPECT_EQ(node->value, "bottom");
        EXPECT_EQ(XmlTree(copy.root).getValue(QStringLiteral("e/").repeated(kDepth)), "bottom");

        XmlReader partial(broken);
        EXPECT_TRUE(partial.error.startsWith("Parse error: mismatched tag")) << partial.error.toStdString();
        EXPECT_EQ(partial.root, nullptr);
    });
}

// The children of `root` in order with consistent back links, each holding value(index);
// returns how many there are.
int checkChildren(const XmlNode* root, const std::function<QString(int)>& value) {
    int count = 0;
    for (XmlNode *n = root->firstChild, *last = nullptr; n != nullptr; last = n, n = n->nextSibling, ++count) {
        if (n->prevSibling != last || n->value != value(count)) {
            ADD_FAILURE() << "child " << count << ": " << n->value.left(40).toStdString();
            break;
        }
    }
    return count;
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
        EXPECT_EQ(checkChildren(reader.root, [](int i) { return QString::number(i); }), kCount);
        EXPECT_EQ(XmlTree(reader.root).getValue("r/s"), "0");
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
    EXPECT_EQ(checkChildren(reader.root, [](int i) { return QStringLiteral("value %1").arg(i); }), kElements);
}

// The reader's expat stays out of the global scope -------------------------------------------------------

// A process that links the library and draws text through Qt (which reads fontconfig's XML
// configuration with the UTF-8 expat) must hear nothing from fontconfig. The same probe
// linked straight to libexpatw shows what the check looks for.
using ExpatScope = testing::TempFolderTest;

TEST_F(ExpatScope, FontconfigKeepsItsOwnExpatWhileTheReaderUsesTheUtf16One) {
    const QString path = write("<a>x</a>");
    const Probe probe = runProbe(XML_PROBE_PATH, {"gui", path});
    ASSERT_EQ(probe.status, 0) << probe.err.toStdString();
    EXPECT_EQ(field(probe.out, "read"), "ok");
    EXPECT_FALSE(field(probe.out, "global XML_ParserCreate").contains("libexpatw")) << probe.out.toStdString();
    EXPECT_FALSE(probe.err.contains("Fontconfig")) << probe.err.toStdString();

    const Probe control = runProbe(XML_PROBE_LINKED_PATH, {"gui", path});
    ASSERT_EQ(control.status, 0) << control.err.toStdString();
    EXPECT_TRUE(field(control.out, "global XML_ParserCreate").contains("libexpatw")) << control.out.toStdString();
    EXPECT_TRUE(control.err.contains("Fontconfig error")) << control.err.toStdString();
}

}  // namespace
}  // namespace mirel
