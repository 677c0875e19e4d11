// Memory pools and the process-wide range registry.
//
// The registry itself is the unordered vector sRanges under sRangesLock. Because every
// doDelete() asks it about every pointer, reads go through an index instead: a sorted
// copy of the ranges, rebuilt by the writers (who hold sRangesLock, and map rarely) and
// read without a lock under a sequence count. Beside each start the index keeps the
// largest end so far, which answers "inside any range" in one binary search even if
// ranges overlap. In front of the search, a bitmap of the 4 MiB granules the ranges touch answers
// most process-heap pointers with a single load, however many pools exist. Past the
// index's capacity, readers fall back to scanning sRanges under the lock.
#include "base/memory/memorypool.h"

#include <algorithm>
#include <climits>
#include <cstdint>

#include "base/memory/memorypool_p.h"
#include "base/memory/mspace.h"

namespace mirel {

std::vector<MMapRange>* sRanges = nullptr;
SpinLock* sRangesLock = nullptr;

namespace {

class RangeIndex {
public:
    static constexpr std::size_t kCapacity = 1024;
    static constexpr unsigned kGranuleShift = 22;  // 4 MiB
    static constexpr std::size_t kFilterBits = 8192;

    // The caller holds sRangesLock; `ranges` is the registry as it now stands. The sorted
    // copy is made before the write window opens: a free inside the window would ask this
    // very index and wait for the window to close.
    void rebuild(const std::vector<MMapRange>& ranges) {
        const bool fits = ranges.size() <= kCapacity;
        if (fits) {
            mScratch.assign(ranges.begin(), ranges.end());
            std::sort(mScratch.begin(), mScratch.end(),
                      [](const MMapRange& a, const MMapRange& b) { return a.start < b.start; });
        }
        // Release stores keep every write of the window after the odd count; a reader that
        // sees any of them therefore sees the odd count too on its second look.
        const std::uint64_t seq = mSeq.load(std::memory_order_relaxed);
        mSeq.store(seq + 1, std::memory_order_relaxed);
        if (fits) {
            for (auto& word : mFilter) word.store(0, std::memory_order_release);
            for (const MMapRange& r : mScratch) {
                const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(r.start);
                const std::uintptr_t last = first + (r.size > 0 ? r.size - 1 : 0);
                for (std::uintptr_t g = first >> kGranuleShift; g <= last >> kGranuleShift; ++g) {
                    const std::size_t bit = filterBit(g);
                    mFilter[bit / 64].fetch_or(std::uint64_t{1} << (bit % 64),
                                               std::memory_order_release);
                    if (g == ~std::uintptr_t{0} >> kGranuleShift) break;
                }
            }
            std::uintptr_t maxEnd = 0;
            for (std::size_t i = 0; i < mScratch.size(); ++i) {
                auto start = reinterpret_cast<std::uintptr_t>(mScratch[i].start);
                maxEnd = std::max(maxEnd, start + mScratch[i].size);
                mStart[i].store(start, std::memory_order_release);
                mMaxEnd[i].store(maxEnd, std::memory_order_release);
            }
            mCount.store(mScratch.size(), std::memory_order_release);
        }
        mValid.store(fits, std::memory_order_release);
        mSeq.store(seq + 2, std::memory_order_release);
    }

    // 1 inside, 0 outside, -1 when the index cannot answer (too many ranges). Acquire
    // loads keep every read of the window before the second look at the count; on x86 they
    // are plain moves.
    int contains(std::uintptr_t p) const {
        constexpr auto acquire = std::memory_order_acquire;
        for (;;) {
            const std::uint64_t before = mSeq.load(acquire);
            if (before & 1) continue;  // a writer is at work: it is brief
            int answer = -1;
            const std::size_t bit = filterBit(p >> kGranuleShift);
            const bool maybe = (mFilter[bit / 64].load(acquire) >> (bit % 64)) & 1;
            if (mValid.load(acquire)) {
                if (!maybe) {
                    answer = 0;
                } else {
                    // The last entry whose start is at or below p, by halving without
                    // branches: pool pointers arrive in no order a predictor could learn.
                    std::size_t lo = 0, n = mCount.load(acquire);
                    while (n > 1) {
                        const std::size_t half = n / 2;
                        lo = mStart[lo + half].load(acquire) <= p ? lo + half : lo;
                        n -= half;
                    }
                    answer = n == 1 && mStart[lo].load(acquire) <= p &&
                             p < mMaxEnd[lo].load(acquire);
                }
            }
            if (mSeq.load(std::memory_order_relaxed) == before) return answer;
        }
    }

private:
    // A multiplicative hash spreads the granules over the bitmap, so the program break's
    // and the mapping area's rarely share a bit.
    static std::size_t filterBit(std::uintptr_t granule) {
        return static_cast<std::size_t>((granule * 0x9E3779B97F4A7C15ull) >> 51) % kFilterBits;
    }

    std::atomic<std::uint64_t> mSeq{0};
    std::atomic<std::uint64_t> mFilter[kFilterBits / 64] = {};
    std::atomic<std::size_t> mCount{0};
    std::atomic<bool> mValid{true};
    std::atomic<std::uintptr_t> mStart[kCapacity] = {};
    std::atomic<std::uintptr_t> mMaxEnd[kCapacity] = {};
    std::vector<MMapRange> mScratch;  // writers only
};

// Made before, and so destroyed after, every static of the library outside the highest
// priority: pools destroyed at static destruction still rebuild it.
__attribute__((init_priority(101))) RangeIndex sIndex;

// The value a mapping hook returns when it cannot map.
void* const kMapFailed = reinterpret_cast<void*>(~std::uintptr_t{0});

void recordRange(std::vector<MMapRange>& poolRanges, void* start, unsigned long size) {
    CSMutex guard(*sRangesLock);
    MMapRange range{static_cast<char*>(start), size};
    sRanges->push_back(range);
    poolRanges.push_back(range);
    sIndex.rebuild(*sRanges);
}

// Removes the entry equal to `r`; pools never share an address, so the match is the
// pool's own entry.
void eraseExact(std::vector<MMapRange>& list, const MMapRange& r) {
    for (MMapRange& e : list) {
        if (e.start == r.start && e.size == r.size) {
            e = list.back();
            list.pop_back();
            return;
        }
    }
}

struct SpanEdit {
    std::vector<MMapRange> removed;  // whole entries taken out
    std::vector<MMapRange> added;    // the parts of them outside the span, put back
};

// Takes [base, base + size) out of a pool's list and the registry. The arena unmaps a
// trimmed tail (part of a range) as well as a segment that grew over several mappings
// (several ranges), so entries are cut, not matched by start. The caller holds
// sRangesLock.
SpanEdit dropSpan(std::vector<MMapRange>& poolRanges, char* base, unsigned long size) {
    SpanEdit edit;
    const auto lo = reinterpret_cast<std::uintptr_t>(base);
    const std::uintptr_t hi = lo + size;
    for (std::size_t i = 0; i < poolRanges.size();) {
        const MMapRange r = poolRanges[i];
        const auto start = reinterpret_cast<std::uintptr_t>(r.start);
        const std::uintptr_t end = start + r.size;
        // A recorded failure value wraps around: it was never mapped, so nothing cuts it.
        if (end < start || end <= lo || hi <= start) {
            ++i;
            continue;
        }
        edit.removed.push_back(r);
        poolRanges[i] = poolRanges.back();
        poolRanges.pop_back();
        eraseExact(*sRanges, r);
        if (start < lo) edit.added.push_back({r.start, lo - start});
        if (hi < end) edit.added.push_back({reinterpret_cast<char*>(hi), end - hi});
    }
    for (const MMapRange& r : edit.added) {
        poolRanges.push_back(r);
        sRanges->push_back(r);
    }
    return edit;
}

void undoSpanEdit(std::vector<MMapRange>& poolRanges, const SpanEdit& edit) {
    for (const MMapRange& r : edit.added) {
        eraseExact(poolRanges, r);
        eraseExact(*sRanges, r);
    }
    for (const MMapRange& r : edit.removed) {
        poolRanges.push_back(r);
        sRanges->push_back(r);
    }
}

// Builds the registry before any pool can exist (ahead of the library's other static
// objects) and tears it down at static destruction. The pointer is cleared before the
// vector goes, so frees made while it is torn down go to the process heap.
struct RangeRegistryLifetime {
    RangeRegistryLifetime() {
        sRangesLock = new SpinLock(0);
        sRanges = new std::vector<MMapRange>();
    }
    ~RangeRegistryLifetime() {
        std::vector<MMapRange>* ranges = sRanges;
        std::vector<MMapRange>().swap(*ranges);
        sRanges = nullptr;
        delete ranges;
        SpinLock* lock = sRangesLock;
        sRangesLock = nullptr;
        delete lock;
    }
};

__attribute__((init_priority(101))) RangeRegistryLifetime sRegistryLifetime;

}  // namespace

void removeFromList(std::vector<MMapRange>& list, void* start, unsigned long /*size*/) {
    for (auto it = list.begin(); it != list.end(); ++it) {
        if (it->start == start) {
            *it = list.back();
            list.pop_back();
            // The index answers for the registry: it must follow every edit of it.
            if (&list == sRanges) sIndex.rebuild(*sRanges);
            return;
        }
    }
}

namespace {

// Past the index's capacity: the registry itself, under its lock.
__attribute__((noinline, cold)) bool scanRegistry(std::uintptr_t p) {
    CSMutex guard(*sRangesLock);
    for (const MMapRange& r : *sRanges) {
        const auto start = reinterpret_cast<std::uintptr_t>(r.start);
        if (start <= p && p - start < r.size) return true;
    }
    return false;
}

}  // namespace

bool MemoryPool::isPointerFromPool(void* ptr) {
    if (sRanges == nullptr) return false;
    const auto p = reinterpret_cast<std::uintptr_t>(ptr);
    const int indexed = sIndex.contains(p);
    if (__builtin_expect(indexed >= 0, 1)) return indexed == 1;
    return scanRegistry(p);
}

void* MemoryPool::directMmapCB(unsigned long size, void* context) {
    auto* pool = static_cast<MemoryPool*>(context);
    void* result = default_direct_mmap_func(size, nullptr);
    recordRange(pool->mRanges, result, size);
    return result;
}

void* MemoryPool::mmapCB(unsigned long size, void* context) {
    auto* pool = static_cast<MemoryPool*>(context);
    void* result = default_mmap_func(size, nullptr);
    recordRange(pool->mRanges, result, size);
    return result;
}

int MemoryPool::munmapCB(char* base, unsigned long size, void* context) {
    auto* pool = static_cast<MemoryPool*>(context);
    // After the registry's teardown at static destruction there is nothing to keep.
    if (sRanges == nullptr || sRangesLock == nullptr)
        return default_munmap_func(base, size, nullptr);
    CSMutex guard(*sRangesLock);
    // Out of the registry before the system has the range back: from then on any thread's
    // next mapping may land there, and its blocks must not be taken for this pool's.
    SpanEdit edit = dropSpan(pool->mRanges, base, size);
    if (!edit.removed.empty()) sIndex.rebuild(*sRanges);
    const int result = default_munmap_func(base, size, nullptr);
    if (result != 0 && !edit.removed.empty()) {
        undoSpanEdit(pool->mRanges, edit);  // still mapped, still the pool's
        sIndex.rebuild(*sRanges);
    }
    return result;
}

void* MemoryPool::sbreakCB(int /*increment*/, void* /*context*/) {
    return kMapFailed;
}

MemoryPool::MemoryPool(char const* name, unsigned long size)
    : mName(QString::fromUtf8(name)), mRefCount(1), mAllocated(0), mMspace(nullptr), mLock(0) {
    void* base = directMmapCB(size, this);
    // A failed first mapping leaves the pool without an arena: it then hands out nothing,
    // rather than building an arena at the failure address.
    if (base != kMapFailed) {
        mMspace = create_mspace_with_base_ca(base, size, 0, directMmapCB, mmapCB, sbreakCB, this);
    }
    if (mMspace != nullptr) {
        // Every range the arena gives back must leave the registry as it goes (see munmapCB).
        mspace_hooks hooks{};
        mspace_get_hooks(mMspace, &hooks);
        hooks.munmap_func = [](void* b, unsigned long n, void* c) {
            return munmapCB(static_cast<char*>(b), n, c);
        };
        mspace_set_hooks(mMspace, &hooks);
    }
    mspace_mallopt(kMspaceGranularity, 4194304);
    mspace_mallopt(kMspaceTrimThreshold, kMspaceLargest);  // automatic trimming off
}

MemoryPool::~MemoryPool() {
    // The arena's own unmappings go through munmapCB and leave the lists as they happen;
    // what remains is the first region and blocks mapped by themselves still in use.
    if (mMspace != nullptr) {
        mspace_trim(mMspace, 0);
        destroy_mspace(mMspace);
    }
    CSMutex guard(*sRangesLock);
    std::vector<MMapRange> owned;
    owned.swap(mRanges);
    for (const MMapRange& r : owned) eraseExact(*sRanges, r);
    sIndex.rebuild(*sRanges);
    for (const MMapRange& r : owned) default_munmap_func(r.start, r.size, nullptr);
}

std::vector<MMapRange> MemoryPool::getRanges() const {
    CSMutex guard(*sRangesLock);
    return mRanges;
}

}  // namespace mirel
