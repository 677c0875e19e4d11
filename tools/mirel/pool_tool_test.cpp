// `mirel pool --trim` as a person meets it: what the arena gives back leaves the pool's
// ranges, so the ranges shown are exactly the memory the pool still holds.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

#include "base/testing/toolrunner.h"

namespace mirel::testing {
namespace {

double total(const QJsonArray& ranges) {
    double sum = 0;
    for (const QJsonValue& r : ranges) sum += r.toObject()["size"].toDouble();
    return sum;
}

using PoolTool = ToolTest;

TEST_F(PoolTool, TrimGivesSegmentsBackAndTheRangesFollow) {
    // Blocks of 100-200 KB make the pool grow by many 4 MiB segments.
    const QJsonObject o = mirel.json({"pool", "--blocks", "200", "--min-size", "100000", "--max-size", "200000",
                                      "--trim", "--json"});
    const QJsonObject after = o["afterTrim"].toObject();
    ASSERT_FALSE(after.isEmpty());
    const double before = o["footprint"].toDouble();
    EXPECT_EQ(total(o["ranges"].toArray()), before);
    EXPECT_GT(after["released"].toDouble(), 0);
    EXPECT_EQ(after["released"].toDouble() + after["footprint"].toDouble(), before);
    EXPECT_EQ(total(after["ranges"].toArray()), after["footprint"].toDouble())
        << "ranges the arena gave back are still listed";
    EXPECT_LT(after["ranges"].toArray().size(), o["ranges"].toArray().size());

    EXPECT_FALSE(mirel.json({"pool", "--blocks", "10", "--json"}).contains("afterTrim"));
}

}  // namespace
}  // namespace mirel::testing
