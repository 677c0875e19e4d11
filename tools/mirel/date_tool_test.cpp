// mirel date as a person meets it: refused texts exit 1 with the library's message, bad
// arguments exit 2, and the JSON carries the library's answers.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

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

QJsonObject json(const Result& r) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(r.out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << r.out.toStdString();
    return doc.object();
}

TEST(DateTool, RefusedTextsExitOneWithTheLibrarysMessage) {
    for (const QStringList& args : {QStringList{"date", "parse", "2006-07-04T10:20:30-05:00"},
                                    QStringList{"date", "add", "2006-7", "0", "1", "0", "0", "0", "0"},
                                    QStringList{"date", "diff", "2006", "06"},
                                    QStringList{"date", "zone", "junk", "1", "0"}}) {
        const Result r = mirel(args);
        EXPECT_EQ(r.status, 1) << args.join(' ').toStdString();
        EXPECT_TRUE(r.err.startsWith("mirel: date: Could not parse time value ")) << r.err.toStdString();
        EXPECT_EQ(r.err.count('\n'), 1) << r.err.toStdString();
    }
    // The good texts are still shown; the bad one is reported in place.
    const Result mixed = mirel({"date", "--json", "parse", "2006", "06"});
    EXPECT_EQ(mixed.status, 1);
    const QJsonArray dates = json(mixed)["dates"].toArray();
    ASSERT_EQ(dates.size(), 2);
    EXPECT_EQ(dates[0].toObject()["year"].toInt(), 2006);
    EXPECT_EQ(dates[1].toObject()["error"].toString(), "Could not parse time value 06");
}

TEST(DateTool, BadArgumentsExitTwo) {
    for (const QStringList& args :
         {QStringList{"date"}, QStringList{"date", "when"}, QStringList{"date", "parse"},
          QStringList{"date", "add", "2006", "0", "1"}, QStringList{"date", "add", "2006", "0", "x", "0", "0", "0", "0"},
          QStringList{"date", "diff", "2006"}, QStringList{"date", "zone", "2006", "5"},
          QStringList{"date", "zone", "2006", "5", "3o"}}) {
        const Result r = mirel(args);
        EXPECT_EQ(r.status, 2) << args.join(' ').toStdString();
        EXPECT_TRUE(r.err.startsWith("mirel: date: ")) << r.err.toStdString();
    }
}

TEST(DateTool, CommandsReportTheLibrarysAnswers) {
    QJsonObject parsed = json(mirel({"date", "--json", "parse", "2006-01-01T01:00:00+02:00"}))["dates"].toArray()[0].toObject();
    EXPECT_EQ(parsed["tzHours"].toInt(), 2);
    EXPECT_EQ(parsed["utc"].toString(), "2005-12-31T23:00:00Z");
    EXPECT_EQ(parsed["seconds"].toInteger(), 63303375600);

    const Result added = mirel({"date", "--json", "add", "--", "2007-01-01T00:00:00", "0", "-1", "0", "0", "0", "-1"});
    EXPECT_EQ(added.status, 0) << added.err.toStdString();
    EXPECT_EQ(json(added)["result"].toObject()["text"].toString(), "2006-11-30T23:59:59Z");

    const QJsonObject diff = json(mirel({"date", "--json", "diff", "2004-01-20", "2003-01-31"}));
    EXPECT_EQ(diff["duration"].toObject(),
              (QJsonObject{{"years", 1}, {"months", 1}, {"days", 1}, {"hours", 0}, {"minutes", 0}, {"seconds", 0}}));
    EXPECT_EQ(diff["seconds"].toInteger(), 354 * 86400);

    const QJsonObject zone = json(mirel({"date", "--json", "zone", "2006-12-31T20:00:00Z", "5", "30"}));
    EXPECT_EQ(zone["result"].toObject()["text"].toString(), "2007-01-01T01:30:00+05:30");
    EXPECT_TRUE(zone["sameInstant"].toBool());

    const Result text = mirel({"date", "add", "2004-01-31", "0", "1", "0", "0", "0", "0"});
    EXPECT_EQ(text.out, "2004-01-31 + 0y 1m 0d 0h 0min 0s = 2004-02-29\n");
}

}  // namespace
