// The range registry behind isPointerFromPool, and the address ranges a pool gives back to
// the system. The system hands a freed range to the next mapping of any thread, so a range
// must leave the registry when the arena unmaps it, and the pool must never unmap it again.
// This binary counts every munmap made through the dynamic linker (the library's included),
// so it is kept apart from the other pool tests.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <thread>
#include <vector>

#include "base/memory/memorypool.h"
#include "base/memory/memorypool_p.h"
#include "base/memory/mspace.h"
#include "base/testing/testutil.h"

namespace {

struct Unmapping {
    std::uintptr_t start;
    std::size_t size;
};

// Unmappings are logged only while a test asks for it, into a fixed array: the log must not
// allocate, since it runs inside the allocators.
constexpr int kLogCapacity = 4096;
std::atomic<bool> gLogging{false};
std::atomic<int> gLogged{0};
Unmapping gLog[kLogCapacity];

}  // namespace

extern "C" int munmap(void* start, std::size_t size) noexcept {
    using Real = int (*)(void*, std::size_t);
    static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "munmap"));
    const int result = real(start, size);
    if (result == 0 && gLogging.load(std::memory_order_acquire)) {
        const int at = gLogged.fetch_add(1);
        if (at < kLogCapacity) gLog[at] = {reinterpret_cast<std::uintptr_t>(start), size};
    }
    return result;
}

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

bool inRegistry(std::uintptr_t p) { return listed(registrySnapshot(), p); }

bool fromPool(std::uintptr_t p) { return MemoryPool::isPointerFromPool(reinterpret_cast<void*>(p)); }

std::uintptr_t addressOf(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }

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
    const std::vector<MMapRange> after = pool.getRanges();
    std::vector<std::uintptr_t> released;
    long wrong = 0;
    std::uintptr_t firstWrong = 0;
    for (std::uintptr_t p : before) {
        const bool isMapped = mapped(p);
        const bool lastByte = fromPool(p + kPage - 1);
        if (listed(after, p) != isMapped || inRegistry(p) != isMapped || lastByte != isMapped) {
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
    for (const MMapRange& r : gone) ASSERT_EQ(fromPool(addressOf(r.start)), inRegistry(addressOf(r.start)));
}

// A pool grows in 4 MiB segments whatever the last caller set, and all of them leave the
// registry with it.
TEST_F(PoolRanges, GrowthIsListedAndDestructionLeavesNoRangeBehind) {
    const std::size_t before = registrySnapshot().size();
    std::vector<MMapRange> theirs;
    {
        mspace_mallopt(kMspaceGranularity, 65536);  // any pool construction must reset this
        MemoryPool a("grow", 1 << 16), b("other", 1 << 16);
        std::vector<void*> blocks;
        for (int i = 0; i < 40; ++i) {
            blocks.push_back(a.malloc(256 * 1024));
            ASSERT_TRUE(MemoryPool::isPointerFromPool(blocks.back()));
        }
        // Spans whole 4 MiB granules that no neighbouring mapping touches.
        auto* big = static_cast<char*>(a.malloc(9 << 20));
        for (long at : {0l, 3l << 20, 6l << 20, (9l << 20) - 1})
            EXPECT_TRUE(MemoryPool::isPointerFromPool(big + at)) << at;
        blocks.push_back(big);
        theirs = a.getRanges();
        ASSERT_GE(theirs.size(), 3u);
        for (std::size_t i = 1; i < theirs.size(); ++i) EXPECT_EQ(theirs[i].size % 4194304, 0u);
        for (void* p : blocks) a.free(p);
        theirs.push_back(b.getRanges().front());
    }
    EXPECT_EQ(registrySnapshot().size(), before);
    for (const MMapRange& r : theirs) {
        EXPECT_FALSE(inRegistry(addressOf(r.start)));
        EXPECT_FALSE(fromPool(addressOf(r.start)));
    }
    EXPECT_EQ(MemoryPool::sbreakCB(4096, nullptr), reinterpret_cast<void*>(~std::uintptr_t{0}))
        << "pools never grow by program break";
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

// Released ranges ---------------------------------------------------------------------------

// Wholly free segments trimmed away, a freed block that had its own mapping, then the
// pool's destruction with blocks of both kinds in use: each range leaves the registry as it
// goes, every page the pool ever listed is unmapped exactly once, and whatever the system
// maps where the pool's pages were outlives the pool.
TEST_F(PoolRanges, EveryRangeLeavesTheRegistryAsItGoesAndIsUnmappedOnce) {
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
    gLogged = 0;
    gLogging = true;
    std::vector<void*> blocks;
    for (int i = 0; i < 3; ++i) blocks.push_back(pool->malloc(9 << 20));
    for (void* b : blocks) ASSERT_NE(b, nullptr);
    for (void* b : blocks) pool->free(b);
    noteListed();
    std::vector<std::uintptr_t> released = expectExactAround(*pool, [&] {
        CSMutex guard(pool->getLock());
        EXPECT_EQ(mspace_trim(pool->getMspace(), 0), 1);
    });
    EXPECT_GE(released.size(), (27u << 20) / kPage);
    takeOver(released);

    blocks.clear();
    for (int i = 0; i < 12; ++i) blocks.push_back(pool->malloc(3 << 20));
    for (int i = 0; i < 12; i += 2) pool->free(blocks[i]);
    mspace_mallopt(kMspaceMmapThreshold, 2 << 20);
    void* ownLive = pool->malloc(5 << 20);  // each mapped by itself
    void* own = pool->malloc(3 << 20);
    ASSERT_TRUE(ownLive != nullptr && own != nullptr);
    noteListed();
    released = expectExactAround(*pool, [&] { pool->free(own); });
    EXPECT_GE(released.size(), (3u << 20) / kPage);
    takeOver(released);

    noteListed();
    const int beforeDestruction = gLogged.load();
    pool.reset();
    gLogging = false;
    ASSERT_LE(gLogged.load(), kLogCapacity);
    std::map<std::uintptr_t, int> unmapped;
    long notThePools = 0;
    for (int i = 0; i < gLogged.load(); ++i) {
        for (std::uintptr_t p = gLog[i].start; p < gLog[i].start + gLog[i].size; p += kPage) {
            if (everListed.count(p) != 0) ++unmapped[p];
            else notThePools += i >= beforeDestruction;
        }
    }
    long twice = 0, stillListed = 0;
    for (const auto& [page, count] : unmapped) twice += count > 1;
    for (std::uintptr_t p : everListed) stillListed += fromPool(p);
    EXPECT_EQ(twice, 0) << "pages unmapped more than once";
    EXPECT_EQ(unmapped.size(), everListed.size()) << "pages the pool owned left mapped";
    EXPECT_EQ(notThePools, 0) << "the pool's destruction unmapped pages it never had";
    EXPECT_EQ(stillListed, 0);
    long lost = 0;
    for (std::uintptr_t p : taken) {
        if (!mapped(p) || *reinterpret_cast<std::uintptr_t*>(p) != p) ++lost;
        else munmap(reinterpret_cast<void*>(p), kPage);
    }
    EXPECT_EQ(lost, 0) << "pages the pool no longer owned were unmapped by its destruction";
}

// Threads -----------------------------------------------------------------------------------

// Pools grow, give ranges back and go while other threads start threads and map memory:
// a thread stack or a large block the system places where a pool's range was must not be
// taken for the pool's, and must not be unmapped under its new owner. Meanwhile a pool
// that stays must keep answering, whatever the index is being rebuilt for.
TEST_F(PoolRanges, ThreadsStartingWhilePoolsGiveRangesBack) {
    MemoryPool stable("stable", 1 << 16);
    char* inside = stable.getRanges().front().start + 64;
    mspace_mallopt(kMspaceMmapThreshold, 1 << 20);
    std::atomic<int> poolsRunning{2};
    std::atomic<long> wrong{0}, started{0};
    testing::runTogether(4, [&](int t) {
        if (t < 2) {
            for (int k = 0; k < 500; ++k) {
                MemoryPool pool("churn", 1 << 16);
                std::vector<void*> blocks;
                for (int i = 0; i < 6; ++i) {
                    blocks.push_back(pool.malloc((i % 3 == 0 ? 5 : 1) << 20));
                    if (blocks.back() == nullptr) ++wrong;
                    else std::memset(blocks.back(), t, 4096);
                }
                for (std::size_t i = 0; i < blocks.size(); i += 2) pool.free(blocks[i]);
                CSMutex guard(pool.getLock());
                mspace_trim(pool.getMspace(), 0);
            }
            --poolsRunning;
            return;
        }
        while (poolsRunning.load() > 0) {
            std::thread th([&] {
                volatile char onStack[8192];
                for (std::size_t i = 0; i < sizeof onStack; i += 512) onStack[i] = 1;
                if (MemoryPool::isPointerFromPool(const_cast<char*>(onStack))) ++wrong;
                // The sizes the pools give back, so the system has a reason to reuse them.
                const std::size_t size = std::size_t{t == 2 ? 1u : 5u} << 20;
                void* big = std::malloc(size);
                std::memset(big, 1, size);
                for (int i = 0; i < 2000; ++i) {
                    wrong += MemoryPool::isPointerFromPool(big);
                    wrong += !MemoryPool::isPointerFromPool(inside);
                }
                std::free(big);
            });
            th.join();
            ++started;
        }
    });
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GT(started.load(), 0);
}

}  // namespace
}  // namespace mirel
