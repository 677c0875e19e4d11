// `mirel pool --trim` as a person meets it: what the arena gives back leaves the pool's
// ranges, so the ranges shown are exactly the memory the pool still holds.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

#include "base/testing/toolrunner.h"

namespace mirel::testing {
namespace {

using PoolTool = ToolTest;

TEST_F(PoolTool, TrimGivesSegmentsBackAndTheRangesFollow) {
    // Blocks of 100-200 KB make the pool grow by many 4 MiB segments.
    const QJsonObject o = mirel.json({"pool", "--blocks", "200", "--min-size", "100000", "--max-size", "200000",
                                      "--trim", "--json"});
    const QJsonObject after = o["afterTrim"].toObject();
    EXPECT_GT(after["released"].toDouble(), 0);
    EXPECT_EQ(after["released"].toDouble() + after["footprint"].toDouble(), o["footprint"].toDouble());
    double listed = 0;
    for (const QJsonValue r : after["ranges"].toArray()) listed += r["size"].toDouble();
    EXPECT_EQ(listed, after["footprint"].toDouble()) << "ranges the arena gave back are still listed";

    EXPECT_FALSE(mirel.json({"pool", "--blocks", "10", "--json"}).contains("afterTrim"));
}

}  // namespace
}  // namespace mirel::testing
