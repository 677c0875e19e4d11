// `mirel memwindow` and `mirel tour --gui` as a person meets them, run as child processes on
// the offscreen platform with their settings in a temporary folder.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

#include "base/testing/toolrunner.h"

namespace mirel::testing {
namespace {

using MemwindowTool = ToolTest;

TEST_F(MemwindowTool, ATickedMessageIsSilencedInTheNextRunUntilReset) {
    ToolRun r = mirel({"memwindow", "--id", "lowmem.tiles", "--text", "Short of memory", "--checked",
                       "--auto-close", "100"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, "0  the button was pressed\n");

    // Another process: silenced, so nothing is shown and no display is needed.
    const QJsonObject o = mirel.json({"memwindow", "--id", "lowmem.tiles", "--text", "Short of memory", "--json"});
    EXPECT_TRUE(hasFields(o, {{"result", -2}, {"id", "lowmem.tiles"}}));
    EXPECT_EQ(mirel.json({"memwindow", "--list", "--json"})["silenced"].toArray(), QJsonArray{"lowmem.tiles"});

    EXPECT_EQ(mirel({"memwindow", "--reset"}).status, 0);
    EXPECT_EQ(mirel({"memwindow", "--list"}).out, "No message is silenced.\n");
}

TEST_F(MemwindowTool, WithNobodyToSeeTheWindowItFailsAndRecordsNothing) {
    const ToolRun r = mirel({"memwindow", "--id", "lowmem.unseen", "--text", "t", "--checked"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains("no display")) << r.err.toStdString();
    EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
    EXPECT_EQ(mirel({"memwindow", "--list"}).out, "No message is silenced.\n")
        << "a window nobody saw must not silence its message";
}

TEST_F(MemwindowTool, TheGuiTourWalksThroughTheDemoAndEnds) {
    const ToolRun r = mirel({"tour", "--gui", "--quit-after", "10500"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    for (const char* line : {"low-memory message with a link: result 0",
                             "low-memory message without a link: result 0",
                             "worker: message box handed to the event loop", "play: done"}) {
        EXPECT_TRUE(r.out.contains(line)) << line << "\n" << r.out.toStdString();
    }
    EXPECT_GE(r.out.count("status: frame "), 2) << "the timer drives the status line";
    // A walk-through never silences anything on its own.
    EXPECT_EQ(mirel({"memwindow", "--list"}).out, "No message is silenced.\n");
}

TEST_F(MemwindowTool, TheDemoRefusesABadQuitTime) {
    const ToolRun r = ToolRunner(MIREL_DEMO_PATH)({"--quit-after", "soon"});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.contains("--quit-after")) << r.err.toStdString();
}

}  // namespace
}  // namespace mirel::testing
