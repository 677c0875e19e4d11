#include "base/xml/xmlreader.h"

#include <gtest/gtest.h>

#include <QStringDecoder>
#include <QStringEncoder>
#include <QTemporaryDir>

#include <optional>

#include "base/testing/files.h"
#include "base/xml/xmlpathfinder.h"
#include "base/xml/xmltree.h"

namespace mirel {
namespace {

using XmlFiles = testing::TempFolderTest;

// Values and the text rule ------------------------------------------------------------------------

// Each row: a document, a path, and the value (nullopt: a null string, not merely empty).
struct ValueRow {
    const char* xml;
    const char* path;
    std::optional<QString> value;
};

TEST_F(XmlFiles, ValuesFollowTheTextAndPathRules) {
    const ValueRow rows[] = {
        {"<a><b>  x  </b></a>", "a/b", "x"},
        {"<a><b>x</b>tail</a>", "b", std::nullopt},  // the first piece names the root
        {"<a><b>x</b></a>", "a/b/c", std::nullopt},
        {"<a><b>x</b></a>", "a/B", std::nullopt},  // names are case-sensitive
        {"<a>before<b>x</b>  after \n</a>", "a", "after"},
        {"<a>before<b>x</b>  after \n</a>", "a/b", "x"},  // the parent's text is not the child's
        {"<a>before<b>x</b></a>", "a", std::nullopt},  // nothing after the last child
        {"<a><b>1</b><c>c</c><b>2</b></a>", "a/b", "1"},
        {"<a><b><c>deep</c></b></a>", "/a//b/c/", "deep"},
        {"<a><b><c>deep</c></b></a>", "a/b/c", "deep"},
        {"<a>x</a>", "", std::nullopt},
        {"<a>x</a>", "///", std::nullopt},
        {"<a><b/></a>", "a/b", std::nullopt},  // no text at all
        {"<a><b> \n\t </b></a>", "a/b", ""},   // blanks only: empty, not null
        // Qt's white-space rule: no-break and em spaces are trimmed, inner blanks stay.
        {"<a>\t\xc2\xa0 x  y \xe2\x80\x83\n</a>", "a", "x  y"},
        {"<a>x<!-- note -->y<?pi data?>z</a>", "a", "xyz"},
        {"<a><![CDATA[ <b>&amp; ]]></a>", "a", "<b>&amp;"},
        {"<a>&lt;&amp;&gt;&quot;&apos;&#x4E16;&#30028;</a>", "a", "<&>\"'\u4e16\u754c"},
        {"<!DOCTYPE a [<!ENTITY who \"world\">]><a>hello &who;</a>", "a", "hello world"},
        {"<a id=\"1\"><b key=\"v\">t</b></a>", "a/b", "t"},
    };
    for (const ValueRow& r : rows) {
        XmlReader reader(write(r.xml));
        ASSERT_FALSE(reader.getErrorsOccurred()) << r.xml << ": " << reader.error.toStdString();
        EXPECT_TRUE(reader.error.isEmpty());
        const QString got = XmlTree(reader.root).getValue(QString::fromLatin1(r.path));
        if (r.value) {
            EXPECT_FALSE(got.isNull()) << r.xml << " at " << r.path;
            EXPECT_EQ(got, *r.value) << r.xml << " at " << r.path;
        } else {
            EXPECT_TRUE(got.isNull()) << r.xml << " at " << r.path << " gave " << got.toStdString();
        }
    }
}

TEST_F(XmlFiles, TreeKeepsElementsInDocumentOrderWithConsistentLinks) {
    XmlReader reader(write("<r><a>1</a><b><c/></b><a>2</a></r>"));
    XmlNode* r = reader.root;
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->name, "r");
    EXPECT_EQ(r->parent, nullptr);
    EXPECT_EQ(r->marker, 1u);
    XmlNode* a1 = r->firstChild;
    ASSERT_NE(a1, nullptr);
    XmlNode* b = a1->nextSibling;
    ASSERT_NE(b, nullptr);
    XmlNode* a2 = b->nextSibling;
    ASSERT_NE(a2, nullptr);
    EXPECT_EQ(a2->nextSibling, nullptr);
    EXPECT_EQ(a1->prevSibling, nullptr);
    EXPECT_EQ(b->prevSibling, a1);
    EXPECT_EQ(a2->prevSibling, b);
    EXPECT_EQ(a2->value, "2");
    for (XmlNode* n : {a1, b, a2}) EXPECT_EQ(n->parent, r);
    EXPECT_EQ(b->firstChild->name, "c");
    EXPECT_EQ(b->firstChild->parent, b);
    // Later siblings of a name are in the tree though no path reaches them.
    EXPECT_EQ(XmlPathFinder().findChild(r, "a"), a1);
    EXPECT_EQ(XmlPathFinder().findChild(nullptr, "a"), nullptr);
    EXPECT_EQ(XmlPathFinder().find(nullptr, "r"), nullptr);
    EXPECT_EQ(XmlPathFinder().find(r, "r/b/c"), b->firstChild);
}

// Far more distinct names than the reader's table of names has slots, all of one length, so
// that names meet in a slot: each node must still get its own.
TEST_F(XmlFiles, ManyDistinctNamesEachKeepTheirOwn) {
    QByteArray doc = "<root>";
    for (int i = 0; i < 2000; ++i) {
        const QByteArray n = "n" + QByteArray::number(i).rightJustified(4, '0');
        doc += "<" + n + ">" + QByteArray::number(i) + "</" + n + ">";
    }
    doc += "</root>";
    XmlReader reader(write(doc));
    ASSERT_FALSE(reader.getErrorsOccurred());
    int i = 0;
    for (XmlNode* n = reader.root->firstChild; n != nullptr; n = n->nextSibling, ++i) {
        ASSERT_EQ(n->name, "n" + QString::number(i).rightJustified(4, '0')) << i;
    }
    EXPECT_EQ(i, 2000);
    EXPECT_EQ(XmlTree(reader.root).getValue("root/n1234"), "1234");
}

TEST_F(XmlFiles, SetValueRefusesAndChangesNothing) {
    XmlReader reader(write("<a><b>x</b></a>"));
    XmlTree tree(reader.root);
    EXPECT_EQ(tree.getRootNode(), reader.root);
    EXPECT_FALSE(tree.setValue("a/b", "y"));
    EXPECT_FALSE(tree.setValue("a/new", "y"));
    EXPECT_EQ(tree.getValue("a/b"), "x");
    EXPECT_EQ(XmlPathFinder().findChild(reader.root, "new"), nullptr);
    EXPECT_TRUE(XmlTree(nullptr).getValue("a").isNull());
}

// Encodings -----------------------------------------------------------------------------------------

// Non-ASCII names and values, a character outside the basic plane among them, read from
// each encoding a file may declare or mark with a byte-order mark.
TEST_F(XmlFiles, NonAsciiNamesAndValuesInUtf8AndUtf16) {
    const QString doc = QStringLiteral("<l\u00e4nder><stadt>  Z\u00fcrich \u5317\u4eac \U0001F30D </stadt>"
                                       "<\u03c0>3.14</\u03c0></l\u00e4nder>");
    const QString declared = QStringLiteral("<?xml version=\"1.0\" encoding=\"%1\"?>\n");
    auto encoded = [](const QString& s, QStringConverter::Encoding e, bool bom) {
        QStringEncoder enc(e, bom ? QStringConverter::Flag::WriteBom : QStringConverter::Flag::Default);
        return QByteArray(enc(s));
    };
    const struct {
        const char* label;
        QByteArray bytes;
    } files[] = {
        {"UTF-8", encoded(doc, QStringConverter::Utf8, false)},
        {"UTF-8 declared, with BOM", encoded(declared.arg("UTF-8") + doc, QStringConverter::Utf8, true)},
        {"UTF-16LE with BOM", encoded(doc, QStringConverter::Utf16LE, true)},
        {"UTF-16BE with BOM", encoded(declared.arg("UTF-16") + doc, QStringConverter::Utf16BE, true)},
        {"ISO-8859-1 declared", QStringEncoder(QStringConverter::Latin1)(
                                    declared.arg("ISO-8859-1") + "<l\u00e4nder>\u00fc</l\u00e4nder>")},
    };
    for (const auto& f : files) {
        XmlReader reader(write(f.bytes));
        ASSERT_FALSE(reader.getErrorsOccurred()) << f.label << ": " << reader.error.toStdString();
        EXPECT_EQ(reader.root->name, QStringLiteral("l\u00e4nder")) << f.label;
        XmlTree tree(reader.root);
        if (QByteArray(f.label).startsWith("ISO")) {
            EXPECT_EQ(tree.getValue(QStringLiteral("l\u00e4nder")), QStringLiteral("\u00fc"));
            continue;
        }
        EXPECT_EQ(tree.getValue(QStringLiteral("l\u00e4nder/stadt")),
                  QStringLiteral("Z\u00fcrich \u5317\u4eac \U0001F30D"))
            << f.label;
        EXPECT_EQ(tree.getValue(QStringLiteral("/l\u00e4nder/\u03c0")), "3.14") << f.label;
    }
}

// Errors ----------------------------------------------------------------------------------------------

TEST_F(XmlFiles, MissingFileIsReportedWithItsQuotedPath) {
    const QString path = mDir.filePath("no such file.xml");
    XmlReader reader(path);
    EXPECT_TRUE(reader.getErrorsOccurred());
    EXPECT_EQ(reader.root, nullptr);
    EXPECT_EQ(reader.error, "Could not open file \"" + path + "\"");
    // A directory opens as a file on Linux only to fail on reading: it must not pass either.
    XmlReader directory(mDir.path());
    EXPECT_TRUE(directory.getErrorsOccurred());
    EXPECT_EQ(directory.root, nullptr);
}

// expat counts lines from 1 and columns from 0; the position is where parsing stopped.
TEST_F(XmlFiles, MalformedFilesGiveExpatsMessageAndPositionAndNoTree) {
    const struct {
        const char* xml;
        const char* error;
    } rows[] = {
        {"<a>\n  <b>x</b>\n", "Parse error: no element found\nat line: 3, column: 0"},
        {"<a>\n  <b>x</b>\n  <c", "Parse error: unclosed token\nat line: 3, column: 2"},
        {"<a><b></a>", "Parse error: mismatched tag\nat line: 1, column: 8"},
        {"", "Parse error: no element found\nat line: 1, column: 0"},
        {"<a>&undefined;</a>", "Parse error: undefined entity\nat line: 1, column: 3"},
        // The whole tree was built before the error: it must go too.
        {"<a><b>1</b></a>\n<a/>", "Parse error: junk after document element\nat line: 2, column: 0"},
    };
    for (const auto& r : rows) {
        XmlReader reader(write(r.xml));
        EXPECT_TRUE(reader.getErrorsOccurred()) << r.xml;
        EXPECT_EQ(reader.root, nullptr) << r.xml;
        EXPECT_EQ(reader.error, QString::fromLatin1(r.error)) << r.xml;
    }
}

// Copies and ownership -------------------------------------------------------------------------------

// Copies hold the same nodes; the tree must survive the first holder and be freed by the
// last (AddressSanitizer reports a double free, a use after free or a leak otherwise).
TEST_F(XmlFiles, CopiesShareOneTreeThatTheLastHolderFrees) {
    const QString first = write("<a><b>kept</b></a>", "first.xml");
    const QString second = write("<z>other</z>", "second.xml");
    auto* original = new XmlReader(first);
    XmlReader copy(*original);
    EXPECT_EQ(copy.root, original->root);
    EXPECT_EQ(copy.error, original->error);
    delete original;
    EXPECT_EQ(XmlTree(copy.root).getValue("a/b"), "kept");

    XmlReader assigned(second);
    XmlNode* const replaced = assigned.root;
    ASSERT_NE(replaced, nullptr);
    assigned = copy;  // the second file's tree has no other holder and goes here
    EXPECT_EQ(assigned.root, copy.root);
    assigned = assigned;
    EXPECT_EQ(XmlTree(assigned.root).getValue("a/b"), "kept");

    XmlReader failed(mDir.filePath("missing.xml"));
    assigned = failed;
    EXPECT_EQ(assigned.root, nullptr);
    EXPECT_TRUE(assigned.getErrorsOccurred());
    EXPECT_EQ(XmlTree(copy.root).getValue("a/b"), "kept");
}

// Nodes by hand ---------------------------------------------------------------------------------------

TEST(XmlNode, AppendingAndDestroyingKeepTheListWhole) {
    auto* root = new XmlNode("r");
    XmlNode* kids[4];
    for (int i = 0; i < 4; ++i) {
        kids[i] = new XmlNode(QString::number(i));
        root->addChild(kids[i]);
        EXPECT_EQ(kids[i]->parent, root);
    }
    kids[1]->addChild(new XmlNode("grandchild"));
    // Destroying the middle and the last child relinks the list; an append afterwards must
    // go after the new last child, not after a freed one.
    kids[1]->destroySelfAndHierarchy();
    kids[3]->destroySelfAndHierarchy();
    auto* appended = new XmlNode("4");
    root->addChild(appended);
    QStringList order;
    for (XmlNode* n = root->firstChild; n != nullptr; n = n->nextSibling) order << n->name;
    EXPECT_EQ(order, QStringList({"0", "2", "4"}));
    EXPECT_EQ(kids[2]->nextSibling, appended);
    EXPECT_EQ(appended->prevSibling, kids[2]);
    EXPECT_EQ(kids[2]->prevSibling, kids[0]);

    // Destroying the first child moves firstChild on.
    kids[0]->destroySelfAndHierarchy();
    EXPECT_EQ(root->firstChild, kids[2]);
    EXPECT_EQ(kids[2]->prevSibling, nullptr);

    // Links changed by hand: the list's real tail still decides where a child goes.
    auto* handMade = new XmlNode("hand");
    appended->nextSibling = handMade;
    handMade->prevSibling = appended;
    handMade->parent = root;
    auto* last = new XmlNode("last");
    root->addChild(last);
    EXPECT_EQ(handMade->nextSibling, last);
    EXPECT_EQ(last->prevSibling, handMade);

    // Emptied, then filled again.
    while (root->firstChild != nullptr) root->firstChild->destroySelfAndHierarchy();
    auto* again = new XmlNode("again");
    root->addChild(again);
    EXPECT_EQ(root->firstChild, again);
    EXPECT_EQ(again->prevSibling, nullptr);
    root->destroySelfAndHierarchy();
}

}  // namespace
}  // namespace mirel
