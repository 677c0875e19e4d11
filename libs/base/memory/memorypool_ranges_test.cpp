// The range registry behind isPointerFromPool, and the address ranges a pool gives back to
// the system. The system hands a freed range to the next mapping of any thread, so a range
// must leave the registry when the arena unmaps it, and the pool must never unmap it again.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "base/memory/memorypool.h"
#include "base/memory/memorypool_p.h"
#include "base/memory/mspace.h"

namespace mirel {
namespace {

const std::uintptr_t kPage = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));

bool mapped(std::uintptr_t page) {
    unsigned char v;
    return mincore(reinterpret_cast<void*>(page), kPage, &v) == 0 || errno != ENOMEM;
}

bool listed(const std::vector<MMapRange>& ranges, std::uintptr_t p) {
    for (const MMapRange& r : ranges) {
        const auto s = reinterpret_cast<std::uintptr_t>(r.start);
        if (s <= p && p - s < r.size) return true;
    }
    return false;
}

std::vector<MMapRange> registrySnapshot() {
    CSMutex guard(*sRangesLock);
    return *sRanges;
}

bool fromPool(std::uintptr_t p) { return MemoryPool::isPointerFromPool(reinterpret_cast<void*>(p)); }

// Neighbouring mappings are often adjacent, so every range's edges are compared with the
// definition rather than with a fixed answer.
void expectAnswersMatchTheDefinition() {
    const std::vector<MMapRange> ranges = registrySnapshot();
    for (const MMapRange& r : ranges) {
        const auto s = reinterpret_cast<std::uintptr_t>(r.start);
        for (std::uintptr_t p : {s - 1, s, s + r.size - 1, s + r.size})
            ASSERT_EQ(fromPool(p), listed(ranges, p)) << std::hex << p;
    }
}

std::vector<std::uintptr_t> pagesOf(const std::vector<MMapRange>& ranges) {
    std::vector<std::uintptr_t> pages;
    for (const MMapRange& r : ranges) {
        const auto s = reinterpret_cast<std::uintptr_t>(r.start);
        for (std::uintptr_t p = s; p < s + r.size; p += kPage) pages.push_back(p);
    }
    return pages;
}

// Every page the pool listed before `op` is, after it, mapped exactly when the pool still
// lists it, the registry still lists it and the look-up says so. Returns the pages `op`
// gave back.
template <class Op>
std::vector<std::uintptr_t> expectExactAround(MemoryPool& pool, Op op) {
    const std::vector<std::uintptr_t> before = pagesOf(pool.getRanges());
    op();
    const std::vector<MMapRange> after = pool.getRanges(), registry = registrySnapshot();
    std::vector<std::uintptr_t> released;
    long wrong = 0;
    std::uintptr_t firstWrong = 0;
    for (std::uintptr_t p : before) {
        const bool isMapped = mapped(p);
        if (listed(after, p) != isMapped || listed(registry, p) != isMapped ||
            fromPool(p + kPage - 1) != isMapped) {
            if (wrong++ == 0) firstWrong = p;
        }
        if (!isMapped) released.push_back(p);
    }
    EXPECT_EQ(wrong, 0) << "pages whose listing disagrees with the system, the first at 0x"
                        << std::hex << firstWrong;
    return released;
}

class PoolRanges : public ::testing::Test {
protected:
    void TearDown() override { mspace_mallopt(kMspaceMmapThreshold, kMspaceLargest); }
};

// The registry -------------------------------------------------------------------------------

// Past the lock-free index's capacity (1,024) the answers must not change, nor after the
// registry shrinks back below it. Sizes that are not page multiples put each range's end
// inside mapped memory that is no pool's.
TEST_F(PoolRanges, AnswersMatchTheDefinitionAtAnyNumberOfRanges) {
    EXPECT_FALSE(MemoryPool::isPointerFromPool(nullptr));
    std::vector<std::unique_ptr<MemoryPool>> pools;
    for (int i = 0; i < 1100; ++i)
        pools.push_back(std::make_unique<MemoryPool>("many", 10000 + 4096 * (i % 3)));
    EXPECT_EQ(pools[4]->getRanges().at(0).size, 10000u + 4096);  // the size asked for
    expectAnswersMatchTheDefinition();
    std::vector<MMapRange> gone;
    for (int i = 0; i < 1000; ++i) {
        gone.push_back(pools.back()->getRanges().front());
        pools.pop_back();
    }
    expectAnswersMatchTheDefinition();
    const std::vector<MMapRange> registry = registrySnapshot();
    for (const MMapRange& r : gone) {
        const auto s = reinterpret_cast<std::uintptr_t>(r.start);
        ASSERT_EQ(fromPool(s), listed(registry, s));
    }
}

// removeFromList matches the start only, takes the first match and moves the last entry
// in; on the registry itself it must reach the lock-free look-up at once.
TEST_F(PoolRanges, RemoveFromListTakesTheFirstEntryWithThatStart) {
    char b[4];
    std::vector<MMapRange> list{{b, 10}, {b + 1, 20}, {b + 2, 30}, {b + 1, 40}, {b + 3, 50}};
    removeFromList(list, b + 3 + 1, 50);  // not listed
    removeFromList(list, b + 1, 999);     // listed, with another size
    std::vector<std::pair<char*, unsigned long>> left;
    for (const MMapRange& r : list) left.emplace_back(r.start, r.size);
    EXPECT_EQ(left, (decltype(left){{b, 10}, {b + 3, 50}, {b + 2, 30}, {b + 1, 40}}));

    MemoryPool pool("edited", 1 << 16), other("other", 1 << 16);
    char* start = pool.getRanges().front().start;
    {
        CSMutex guard(*sRangesLock);
        removeFromList(*sRanges, start, 1);
    }
    EXPECT_FALSE(MemoryPool::isPointerFromPool(start));
    EXPECT_FALSE(MemoryPool::isPointerFromPool(start + (1 << 16) - 1));
    EXPECT_TRUE(MemoryPool::isPointerFromPool(other.getRanges().front().start));
    // The pool still owns the range: its destruction unmaps it all the same.
}

// Growth and released ranges -------------------------------------------------------------

// A pool grows in 4 MiB units whatever the last caller set, never by program break. Then
// wholly free segments trimmed away, a freed block that had a mapping of its own, and the
// pool's destruction with blocks of both kinds in use: each range leaves the registry as
// it goes, every page the pool ever listed is unmapped, and whatever the system maps where
// the pool's pages were outlives the pool.
TEST_F(PoolRanges, GrowthIsListedAndEveryRangeLeavesTheRegistryAsItGoes) {
    EXPECT_EQ(MemoryPool::sbreakCB(4096, nullptr), reinterpret_cast<void*>(~std::uintptr_t{0}));
    mspace_mallopt(kMspaceGranularity, 65536);  // any pool construction must reset this
    auto pool = std::make_unique<MemoryPool>("released", 1 << 20);
    std::set<std::uintptr_t> everListed;
    auto noteListed = [&] {
        for (std::uintptr_t p : pagesOf(pool->getRanges())) everListed.insert(p);
    };
    std::vector<std::uintptr_t> taken;  // someone else's pages, where the pool's were
    auto takeOver = [&](const std::vector<std::uintptr_t>& released) {
        const std::size_t before = taken.size();
        for (std::uintptr_t p : released) {
            void* got = mmap(reinterpret_cast<void*>(p), kPage, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
            if (got == MAP_FAILED) continue;  // another mapping of this process got there first
            *static_cast<std::uintptr_t*>(got) = p;
            taken.push_back(p);
        }
        ASSERT_GT(taken.size() - before, released.size() / 2);
    };
    std::vector<char*> blocks;
    for (int i = 0; i < 3; ++i) blocks.push_back(static_cast<char*>(pool->malloc(9 << 20)));
    for (char* b : blocks) {
        ASSERT_NE(b, nullptr);
        for (long at : {0l, 3l << 20, (9l << 20) - 1}) EXPECT_TRUE(MemoryPool::isPointerFromPool(b + at));
    }
    const std::vector<MMapRange> grown = pool->getRanges();
    for (std::size_t i = 1; i < grown.size(); ++i) EXPECT_EQ(grown[i].size % 4194304, 0u);
    for (char* b : blocks) pool->free(b);
    noteListed();
    std::vector<std::uintptr_t> released = expectExactAround(*pool, [&] {
        CSMutex guard(pool->getLock());
        EXPECT_EQ(mspace_trim(pool->getMspace(), 0), 1);
    });
    EXPECT_GE(released.size(), (27u << 20) / kPage);
    takeOver(released);

    std::vector<void*> more;
    for (int i = 0; i < 12; ++i) more.push_back(pool->malloc(3 << 20));
    for (int i = 0; i < 12; i += 2) pool->free(more[i]);
    mspace_mallopt(kMspaceMmapThreshold, 2 << 20);
    void* ownLive = pool->malloc(5 << 20);  // each mapped by itself
    void* own = pool->malloc(3 << 20);
    ASSERT_TRUE(ownLive != nullptr && own != nullptr);
    noteListed();
    released = expectExactAround(*pool, [&] { pool->free(own); });
    EXPECT_GE(released.size(), (3u << 20) / kPage);
    takeOver(released);

    noteListed();
    const std::vector<std::uintptr_t> last = pagesOf(pool->getRanges());
    pool.reset();
    long leftMapped = 0, stillListed = 0, lost = 0;
    for (std::uintptr_t p : last) leftMapped += mapped(p);
    for (std::uintptr_t p : everListed) stillListed += fromPool(p);
    for (std::uintptr_t p : taken) {
        if (!mapped(p) || *reinterpret_cast<std::uintptr_t*>(p) != p) ++lost;
        else munmap(reinterpret_cast<void*>(p), kPage);
    }
    EXPECT_EQ(leftMapped, 0) << "pages the pool owned left mapped";
    EXPECT_EQ(stillListed, 0);
    EXPECT_EQ(lost, 0) << "pages the pool no longer owned were unmapped by its destruction";
}

}  // namespace
}  // namespace mirel
