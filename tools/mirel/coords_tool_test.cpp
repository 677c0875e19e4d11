// mirel coords as a person meets it: what each text reads as, exit statuses, and pairs
// found in a file with their line and column.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

#include "base/testing/toolrunner.h"

namespace mirel::testing {
namespace {

using CoordsTool = ToolTest;

TEST_F(CoordsTool, NamesTheFormOfEachTextAndFailsWhenOneIsNoCoordinate) {
    const QJsonArray r =
        mirel.json({"coords", "--json", "--", "W 122.08, N 37.42", "S 33.9", "E 122", "37\u00b0 25,32'"})["results"]
            .toArray();
    ASSERT_EQ(r.size(), 4);
    EXPECT_TRUE(hasFields(r[0].toObject(), {{"form", "pair"}, {"notation", "DB, decimal point"}, {"lat", 37.42},
                                            {"lng", -122.08}}));
    EXPECT_TRUE(hasFields(r[1].toObject(), {{"form", "latitude"}, {"value", -33.9}}));
    EXPECT_EQ(r[2]["form"].toString(), "longitude");
    EXPECT_TRUE(hasFields(r[3].toObject(), {{"form", "value"}, {"notation", "DMF, decimal comma"}}));

    const ToolRun bad = mirel({"coords", "37.42 N 122.08 W", "100 N 20 E"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_TRUE(bad.out.contains("\"100 N 20 E\"  no coordinate")) << bad.out.toStdString();
    EXPECT_TRUE(bad.out.contains("lat 37.42  lng -122.08")) << bad.out.toStdString();
}

TEST_F(CoordsTool, FindsPairsWithLineAndColumnInAFileOrStandardInput) {
    const QString path = mirel.file("notes.txt", "first line\nat:37.42 N 122.08 W, then\n\tW 1 / S 2;\n");
    const ToolRun run = mirel({"coords", "--json", "--find", path});
    ASSERT_EQ(run.status, 0) << run.err.toStdString();
    const QJsonArray m = run.json()["matches"].toArray();
    ASSERT_EQ(m.size(), 2) << run.out.toStdString();
    EXPECT_TRUE(hasFields(m[0].toObject(), {{"line", 2}, {"column", 4}, {"lng", -122.08}}));
    EXPECT_TRUE(hasFields(m[1].toObject(), {{"line", 3}, {"column", 2}, {"lat", -2}}));

    const ToolRun piped = mirel({"coords", "--find", "-"}, "x 45.5/-73.6 y");
    EXPECT_EQ(piped.status, 0);
    EXPECT_TRUE(piped.out.contains("lat 45.5  lng -73.6")) << piped.out.toStdString();
    EXPECT_EQ(mirel({"coords", "--find", "-"}, "no numbers here").status, 1);

    const ToolRun missing = mirel({"coords", "--find", "/nonexistent/notes.txt"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(missing.err.contains("cannot read")) << missing.err.toStdString();
}

}  // namespace
}  // namespace mirel::testing
