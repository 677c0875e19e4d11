// Readers that share one tree, copied, assigned and dropped, also on several threads at once:
// the tree must stay whole while any reader holds it and be freed exactly once
// (AddressSanitizer reports a double free, a use after free or a leak otherwise).
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "base/testing/files.h"
#include "base/testing/testutil.h"
#include "base/xml/xmlreader.h"
#include "base/xml/xmltree.h"

namespace mirel {
namespace {

using XmlReaderThreads = testing::TempFolderTest;

TEST_F(XmlReaderThreads, CopiesAssignedAndDroppedFreeTheTreeOnce) {
    const QString path = write("<a><b>shared</b></a>");
    // The second file's tree has no other holder and goes at the assignment.
    const XmlReader first(path);
    XmlReader assigned(write("<z>other</z>", "other.xml"));
    assigned = first;
    assigned = assigned;
    EXPECT_TRUE(assigned.root == first.root && XmlTree(assigned.root).getValue("a/b") == "shared");

    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::atomic<int> wrong{0};
    for (int round = 0; round < kRounds; ++round) {
        auto* original = new XmlReader(path);
        ASSERT_NE(original->root, nullptr);
        std::vector<XmlReader> copies(kThreads, *original);
        delete original;
        testing::runTogether(kThreads, [&](int i) {
            XmlReader mine(copies[static_cast<std::size_t>(i)]);
            copies[static_cast<std::size_t>(i)] = XmlReader(mDir.filePath("missing.xml"));
            if (XmlTree(mine.root).getValue("a/b") != QStringLiteral("shared")) ++wrong;
        });
    }
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace mirel
