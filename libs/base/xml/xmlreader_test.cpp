#include "base/xml/xmlreader.h"

#include <gtest/gtest.h>

#include <QStringEncoder>

#include <tuple>
#include <utility>

#include "base/testing/files.h"
#include "base/xml/xmlpathfinder.h"
#include "base/xml/xmltree.h"

namespace mirel {
namespace {

using XmlFiles = testing::TempFolderTest;

// Each row: a document, a path, and the value in UTF-8 (null: a null string, not merely empty).
TEST_F(XmlFiles, ValuesFollowTheTextAndPathRules) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"<a><b>  x  </b></a>", "a/b", "x"}, {"<a id=\"1\"><b key=\"v\">t</b></a>", "a/b", "t"},
        // The first piece names the root; names are case-sensitive.
        {"<a><b>x</b>tail</a>", "b", nullptr}, {"<a><b>x</b></a>", "a/b/c", nullptr}, {"<a><b>x</b></a>", "a/B", nullptr},
        // Only the text after the last child; the parent's text is not the child's.
        {"<a>before<b>x</b>  after \n</a>", "a", "after"}, {"<a>before<b>x</b>  after \n</a>", "a/b", "x"},
        {"<a>before<b>x</b></a>", "a", nullptr}, {"<a><b>1</b><c>c</c><b>2</b></a>", "a/b", "1"},
        {"<a><b><c>deep</c></b></a>", "/a//b/c/", "deep"}, {"<a>x</a>", "", nullptr}, {"<a>x</a>", "///", nullptr},
        // No text at all is null, blanks only empty; Qt's white-space rule trims no-break and
        // em spaces, and inner blanks stay.
        {"<a><b/></a>", "a/b", nullptr}, {"<a><b> \n\t </b></a>", "a/b", ""},
        {"<a>\t\xc2\xa0 x  y \xe2\x80\x83\n</a>", "a", "x  y"}, {"<a>x<!-- note -->y<?pi data?>z</a>", "a", "xyz"},
        {"<a><![CDATA[ <b>&amp; ]]></a>", "a", "<b>&amp;"},
        {"<a>&lt;&amp;&gt;&quot;&apos;&#x4E16;&#30028;</a>", "a", "<&>\"'\u4e16\u754c"},
        {"<!DOCTYPE a [<!ENTITY who \"world\">]><a>hello &who;</a>", "a", "hello world"},
    };
    for (const auto& [xml, path, value] : rows) {
        XmlReader reader(write(xml));
        ASSERT_FALSE(reader.getErrorsOccurred()) << xml << ": " << reader.error.toStdString();
        const QString got = XmlTree(reader.root).getValue(QString::fromLatin1(path));
        EXPECT_EQ(got.isNull(), value == nullptr) << xml << " at " << path;
        EXPECT_EQ(got, QString::fromUtf8(value)) << xml << " at " << path;
    }
}

TEST_F(XmlFiles, TreeKeepsElementsInDocumentOrderWithConsistentLinks) {
    XmlReader reader(write("<r><a>1</a><b><c/></b><a>2</a></r>"));
    XmlNode* r = reader.root;
    ASSERT_NE(r, nullptr);
    EXPECT_TRUE(r->name == "r" && r->parent == nullptr && r->marker == 1u);
    XmlNode* a1 = r->firstChild;
    ASSERT_TRUE(a1 != nullptr && a1->nextSibling != nullptr && a1->nextSibling->nextSibling != nullptr);
    XmlNode *b = a1->nextSibling, *a2 = b->nextSibling;
    EXPECT_TRUE(a1->prevSibling == nullptr && b->prevSibling == a1 && a2->prevSibling == b && !a2->nextSibling);
    EXPECT_EQ(a2->value, "2");
    for (XmlNode* n : {a1, b, a2}) EXPECT_EQ(n->parent, r);
    EXPECT_TRUE(b->firstChild->name == "c" && b->firstChild->parent == b);
    XmlPathFinder finder;
    EXPECT_TRUE(finder.findChild(nullptr, "a") == nullptr && finder.find(nullptr, "r") == nullptr);

    XmlTree tree(r);  // writing is refused and changes nothing
    EXPECT_TRUE(tree.getRootNode() == r && !tree.setValue("r/a", "y") && !tree.setValue("r/new", "y"));
    EXPECT_TRUE(tree.getValue("r/a") == "1" && finder.findChild(r, "new") == nullptr);
}

// Far more distinct names than the reader's table of names has slots, all of one length, so
// that names meet in a slot: each node must still get its own.
TEST_F(XmlFiles, ManyDistinctNamesEachKeepTheirOwn) {
    auto name = [](int i) { return "n" + QString::number(i).rightJustified(4, '0'); };
    QString doc = "<root>";
    for (int i = 0; i < 2000; ++i) doc += QStringLiteral("<%1>%2</%1>").arg(name(i)).arg(i);
    XmlReader reader(write((doc + "</root>").toUtf8()));
    ASSERT_FALSE(reader.getErrorsOccurred());
    int i = 0;
    for (XmlNode* n = reader.root->firstChild; n != nullptr; n = n->nextSibling, ++i) ASSERT_EQ(n->name, name(i));
    EXPECT_EQ(i, 2000);
}

// Non-ASCII names and values, a character outside the basic plane among them, read from
// each encoding a file may declare or mark with a byte-order mark.
TEST_F(XmlFiles, NonAsciiNamesAndValuesInEveryEncoding) {
    const QString doc = QStringLiteral("<l\u00e4nder><stadt>  Z\u00fcrich \u5317\u4eac \U0001F30D </stadt>"
                                       "<\u03c0>3.14</\u03c0></l\u00e4nder>");
    const QString declared = QStringLiteral("<?xml version=\"1.0\" encoding=\"%1\"?>\n");
    auto encoded = [](const QString& s, QStringConverter::Encoding e, bool bom) {
        return QByteArray(QStringEncoder(e, bom ? QStringConverter::Flag::WriteBom : QStringConverter::Flag::Default)(s));
    };
    for (const QByteArray& bytes : {encoded(doc, QStringConverter::Utf8, false),
                                    encoded(declared.arg("UTF-8") + doc, QStringConverter::Utf8, true),
                                    encoded(doc, QStringConverter::Utf16LE, true),
                                    encoded(declared.arg("UTF-16") + doc, QStringConverter::Utf16BE, true)}) {
        XmlReader reader(write(bytes));
        ASSERT_FALSE(reader.getErrorsOccurred()) << bytes.left(60).toHex().toStdString() << reader.error.toStdString();
        XmlTree tree(reader.root);
        EXPECT_EQ(reader.root->name, QStringLiteral("l\u00e4nder"));
        EXPECT_EQ(tree.getValue(QStringLiteral("l\u00e4nder/stadt")), QStringLiteral("Z\u00fcrich \u5317\u4eac \U0001F30D"));
        EXPECT_EQ(tree.getValue(QStringLiteral("/l\u00e4nder/\u03c0")), "3.14");
    }
    // An encoding only its declaration names: the reader must not force one of its own.
    XmlReader latin1(write(encoded(declared.arg("ISO-8859-1") + "<l\u00e4nder>\u00fc</l\u00e4nder>", QStringConverter::Latin1, false)));
    EXPECT_EQ(XmlTree(latin1.root).getValue(QStringLiteral("l\u00e4nder")), QStringLiteral("\u00fc"));
}

// Errors leave no tree. expat counts lines from 1 and columns from 0, and the position is
// where parsing stopped.
TEST_F(XmlFiles, FailuresGiveTheirMessageAndNoTree) {
    const QString missing = mDir.filePath("no such file.xml");
    const std::pair<QString, QString> rows[] = {  // a path and its error
        {missing, "Could not open file \"" + missing + "\""},
        {write("<a>\n  <b>x</b>\n", "1.xml"), "Parse error: no element found\nat line: 3, column: 0"},
        {write("<a>\n  <b>x</b>\n  <c", "2.xml"), "Parse error: unclosed token\nat line: 3, column: 2"},
        {write("<a><b></a>", "3.xml"), "Parse error: mismatched tag\nat line: 1, column: 8"},
        {write("", "4.xml"), "Parse error: no element found\nat line: 1, column: 0"},
        {write("<a>&undefined;</a>", "5.xml"), "Parse error: undefined entity\nat line: 1, column: 3"},
        // The whole tree was built before the error: it must go too.
        {write("<a><b>1</b></a>\n<a/>", "6.xml"), "Parse error: junk after document element\nat line: 2, column: 0"},
    };
    for (const auto& [path, error] : rows) {
        XmlReader reader(path);
        EXPECT_TRUE(reader.getErrorsOccurred()) << path.toStdString();
        EXPECT_EQ(reader.root, nullptr) << path.toStdString();
        EXPECT_EQ(reader.error, error);
    }
}

TEST(XmlNode, AppendingAndDestroyingKeepTheListWhole) {
    auto* root = new XmlNode("r");
    auto order = [root] {
        QStringList names;
        for (XmlNode* n = root->firstChild; n != nullptr; n = n->nextSibling) {
            names << n->name + (n->prevSibling ? "<" + n->prevSibling->name : "") + (n->parent == root ? "" : "!");
        }
        return names.join(' ');
    };
    XmlNode* kids[4];
    for (int i = 0; i < 4; ++i) root->addChild(kids[i] = new XmlNode(QString::number(i)));
    kids[1]->addChild(new XmlNode("grandchild"));
    // Destroying the middle and the last child relinks the list; an append afterwards must
    // go after the new last child, not after a freed one.
    kids[1]->destroySelfAndHierarchy();
    kids[3]->destroySelfAndHierarchy();
    auto* appended = new XmlNode("4");
    root->addChild(appended);
    EXPECT_EQ(order(), "0 2<0 4<2");
    kids[0]->destroySelfAndHierarchy();  // firstChild moves on
    EXPECT_EQ(order(), "2 4<2");

    // Links changed by hand: the list's real tail still decides where a child goes.
    auto* handMade = new XmlNode("hand");
    appended->nextSibling = handMade;
    handMade->prevSibling = appended;
    handMade->parent = root;
    root->addChild(new XmlNode("last"));
    EXPECT_EQ(order(), "2 4<2 hand<4 last<hand");

    // Emptied, then filled again.
    while (root->firstChild != nullptr) root->firstChild->destroySelfAndHierarchy();
    root->addChild(new XmlNode("again"));
    EXPECT_EQ(order(), "again");
    root->destroySelfAndHierarchy();
}

}  // namespace
}  // namespace mirel
