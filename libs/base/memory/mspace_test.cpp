#include "base/memory/mspace.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "base/memory/mspace_stress_test.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

using namespace mirel;
using mirel::arena_stress::detail::Recorder;

namespace {

const unsigned long kPage = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
constexpr unsigned long kGranularity = 65536;
constexpr unsigned long kHuge = ~0ul;

// Every test leaves the process-wide parameters as it found them.
class Mspace : public ::testing::Test {
protected:
    void TearDown() override {
        mspace_mallopt(-1, 2 * 1024 * 1024);
        mspace_mallopt(-2, kGranularity);
        mspace_mallopt(-3, -1);
    }

    // A space from create_mspace(0) whose five hooks all report to `rec`.
    static mspace hooked(Recorder& rec) {
        mspace m = create_mspace(0, 0);
        EXPECT_NE(m, nullptr);
        // The state opens the first mapping, which the default hook made.
        rec.noteSegment(reinterpret_cast<std::uintptr_t>(m) & ~(kPage - 1), mspace_footprint(m));
        mspace_hooks h = rec.hooks();
        EXPECT_EQ(mspace_set_hooks(m, &h), 1);
        return m;
    }

    static bool sound(mspace m, mspace_check_report* out = nullptr) {
        mspace_check_report r{};
        bool ok = mspace_check(m, &r) == 0;
        EXPECT_TRUE(ok) << r.problem;
        EXPECT_STREQ(r.problem, "");
        if (out != nullptr) *out = r;
        return ok;
    }

    static bool unmapped(std::uintptr_t base, std::size_t size) {
        // msync fails with ENOMEM on any page that is not mapped.
        return msync(reinterpret_cast<void*>(base), size, MS_ASYNC) != 0 && errno == ENOMEM;
    }
};

using MspaceDeathTest = Mspace;

// Creation --------------------------------------------------------------------------------

TEST_F(Mspace, CreateMapsCapacityRoundedToGranularity) {
    mspace m = create_mspace(0, 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(mspace_footprint(m), kGranularity);  // one unit when the capacity is 0
    EXPECT_EQ(destroy_mspace(m), kGranularity);

    m = create_mspace(200000, 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(mspace_footprint(m) % kGranularity, 0u);
    EXPECT_GE(mspace_footprint(m), 200000u);
    // The capacity asked for is there without growing.
    Recorder rec;
    rec.noteSegment(reinterpret_cast<std::uintptr_t>(m) & ~(kPage - 1), mspace_footprint(m));
    mspace_hooks h = rec.hooks();
    mspace_set_hooks(m, &h);
    EXPECT_NE(mspace_malloc(m, 190000), nullptr);
    EXPECT_EQ(rec.segmentCalls, 0u);
    destroy_mspace(m);
    EXPECT_TRUE(rec.error.empty()) << rec.error;
}

TEST_F(Mspace, CreateRefusesBadArguments) {
    EXPECT_EQ(create_mspace(kHuge, 0), nullptr);
    EXPECT_EQ(create_mspace(kHuge - kGranularity, 0), nullptr);
    alignas(16) static char region[8192];
    EXPECT_EQ(create_mspace_with_base(nullptr, sizeof region, 0), nullptr);
    EXPECT_EQ(create_mspace_with_base(region, 64, 0), nullptr);  // no room for the state
    EXPECT_EQ(create_mspace_with_base(region, kHuge, 0), nullptr);
    mspace_hooks h{};
    mspace m = create_mspace_with_base(region, sizeof region, 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(mspace_set_hooks(m, &h), 0);  // null functions are refused
    EXPECT_EQ(mspace_set_hooks(m, nullptr), 0);
    destroy_mspace(m);
}

TEST_F(Mspace, MisalignedBaseStillGivesAlignedBlocksInsideTheRegion) {
    std::vector<char> buffer(64 * 1024);
    char* base = buffer.data() + 3;
    std::size_t size = buffer.size() - 10;
    mspace m = create_mspace_with_base(base, size, 0);
    ASSERT_NE(m, nullptr);
    for (int i = 0; i < 50; ++i) {
        auto* p = static_cast<char*>(mspace_malloc(m, 100 + i));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
        EXPECT_GE(p, base);
        EXPECT_LE(p + 100 + i, base + size);
    }
    sound(m);
    EXPECT_EQ(destroy_mspace(m), 0u);  // nothing was mapped
}

TEST_F(Mspace, CaCreationStoresHooksAndContextButKeepsDefaultUnmapping) {
    static char region[128 * 1024];
    Recorder rec;
    rec.baseRegion = reinterpret_cast<std::uintptr_t>(region);
    rec.baseRegionSize = sizeof region;
    mspace m = create_mspace_with_base_ca(region, sizeof region, 1, Recorder::segmentHook,
                                          Recorder::largeHook, Recorder::breakHook, &rec);
    ASSERT_NE(m, nullptr);
    mspace_hooks h{};
    ASSERT_EQ(mspace_get_hooks(m, &h), 1);
    EXPECT_EQ(h.context, &rec);
    EXPECT_EQ(h.mmap_func, &Recorder::segmentHook);
    EXPECT_EQ(h.direct_mmap_func, &Recorder::largeHook);
    EXPECT_EQ(h.sbrk_func, &Recorder::breakHook);
    EXPECT_EQ(h.munmap_func, &default_munmap_func);

    std::vector<void*> blocks;
    for (int i = 0; i < 100; ++i) blocks.push_back(mspace_malloc(m, 10000));  // ~1 MiB: must grow
    EXPECT_GT(rec.segmentCalls, 0u);
    EXPECT_EQ(rec.largeCalls, 0u);
    EXPECT_EQ(rec.breakCalls, 0u);
    sound(m);
    // destroy_mspace unmaps through the default hook: what the segment hook mapped is gone
    // afterwards, and the caller's region is still there.
    auto ranges = rec.held.ranges();
    EXPECT_EQ(destroy_mspace(m), rec.held.bytes());
    EXPECT_EQ(rec.unmapCalls, 0u);
    for (auto& [b, n] : ranges) EXPECT_TRUE(unmapped(b, n));
    region[0] = 1;  // still ours
    EXPECT_TRUE(rec.error.empty()) << rec.error;
}

// Blocks ------------------------------------------------------------------------------------

TEST_F(Mspace, ReallocKeepsContentsAndGrowsInPlaceWhenItCan) {
    mspace m = create_mspace(0, 0);
    EXPECT_NE(mspace_realloc(m, nullptr, 0), nullptr);  // realloc(null) allocates
    mspace_free(m, nullptr);                           // and free(null) does nothing
    auto* a = static_cast<char*>(mspace_malloc(m, 400));
    auto* b = static_cast<char*>(mspace_malloc(m, 400));
    auto* guard = mspace_malloc(m, 16);
    std::memset(a, 'a', 400);
    mspace_free(m, b);
    // The free neighbour makes room without moving.
    EXPECT_EQ(mspace_realloc(m, a, 700), a);
    EXPECT_EQ(std::string(a, 400), std::string(400, 'a'));
    // Shrinking never moves.
    EXPECT_EQ(mspace_realloc(m, a, 40), a);
    EXPECT_EQ(std::string(a, 40), std::string(40, 'a'));
    // Growing past every neighbour moves and copies.
    auto* c = static_cast<char*>(mspace_realloc(m, a, 100000));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(std::string(c, 40), std::string(40, 'a'));
    mspace_check_report r{};
    sound(m, &r);
    EXPECT_EQ(r.in_use_chunks, 3u);  // the realloc(null) block, guard and c
    EXPECT_EQ(mspace_realloc(m, c, 0), nullptr);  // size 0 frees
    sound(m, &r);
    EXPECT_EQ(r.in_use_chunks, 2u);
    mspace_free(m, guard);
    destroy_mspace(m);
}

TEST_F(Mspace, ResizingInPlaceKeepsAFreePredecessorMergeable) {
    // Each way of growing or shrinking in place, on a block whose predecessor is free: the
    // block must go on telling that, or the two would never merge again.
    for (int way = 0; way < 3; ++way) {
        mspace m = create_mspace(0, 0);
        void* before = mspace_malloc(m, 300);
        auto* p = static_cast<char*>(mspace_malloc(m, 300));
        void* after = way == 1 ? mspace_malloc(m, 600) : nullptr;  // to free: a free neighbour
        if (way != 0) mspace_malloc(m, 16);  // keeps p away from the top
        mspace_free(m, before);
        if (after != nullptr) mspace_free(m, after);
        unsigned long size = way == 2 ? 40 : 800;  // into the top, into the neighbour, shrink
        EXPECT_EQ(mspace_realloc(m, p, size), p) << way;
        sound(m);
        mspace_free(m, p);
        sound(m);
        destroy_mspace(m);
    }
}

TEST_F(Mspace, MemalignHonoursEveryPowerOfTwoAndRoundsOthersUp) {
    mspace m = create_mspace(0, 0);
    std::vector<void*> blocks;
    for (unsigned long a = 1; a <= 64 * 1024; a *= 2) {
        for (unsigned long n : {1ul, 100ul, 5000ul}) {
            auto* p = static_cast<char*>(mspace_memalign(m, a, n));
            ASSERT_NE(p, nullptr);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % std::max(a, 16ul), 0u) << a;
            std::memset(p, 1, n);
            blocks.push_back(p);
        }
    }
    void* p = mspace_memalign(m, 100, 10);  // rounded up to 128
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 128, 0u);
    blocks.push_back(p);
    sound(m);
    for (void* b : blocks) mspace_free(m, b);
    mspace_check_report r{};
    sound(m, &r);
    EXPECT_EQ(r.in_use_chunks, 0u);  // the pieces cut off for alignment went back, too
    destroy_mspace(m);
}

TEST_F(Mspace, IndependentBlocksAreSeparateAndFreeableOneByOne) {
    mspace m = create_mspace(0, 0);
    void* given[5];
    void** got = mspace_independent_calloc(m, 5, 300, given);
    ASSERT_EQ(got, given);
    for (void* b : given)
        for (int i = 0; i < 300; ++i) ASSERT_EQ(static_cast<char*>(b)[i], 0);
    unsigned long sizes[] = {10, 0, 4000, 33};
    void** own = mspace_independent_comalloc(m, 4, sizes, nullptr);
    ASSERT_NE(own, nullptr);
    for (int i = 0; i < 4; ++i) std::memset(own[i], i, sizes[i]);
    for (int i = 0; i < 3; ++i)
        EXPECT_GE(static_cast<char*>(own[i + 1]), static_cast<char*>(own[i]) + sizes[i]);
    mspace_check_report r{};
    sound(m, &r);
    EXPECT_EQ(r.in_use_chunks, 5u + 4u + 1u);  // the array is a block too
    for (void* b : given) mspace_free(m, b);
    for (int i = 3; i >= 0; --i) mspace_free(m, own[i]);
    mspace_free(m, own);
    sound(m, &r);
    EXPECT_EQ(r.in_use_chunks, 0u);
    EXPECT_EQ(mspace_independent_calloc(m, 0, 8, given), given);  // nothing to do
    destroy_mspace(m);
}

// Requests that cannot be served -----------------------------------------------------------

TEST_F(Mspace, UnservableRequestsReturnNullAndLeaveTheSpaceSound) {
    mspace m = create_mspace(0, 0);
    auto* keep = static_cast<char*>(mspace_malloc(m, 100));
    std::memset(keep, 'k', 100);
    unsigned long footprint = mspace_footprint(m);

    EXPECT_EQ(mspace_malloc(m, kHuge), nullptr);
    EXPECT_EQ(mspace_malloc(m, kHuge - 15), nullptr);
    EXPECT_EQ(mspace_malloc(m, 1ul << 62), nullptr);
    EXPECT_EQ(mspace_malloc(m, 1ul << 50), nullptr);  // passes the size checks, cannot be mapped
    EXPECT_EQ(mspace_calloc(m, kHuge / 2 + 1, 2), nullptr);          // product overflows
    EXPECT_EQ(mspace_calloc(m, 1ul << 32, 1ul << 32), nullptr);      // exactly 2^64
    EXPECT_EQ(mspace_memalign(m, 4096, kHuge - 100), nullptr);
    EXPECT_EQ(mspace_memalign(m, 1ul << 63, 16), nullptr);
    EXPECT_EQ(mspace_memalign(m, (1ul << 63) + 1, 16), nullptr);   // cannot round up
    EXPECT_EQ(mspace_independent_calloc(m, kHuge / 8, 1, nullptr), nullptr);  // the array overflows
    EXPECT_EQ(mspace_independent_calloc(m, 1ul << 40, 1ul << 30, nullptr), nullptr);
    unsigned long sizes[] = {kHuge / 2, kHuge / 2, 64};
    EXPECT_EQ(mspace_independent_comalloc(m, 3, sizes, nullptr), nullptr);  // the sum overflows
    unsigned long big[] = {1ul << 61, 1ul << 61, 1ul << 61};
    EXPECT_EQ(mspace_independent_comalloc(m, 3, big, nullptr), nullptr);
    EXPECT_EQ(mspace_realloc(m, keep, kHuge - 8), nullptr);
    EXPECT_EQ(mspace_realloc(m, keep, 1ul << 50), nullptr);

    EXPECT_EQ(std::string(keep, 100), std::string(100, 'k'));  // a refused realloc keeps the block
    mspace_check_report r{};
    sound(m, &r);
    EXPECT_EQ(r.in_use_chunks, 1u);
    EXPECT_EQ(mspace_footprint(m), footprint);
    destroy_mspace(m);
}

TEST_F(Mspace, FailedSegmentMappingIsExhaustionNotDamage) {
    Recorder rec;
    mspace m = hooked(rec);
    rec.failRate = 1.0;  // every mapping fails
    std::vector<void*> got;
    for (void* p; (p = mspace_malloc(m, 1000)) != nullptr;) got.push_back(p);
    EXPECT_FALSE(got.empty());  // the first segment served what it could
    EXPECT_GT(rec.injected, 0u);
    sound(m);
    rec.failRate = 0;
    EXPECT_NE(mspace_malloc(m, 1000), nullptr);  // and the space grows again once it can
    destroy_mspace(m);
}

// Parameters --------------------------------------------------------------------------------

TEST_F(Mspace, MalloptRefusesUnknownNumbersAndBadGranularities) {
    for (int number : {0, 1, -4, 100}) EXPECT_EQ(mspace_mallopt(number, 65536), 0) << number;
    EXPECT_EQ(mspace_mallopt(-2, static_cast<int>(kPage / 2)), 0);  // below the page size
    EXPECT_EQ(mspace_mallopt(-2, 3 * 65536), 0);                    // not a power of two
    EXPECT_EQ(mspace_mallopt(-2, -1), 0);
    EXPECT_EQ(mspace_mallopt(-2, 0), 0);
    // Refused values changed nothing: segments still come in 64 KiB units.
    Recorder rec;
    rec.granularity = kGranularity;
    mspace m = hooked(rec);
    for (int i = 0; i < 40; ++i) mspace_malloc(m, 3000);
    EXPECT_GT(rec.segmentCalls, 0u);
    EXPECT_TRUE(rec.error.empty()) << rec.error;

    EXPECT_EQ(mspace_mallopt(-2, 1 << 20), 1);
    rec.granularity = 1 << 20;
    for (int i = 0; i < 400; ++i) mspace_malloc(m, 3000);
    EXPECT_TRUE(rec.error.empty()) << rec.error;  // every segment since is a 1 MiB multiple
    EXPECT_EQ(mspace_mallopt(-2, static_cast<int>(kPage)), 1);
    destroy_mspace(m);
}

TEST_F(Mspace, NothingIsMappedByItselfUntilAThresholdIsSet) {
    Recorder rec;
    mspace m = hooked(rec);
    void* big = mspace_malloc(m, 16 << 20);
    ASSERT_NE(big, nullptr);
    EXPECT_EQ(rec.largeCalls, 0u);
    EXPECT_GT(rec.segmentCalls, 0u);
    mspace_mallopt(-1, -1);
    mspace_free(m, big);  // leaves a 16 MiB top

    const unsigned long n = 100000;
    ASSERT_EQ(mspace_mallopt(-3, static_cast<int>(n)), 1);
    void* below = mspace_malloc(m, n - 100);
    EXPECT_EQ(rec.largeCalls, 0u);
    for (unsigned long size : {n, n + 1, 3 * n}) {
        auto calls = rec.largeCalls;
        auto* p = static_cast<char*>(mspace_malloc(m, size));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(rec.largeCalls, calls + 1) << size;  // although the top could serve it
        auto base = rec.lastLarge;
        auto len = rec.lastLargeSize;
        EXPECT_GE(reinterpret_cast<std::uintptr_t>(p), base);
        EXPECT_LE(reinterpret_cast<std::uintptr_t>(p) + size, base + len);
        std::memset(p, 1, size);
        auto unmaps = rec.unmapCalls;
        mspace_free(m, p);
        EXPECT_EQ(rec.unmapCalls, unmaps + 1);
        EXPECT_TRUE(unmapped(base, len));
    }
    mspace_free(m, below);
    sound(m);
    destroy_mspace(m);
    EXPECT_TRUE(rec.error.empty()) << rec.error;
}

TEST_F(Mspace, ReallocKeepsAMappedBlockOnlyWhenItsMappingFits) {
    Recorder rec;
    mspace m = hooked(rec);
    ASSERT_EQ(mspace_mallopt(-3, 65536), 1);

    auto* p = static_cast<char*>(mspace_malloc(m, 100000));
    unsigned long len = rec.lastLargeSize;
    std::memset(p, 'p', 100000);
    EXPECT_EQ(mspace_realloc(m, p, len - 64), p);  // grows into the mapping's slack
    auto* q = static_cast<char*>(mspace_realloc(m, p, len + 1));  // beyond it: no remapping
    ASSERT_NE(q, p);
    EXPECT_EQ(std::string(q, 100000), std::string(100000, 'p'));
    auto* small = static_cast<char*>(mspace_realloc(m, q, 200));  // small: leaves the mapping
    ASSERT_NE(small, q);
    EXPECT_EQ(std::string(small, 200), std::string(200, 'p'));

    auto* r = static_cast<char*>(mspace_malloc(m, 1 << 20));
    EXPECT_EQ(mspace_realloc(m, r, (1 << 20) - kGranularity), r);  // wastes less than 2 units
    auto* s = static_cast<char*>(mspace_realloc(m, r, (1 << 20) - 3 * kGranularity));
    EXPECT_NE(s, r);  // would waste more
    mspace_check_report rep{};
    sound(m, &rep);
    EXPECT_EQ(rep.mapped_chunks, 1u);
    EXPECT_EQ(rep.in_use_chunks, 1u);
    mspace_free(m, small);
    mspace_free(m, s);
    destroy_mspace(m);
    EXPECT_TRUE(rec.held.empty());
    EXPECT_TRUE(rec.error.empty()) << rec.error;
}

// Footprint, trimming and destruction -------------------------------------------------------

TEST_F(Mspace, TrimGivesTheTopBackAndKeepsThePad) {
    Recorder rec;
    mspace m = hooked(rec);
    std::vector<void*> blocks;
    for (int i = 0; i < 800; ++i) blocks.push_back(mspace_malloc(m, 10000));
    unsigned long peak = mspace_footprint(m);
    ASSERT_GT(peak, 8u << 20);
    for (void* b : blocks) mspace_free(m, b);
    // Frees that left more than 2 MiB free at the top, or in whole segments, have given
    // memory back already.
    EXPECT_GT(rec.unmapCalls, 0u);
    EXPECT_LT(mspace_footprint(m), 4u << 20);

    mspace_mallopt(-1, -1);  // no more automatic trimming
    for (int i = 0; i < 800; ++i) blocks[i] = mspace_malloc(m, 10000);
    for (void* b : blocks) mspace_free(m, b);
    unsigned long full = mspace_footprint(m);
    ASSERT_GT(full, 8u << 20);
    unsigned long top = mspace_mallinfo(m).keepcost;
    EXPECT_EQ(mspace_trim(m, 1 << 20), 1);
    EXPECT_GE(mspace_mallinfo(m).keepcost, std::min(top, 1ul << 20));
    EXPECT_LT(mspace_footprint(m), full);
    EXPECT_EQ(mspace_trim(m, 0), 1);
    EXPECT_LE(mspace_footprint(m), 3 * kGranularity);
    EXPECT_EQ(mspace_trim(m, 0), 0);  // nothing left to give
    EXPECT_EQ(mspace_footprint(m), rec.held.bytes());
    EXPECT_GE(mspace_max_footprint(m), full);
    sound(m);
    destroy_mspace(m);
    EXPECT_TRUE(rec.held.empty());
    EXPECT_TRUE(rec.error.empty()) << rec.error;
}

TEST_F(Mspace, WhollyFreeSegmentsAreReleased) {
    Recorder rec;
    rec.placement = arena_stress::detail::Placement::Spaced;  // segments that cannot merge
    mspace m = hooked(rec);
    mspace_mallopt(-1, -1);
    void* a = mspace_malloc(m, 600000);  // a segment of its own
    void* b = mspace_malloc(m, 600000);  // another, which takes over as top
    ASSERT_EQ(rec.segmentCalls, 2u);
    mspace_check_report r{};
    sound(m, &r);
    EXPECT_EQ(r.segments, 3u);
    unsigned long before = mspace_footprint(m);
    mspace_free(m, a);
    EXPECT_EQ(mspace_trim(m, 0), 1);
    sound(m, &r);
    EXPECT_EQ(r.segments, 2u);
    EXPECT_LE(mspace_footprint(m), before - 600000);
    EXPECT_EQ(mspace_footprint(m), rec.held.bytes());
    mspace_free(m, b);
    destroy_mspace(m);
    EXPECT_TRUE(rec.held.empty());
    EXPECT_TRUE(rec.error.empty()) << rec.error;
}

TEST_F(Mspace, AVictimFillingAFreeSegmentIsReleasedWithIt) {
    // Just room for the space's state, so that what is left of the region is too small for
    // the request below.
    alignas(16) static char region[8192];
    unsigned long size = 64;
    mspace probe;
    while ((probe = create_mspace_with_base(region, size, 0)) == nullptr) size += 16;
    destroy_mspace(probe);
    size += 128;
    Recorder rec;
    rec.placement = arena_stress::detail::Placement::Spaced;
    rec.baseRegion = reinterpret_cast<std::uintptr_t>(region);
    rec.baseRegionSize = size;
    mspace m = create_mspace_with_base(region, size, 0);
    mspace_hooks h = rec.hooks();
    mspace_set_hooks(m, &h);
    mspace_mallopt(-1, -1);
    void* a = mspace_malloc(m, 600000);
    void* b = mspace_malloc(m, 600000);
    mspace_free(m, a);                  // a's segment is one free chunk
    void* small = mspace_malloc(m, 220);  // carved from it; the rest becomes the victim
    mspace_free(m, small);              // the victim covers the segment again
    mspace_check_report r{};
    sound(m, &r);
    ASSERT_EQ(r.segments, 3u);
    EXPECT_EQ(mspace_trim(m, 0), 1);
    sound(m, &r);
    EXPECT_EQ(r.segments, 2u);
    EXPECT_NE(mspace_malloc(m, 100), nullptr);  // and no victim is left pointing at it
    sound(m);
    mspace_free(m, b);
    destroy_mspace(m);
    EXPECT_TRUE(rec.error.empty()) << rec.error;
}

TEST_F(Mspace, MappingsThatTouchMergeIntoOneSegment) {
    using arena_stress::detail::Placement;
    for (Placement placement : {Placement::Ascending, Placement::Descending}) {
        Recorder rec;
        rec.placement = placement;
        mspace m = hooked(rec);
        std::vector<void*> blocks;
        for (int i = 0; i < 60; ++i) blocks.push_back(mspace_malloc(m, 10000));
        ASSERT_GT(rec.segmentCalls, 3u);
        mspace_check_report r{};
        sound(m, &r);
        // Every mapping that touched the previous one merged with it, but none went in
        // front of the space's own state: the first descending one starts a new segment.
        // (One that missed its place may still land next to a segment and merge.)
        unsigned long apart = rec.segmentCalls - rec.adjacent;
        unsigned long most = 1 + apart + (placement == Placement::Descending ? 1 : 0);
        EXPECT_GE(rec.adjacent, rec.segmentCalls / 2);  // the placement did happen
        EXPECT_LE(r.segments, most);
        EXPECT_EQ(r.segment_bytes, rec.held.bytes());
        for (void* b : blocks) mspace_free(m, b);
        sound(m);
        // Everything freed reaches a top, so trimming gives nearly all of it back.
        mspace_trim(m, 0);
        EXPECT_LE(mspace_footprint(m), (3 + apart) * kGranularity);
        destroy_mspace(m);
        EXPECT_TRUE(rec.held.empty());
        EXPECT_TRUE(rec.error.empty()) << rec.error;
    }
}

TEST_F(Mspace, DestroyReturnsWhatItUnmappedAndNeverTheCallersRegion) {
    Recorder rec;
    mspace m = hooked(rec);
    for (int i = 0; i < 300; ++i) mspace_malloc(m, 5000 + i);
    unsigned long footprint = mspace_footprint(m);
    EXPECT_EQ(destroy_mspace(m), footprint);
    EXPECT_EQ(rec.unmappedBytes, footprint);

    const std::size_t size = 256 * 1024;
    void* region = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    Recorder base;
    base.baseRegion = reinterpret_cast<std::uintptr_t>(region);
    base.baseRegionSize = size;
    m = create_mspace_with_base(region, size, 0);
    mspace_hooks h = base.hooks();
    mspace_set_hooks(m, &h);
    for (int i = 0; i < 300; ++i) mspace_malloc(m, 5000 + i);
    footprint = mspace_footprint(m);
    EXPECT_EQ(footprint, size + base.held.bytes());
    EXPECT_EQ(destroy_mspace(m), footprint - size);
    EXPECT_TRUE(base.error.empty()) << base.error;  // the hook refuses and notes the base region
    EXPECT_TRUE(base.held.empty());
    std::memset(region, 0, size);  // still mapped, and no longer poisoned
    munmap(region, size);
}

TEST_F(Mspace, MallinfoAndStatsAgreeWithTheChecker) {
    mspace m = create_mspace(0, 0);
    std::mt19937 rng(9);
    std::vector<void*> blocks;
    for (int i = 0; i < 3000; ++i) {
        blocks.push_back(mspace_malloc(m, rng() % 20000));
        if (rng() % 2) {
            std::size_t k = rng() % blocks.size();
            mspace_free(m, blocks[k]);
            blocks[k] = blocks.back();
            blocks.pop_back();
        }
    }
    mspace_check_report r{};
    sound(m, &r);
    mallinfo mi = mspace_mallinfo(m);
    EXPECT_EQ(r.in_use_chunks, blocks.size());
    EXPECT_EQ(mi.arena, r.segment_bytes);
    EXPECT_EQ(mi.ordblks, r.free_chunks);
    EXPECT_EQ(mi.fordblks, r.free_bytes);
    EXPECT_EQ(mi.uordblks + mi.fordblks, mspace_footprint(m));
    EXPECT_EQ(mi.usmblks, mspace_max_footprint(m));
    EXPECT_EQ(mi.hblks, 0u);
    EXPECT_EQ(r.footprint, mspace_footprint(m));

    testing::internal::CaptureStderr();
    mspace_malloc_stats(m);
    std::string out = testing::internal::GetCapturedStderr();
    char expected[200];
    std::snprintf(expected, sizeof expected,
                  "max system bytes = %10lu\nsystem bytes     = %10lu\nin use bytes     = %10lu\n",
                  mspace_max_footprint(m), mspace_footprint(m), mi.uordblks);
    EXPECT_EQ(out, expected);
    destroy_mspace(m);
}

// The checker -------------------------------------------------------------------------------
// These tests break a space on purpose, so they know where a chunk keeps its header: the
// two words before the block, the ring links at its start while it is free.

void overwrite(void* at, std::uintptr_t value) {
#if defined(__SANITIZE_ADDRESS__)
    ASAN_UNPOISON_MEMORY_REGION(at, sizeof value);
#endif
    std::memcpy(at, &value, sizeof value);
}

std::uintptr_t wordAt(void* at) {
#if defined(__SANITIZE_ADDRESS__)
    ASAN_UNPOISON_MEMORY_REGION(at, sizeof(std::uintptr_t));
#endif
    std::uintptr_t v;
    std::memcpy(&v, at, sizeof v);
    return v;
}

TEST_F(Mspace, CheckerNoticesBrokenHeadersAndBins) {
    struct Damage {
        const char* what;
        void (*apply)(char* freedSmall, char* freedLarge, char* used);
    };
    const Damage damages[] = {
        {"ring link of a small free chunk",
         [](char* s, char*, char*) { overwrite(s, reinterpret_cast<std::uintptr_t>(s) + 64); }},
        {"ring link of a tree chunk",
         [](char*, char* l, char*) { overwrite(l + 8, wordAt(l + 8) ^ 0x100); }},
        {"trie child of a tree chunk",
         [](char* s, char* l, char*) { overwrite(l + 16, reinterpret_cast<std::uintptr_t>(s - 16)); }},
        {"size of a block in use",
         [](char*, char*, char* u) { overwrite(u - 8, wordAt(u - 8) + 4096); }},
        {"previous-in-use bit",
         [](char*, char*, char* u) { overwrite(u - 8, wordAt(u - 8) ^ 1); }},
        {"boundary tag of a free chunk",
         [](char*, char*, char* u) { overwrite(u - 16, wordAt(u - 16) + 16); }},
    };
    for (const Damage& d : damages) {
        mspace m = create_mspace(0, 0);
        auto* s = static_cast<char*>(mspace_malloc(m, 100));
        mspace_malloc(m, 16);
        auto* l = static_cast<char*>(mspace_malloc(m, 3000));
        auto* used = static_cast<char*>(mspace_malloc(m, 16));
        mspace_free(m, s);  // a small bin's only chunk
        mspace_free(m, l);  // a tree's only chunk; `used` now carries its boundary tag
        ASSERT_EQ(mspace_check(m, nullptr), 0) << d.what;
        d.apply(s, l, used);
        mspace_check_report r{};
        EXPECT_NE(mspace_check(m, &r), 0) << d.what;
        EXPECT_STRNE(r.problem, "") << d.what;
        destroy_mspace(m);
    }
}

// Misuse ends the process -----------------------------------------------------------------

TEST_F(MspaceDeathTest, BadAddressesAndDoubleFreesAbort) {
    mspace m = create_mspace(0, 0);
    auto* p = static_cast<char*>(mspace_malloc(m, 100));
    mspace_malloc(m, 100);
    EXPECT_DEATH(
        {
            mspace_free(m, p);
            mspace_free(m, p);
        },
        "");
    EXPECT_DEATH(mspace_free(m, p + 8), "");  // not a block's start
    static char outside[64];
    EXPECT_DEATH(mspace_free(m, outside + 16), "");
    EXPECT_DEATH(mspace_realloc(m, p + 16, 10), "");
    EXPECT_DEATH(mspace_free(m, m), "");  // the space's own state
    alignas(16) static char notASpace[1024];
    EXPECT_DEATH(mspace_malloc(notASpace, 10), "");
    EXPECT_DEATH(mspace_malloc(nullptr, 10), "");
    static char region[16 * 1024];
    mspace gone = create_mspace_with_base(region, sizeof region, 0);
    destroy_mspace(gone);
    EXPECT_DEATH(mspace_malloc(gone, 10), "");  // a destroyed space is dead
    destroy_mspace(m);
}

#if defined(__SANITIZE_ADDRESS__)
// Under AddressSanitizer ------------------------------------------------------------------

TEST_F(MspaceDeathTest, ReadOfAFreedBlockIsReported) {
    mspace m = create_mspace(0, 0);
    auto* p = static_cast<volatile char*>(mspace_malloc(m, 64));
    mspace_malloc(m, 64);
    p[0] = 1;
    mspace_free(m, const_cast<char*>(p));
    EXPECT_DEATH(static_cast<void>(p[0]), "use-after-poison");
    // The old place of a block that realloc moved counts as freed, too.
    auto* q = static_cast<char*>(mspace_malloc(m, 100));
    mspace_malloc(m, 100);  // right after q: the realloc below cannot grow in place
    ASSERT_NE(mspace_realloc(m, q, 5000), q);
    EXPECT_DEATH(static_cast<void>(*static_cast<volatile char*>(q)), "use-after-poison");
    destroy_mspace(m);
}

TEST_F(MspaceDeathTest, ReadPastTheRequestedSizeIsReported) {
    mspace m = create_mspace(0, 0);
    auto* p = static_cast<volatile char*>(mspace_malloc(m, 13));
    p[12] = 1;  // the last byte asked for is fine
    EXPECT_DEATH(static_cast<void>(p[13]), "use-after-poison");
    auto* q = static_cast<volatile char*>(mspace_realloc(m, const_cast<char*>(p), 5));
    EXPECT_DEATH(static_cast<void>(q[6]), "use-after-poison");
    destroy_mspace(m);
}
#endif

// The randomised workout ------------------------------------------------------------------

TEST(MspaceStress, TwoMillionOperationsAgainstTheModel) {
    arena_stress::Options opt;
    opt.ops = 2000000;
    opt.seed = std::random_device{}();
    if (const char* s = std::getenv("MIREL_MSPACE_SEED")) opt.seed = std::strtoull(s, nullptr, 10);
    std::printf("mspace stress seed %llu (replay with MIREL_MSPACE_SEED)\n",
                static_cast<unsigned long long>(opt.seed));
    arena_stress::Result r = arena_stress::run(opt);
    EXPECT_TRUE(r.ok) << r.failure;
    EXPECT_EQ(r.stats.ops, opt.ops);
    EXPECT_GT(r.stats.largeMaps, 0u);
    EXPECT_GT(r.stats.segmentMaps, 0u);
}

}  // namespace
