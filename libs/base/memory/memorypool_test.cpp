#include "base/memory/memorypool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "base/memory/heapmanager.h"
#include "base/memory/mspace.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::runTogether;

std::vector<MMapRange> registrySnapshot() {
    CSMutex guard(*sRangesLock);
    return *sRanges;
}

bool listed(const std::vector<MMapRange>& list, const MMapRange& r) {
    return std::any_of(list.begin(), list.end(),
                       [&](const MMapRange& x) { return x.start == r.start && x.size == r.size; });
}

// The range registry -------------------------------------------------------------------

TEST(RangeRegistry, RangeStartIsInsideAndItsEndIsNot) {
    MemoryPool pool("edges", 10000);  // not a page multiple: the recorded size is what counts
    std::vector<MMapRange> ranges = pool.getRanges();
    ASSERT_EQ(ranges.size(), 1u);
    const MMapRange r = ranges[0];
    EXPECT_EQ(r.size, 10000u);
    EXPECT_TRUE(MemoryPool::isPointerFromPool(r.start));
    EXPECT_TRUE(MemoryPool::isPointerFromPool(r.start + r.size - 1));
    EXPECT_FALSE(MemoryPool::isPointerFromPool(r.start + r.size));
    EXPECT_FALSE(MemoryPool::isPointerFromPool(r.start - 1));
    int local = 0;
    EXPECT_FALSE(MemoryPool::isPointerFromPool(&local));
    EXPECT_FALSE(MemoryPool::isPointerFromPool(nullptr));
}

TEST(RangeRegistry, DestroyedPoolsLeaveNoRangeBehind) {
    const std::vector<MMapRange> before = registrySnapshot();
    std::vector<MMapRange> theirs;
    {
        MemoryPool a("a", 1 << 16), b("b", 1 << 16);
        // Grow `a` beyond its first region so that it owns several ranges.
        std::vector<void*> blocks;
        for (int i = 0; i < 64; ++i) blocks.push_back(a.malloc(100000));
        for (void* p : blocks) a.free(p);
        for (const MMapRange& r : a.getRanges()) theirs.push_back(r);
        for (const MMapRange& r : b.getRanges()) theirs.push_back(r);
        ASSERT_GE(theirs.size(), 3u);
        for (const MMapRange& r : theirs) EXPECT_TRUE(listed(registrySnapshot(), r));
    }
    const std::vector<MMapRange> after = registrySnapshot();
    EXPECT_EQ(after.size(), before.size());
    for (const MMapRange& r : theirs) {
        EXPECT_FALSE(listed(after, r));
        EXPECT_FALSE(MemoryPool::isPointerFromPool(r.start));
    }
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

// The registry's answer, straight from its definition.
bool modelContains(const std::vector<MMapRange>& ranges, const char* p) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [&](const MMapRange& r) { return r.start <= p && p < r.start + r.size; });
}

// Probes every range's edges (neighbouring mappings are often adjacent) and compares the
// fast answer with the definition.
void expectAnswersMatchTheDefinition() {
    const std::vector<MMapRange> ranges = registrySnapshot();
    for (const MMapRange& r : ranges) {
        for (const char* p : {r.start - 1, r.start, r.start + r.size - 1, r.start + r.size}) {
            ASSERT_EQ(MemoryPool::isPointerFromPool(const_cast<char*>(p)), modelContains(ranges, p))
                << static_cast<const void*>(p);
        }
    }
}

// Past the lock-free index's capacity the answers must not change, nor after it shrinks back.
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

// Construction, growth and process-wide settings ----------------------------------------

TEST(MemoryPool, GrowsBeyondItsFirstRegionInGranularityUnits) {
    mspace_mallopt(-2, 65536);  // any pool construction must reset this to 4 MiB
    MemoryPool pool("grow", 1 << 16);
    std::vector<void*> blocks;
    for (int i = 0; i < 40; ++i) {
        void* p = pool.malloc(256 * 1024);
        ASSERT_NE(p, nullptr);
        EXPECT_TRUE(MemoryPool::isPointerFromPool(p));
        blocks.push_back(p);
    }
    std::vector<MMapRange> ranges = pool.getRanges();
    ASSERT_GE(ranges.size(), 3u);
    EXPECT_EQ(ranges[0].size, 1u << 16) << "the first region is the size asked for";
    for (std::size_t i = 1; i < ranges.size(); ++i) {
        EXPECT_EQ(ranges[i].size % 4194304, 0u) << "segment " << i << " of " << ranges[i].size;
    }
    for (void* p : blocks) pool.free(p);
}

TEST(MemoryPool, AccountingFollowsWhatManagersReport) {
    MemoryPool pool("accounting", 1 << 16);
    pool.addAllocation(100);
    pool.addAllocation(28);
    pool.subtractAllocation(100);
    EXPECT_EQ(pool.getAllocatedMemory(), 28u);
    EXPECT_EQ(pool.getName(), QString("accounting"));
}

TEST(MemoryPool, BreakHookAlwaysFails) {
    EXPECT_EQ(MemoryPool::sbreakCB(4096, nullptr), reinterpret_cast<void*>(~std::uintptr_t{0}));
}

// Threads ---------------------------------------------------------------------------------

// Each thread has its own manager, so the managers' totals are exact; the pools serialise
// the arenas themselves.
TEST(MemoryPoolThreads, ManyThreadsThroughOnePoolAndThroughSeveral) {
    constexpr int kThreads = 4, kRounds = 3000;
    auto* shared = new MemoryPool("shared", 1 << 16);
    MemoryPool* own[kThreads];
    for (auto& p : own) p = new MemoryPool("own", 1 << 16);
    std::atomic<int> failures{0};
    runTogether(kThreads, [&](int t) {
        HeapManager viaShared(shared), viaOwn(own[t]);
        std::vector<std::pair<HeapManager*, unsigned char*>> live;
        unsigned long seed = 12345 + t;
        for (int i = 0; i < kRounds; ++i) {
            seed = seed * 6364136223846793005UL + 1442695040888963407UL;
            HeapManager* m = (seed >> 33) & 1 ? &viaShared : &viaOwn;
            const unsigned long size = 16 + (seed >> 40) % 2000;
            auto* p = static_cast<unsigned char*>(m->alloc(size));
            std::memset(p, t + 1, size);
            live.emplace_back(m, p);
            if (live.size() > 50) {
                auto [owner, q] = live.front();
                live.erase(live.begin());
                if (q[0] != t + 1) failures.fetch_add(1);
                Free(q);  // the frame must route it to `owner`
                (void)owner;
            }
        }
        unsigned long expectShared = 0, expectOwn = 0;
        for (auto [m, p] : live) {
            const unsigned long size = reinterpret_cast<unsigned long*>(p)[-1];
            (m == &viaShared ? expectShared : expectOwn) += size;
        }
        if (viaShared.getAllocatedSize() != expectShared) failures.fetch_add(1);
        if (viaOwn.getAllocatedSize() != expectOwn) failures.fetch_add(1);
        for (auto [m, p] : live) Free(p);
        if (viaShared.getAllocatedSize() != 0 || viaOwn.getAllocatedSize() != 0) {
            failures.fetch_add(1);
        }
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(own[0]->getAllocatedMemory(), 0u) << "a pool used by one thread is exact";
    for (auto* p : own) delete p;
    delete shared;
}

// Readers of the registry must never see a half-rebuilt index while pools come and go.
// Every thread exists before the churn starts: a pool's destructor unmaps ranges the arena
// already returned, and a thread stack mapped in between would be unmapped under it.
TEST(MemoryPoolThreads, LookupsStayRightWhilePoolsComeAndGo) {
    MemoryPool stable("stable", 1 << 16);
    char* inside = stable.getRanges().front().start + 64;
    std::vector<int> heapBlock(16);
    std::atomic<bool> stop{false};
    std::atomic<long> wrong{0};
    runTogether(3, [&](int i) {
        if (i == 0) {
            for (int k = 0; k < 300; ++k) {
                MemoryPool transient("transient", 1 << 16);
                void* p = transient.malloc(5 << 20);  // a second range
                transient.free(p);
            }
            stop = true;
            return;
        }
        while (!stop) {
            if (!MemoryPool::isPointerFromPool(inside)) wrong.fetch_add(1);
            if (MemoryPool::isPointerFromPool(heapBlock.data())) wrong.fetch_add(1);
        }
    });
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace mirel
