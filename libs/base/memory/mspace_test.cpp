#include "base/memory/mspace.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <bit>
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
using mirel::arena_stress::detail::kPage;
using mirel::arena_stress::detail::pageOf;
using mirel::arena_stress::detail::Placement;
using mirel::arena_stress::detail::Recorder;

namespace {

constexpr unsigned long kGranularity = 65536;
constexpr unsigned long kHuge = ~0ul;

// Every test leaves the process-wide parameters as it found them.
class Mspace : public ::testing::Test {
protected:
    void TearDown() override { arena_stress::restoreDefaults(); }
};
using MspaceDeathTest = Mspace;

// create_mspace(0) until its first mapping has free address space right below, where a
// descending mapping can go.
mspace withRoomBelow() {
    std::vector<mspace> taken;
    mspace m = create_mspace(0, 0);
    for (int i = 0; i < 1000; ++i, m = create_mspace(0, 0)) {
        auto* below = reinterpret_cast<char*>(pageOf(m)) - (1 << 20);
        void* p = arena_stress::detail::mapSystem(1 << 20, below, MAP_FIXED_NOREPLACE);
        if (p != MAP_FAILED) munmap(p, 1 << 20);
        if (p == below) break;
        taken.push_back(m);
    }
    for (mspace t : taken) destroy_mspace(t);
    return m;
}

// A space whose hooks all report to `rec`, in `region` if one is given. When it goes, it must
// leave nothing mapped, and no hook may have seen a broken rule.
struct Hooked {
    Recorder rec;
    mspace m;
    explicit Hooked(Placement placement = {}, char* region = nullptr, std::size_t size = 0) {
        rec.placement = placement;
        rec.baseRegion = reinterpret_cast<std::uintptr_t>(region);
        rec.baseRegionSize = size;
        m = region != nullptr                    ? create_mspace_with_base(region, size, 0)
            : placement == Placement::Descending ? withRoomBelow()
                                                 : create_mspace(0, 0);
        EXPECT_TRUE(rec.attach(m));
    }
    ~Hooked() {
        destroy_mspace(m);
        EXPECT_TRUE(rec.held.empty());
        EXPECT_EQ(rec.error, "");
    }
};

mspace_check_report sound(mspace m) {
    mspace_check_report r{};
    EXPECT_EQ(mspace_check(m, &r), 0) << r.problem;
    return r;
}

bool unmapped(std::uintptr_t base, std::size_t size) {
    // msync fails with ENOMEM on any page that is not mapped.
    return msync(reinterpret_cast<void*>(base), size, MS_ASYNC) != 0 && errno == ENOMEM;
}

std::string bytes(const void* p, std::size_t n) { return {static_cast<const char*>(p), n}; }

// Creation --------------------------------------------------------------------------------

TEST_F(Mspace, CreationMapsWholeUnitsUsesOnlyTheRegionGivenAndRefusesBadArguments) {
    mspace m = create_mspace(0, 0);
    EXPECT_EQ(mspace_footprint(m), kGranularity);  // one unit when the capacity is 0
    EXPECT_EQ(destroy_mspace(m), kGranularity);
    m = create_mspace(4 * kGranularity, 0);
    unsigned long footprint = mspace_footprint(m);
    EXPECT_EQ(footprint % kGranularity, 0u);
    EXPECT_NE(mspace_malloc(m, 4 * kGranularity - 256), nullptr);
    EXPECT_EQ(mspace_footprint(m), footprint);  // the capacity asked for is there without growing
    // Just short of a whole number of units, a request still fits the segment mapped for it.
    EXPECT_NE(mspace_malloc(m, 2 * kGranularity - 56), nullptr);
    destroy_mspace(m);

    alignas(16) static char region[8192];
    EXPECT_EQ(create_mspace(kHuge - kGranularity, 0), nullptr);
    EXPECT_EQ(create_mspace_with_base(nullptr, sizeof region, 0), nullptr);
    EXPECT_EQ(create_mspace_with_base(region, 64, 0), nullptr);  // no room for the state
    EXPECT_EQ(create_mspace_with_base(region, kHuge, 0), nullptr);
    mspace_hooks none{};
    EXPECT_EQ(mspace_set_hooks(m = create_mspace_with_base(region, sizeof region, 0), &none), 0);
    EXPECT_EQ(mspace_set_hooks(m, nullptr), 0);
    destroy_mspace(m);

    // A misaligned region: blocks stay aligned and inside it, and nothing is mapped.
    std::vector<char> buffer(64 * 1024, 'c');
    char* base = buffer.data() + 3;
    m = create_mspace_with_base(base, buffer.size() - 10, 0);
    for (int i = 0; i < 60; ++i) {
        auto* p = static_cast<char*>(mspace_malloc(m, 1000));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
        EXPECT_TRUE(p >= base && p + 1000 <= base + buffer.size() - 10);
    }
    sound(m);
    EXPECT_EQ(destroy_mspace(m), 0u);
    EXPECT_EQ(bytes(buffer.data(), 3) + bytes(base + buffer.size() - 10, 7), std::string(10, 'c'));
}

TEST_F(Mspace, CaCreationStoresHooksAndContextButKeepsDefaultUnmapping) {
    static char region[128 * 1024];
    Recorder rec;
    rec.baseRegion = reinterpret_cast<std::uintptr_t>(region);
    rec.baseRegionSize = sizeof region;
    mspace m = create_mspace_with_base_ca(region, sizeof region, 1, Recorder::segmentHook,
                                          Recorder::largeHook, Recorder::breakHook, &rec);
    mspace_hooks h{};  // the segment hook and the context show in use below
    ASSERT_EQ(mspace_get_hooks(m, &h), 1);
    EXPECT_EQ(h.direct_mmap_func, &Recorder::largeHook);
    EXPECT_EQ(h.sbrk_func, &Recorder::breakHook);

    for (int i = 0; i < 100; ++i) mspace_malloc(m, 10000);  // 1 MiB: must grow
    EXPECT_GT(rec.segmentCalls, 0u);
    EXPECT_EQ(rec.largeCalls + rec.breakCalls, 0u);
    sound(m);
    // What the segment hook mapped is unmapped through the default hook; the region stays.
    auto pages = rec.held;
    EXPECT_EQ(destroy_mspace(m), rec.heldBytes());
    EXPECT_EQ(rec.unmapCalls, 0u);
    EXPECT_TRUE(std::all_of(pages.begin(), pages.end(), [](auto p) { return unmapped(p, kPage); }));
    std::memset(region, 0, sizeof region);  // still usable: neither unmapped nor poisoned
    EXPECT_EQ(rec.error, "");
}

// Blocks ------------------------------------------------------------------------------------

// Resizing in place must leave every neighbour a sound chunk. Size 0 keeps a minimum-size
// block and gives the rest back.
TEST_F(Mspace, ReallocInPlaceLeavesTheChunksAroundItSound) {
    mspace m = create_mspace(0, 0);
    mspace_free(m, nullptr);
    EXPECT_NE(mspace_realloc(m, nullptr, 0), nullptr);  // allocates
    void* c = mspace_malloc(m, 10000);
    const unsigned long inUse = mspace_mallinfo(m).uordblks;
    EXPECT_EQ(mspace_realloc(m, c, 0), c);
    EXPECT_EQ(inUse - mspace_mallinfo(m).uordblks, 10016u - 32u);
    // Growing into the top must leave it a whole chunk: 16 bytes short of that, it moves.
    void* p = mspace_malloc(m, 100);  // a 112-byte chunk right before the top
    EXPECT_NE(mspace_realloc(m, p, 112 + mspace_mallinfo(m).keepcost - 24), p);
    sound(m);
    destroy_mspace(m);

    // Into the top, into a free neighbour, and shrinking: p must go on telling that its
    // predecessor is free, or the two would never merge again.
    for (int way = 0; way < 3; ++way) {
        mspace m = create_mspace(0, 0);
        void* before = mspace_malloc(m, 300);
        auto* p = static_cast<char*>(mspace_malloc(m, 300));
        void* after = way == 1 ? mspace_malloc(m, 600) : nullptr;
        if (way != 0) mspace_malloc(m, 16);  // keeps p away from the top
        mspace_free(m, before);
        mspace_free(m, after);
        EXPECT_EQ(mspace_realloc(m, p, way == 2 ? 40 : 800), p) << way;
        sound(m);
        mspace_free(m, p);
        sound(m);
        destroy_mspace(m);
    }
}

// Every alignment is rounded up to a power of two, and the piece cut off in front of an
// aligned block must stand as a chunk of its own. Blocks made together are zeroed even
// where earlier blocks left their bytes.
TEST_F(Mspace, AlignedAndIndependentBlocksFromUsedMemory) {
    mspace m = create_mspace(0, 0);
    for (unsigned long alignment : {32ul, 48ul, 256ul, 5000ul}) {
        for (unsigned long shift = 0; shift < 100; shift += 16) {
            mspace_malloc(m, shift);  // moves where the next block starts
            auto p = reinterpret_cast<std::uintptr_t>(mspace_memalign(m, alignment, 100));
            EXPECT_EQ(p % std::bit_ceil(alignment), 0u) << alignment;
        }
    }
    sound(m);
    void* dirty = mspace_malloc(m, 1000);
    std::memset(dirty, 'd', 1000);
    mspace_free(m, dirty);
    void* blocks[4];
    ASSERT_EQ(mspace_independent_calloc(m, 4, 100, blocks), blocks);
    for (void* b : blocks) EXPECT_EQ(bytes(b, 100), std::string(100, '\0'));
    destroy_mspace(m);
}

TEST_F(Mspace, UnservableRequestsReturnNullAndLeaveTheSpaceSound) {
    mspace m = create_mspace(0, 0);
    auto* keep = static_cast<char*>(mspace_malloc(m, 100));
    std::memset(keep, 'k', 100);
    unsigned long footprint = mspace_footprint(m);
    void* given[2];
    unsigned long sums[] = {kHuge / 2, kHuge / 2, 64}, big[] = {1ul << 61, 1ul << 61, 1ul << 61};
    const void* results[] = {
        mspace_malloc(m, kHuge - 15),
        mspace_malloc(m, 1ul << 62),  // passes the size checks, cannot be mapped
        mspace_calloc(m, 1ul << 32, 1ul << 32),  // 2^64 wraps to 0
        mspace_memalign(m, 4096, kHuge - 100), mspace_memalign(m, (1ul << 63) + 1, 16),
        mspace_independent_calloc(m, kHuge / 8, 1, nullptr),  // the array overflows
        mspace_independent_calloc(m, 1ul << 40, 1ul << 30, nullptr),
        mspace_independent_calloc(m, (1ul << 60) + 1, 40, given),  // 48-byte chunks: wraps to 48
        mspace_independent_comalloc(m, 3, sums, nullptr),  // the sum overflows
        mspace_independent_comalloc(m, 3, big, nullptr),
        mspace_realloc(m, keep, kHuge - 8), mspace_realloc(m, keep, 1ul << 50),
    };
    for (std::size_t i = 0; i < std::size(results); ++i) EXPECT_EQ(results[i], nullptr) << i;
    EXPECT_EQ(mspace_independent_calloc(m, 0, 8, given), given);  // asking for none is no failure
    EXPECT_EQ(bytes(keep, 100), std::string(100, 'k'));  // a refused realloc keeps the block
    EXPECT_EQ(sound(m).in_use_chunks, 1u);
    EXPECT_EQ(mspace_footprint(m), footprint);
    destroy_mspace(m);
}

// Parameters and mapping by itself ---------------------------------------------------------

TEST_F(Mspace, MalloptRefusesUnknownNumbersAndBadGranularities) {
    for (int number : {0, 1, -4, 100}) EXPECT_EQ(mspace_mallopt(number, 65536), 0) << number;
    // Below a page, not a power of two.
    for (int g : {static_cast<int>(kPage / 2), 3 * 65536, -1, 0})
        EXPECT_EQ(mspace_mallopt(kMspaceGranularity, g), 0) << g;
    // Refused values changed nothing: segments still come in 64 KiB units, then in 1 MiB ones.
    Hooked h;
    for (int i = 0; i < 40; ++i) mspace_malloc(h.m, 3000);
    EXPECT_GT(h.rec.segmentCalls, 0u);
    EXPECT_EQ(mspace_mallopt(kMspaceGranularity, 1 << 20), 1);
    h.rec.granularity = 1 << 20;
    for (int i = 0; i < 400; ++i) mspace_malloc(h.m, 3000);
    EXPECT_EQ(mspace_mallopt(kMspaceGranularity, static_cast<int>(kPage)), 1);
}

// The statistics at the end count the block still mapped and the highest footprint, which
// the one unmapped here is no longer part of.
TEST_F(Mspace, ReallocKeepsAMappedBlockOnlyWhenItsMappingFits) {
    Hooked h;
    mspace m = h.m;
    ASSERT_EQ(mspace_mallopt(kMspaceMmapThreshold, 65536), 1);
    const unsigned long n = 25 * kPage - 8;  // with its header, exactly whole pages
    auto* p = static_cast<char*>(mspace_malloc(m, n));
    auto mapping = h.rec.largeAt(reinterpret_cast<std::uintptr_t>(p));
    ASSERT_NE(mapping, h.rec.large.end());
    EXPECT_TRUE(h.rec.holds(reinterpret_cast<std::uintptr_t>(p), n));
    unsigned long len = mapping->second;
    std::memset(p, 'p', n);
    EXPECT_EQ(mspace_realloc(m, p, len - 64), p);  // grows into the mapping's slack
    auto* q = static_cast<char*>(mspace_realloc(m, p, len + 1));  // no remapping
    ASSERT_NE(q, p);
    EXPECT_EQ(bytes(q, n), std::string(n, 'p'));
    auto* small = static_cast<char*>(mspace_realloc(m, q, 200));  // small: leaves the mapping
    ASSERT_NE(small, q);
    EXPECT_EQ(bytes(small, 200), std::string(200, 'p'));
    auto* r = static_cast<char*>(mspace_malloc(m, 1 << 20));
    EXPECT_EQ(mspace_realloc(m, r, (1 << 20) - kGranularity), r);  // wastes less than 2 units
    auto* s = static_cast<char*>(mspace_realloc(m, r, (1 << 20) - 3 * kGranularity));
    EXPECT_NE(s, r);  // would waste more
    mspace_check_report rep = sound(m);
    EXPECT_EQ(rep.mapped_chunks, 1u);
    EXPECT_EQ(rep.in_use_chunks, 1u);
    testing::internal::CaptureStderr();
    mspace_malloc_stats(m);
    char stats[200];
    std::snprintf(stats, sizeof stats,
                  "max system bytes = %10lu\nsystem bytes     = %10lu\nin use bytes     = %10lu\n",
                  mspace_max_footprint(m), mspace_footprint(m), mspace_mallinfo(m).uordblks);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), stats);
    EXPECT_GT(mspace_max_footprint(m), mspace_footprint(m));
    mspace_free(m, small);
    mspace_free(m, s);
}

// Footprint, trimming and destruction -------------------------------------------------------

TEST_F(Mspace, TrimGivesTheTopBackAndKeepsThePad) {
    Hooked h(Placement::Ascending);  // one segment, so all that is freed joins the top
    mspace m = h.m;
    std::vector<void*> blocks(500);
    for (void*& b : blocks) b = mspace_malloc(m, 10000);
    ASSERT_GT(mspace_footprint(m), 4u << 20);
    for (void* b : blocks) mspace_free(m, b);
    EXPECT_LT(mspace_footprint(m), 1u << 20);  // a top past the trim threshold went back

    mspace_mallopt(kMspaceTrimThreshold, kMspaceLargest);  // no more automatic trimming
    for (void*& b : blocks) b = mspace_malloc(m, 10000);
    for (void* b : blocks) mspace_free(m, b);
    unsigned long full = mspace_footprint(m), top = mspace_mallinfo(m).keepcost;
    ASSERT_GT(full, 4u << 20);
    EXPECT_EQ(mspace_trim(m, 1 << 20), 1);
    EXPECT_GE(mspace_mallinfo(m).keepcost, std::min(top, 1ul << 20));
    EXPECT_LT(mspace_footprint(m), full);
    EXPECT_EQ(mspace_trim(m, 0), 1);
    EXPECT_LE(mspace_footprint(m), 3 * kGranularity);
    EXPECT_EQ(mspace_trim(m, 0), 0);  // nothing left to give
    EXPECT_EQ(mspace_footprint(m), h.rec.heldBytes());
    EXPECT_GE(mspace_max_footprint(m), full);
    sound(m);
}

TEST_F(Mspace, WhollyFreeSegmentsAreReleasedPastTheThresholdOrOnTrimming) {
    // A region with just room for the space's state, and segments that cannot merge.
    alignas(16) static char region[8192];
    unsigned long size = 64;
    while (create_mspace_with_base(region, size, 0) == nullptr) size += 16;
    Hooked h(Placement::Spaced, region, size + 128);
    mspace m = h.m;
    std::vector<void*> blocks(6);
    for (void*& b : blocks) b = mspace_malloc(m, 600000);  // a segment each
    ASSERT_EQ(sound(m).segments, 7u);
    for (int i = 0; i < 4; ++i) mspace_free(m, blocks[i]);  // more than 2 MiB: released
    EXPECT_EQ(sound(m).segments, 3u);
    mspace_mallopt(kMspaceTrimThreshold, kMspaceLargest);
    mspace_free(m, blocks[4]);  // its segment is one free chunk
    mspace_free(m, mspace_malloc(m, 220));  // carved from it, the rest the victim, and back
    EXPECT_EQ(sound(m).segments, 3u);
    EXPECT_EQ(mspace_trim(m, 0), 1);
    EXPECT_EQ(sound(m).segments, 2u);
    EXPECT_EQ(mspace_footprint(m), h.rec.heldBytes() + size + 128);
    EXPECT_NE(mspace_malloc(m, 100), nullptr);  // and no victim is left pointing at it
    sound(m);
    mspace_free(m, blocks[5]);
}

TEST_F(Mspace, MappingsThatTouchMergeIntoOneSegment) {
    for (Placement placement : {Placement::Ascending, Placement::Descending}) {
        Hooked h(placement);
        mspace m = h.m;
        Recorder& rec = h.rec;
        std::vector<void*> blocks(60);
        for (void*& b : blocks) b = mspace_malloc(m, 10000);
        ASSERT_GT(rec.segmentCalls, 3u);
        ASSERT_GE(rec.adjacent, rec.segmentCalls / 2);  // the placement did happen
        // Every mapping that touched the previous one merged with it, but none went in front
        // of the space's own state: the first descending one starts a segment. (One that
        // missed its place may still land next to a segment and merge.)
        unsigned long apart = rec.segmentCalls - rec.adjacent;
        mspace_check_report r = sound(m);
        EXPECT_LE(r.segments, 1 + apart + (placement == Placement::Descending));
        EXPECT_EQ(r.segment_bytes, rec.heldBytes());
        for (void* b : blocks) mspace_free(m, b);
        mspace_trim(m, 0);  // everything freed reached a top, so nearly all of it goes
        EXPECT_LE(mspace_footprint(m), (3 + apart) * kGranularity);
    }
}

// The checker -------------------------------------------------------------------------------
// These break a space on purpose, so they know where a chunk keeps its header: the two words
// before the block, the ring links at its start while it is free.

void add(char* at, std::uintptr_t value, bool replace = false) {
#if defined(__SANITIZE_ADDRESS__)
    ASAN_UNPOISON_MEMORY_REGION(at, sizeof value);
#endif
    std::uintptr_t v;
    std::memcpy(&v, at, sizeof v);
    v = replace ? value : v + value;
    std::memcpy(at, &v, sizeof v);
}

TEST_F(Mspace, CheckerNoticesBrokenHeadersAndBins) {
    struct Damage {
        const char* what;
        void (*apply)(char* freedSmall, char* freedLarge, char* used);
    };
    const Damage damages[] = {
        {"ring link of a small free chunk", [](char* s, char*, char*) { add(s, 64); }},
        {"ring link of a tree chunk", [](char*, char* l, char*) { add(l + 8, 0x100); }},
        {"trie child of a tree chunk", [](char* s, char* l, char*) {
             add(l + 16, reinterpret_cast<std::uintptr_t>(s - 16), true);
         }},
        {"size of a block in use", [](char*, char*, char* u) { add(u - 8, 4096); }},
        {"previous-in-use bit after a free chunk", [](char*, char*, char* u) { add(u - 8, 1); }},
        {"previous-in-use bit of the top", [](char*, char*, char* u) { add(u + 24, -1); }},
        {"boundary tag of a free chunk", [](char*, char*, char* u) { add(u - 16, 16); }},
    };
    for (const Damage& d : damages) {
        mspace m = create_mspace(0, 0);
        auto* s = static_cast<char*>(mspace_malloc(m, 100));
        mspace_malloc(m, 16);
        auto* l = static_cast<char*>(mspace_malloc(m, 3000));
        auto* used = static_cast<char*>(mspace_malloc(m, 16));  // the top follows
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
TEST_F(MspaceDeathTest, AddressSanitizerReportsReadsOfMemoryNotHandedOut) {
    mspace m = create_mspace(0, 0);
    auto* p = static_cast<volatile char*>(mspace_malloc(m, 13));
    auto* q = static_cast<char*>(mspace_malloc(m, 100));
    mspace_malloc(m, 100);  // right after q: q cannot grow in place
    p[12] = 1;              // the last byte asked for is fine
    EXPECT_DEATH(static_cast<void>(p[13]), "use-after-poison");
    p = static_cast<volatile char*>(mspace_realloc(m, const_cast<char*>(p), 5));
    EXPECT_DEATH(static_cast<void>(p[6]), "use-after-poison");
    mspace_free(m, const_cast<char*>(p));
    EXPECT_DEATH(static_cast<void>(p[0]), "use-after-poison");
    ASSERT_NE(mspace_realloc(m, q, 5000), q);  // the old place of a moved block is freed too
    EXPECT_DEATH(static_cast<void>(*static_cast<volatile char*>(q)), "use-after-poison");
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
    EXPECT_EQ(r.ops, opt.ops);
    EXPECT_GT(r.largeMaps, 0u);
    EXPECT_GT(r.segmentMaps, 0u);
}

}  // namespace
