// mirel xml and mirel dict as a person meets them: trees, values, messages and statuses.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

#include "base/testing/toolrunner.h"

namespace mirel::testing {
namespace {

using XmlTool = ToolTest;

// The first layer ends two levels at once, so that the walk must climb more than one.
const char kLayers[] =
    "<layers>\n  <layer>\n    <name> Coast\nlines </name>\n    <style><width>2</width></style>\n  </layer>\n"
    "  <layer><name>second</name></layer>\n  <server>https://example.org</server>\n</layers>\n";

TEST_F(XmlTool, XmlShowsTheTreeIndentedAndAsJsonAndValuesAtPaths) {
    const QString file = mirel.file("layers.xml", kLayers);
    ToolRun r = mirel({"xml", file});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out,
              "layers\n  layer\n    name = Coast\\nlines\n    style\n      width = 2\n  layer\n    name = second\n"
              "  server = https://example.org\n");

    const QJsonObject o = mirel.json({"xml", file, "--json"});
    EXPECT_TRUE(hasFields(o, {{"elements", 8}, {"maxDepth", 3}}));
    const QJsonArray nodes = o["nodes"].toArray();
    ASSERT_EQ(nodes.size(), 8);
    EXPECT_EQ(nodes[2].toObject(), (QJsonObject{{"depth", 2}, {"name", "name"}, {"value", "Coast\nlines"}}));
    // Blanks after the last child make an empty value, nothing at all a null one.
    EXPECT_TRUE(nodes[0]["value"] == QJsonValue("") && nodes[3]["value"].isNull());

    r = mirel({"xml", file, "layers/layer/name", "/layers//server/"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, "layers/layer/name = Coast\\nlines\n/layers//server/ = https://example.org\n");
}

TEST_F(XmlTool, XmlExitsOneForAMissingPathABrokenFileOrNoFile) {
    const ToolRun missing = mirel({"xml", mirel.file("layers.xml", kLayers), "layers/server", "server", "--json"});
    EXPECT_EQ(missing.status, 1);
    const QJsonArray values = missing.json()["values"].toArray();
    ASSERT_EQ(values.size(), 2);
    EXPECT_TRUE(values[0]["found"].toBool());
    EXPECT_TRUE(hasFields(values[1].toObject(), {{"found", false}, {"value", QJsonValue::Null}}));
    EXPECT_EQ(missing.err, "mirel: xml: no element at 'server'\n");

    const ToolRun broken = mirel({"xml", mirel.file("broken.xml", "<a>\n  <b>")});
    EXPECT_EQ(broken.status, 1);
    EXPECT_EQ(broken.out, "");
    EXPECT_EQ(broken.err, "mirel: xml: Parse error: no element found\nat line: 2, column: 5\n");

    const QString absent = mirel.home() + "/absent.xml";
    const ToolRun a = mirel({"xml", absent, "--json"});
    EXPECT_EQ(a.status, 1);
    EXPECT_EQ(a.json()["error"].toString(), "Could not open file \"" + absent + "\"");
}

// A tree far deeper than a screen is wide: printed without recursion, the indentation capped
// and the depth written out instead.
TEST_F(XmlTool, XmlPrintsAHostilelyDeepTree) {
    constexpr int kDepth = 200000;
    const QByteArray doc = QByteArray("<e>").repeated(kDepth) + "bottom" + QByteArray("</e>").repeated(kDepth);
    const ToolRun r = mirel({"xml", mirel.file("deep.xml", doc)});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QStringList lines = r.out.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), kDepth);
    EXPECT_EQ(lines.last(), QString(64, ' ') + QStringLiteral("[%1] e = bottom").arg(kDepth - 1));
    EXPECT_LT(r.out.size(), 20 * kDepth * 4);
}

TEST_F(XmlTool, DictWritesTheFileBackInKeyOrder) {
    const QString file = mirel.file("strings.txt", "<zoom> <Zoom>\n\n<   about> <About \xc3\xa9>\n<zoom> <Zoom in>\n");
    ToolRun r = mirel({"dict", file});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QString::fromUtf8("<about> <About \xc3\xa9>\n<zoom> <Zoom in>\n"));

    const QJsonObject o = mirel.json({"dict", file, "--json"});
    EXPECT_TRUE(o["loaded"].toBool());
    EXPECT_EQ(o["entries"].toArray().size(), 2);
    EXPECT_EQ(o["entries"][1]["value"].toString(), "Zoom in");

    const ToolRun missing = mirel({"dict", mirel.home() + "/absent.txt"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(missing.err.startsWith("mirel: dict: could not open")) << missing.err.toStdString();
}

}  // namespace
}  // namespace mirel::testing
