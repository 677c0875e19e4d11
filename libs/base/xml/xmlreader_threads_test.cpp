// Readers that share one tree, copied and dropped on several threads at once: the tree must
// stay whole while any copy holds it and be freed exactly once.
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

TEST_F(XmlReaderThreads, CopiesDroppedOnManyThreadsFreeTheTreeOnce) {
    const QString path = write("<a><b>shared</b></a>");
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
