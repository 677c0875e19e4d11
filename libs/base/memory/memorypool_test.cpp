#include "base/memory/memorypool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <vector>

#include "base/memory/heapmanager.h"
#include "base/memory/memorypool_p.h"
#include "base/memory/mspace.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::runTogether;

std::vector<MMapRange> registrySnapshot() {
    CSMutex guard(*sRangesLock);
    return *sRanges;
}

// The registry's answer, straight from its definition.
bool modelContains(const std::vector<MMapRange>& ranges, const char* p) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [&](const MMapRange& r) { return r.start <= p && p < r.start + r.size; });
}

// Neighbouring mappings are often adjacent, so every range's edges are compared with the
// definition rather than with a fixed answer.
void expectAnswersMatchTheDefinition() {
    const std::vector<MMapRange> ranges = registrySnapshot();
    for (const MMapRange& r : ranges) {
        for (const char* p : {r.start - 1, r.start, r.start + r.size - 1, r.start + r.size}) {
            ASSERT_EQ(MemoryPool::isPointerFromPool(const_cast<char*>(p)), modelContains(ranges, p))
                << static_cast<const void*>(p);
        }
    }
}

// The range registry -------------------------------------------------------------------

TEST(RangeRegistry, RangeStartIsInsideAndItsEndIsNot) {
    MemoryPool pool("edges", 10000);  // not a page multiple: the recorded size is what counts
    const MMapRange r = pool.getRanges().at(0);
    EXPECT_EQ(r.size, 10000u);
    EXPECT_TRUE(MemoryPool::isPointerFromPool(r.start));
    EXPECT_TRUE(MemoryPool::isPointerFromPool(r.start + r.size - 1));
    EXPECT_FALSE(MemoryPool::isPointerFromPool(r.start + r.size));
    EXPECT_FALSE(MemoryPool::isPointerFromPool(r.start - 1));
    EXPECT_FALSE(MemoryPool::isPointerFromPool(nullptr));
}

// A pool grows in 4 MiB segments whatever the last caller set, and all of them leave the
// registry with it.
TEST(RangeRegistry, GrowthIsListedAndDestructionLeavesNoRangeBehind) {
    const std::size_t before = registrySnapshot().size();
    std::vector<MMapRange> theirs;
    {
        mspace_mallopt(kMspaceGranularity, 65536);  // any pool construction must reset this
        MemoryPool a("grow", 1 << 16), b("other", 1 << 16);
        std::vector<void*> blocks;
        for (int i = 0; i < 40; ++i) {
            blocks.push_back(a.malloc(256 * 1024));
            ASSERT_NE(blocks.back(), nullptr);
            EXPECT_TRUE(MemoryPool::isPointerFromPool(blocks.back()));
        }
        // Spans whole 4 MiB granules that no neighbouring mapping touches.
        auto* big = static_cast<char*>(a.malloc(9 << 20));
        for (long at : {0l, 3l << 20, 6l << 20, (9l << 20) - 1}) {
            EXPECT_TRUE(MemoryPool::isPointerFromPool(big + at)) << at;
        }
        blocks.push_back(big);
        theirs = a.getRanges();
        ASSERT_GE(theirs.size(), 3u);
        EXPECT_EQ(theirs[0].size, 1u << 16) << "the first region is the size asked for";
        for (std::size_t i = 1; i < theirs.size(); ++i) EXPECT_EQ(theirs[i].size % 4194304, 0u);
        for (void* p : blocks) a.free(p);
        theirs.push_back(b.getRanges().front());
    }
    const std::vector<MMapRange> after = registrySnapshot();
    EXPECT_EQ(after.size(), before);
    for (const MMapRange& r : theirs) {
        EXPECT_FALSE(modelContains(after, r.start));
        EXPECT_FALSE(MemoryPool::isPointerFromPool(r.start));
    }
    EXPECT_EQ(MemoryPool::sbreakCB(4096, nullptr), reinterpret_cast<void*>(~std::uintptr_t{0}))
        << "pools never grow by program break";
}

TEST(RangeRegistry, RemoveFromListMatchesTheStartOnlyAndMovesTheLastEntryIn) {
    char base[4];
    std::vector<MMapRange> list{{base, 10}, {base + 1, 20}, {base + 2, 30}, {base + 3, 40}};
    removeFromList(list, base + 3 + 1, 40);  // not listed
    EXPECT_EQ(list.size(), 4u);
    removeFromList(list, base + 1, 999);  // listed, another size: still removed
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[1].start, base + 3) << "the last entry must take the removed one's place";
    EXPECT_EQ(list[2].start, base + 2);

    std::vector<MMapRange> twice{{base, 10}, {base, 20}};
    removeFromList(twice, base, 20);
    ASSERT_EQ(twice.size(), 1u) << "only the first match goes";
    EXPECT_EQ(twice[0].size, 20u);
}

// Past the lock-free index's capacity (1,024) the answers must not change, nor after the
// registry shrinks back below it.
TEST(RangeRegistry, AnswersMatchTheDefinitionAtAnyNumberOfRanges) {
    std::vector<std::unique_ptr<MemoryPool>> pools;
    for (int i = 0; i < 1100; ++i) {
        pools.push_back(std::make_unique<MemoryPool>("many", 4096 + 4096 * (i % 3)));
    }
    expectAnswersMatchTheDefinition();
    std::vector<MMapRange> gone;
    for (int i = 0; i < 1000; ++i) {
        gone.push_back(pools.back()->getRanges().front());
        pools.pop_back();
    }
    expectAnswersMatchTheDefinition();
    const std::vector<MMapRange> ranges = registrySnapshot();
    for (const MMapRange& r : gone) {
        ASSERT_EQ(MemoryPool::isPointerFromPool(r.start), modelContains(ranges, r.start));
    }
}

// Threads ---------------------------------------------------------------------------------

// Each thread has a manager on the shared pool and one on a pool of its own, so every
// manager's total is exact; blocks are freed by address alone and must find their manager.
TEST(MemoryPoolThreads, ManyThreadsThroughOnePoolAndThroughSeveral) {
    constexpr int kThreads = 4, kBlocks = 1000;
    auto* shared = new MemoryPool("shared", 1 << 16);
    MemoryPool* own[kThreads];
    for (auto& p : own) p = new MemoryPool("own", 1 << 16);
    std::atomic<int> failures{0};
    runTogether(kThreads, [&](int t) {
        HeapManager managers[2] = {HeapManager(shared), HeapManager(own[t])};
        for (int round = 0; round < 3; ++round) {
            unsigned long expected[2] = {0, 0};
            std::vector<unsigned char*> blocks;
            for (int i = 0; i < kBlocks; ++i) {
                const unsigned long size = 16 + (i * 7919 + t) % 2000;
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
    });
    EXPECT_EQ(failures.load(), 0);
    for (auto* p : own) {
        EXPECT_EQ(p->getAllocatedMemory(), 0u) << "a pool used by one thread is exact";
        delete p;
    }
    delete shared;
}

}  // namespace
}  // namespace mirel
