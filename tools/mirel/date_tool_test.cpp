// mirel date as a person meets it: refused texts exit 1 with the library's message, and the
// JSON carries the library's answers.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

#include "base/testing/toolrunner.h"

namespace mirel::testing {
namespace {

using DateTool = ToolTest;

TEST_F(DateTool, RefusedTextsExitOneWithTheLibrarysMessage) {
    for (const QStringList& args : {QStringList{"date", "parse", "2006-07-04T10:20:30-05:00"},
                                    QStringList{"date", "add", "2006-7", "0", "1", "0", "0", "0", "0"},
                                    QStringList{"date", "diff", "2006", "06"},
                                    QStringList{"date", "zone", "junk", "1", "0"}}) {
        const ToolRun r = mirel(args);
        EXPECT_EQ(r.status, 1) << args.join(' ').toStdString();
        EXPECT_TRUE(r.err.startsWith("mirel: date: Could not parse time value ")) << r.err.toStdString();
        EXPECT_EQ(r.err.count('\n'), 1) << r.err.toStdString();
    }
    // The good texts are still shown; the bad one is reported in place.
    const ToolRun mixed = mirel({"date", "--json", "parse", "2006", "06"});
    EXPECT_EQ(mixed.status, 1);
    const QJsonArray dates = mixed.json()["dates"].toArray();
    ASSERT_EQ(dates.size(), 2);
    EXPECT_EQ(dates[0]["year"].toInt(), 2006);
    EXPECT_EQ(dates[1]["error"].toString(), "Could not parse time value 06");
}

TEST_F(DateTool, CommandsReportTheLibrarysAnswers) {
    EXPECT_TRUE(hasFields(mirel.json({"date", "--json", "parse", "2006-01-01T01:00:00+02:00"})["dates"][0].toObject(),
                          {{"tzHours", 2}, {"utc", "2005-12-31T23:00:00Z"}, {"seconds", qint64(63303375600)}}));

    const QJsonObject added =
        mirel.json({"date", "--json", "add", "--", "2007-01-01T00:00:00", "0", "-1", "0", "0", "0", "-1"});
    EXPECT_EQ(added["result"]["text"].toString(), "2006-11-30T23:59:59Z");

    const QJsonObject diff = mirel.json({"date", "--json", "diff", "2004-01-20", "2003-01-31"});
    EXPECT_TRUE(hasFields(diff, {{"duration", QJsonObject{{"years", 1}, {"months", 1}, {"days", 1}, {"hours", 0},
                                                          {"minutes", 0}, {"seconds", 0}}},
                                 {"seconds", 354 * 86400}}));

    const QJsonObject zone = mirel.json({"date", "--json", "zone", "2006-12-31T20:00:00Z", "5", "30"});
    EXPECT_EQ(zone["result"]["text"].toString(), "2007-01-01T01:30:00+05:30");
    EXPECT_TRUE(zone["sameInstant"].toBool());

    const ToolRun text = mirel({"date", "add", "2004-01-31", "0", "1", "0", "0", "0", "0"});
    EXPECT_EQ(text.out, "2004-01-31 + 0y 1m 0d 0h 0min 0s = 2004-02-29\n");
}

}  // namespace
}  // namespace mirel::testing
