#include "base/memory/memorypool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "base/memory/heapmanager.h"
#include "base/memory/mspace.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::runTogether;

// Each thread has a manager on the shared pool and one on a pool of its own, so every
// manager's total is exact; blocks are freed by address alone and must find their manager.
// Meanwhile one more thread keeps changing the arena's process-wide parameters, which every
// pool reads as it grows: under ThreadSanitizer this shows that sharing them is race-free.
TEST(MemoryPoolThreads, ManyThreadsThroughOnePoolAndThroughSeveral) {
    constexpr int kThreads = 4, kBlocks = 1000;
    auto* shared = new MemoryPool("shared", 1 << 16);
    MemoryPool* own[kThreads];
    for (auto& p : own) p = new MemoryPool("own", 1 << 16);
    std::atomic<int> failures{0}, done{0};
    runTogether(kThreads + 1, [&](int t) {
        for (int i = 0; t == kThreads && done.load() < kThreads; ++i) {
            mspace_mallopt(kMspaceTrimThreshold, i % 2 ? 128 * 1024 : kMspaceLargest);
            mspace_mallopt(kMspaceGranularity, i % 3 ? 65536 : 1 << 20);
            mspace_mallopt(kMspaceMmapThreshold, i % 2 ? 100000 : kMspaceLargest);
        }
        if (t == kThreads) return;
        HeapManager managers[2] = {HeapManager(shared), HeapManager(own[t])};
        for (int round = 0; round < 3; ++round) {
            unsigned long expected[2] = {0, 0};
            std::vector<unsigned char*> blocks;
            for (int i = 0; i < kBlocks; ++i) {
                const unsigned long size = i % 50 == 7 ? 150000 : 16 + (i * 7919 + t) % 2000;
                blocks.push_back(static_cast<unsigned char*>(managers[i % 2].alloc(size)));
                std::memset(blocks.back(), t + 1, size);
                expected[i % 2] += size;
            }
            for (int m = 0; m < 2; ++m) failures += managers[m].getAllocatedSize() != expected[m];
            for (unsigned char* p : blocks) {
                failures += p[0] != t + 1;  // handed out twice
                Free(p);
            }
            for (int m = 0; m < 2; ++m) failures += managers[m].getAllocatedSize() != 0;
        }
        CSMutex guard(own[t]->getLock());
        mspace_check_report r{};
        failures += mspace_check(own[t]->getMspace(), &r) != 0 || r.in_use_chunks + r.mapped_chunks != 0;
        ++done;
    });
    EXPECT_EQ(failures.load(), 0);
    for (auto* p : own) {
        EXPECT_EQ(p->getAllocatedMemory(), 0u) << "a pool used by one thread is exact";
        delete p;
    }
    delete shared;
    mspace_mallopt(kMspaceMmapThreshold, kMspaceLargest);
    mspace_mallopt(kMspaceTrimThreshold, kMspaceLargest);  // as the last pool made left them
    mspace_mallopt(kMspaceGranularity, 4194304);
}

}  // namespace
}  // namespace mirel
