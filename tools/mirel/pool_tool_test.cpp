// `mirel pool --trim` as a person meets it: what the arena gives back leaves the pool's
// ranges, so the ranges shown are exactly the memory the pool still holds.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace {

QJsonObject runPool(const QStringList& args) {
    QProcess p;
    p.start(MIREL_TOOL_PATH, QStringList{"pool"} + args);
    EXPECT_TRUE(p.waitForFinished(120000));
    EXPECT_EQ(p.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
    QJsonParseError error;
    const QJsonObject o = QJsonDocument::fromJson(p.readAllStandardOutput(), &error).object();
    EXPECT_EQ(error.error, QJsonParseError::NoError);
    return o;
}

double total(const QJsonArray& ranges) {
    double sum = 0;
    for (const QJsonValue& r : ranges) sum += r.toObject()["size"].toDouble();
    return sum;
}

TEST(PoolTool, TrimGivesSegmentsBackAndTheRangesFollow) {
    // Blocks of 100-200 KB make the pool grow by many 4 MiB segments.
    const QJsonObject o = runPool({"--blocks", "200", "--min-size", "100000", "--max-size",
                                   "200000", "--trim", "--json"});
    const QJsonObject after = o["afterTrim"].toObject();
    ASSERT_FALSE(after.isEmpty());
    const double before = o["footprint"].toDouble();
    EXPECT_EQ(total(o["ranges"].toArray()), before);
    EXPECT_GT(after["released"].toDouble(), 0);
    EXPECT_EQ(after["released"].toDouble() + after["footprint"].toDouble(), before);
    EXPECT_EQ(total(after["ranges"].toArray()), after["footprint"].toDouble())
        << "ranges the arena gave back are still listed";
    EXPECT_LT(after["ranges"].toArray().size(), o["ranges"].toArray().size());

    EXPECT_FALSE(runPool({"--blocks", "10", "--json"}).contains("afterTrim"));
}

}  // namespace
