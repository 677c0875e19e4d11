// The arena's internal layout, shared by the allocator (mspace.cpp) and its consistency
// checker (mspacechecker.cpp). Not installed: nothing outside the arena may rely on it.
//
// Under AddressSanitizer the functions that read headers and free chunks are built without
// instrumentation (ARENA_CODE): the allocator keeps everything it has not handed out
// poisoned.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/memory/mspace.h"

// GCC announces AddressSanitizer with a macro, clang only through __has_feature.
#if defined(__SANITIZE_ADDRESS__)
#define MIREL_ARENA_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MIREL_ARENA_ASAN 1
#endif
#endif

#if defined(MIREL_ARENA_ASAN)
#define ARENA_CODE __attribute__((no_sanitize_address))
#else
#define ARENA_CODE
#endif

namespace mirel::arena {

using std::size_t;
using std::uint32_t;
using std::uintptr_t;

constexpr size_t kWord = sizeof(size_t);
constexpr size_t kAlignment = 16;
constexpr size_t kAlignMask = kAlignment - 1;
constexpr size_t kHeader = 2 * kWord;   // chunk start to user block
constexpr size_t kOverhead = kWord;     // what an in-use chunk adds to its block
constexpr size_t kMinChunk = 32;
// 32 small bins, one per chunk size: chunk sizes here are multiples of 16, so the bins are
// 16 bytes apart and reach up to 496; larger chunks go to the tree bins.
constexpr uint32_t kSmallBinCount = 32;
constexpr size_t kMinLarge = size_t{kSmallBinCount} << 4;
constexpr uint32_t kTreeBinCount = 32;
constexpr unsigned kTreeShift = 9;      // log2(kMinLarge)
// A mapped block is kept in place by realloc only for requests that are not small, that
// is of 256 bytes or more.
constexpr size_t kMapKeepMinimum = 256;
// Far beyond any mapping the machine can make, and low enough that no size computation
// below can wrap.
constexpr size_t kMaxRequest = size_t{1} << 62;
constexpr size_t kMaxSmallRequest = kMinLarge - kOverhead - kAlignMask - 1;

constexpr size_t kMagic = 0x58585858;
constexpr size_t kDefaultGranularity = 64 * 1024;
constexpr size_t kDefaultTrimThreshold = 2 * 1024 * 1024;
constexpr size_t kReleaseCheckPeriod = 4095;

// Flags in a chunk's head word; sizes are multiples of 16, so the low four bits are free.
constexpr size_t kPrevInUse = 1;
constexpr size_t kInUse = 2;
constexpr size_t kMapped = 4;       // mapped by itself, not part of a segment
constexpr size_t kSegmentTail = 8;  // the record chunk that ends a segment
constexpr size_t kFlagBits = 15;

// Segment flags.
constexpr uint32_t kSegMapped = 1;    // obtained by mapping: may be unmapped
constexpr uint32_t kSegExternal = 2;  // the caller's memory: never unmapped

// Space flags.
constexpr uint32_t kUseMmap = 1;
constexpr uint32_t kNonContiguous = 2;

struct Chunk {
    size_t prevFoot;
    size_t head;
    Chunk* fd;
    Chunk* bk;
};

struct TreeChunk : Chunk {
    TreeChunk* child[2];
    TreeChunk* parent;  // null for a ring member outside the trie; the chunk itself for a root
    uint32_t index;
};

struct Segment {
    char* base;
    size_t size;
    Segment* next;
    uint32_t flags;
};

constexpr size_t kTailSize = kHeader + ((sizeof(Segment) + kAlignMask) & ~kAlignMask);

struct Space {
    size_t magic;
    uint32_t smallMap;
    uint32_t treeMap;
    size_t dvSize;
    // The record chunk right after the top. Keeping the top's end rather than its size
    // means that allocating from the top and freeing back into it only move `top`.
    Chunk* topEnd;
    char* leastAddr;
    Chunk* dv;
    Chunk* top;
    size_t releaseChecks;
    size_t wholeFreeBytes;  // segments that went wholly free since the last release
    size_t footprint;
    size_t maxFootprint;
    size_t mappedBytes;
    size_t mappedChunks;
    uint32_t flags;
    bool trimPaused;  // the last trim found nothing to give back; wait for the top to change
    Segment* segments;
    Chunk smallBins[kSmallBinCount];  // ring sentinels
    TreeChunk* treeBins[kTreeBinCount];
    mspace_hooks hooks;
};

ARENA_CODE constexpr size_t padRequest(size_t bytes) {
    return (bytes + kOverhead + kAlignMask) & ~kAlignMask;
}
ARENA_CODE constexpr size_t requestSize(size_t bytes) {
    return bytes < kMinChunk - kOverhead ? kMinChunk : padRequest(bytes);
}
constexpr size_t kStateChunk = padRequest(sizeof(Space));
// Both ends of a caller's region may need aligning.
constexpr size_t kSmallestRegion = 2 * kAlignMask + kStateChunk + kMinChunk + kTailSize;

static_assert(kTailSize == 48);
static_assert(sizeof(TreeChunk) <= kMinLarge);
static_assert(padRequest(kMaxSmallRequest) < kMinLarge && padRequest(kMaxSmallRequest + 1) >= kMinLarge);

// The value a mapping hook returns when it cannot map (mmap's MAP_FAILED).
inline void* const kMapFailed = reinterpret_cast<void*>(~std::uintptr_t{0});

// The system's page size; the platform layer answers.
std::size_t systemPageSize();

// ---- chunk arithmetic --------------------------------------------------------------------

ARENA_CODE inline Chunk* plus(const void* p, size_t n) {
    return reinterpret_cast<Chunk*>(reinterpret_cast<uintptr_t>(p) + n);
}
ARENA_CODE inline Chunk* minus(const void* p, size_t n) {
    return reinterpret_cast<Chunk*>(reinterpret_cast<uintptr_t>(p) - n);
}
ARENA_CODE inline void* toMem(Chunk* p) { return reinterpret_cast<char*>(p) + kHeader; }
ARENA_CODE inline Chunk* fromMem(void* mem) { return minus(mem, kHeader); }
ARENA_CODE inline size_t sizeOf(const Chunk* p) { return p->head & ~kFlagBits; }
ARENA_CODE inline bool inUse(const Chunk* p) { return (p->head & kInUse) != 0; }
ARENA_CODE inline bool prevInUse(const Chunk* p) { return (p->head & kPrevInUse) != 0; }
ARENA_CODE inline char* addr(const void* p) { return reinterpret_cast<char*>(const_cast<void*>(p)); }

ARENA_CODE inline bool failedMapping(void* p) { return p == kMapFailed || p == nullptr; }

ARENA_CODE inline Segment* recordOf(Chunk* tail) { return static_cast<Segment*>(toMem(tail)); }
ARENA_CODE inline Chunk* tailOf(Segment* seg) { return fromMem(seg); }
ARENA_CODE inline char* segmentEnd(const Segment& s) {
    return reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(s.base) + s.size) & ~kAlignMask);
}
ARENA_CODE inline Chunk* firstChunk(const Segment& s) {
    return reinterpret_cast<Chunk*>((reinterpret_cast<uintptr_t>(s.base) + kAlignMask) & ~kAlignMask);
}

ARENA_CODE inline size_t topSize(const Space& m) {
    return static_cast<size_t>(addr(m.topEnd) - addr(m.top));
}

ARENA_CODE constexpr uint32_t smallIndex(size_t s) { return static_cast<uint32_t>(s >> 4); }

// ---- tree bins ----------------------------------------------------------------------------
// Two bins per power of two: bin 0 holds 512..767, bin 1 768..1023, bin 2 1024..1535, and
// so on; bin 31 holds everything from 24 MiB up.
// Inside a bin, chunks form a trie on the size bits below the bin's two leading bits;
// a node may hold any size of its subtree, and equal sizes share one ring.

ARENA_CODE inline uint32_t treeIndex(size_t s) {
    size_t x = s >> kTreeShift;
    if (x == 0) return 0;
    if (x > 0xFFFF) return kTreeBinCount - 1;
    uint32_t k = static_cast<uint32_t>(std::bit_width(x)) - 1;
    return (k << 1) + static_cast<uint32_t>((s >> (k + kTreeShift - 1)) & 1);
}
// The first size bit that steers a search in bin i.
ARENA_CODE constexpr unsigned trieTopBit(uint32_t i) {
    return i == kTreeBinCount - 1 ? 63 : (i >> 1) + kTreeShift - 2;
}

ARENA_CODE inline TreeChunk* asTree(Chunk* p) { return static_cast<TreeChunk*>(p); }

}  // namespace mirel::arena
