#include "base/memory/memorypool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "base/memory/heapmanager.h"
#include "base/testing/pools.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::managedPool;
using testing::runTogether;

// Each thread has a manager on the shared pool and one on a pool of its own, so every
// manager's total is exact; blocks are freed by address alone and must find their manager.
// The threads make their pools as the others allocate, and each construction sets the
// arena's process-wide parameters, which every pool reads as it grows: under
// ThreadSanitizer this shows the pool lock, the registry and those parameters race-free.
TEST(MemoryPoolThreads, ManyThreadsThroughOnePoolAndThroughTheirOwn) {
    auto* shared = new MemoryPool("shared", 1 << 16);
    std::atomic<int> failures{0};
    runTogether(4, [&](int t) {
        for (int round = 0; round < 3; ++round) {
            HeapManager managers[2] = {HeapManager(shared), HeapManager(managedPool("own"))};
            unsigned long expected[2] = {0, 0};
            std::vector<unsigned char*> blocks;
            for (int i = 0; i < 1000; ++i) {
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
            failures += managers[1].getPool()->getAllocatedMemory() != 0;  // one thread's: exact
        }
    });
    EXPECT_EQ(failures.load(), 0);
    delete shared;
}

}  // namespace
}  // namespace mirel
