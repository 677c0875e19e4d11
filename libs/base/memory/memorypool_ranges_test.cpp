// Address ranges a pool gives back to the system. The system hands a freed range to the
// next mapping of any thread, so a range must leave the registry when the arena unmaps it,
// and the pool must never unmap it again. This binary counts every munmap made through the
// dynamic linker (the library's included), so it is kept apart from the other pool tests.
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

bool inRegistry(std::uintptr_t p) {
    CSMutex guard(*sRangesLock);
    return listed(*sRanges, p);
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
        const bool lastByte =
            MemoryPool::isPointerFromPool(reinterpret_cast<void*>(p + kPage - 1));
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

// Released ranges ---------------------------------------------------------------------------

// A freed block that had its own mapping, a trimmed tail and wholly free segments each
// leave the registry when they go; whatever the system maps there next is not the pool's
// and outlives the pool.
TEST_F(PoolRanges, WhatTheArenaGivesBackLeavesTheRegistryAndIsNeverUnmappedAgain) {
    auto pool = std::make_unique<MemoryPool>("released", 1 << 20);
    mspace_mallopt(kMspaceMmapThreshold, 2 << 20);
    void* own = pool->malloc(3 << 20);  // mapped by itself
    ASSERT_NE(own, nullptr);
    std::vector<std::uintptr_t> released = expectExactAround(*pool, [&] { pool->free(own); });
    EXPECT_GE(released.size(), (3u << 20) / kPage);

    // Segments: three grown ones, then everything freed and the arena trimmed to nothing.
    mspace_mallopt(kMspaceMmapThreshold, kMspaceLargest);
    std::vector<void*> blocks;
    for (int i = 0; i < 3; ++i) blocks.push_back(pool->malloc(9 << 20));
    for (void* b : blocks) ASSERT_NE(b, nullptr);
    for (void* b : blocks) pool->free(b);
    std::vector<std::uintptr_t> trimmed = expectExactAround(*pool, [&] {
        CSMutex guard(pool->getLock());
        EXPECT_EQ(mspace_trim(pool->getMspace(), 0), 1);
    });
    EXPECT_GE(trimmed.size(), (27u << 20) / kPage);
    released.insert(released.end(), trimmed.begin(), trimmed.end());

    // Someone else's mappings where the pool's used to be.
    std::vector<std::uintptr_t> taken;
    long claimed = 0;
    for (std::uintptr_t p : released) {
        void* got = mmap(reinterpret_cast<void*>(p), kPage, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
        if (got == MAP_FAILED) continue;  // another mapping of this process got there first
        ASSERT_EQ(got, reinterpret_cast<void*>(p));
        *static_cast<std::uintptr_t*>(got) = p;
        claimed += MemoryPool::isPointerFromPool(got);
        taken.push_back(p);
    }
    EXPECT_EQ(claimed, 0) << "someone else's pages taken for the pool's";
    ASSERT_GT(taken.size(), released.size() / 2);
    pool.reset();
    long lost = 0;
    for (std::uintptr_t p : taken) {
        if (!mapped(p)) {
            ++lost;
            continue;
        }
        EXPECT_EQ(*reinterpret_cast<std::uintptr_t*>(p), p);
        claimed += MemoryPool::isPointerFromPool(reinterpret_cast<void*>(p));
        munmap(reinterpret_cast<void*>(p), kPage);
    }
    EXPECT_EQ(lost, 0) << "pages the pool no longer owned were unmapped by its destruction";
    EXPECT_EQ(claimed, 0);
}

// A pool grown by twelve 3 MiB blocks, some still in use, one mapped by itself and still in
// use, one that was and has been freed: its destruction unmaps each page it owned once.
TEST_F(PoolRanges, DestructionUnmapsEveryOwnedPageExactlyOnce) {
    auto pool = std::make_unique<MemoryPool>("grown", 1 << 20);
    std::vector<void*> blocks;
    for (int i = 0; i < 12; ++i) blocks.push_back(pool->malloc(3 << 20));
    for (int i = 0; i < 12; i += 2) pool->free(blocks[i]);
    mspace_mallopt(kMspaceMmapThreshold, 2 << 20);
    void* ownLive = pool->malloc(5 << 20);
    pool->free(pool->malloc(3 << 20));
    ASSERT_NE(ownLive, nullptr);
    const std::vector<std::uintptr_t> owned = pagesOf(pool->getRanges());

    gLogged = 0;
    gLogging = true;
    pool.reset();
    gLogging = false;
    ASSERT_LE(gLogged.load(), kLogCapacity);

    std::map<std::uintptr_t, int> unmapped;
    for (int i = 0; i < gLogged.load(); ++i) {
        for (std::uintptr_t p = gLog[i].start; p < gLog[i].start + gLog[i].size; p += kPage)
            ++unmapped[p];
    }
    long twice = 0, leftMapped = 0, stillListed = 0;
    for (const auto& [page, count] : unmapped) twice += count > 1;
    for (std::uintptr_t p : owned) {
        leftMapped += unmapped.count(p) == 0;
        stillListed += MemoryPool::isPointerFromPool(reinterpret_cast<void*>(p));
    }
    EXPECT_EQ(twice, 0) << "pages unmapped more than once";
    EXPECT_EQ(leftMapped, 0) << "owned pages left mapped";
    EXPECT_EQ(stillListed, 0);
    EXPECT_EQ(unmapped.size(), owned.size()) << "only the pool's own pages are unmapped";
}

// The registry's own edits ------------------------------------------------------------------

// removeFromList on the registry itself must reach the lock-free look-up at once, and take
// only the range it names.
TEST_F(PoolRanges, RemovingFromTheRegistryItselfChangesTheAnswer) {
    MemoryPool pool("edited", 1 << 16), other("other", 1 << 16);
    char* start = pool.getRanges().front().start;
    char* kept = other.getRanges().front().start;
    ASSERT_TRUE(MemoryPool::isPointerFromPool(start));
    {
        CSMutex guard(*sRangesLock);
        removeFromList(*sRanges, start, 1);
    }
    EXPECT_FALSE(MemoryPool::isPointerFromPool(start));
    EXPECT_FALSE(MemoryPool::isPointerFromPool(start + (1 << 16) - 1));
    EXPECT_TRUE(MemoryPool::isPointerFromPool(kept));
    // The pool still owns the range: its destruction unmaps it all the same.
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
