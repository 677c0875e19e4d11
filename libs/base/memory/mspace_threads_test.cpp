#include "base/memory/mspace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <deque>

#include "base/testing/testutil.h"

using namespace mirel;

namespace {

// Spaces on different threads share nothing but the process-wide parameters, which a pool
// sets while others allocate. Under ThreadSanitizer this shows that sharing is free of
// races; everywhere, that each space stays sound and keeps its blocks.
TEST(MspaceThreads, SpacesOnSeveralThreadsWhileTheParametersChange) {
    constexpr int kWorkers = 3;
    std::atomic<int> done{0}, broken{0};
    mirel::testing::runTogether(kWorkers + 1, [&](int index) {
        if (index == kWorkers) {  // the thread that keeps changing the parameters
            for (int i = 0; done.load() < kWorkers; ++i) {
                mspace_mallopt(kMspaceTrimThreshold, i % 2 ? 128 * 1024 : kMspaceLargest);
                mspace_mallopt(kMspaceGranularity, i % 3 ? 65536 : 1 << 20);
                mspace_mallopt(kMspaceMmapThreshold, i % 2 ? 100000 : kMspaceLargest);
            }
            return;
        }
        mspace m = create_mspace(0, 0);
        const auto mark = static_cast<unsigned char>(index + 1);
        std::deque<unsigned char*> blocks;
        for (int i = 0; i < 20000 && broken.load() == 0; ++i) {
            auto n = static_cast<std::size_t>((i * 7919 + index * 104729) % 200000);
            auto* p = static_cast<unsigned char*>(mspace_malloc(m, n));
            if (p == nullptr) ++broken;
            else blocks.push_back(static_cast<unsigned char*>(std::memset(p, mark, n)));
            if (blocks.size() > 50) {
                mspace_free(m, blocks.front());
                blocks.pop_front();
            }
        }
        for (unsigned char* p : blocks) {
            broken += p[0] != mark;
            mspace_free(m, p);
        }
        mspace_check_report r{};
        broken += mspace_check(m, &r) != 0 || r.in_use_chunks != 0 || r.mapped_chunks != 0;
        destroy_mspace(m);
        ++done;
    });
    EXPECT_EQ(broken.load(), 0);
    mspace_mallopt(kMspaceTrimThreshold, 2 * 1024 * 1024);
    mspace_mallopt(kMspaceGranularity, 65536);
    mspace_mallopt(kMspaceMmapThreshold, kMspaceLargest);
}

}  // namespace
