#include "base/memory/mspace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "base/testing/testutil.h"

using namespace mirel;

namespace {

// Spaces on different threads share nothing but the process-wide parameters, which one
// thread may change while others allocate (a pool sets them when it is built). Run under
// ThreadSanitizer, this shows that sharing is free of races; everywhere, that each space
// stays sound and keeps its blocks.
TEST(MspaceThreads, SpacesOnSeveralThreadsWhileTheParametersChange) {
    constexpr int kWorkers = 3;
    std::atomic<int> done{0};
    std::atomic<int> broken{0};
    mirel::testing::runTogether(kWorkers + 1, [&](int index) {
        if (index == kWorkers) {  // the thread that keeps changing the parameters
            for (int i = 0; done.load() < kWorkers; ++i) {
                mspace_mallopt(-1, i % 2 ? 128 * 1024 : -1);
                mspace_mallopt(-2, i % 3 ? 65536 : 1 << 20);
                mspace_mallopt(-3, i % 2 ? 100000 : -1);
            }
            return;
        }
        mspace m = create_mspace(0, 0);
        std::vector<unsigned char*> blocks;
        for (int i = 0; i < 20000; ++i) {
            std::size_t n = static_cast<std::size_t>((i * 7919 + index * 104729) % 200000);
            auto* p = static_cast<unsigned char*>(mspace_malloc(m, n));
            if (p == nullptr) {
                ++broken;
                break;
            }
            std::memset(p, index + 1, n);
            if (n > 0) p[n - 1] = static_cast<unsigned char>(index + 1);
            blocks.push_back(p);
            if (blocks.size() > 50) {
                mspace_free(m, blocks.front());
                blocks.erase(blocks.begin());
            }
        }
        for (unsigned char* p : blocks) {
            if (p[0] != index + 1) ++broken;
            mspace_free(m, p);
        }
        mspace_check_report r{};
        if (mspace_check(m, &r) != 0 || r.in_use_chunks != 0 || r.mapped_chunks != 0) ++broken;
        destroy_mspace(m);
        ++done;
    });
    EXPECT_EQ(broken.load(), 0);
    mspace_mallopt(-1, 2 * 1024 * 1024);
    mspace_mallopt(-2, 65536);
    mspace_mallopt(-3, -1);
}

}  // namespace
