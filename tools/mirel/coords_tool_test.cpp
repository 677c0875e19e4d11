// mirel coords as a person meets it: what each text reads as, exit statuses, and pairs
// found in a file with their line and column.
#include <gtest/gtest.h>

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

Result mirel(const QStringList& args, const QByteArray& input = QByteArray()) {
    QProcess p;
    p.start(MIREL_TOOL_PATH, args);
    p.write(input);
    p.closeWriteChannel();
    EXPECT_TRUE(p.waitForFinished(120000)) << args.join(' ').toStdString();
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
}

QJsonObject json(const Result& run) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(run.out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << run.out.toStdString();
    return doc.object();
}

TEST(CoordsTool, NamesTheFormOfEachTextAndFailsWhenOneIsNoCoordinate) {
    const Result ok = mirel({"coords", "--json", "--", "W 122.08, N 37.42", "S 33.9", "E 122", "37\u00b0 25,32'"});
    ASSERT_EQ(ok.status, 0) << ok.err.toStdString();
    const QJsonArray r = json(ok)["results"].toArray();
    ASSERT_EQ(r.size(), 4);
    EXPECT_EQ(r[0]["form"].toString(), "pair");
    EXPECT_EQ(r[0]["notation"].toString(), "DB, decimal point");
    EXPECT_DOUBLE_EQ(r[0]["lat"].toDouble(), 37.42);
    EXPECT_DOUBLE_EQ(r[0]["lng"].toDouble(), -122.08);
    EXPECT_EQ(r[1]["form"].toString(), "latitude");
    EXPECT_DOUBLE_EQ(r[1]["value"].toDouble(), -33.9);
    EXPECT_EQ(r[2]["form"].toString(), "longitude");
    EXPECT_EQ(r[3]["form"].toString(), "value");
    EXPECT_EQ(r[3]["notation"].toString(), "DMF, decimal comma");
    EXPECT_DOUBLE_EQ(r[3]["value"].toDouble(), 37.0 + 25.32 / 60.0);

    const Result bad = mirel({"coords", "37.42 N 122.08 W", "100 N 20 E"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_TRUE(bad.out.contains("\"100 N 20 E\"  no coordinate")) << bad.out.toStdString();
    EXPECT_TRUE(bad.out.contains("lat 37.42  lng -122.08")) << bad.out.toStdString();
}

TEST(CoordsTool, FindsPairsWithLineAndColumn) {
    QTemporaryDir dir;
    const QString path = dir.filePath("notes.txt");
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("first line\nat:37.42 N 122.08 W, then\n\tW 1 / S 2;\n");
    f.close();
    const Result run = mirel({"coords", "--json", "--find", path});
    ASSERT_EQ(run.status, 0) << run.err.toStdString();
    const QJsonArray m = json(run)["matches"].toArray();
    ASSERT_EQ(m.size(), 2) << run.out.toStdString();
    EXPECT_EQ(m[0]["line"].toInt(), 2);
    EXPECT_EQ(m[0]["column"].toInt(), 4);
    EXPECT_DOUBLE_EQ(m[0]["lng"].toDouble(), -122.08);
    EXPECT_EQ(m[1]["line"].toInt(), 3);
    EXPECT_EQ(m[1]["column"].toInt(), 2);
    EXPECT_DOUBLE_EQ(m[1]["lat"].toDouble(), -2);

    const Result piped = mirel({"coords", "--find", "-"}, "x 45.5/-73.6 y");
    EXPECT_EQ(piped.status, 0);
    EXPECT_TRUE(piped.out.contains("lat 45.5  lng -73.6")) << piped.out.toStdString();
    EXPECT_EQ(mirel({"coords", "--find", "-"}, "no numbers here").status, 1);
}

TEST(CoordsTool, BadInvocationsAndUnreadableFiles) {
    EXPECT_EQ(mirel({"coords"}).status, 2);
    EXPECT_EQ(mirel({"coords", "--find", "-", "1 2"}).status, 2);
    const Result missing = mirel({"coords", "--find", "/nonexistent/notes.txt"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(missing.err.contains("cannot read")) << missing.err.toStdString();
}

}  // namespace
