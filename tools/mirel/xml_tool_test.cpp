// mirel xml and mirel dict as a person meets them: trees, values, messages and statuses.
#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

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
    const QJsonDocument doc = QJsonDocument::fromJson(run.out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << run.out.toStdString();
    return doc.object();
}

class XmlTool : public ::testing::Test {
protected:
    QString write(const QString& name, const QByteArray& bytes) {
        const QString path = mDir.filePath(name);
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
        return path;
    }
    QTemporaryDir mDir;
};

const char kLayers[] =
    "<layers>\n  <layer>\n    <name> Coast\nlines </name>\n    <visible>true</visible>\n  </layer>\n"
    "  <layer><name>second</name></layer>\n  <server>https://example.org</server>\n</layers>\n";

// xml ------------------------------------------------------------------------------------------------

TEST_F(XmlTool, XmlShowsTheTreeIndentedAndAsJson) {
    const QString file = write("layers.xml", kLayers);
    Result r = mirel({"xml", file});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out,
              "layers\n  layer\n    name = Coast\\nlines\n    visible = true\n  layer\n    name = second\n"
              "  server = https://example.org\n");

    Result j = mirel({"xml", file, "--json"});
    ASSERT_EQ(j.status, 0) << j.err.toStdString();
    const QJsonObject o = parseJson(j);
    EXPECT_EQ(o["elements"].toInt(), 7);
    EXPECT_EQ(o["maxDepth"].toInt(), 2);
    const QJsonArray nodes = o["nodes"].toArray();
    ASSERT_EQ(nodes.size(), 7);
    EXPECT_EQ(nodes[2].toObject(), (QJsonObject{{"depth", 2}, {"name", "name"}, {"value", "Coast\nlines"}}));
    // Blanks after the last child make an empty value, nothing at all a null one.
    EXPECT_EQ(nodes[0].toObject()["value"], QJsonValue(""));
    EXPECT_TRUE(nodes[4].toObject()["value"].isNull());
    EXPECT_EQ(nodes[6].toObject()["depth"].toInt(), 1);
}

TEST_F(XmlTool, XmlPrintsValuesAtPathsAndFailsForAMissingOne) {
    const QString file = write("layers.xml", kLayers);
    Result r = mirel({"xml", file, "layers/layer/name", "/layers//server/"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, "layers/layer/name = Coast\\nlines\n/layers//server/ = https://example.org\n");

    Result missing = mirel({"xml", file, "layers/server", "server", "--json"});
    EXPECT_EQ(missing.status, 1);
    const QJsonArray values = parseJson(missing)["values"].toArray();
    ASSERT_EQ(values.size(), 2);
    EXPECT_TRUE(values[0].toObject()["found"].toBool());
    EXPECT_FALSE(values[1].toObject()["found"].toBool());
    EXPECT_TRUE(values[1].toObject()["value"].isNull());
    EXPECT_EQ(missing.err, "mirel: xml: no element at 'server'\n");
}

TEST_F(XmlTool, XmlReportsTheLibrarysMessageWithStatusOne) {
    const QString broken = write("broken.xml", "<a>\n  <b>");
    Result r = mirel({"xml", broken});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "mirel: xml: Parse error: no element found\nat line: 2, column: 5\n");

    const QString absent = mDir.filePath("absent.xml");
    Result a = mirel({"xml", absent, "--json"});
    EXPECT_EQ(a.status, 1);
    EXPECT_EQ(parseJson(a)["error"].toString(), "Could not open file \"" + absent + "\"");

    for (const QStringList& args : {QStringList{"xml"}, QStringList{"dict"}, QStringList{"dict", "a", "b"}}) {
        Result u = mirel(args);
        EXPECT_EQ(u.status, 2) << args.join(' ').toStdString();
        EXPECT_TRUE(u.err.startsWith("mirel: ")) << u.err.toStdString();
    }
}

// A tree far deeper than a screen is wide: printed without recursion, the indentation capped
// and the depth written out instead.
TEST_F(XmlTool, XmlPrintsAHostilelyDeepTree) {
    constexpr int kDepth = 200000;
    QByteArray doc;
    for (int i = 0; i < kDepth; ++i) doc += "<e>";
    doc += "bottom";
    for (int i = 0; i < kDepth; ++i) doc += "</e>";
    Result r = mirel({"xml", write("deep.xml", doc)});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QStringList lines = r.out.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), kDepth);
    EXPECT_EQ(lines.last(), QString(64, ' ') + QStringLiteral("[%1] e = bottom").arg(kDepth - 1));
    EXPECT_LT(r.out.size(), 20 * kDepth * 4);
}

// dict --------------------------------------------------------------------------------------------------

TEST_F(XmlTool, DictWritesTheFileBackInKeyOrder) {
    const QString file = write("strings.txt", "<zoom> <Zoom>\n\n<   about> <About \xc3\xa9>\n<zoom> <Zoom in>\n");
    Result r = mirel({"dict", file});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QString::fromUtf8("<about> <About \xc3\xa9>\n<zoom> <Zoom in>\n"));

    const QJsonObject o = parseJson(mirel({"dict", file, "--json"}));
    EXPECT_TRUE(o["loaded"].toBool());
    EXPECT_EQ(o["entries"].toArray().size(), 2);
    EXPECT_EQ(o["entries"].toArray()[1].toObject()["value"].toString(), "Zoom in");

    Result missing = mirel({"dict", mDir.filePath("absent.txt")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(missing.err.startsWith("mirel: dict: could not open")) << missing.err.toStdString();
}

TEST(XmlToolTour, HelpAndTourShowBothCommands) {
    const Result help = mirel({"--help"});
    EXPECT_TRUE(help.out.contains("  xml ") && help.out.contains("  dict ")) << help.out.toStdString();
    Result tour = mirel({"tour", "--json"});
    ASSERT_EQ(tour.status, 0) << tour.err.toStdString();
    QJsonObject xml, dict;
    for (const auto& step : parseJson(tour)["tour"].toArray()) {
        const QString title = step.toObject()["step"].toString();
        if (title.startsWith("XML")) xml = step.toObject()["result"].toObject();
        if (title.startsWith("Resource dictionary")) dict = step.toObject()["result"].toObject();
    }
    EXPECT_EQ(xml["values"].toArray()[0].toObject()["value"].toString(), "Coastlines");
    EXPECT_TRUE(xml["truncatedFileError"].toString().startsWith("Parse error: "));
    EXPECT_EQ(dict["entries"].toArray().size(), 4);
}

}  // namespace
