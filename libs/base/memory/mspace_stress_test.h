// Randomised workout of the arena against a model, shared by the unit test (two million
// operations, also under AddressSanitizer) and the Release stress program. Four spaces run
// at once with hooks that map for real and keep the books, so a run also proves the hook
// rules: blocks lie in memory their space holds, unmapping returns only what the hooks
// mapped (never a caller's region), requests at or above the mmap threshold go through the
// large-block hook, and the footprint is what the hooks hold.
#pragma once

#include "base/memory/mspace.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace mirel::arena_stress {

struct Options {
    std::uint64_t seed = 1, ops = 100000;
    std::function<void(std::uint64_t)> progress;  // called every million operations
};

struct Result {
    bool ok = true;
    std::string failure;  // the seed, the operation and what went wrong first
    std::uint64_t ops = 0, segmentMaps = 0, largeMaps = 0, unmaps = 0, injected = 0;
};

// The process-wide parameters as the arena starts with them.
inline void restoreDefaults() {
    mspace_mallopt(kMspaceTrimThreshold, 2 * 1024 * 1024);
    mspace_mallopt(kMspaceGranularity, 65536);
    mspace_mallopt(kMspaceMmapThreshold, kMspaceLargest);
}

namespace detail {

using std::size_t;
using std::uintptr_t;
constexpr size_t kNever = ~size_t{0};
inline const size_t kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));

inline void* mapSystem(size_t n, void* at = {}, int flags = 0, int prot = PROT_READ | PROT_WRITE) {
    return mmap(at, n, prot, MAP_PRIVATE | MAP_ANONYMOUS | flags, -1, 0);
}

inline uintptr_t pageOf(const void* p) { return reinterpret_cast<uintptr_t>(p) & ~(kPage - 1); }

inline bool filledWith(const void* p, size_t n, unsigned char v) {
    auto* c = static_cast<const unsigned char*>(p);
    return n == 0 || (c[0] == v && std::memcmp(c, c + 1, n - 1) == 0);
}

// Where the segment hook puts a new mapping, to steer a space into each way of growing:
// Spaced mappings never touch another, Ascending ones append, Descending ones prepend.
enum class Placement { Anywhere, Spaced, Ascending, Descending };

// The hooks of one space: they map and unmap for real and keep the books.
struct Recorder {
    std::set<uintptr_t> held;           // pages held from the system, the base region aside
    std::map<uintptr_t, size_t> large;  // blocks mapped by themselves
    uintptr_t baseRegion = 0, lastBase = 0, lastEnd = 0, reserve = 0, reserveEnd = 0;
    size_t baseRegionSize = 0, granularity = 65536;
    double failRate = 0;
    Placement placement = Placement::Anywhere;
    std::uint64_t segmentCalls = 0, largeCalls = 0, unmapCalls = 0, breakCalls = 0, injected = 0;
    std::uint64_t adjacent = 0;  // segment mappings that touched the previous one
    std::mt19937_64 rng{7};
    std::string error;  // the first broken rule a hook saw

    Recorder() = default;
    Recorder(const Recorder&) = delete;
    ~Recorder() {
        if (reserve < reserveEnd) munmap(reinterpret_cast<void*>(reserve), reserveEnd - reserve);
    }
    // Takes over all the hooks of `m`. The first mapping of a space that made its own counts
    // as held; one in a caller's region (baseRegion) does not.
    bool attach(mspace m) {
        if (m != nullptr && baseRegionSize == 0) noteSegment(pageOf(m), mspace_footprint(m));
        mspace_hooks h{this, largeHook, segmentHook, unmapHook, breakHook};
        return m != nullptr && mspace_set_hooks(m, &h) == 1;
    }
    size_t heldBytes() const { return held.size() * kPage; }
    bool holds(uintptr_t b, size_t n) const {
        for (uintptr_t p = b & ~(kPage - 1); p < b + n; p += kPage)
            if (held.count(p) == 0) return false;
        return true;
    }
    // The large mapping that contains b, or large.end().
    std::map<uintptr_t, size_t>::const_iterator largeAt(uintptr_t b) const {
        auto it = large.upper_bound(b);
        return it != large.begin() && (--it)->first + it->second > b ? it : large.end();
    }
    void note(const std::string& what) {
        if (error.empty()) error = what;
    }
    void hold(uintptr_t b, size_t n) {
        for (size_t i = 0; i < n; i += kPage) held.insert(b + i);
    }
    void noteSegment(uintptr_t b, size_t n) {
        adjacent += b == lastEnd || b + n == lastBase;
        hold(b, n);
        lastBase = b;
        lastEnd = b + n;
    }
    void* place(size_t n) {
        if (placement == Placement::Spaced) {
            auto* p = static_cast<char*>(mapSystem(n + 2 * kPage));
            if (p == MAP_FAILED) return p;
            munmap(p, kPage);
            munmap(p + kPage + n, kPage);
            return p + kPage;
        }
        if (placement == Placement::Ascending) {
            // The system hands out addresses downwards: keep some address space to climb.
            const size_t size = size_t{512} << 20;
            void* r = reserveEnd != 0 ? MAP_FAILED : mapSystem(size, {}, MAP_NORESERVE, PROT_NONE);
            if (r != MAP_FAILED) {
                reserve = reinterpret_cast<uintptr_t>(r);
                reserveEnd = reserve + size;
            }
            if (n > reserveEnd - reserve) return MAP_FAILED;
            reserve += n;
            return mapSystem(n, reinterpret_cast<void*>(reserve - n), MAP_FIXED);
        }
        if (placement == Placement::Descending && lastBase > n) {
            void* want = reinterpret_cast<void*>(lastBase - n);
            void* p = mapSystem(n, want, MAP_FIXED_NOREPLACE);
            if (p == want) return p;
            if (p != MAP_FAILED) munmap(p, n);  // an old kernel took the address as a hint
        }
        return MAP_FAILED;
    }
    // Counts the call and says whether it fails on purpose.
    static Recorder& from(void* context, std::uint64_t Recorder::*calls, bool* fails = nullptr) {
        auto* r = static_cast<Recorder*>(context);
        if (r == nullptr) std::abort();  // the space lost its context
        ++(r->*calls);
        if (fails != nullptr) {
            *fails = r->failRate > 0 &&
                     std::uniform_real_distribution<double>(0, 1)(r->rng) < r->failRate;
            r->injected += *fails;
        }
        return *r;
    }
    static void* segmentHook(unsigned long size, void* context) {
        bool fails;
        Recorder& r = from(context, &Recorder::segmentCalls, &fails);
        if (size == 0 || size % r.granularity != 0) r.note("a segment not in granularity units");
        if (fails) return MAP_FAILED;
        void* p = r.place(size);
        if (p == MAP_FAILED) p = mapSystem(size);
        if (p != MAP_FAILED) r.noteSegment(reinterpret_cast<uintptr_t>(p), size);
        return p;
    }
    static void* largeHook(unsigned long size, void* context) {
        bool fails;
        Recorder& r = from(context, &Recorder::largeCalls, &fails);
        if (size == 0 || size % kPage != 0) r.note("a large block not in whole pages");
        void* p = fails ? MAP_FAILED : mapSystem(size);
        if (p == MAP_FAILED) return p;
        r.hold(reinterpret_cast<uintptr_t>(p), size);
        r.large[reinterpret_cast<uintptr_t>(p)] = size;
        return p;
    }
    static int unmapHook(void* base, unsigned long size, void* context) {
        Recorder& r = from(context, &Recorder::unmapCalls);
        auto b = reinterpret_cast<uintptr_t>(base);
        if (b < r.baseRegion + r.baseRegionSize && r.baseRegion < b + size)
            return r.note("the caller's base region reached the unmapping hook"), -1;
        if (b % kPage != 0 || size % kPage != 0 || !r.holds(b, size))
            return r.note("unmapping memory the hooks never mapped"), -1;
        if (auto it = r.largeAt(b); it != r.large.end()) {
            if (it->first != b || it->second != size) r.note("a large block unmapped in part");
            r.large.erase(it);
        }
        for (size_t i = 0; i < size; i += kPage) r.held.erase(b + i);
        return munmap(base, size);
    }
    static void* breakHook(int, void* context) {
        from(context, &Recorder::breakCalls);
        return MAP_FAILED;
    }
};

class Engine {
public:
    explicit Engine(const Options& o) : opt_(o), rng_(o.seed) {}

    Result run() {
        restoreDefaults();
        for (int k = 0; k < 4 && res_.ok; ++k) addSpace(k);
        for (std::uint64_t i = 0; i < opt_.ops && res_.ok; ++i, ++res_.ops) {
            if (i % 150000 == 0) newPhase();
            step(spaces_[uniform(0, spaces_.size() - 1)]);
            for (size_t k = 0; (i + 1) % 3000 == 0 && k < spaces_.size() && res_.ok; ++k)
                checkSpace(spaces_[k]);
            if (opt_.progress && (i + 1) % 1000000 == 0) opt_.progress(i + 1);
        }
        for (size_t k = 0; k < spaces_.size() && res_.ok; ++k) tearDown(spaces_[k]);
        restoreDefaults();
        return res_;
    }

private:
    struct Block {
        unsigned char* p;
        size_t size;
        unsigned char fill;
    };
    struct Space {
        std::string name;
        mspace msp = nullptr;
        Recorder rec;
        std::vector<Block> blocks;
        size_t liveBytes = 0;
    };

    bool fail(const std::string& what) {  // false, so that a check can `return fail(...)`
        if (res_.ok)
            res_.failure = "seed " + std::to_string(opt_.seed) + ", operation " +
                           std::to_string(res_.ops) + ": " + what;
        return res_.ok = false;
    }
    size_t uniform(size_t lo, size_t hi) {
        return std::uniform_int_distribution<size_t>(lo, hi)(rng_);
    }
    bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(rng_) < p; }
    // Mostly small blocks, some medium, a few far beyond the granularity.
    size_t pickSize() {
        size_t r = uniform(0, 999);
        return r < 550 ? uniform(0, 128)        : r < 800 ? uniform(129, 1024)
             : r < 940 ? uniform(1025, 16384)   : r < 993 ? uniform(16385, 160000)
                       : uniform(160001, 1600000);
    }

    // create_mspace(0), a caller's 256 KiB region, a caller's 1 MiB region through the _ca
    // form, and create_mspace(1 MiB).
    void addSpace(int k) {
        Space& s = spaces_.emplace_back();
        Recorder& r = s.rec;
        s.name = "space " + std::to_string(k) + ": ";
        r.rng.seed(opt_.seed * 31 + static_cast<unsigned>(k));
        if (k % 3 == 0) {
            s.msp = create_mspace(k == 0 ? 0 : 1 << 20, 0);
        } else {
            r.baseRegionSize = k == 1 ? 256 * 1024 : 1 << 20;
            void* region = mapSystem(r.baseRegionSize);
            // Growth placed right next to the caller's region must not merge with it.
            r.baseRegion = r.lastBase = reinterpret_cast<uintptr_t>(region);
            r.lastEnd = r.baseRegion + r.baseRegionSize;
            s.msp = k == 1 ? create_mspace_with_base(region, r.baseRegionSize, 0)
                           : create_mspace_with_base_ca(region, r.baseRegionSize, 0,
                                                        Recorder::segmentHook, Recorder::largeHook,
                                                        Recorder::breakHook, &r);
        }
        if (!r.attach(s.msp)) fail(s.name + "not made");  // the unmapping hook is watched too
    }

    void newPhase() {
        static constexpr size_t kGranularities[] = {65536, 65536, 4096, 1 << 20};
        static constexpr size_t kMmapThresholds[] = {kNever, kNever, 65536, 300000, 256};
        static constexpr size_t kTrimThresholds[] = {2 * 1024 * 1024, 128 * 1024, kNever};
        size_t granularity = kGranularities[uniform(0, 3)], trim = kTrimThresholds[uniform(0, 2)];
        mmapThreshold_ = kMmapThresholds[uniform(0, 4)];
        double failRate = chance(0.3) ? 0.05 : 0.0;
        auto asInt = [](size_t v) { return v == kNever ? -1 : static_cast<int>(v); };
        if (mspace_mallopt(kMspaceGranularity, asInt(granularity)) +
                mspace_mallopt(kMspaceMmapThreshold, asInt(mmapThreshold_)) +
                mspace_mallopt(kMspaceTrimThreshold, asInt(trim)) != 3)
            fail("mspace_mallopt refused a valid setting");
        for (Space& s : spaces_) {
            s.rec.granularity = granularity;
            s.rec.failRate = failRate;
            // Anywhere twice as often as each of the others.
            s.rec.placement = static_cast<Placement>(std::max<size_t>(uniform(0, 4), 1) - 1);
        }
    }

    // ---- the model ---------------------------------------------------------------------------

    // Checks a block the space has just handed out and adds it to the model.
    bool accept(Space& s, void* mem, size_t size, size_t alignment, const std::string& what) {
        auto b = reinterpret_cast<uintptr_t>(mem);
        size_t extent = std::max<size_t>(size, 1);
        auto next = occupied_.upper_bound(b);
        if (b % std::max<size_t>(alignment, 16) != 0) return fail(what + ": a misaligned block");
        if ((next != occupied_.end() && next->first < b + extent) ||
            (next != occupied_.begin() && std::prev(next)->first + std::prev(next)->second > b))
            return fail(what + ": a block overlapping a live one");
        bool inBase = b >= s.rec.baseRegion && b + size <= s.rec.baseRegion + s.rec.baseRegionSize;
        if (!inBase && !s.rec.holds(b, extent)) return fail(what + ": a block not the space's");
        occupied_[b] = extent;
        auto fill = static_cast<unsigned char>(uniform(1, 255));
        s.blocks.push_back({static_cast<unsigned char*>(mem), size, fill});
        std::memset(mem, fill, size);
        s.liveBytes += size;
        return true;
    }

    // Takes block i out of the model; false when its pattern was damaged.
    bool take(Space& s, size_t i, Block& b, const char* when) {
        b = s.blocks[i];
        s.blocks[i] = s.blocks.back();
        s.blocks.pop_back();
        occupied_.erase(reinterpret_cast<uintptr_t>(b.p));
        s.liveBytes -= b.size;
        return filledWith(b.p, b.size, b.fill) || fail(std::string("a block changed: ") + when);
    }

    // Null is acceptable only when a mapping failed on purpose during the call.
    bool nullAllowed(const Space& s, const std::string& what) {
        return s.rec.injected != injectedBefore_ || fail(what + " returned null needlessly");
    }

    // A request of at least the threshold goes through the large-block hook and lies in that
    // mapping; one `slack` bytes below it does not.
    void allocated(Space& s, void* mem, size_t n, size_t alignment, const std::string& what,
                   size_t slack = 32) {
        bool mapped = s.rec.largeCalls != largeBefore_;
        bool inLarge = s.rec.largeAt(reinterpret_cast<uintptr_t>(mem)) != s.rec.large.end();
        if (mem == nullptr) return void(nullAllowed(s, what));
        if (n >= mmapThreshold_ && (!mapped || (s.rec.injected == injectedBefore_ && !inLarge)))
            return void(fail(what + " did not use the large-block hook"));
        if (n + slack < mmapThreshold_ && mapped) return void(fail(what + " mapped a small block"));
        accept(s, mem, n, alignment, what);
    }

    // ---- operations --------------------------------------------------------------------------

    void step(Space& s) {
        size_t r = uniform(0, 999);
        if (s.blocks.empty() && r >= 300 && r < 650) r = 0;
        if ((s.blocks.size() > 3000 || s.liveBytes > (24u << 20)) && chance(0.6)) r = 300;
        largeBefore_ = s.rec.largeCalls;
        injectedBefore_ = s.rec.injected;
        Block b;
        if (r < 300 || r >= 945) {
            size_t n = pickSize();
            allocated(s, mspace_malloc(s.msp, n), n, 16, "mspace_malloc");
        } else if (r < 600) {
            if (take(s, uniform(0, s.blocks.size() - 1), b, "mspace_free")) mspace_free(s.msp, b.p);
        } else if (r < 700) {
            doRealloc(s);
        } else if (r < 770) {
            size_t count = uniform(0, 40), each = chance(0.05) ? pickSize() : uniform(0, 400);
            void* p = mspace_calloc(s.msp, count, each);
            if (p != nullptr && !filledWith(p, count * each, 0)) fail("mspace_calloc did not zero");
            else allocated(s, p, count * each, 16, "mspace_calloc");
        } else if (r < 860) {
            // Every power of two up to a page; now and then one that is not, which is rounded up.
            size_t alignment = chance(0.05) ? uniform(17, 5000) : size_t{1} << uniform(0, 12);
            size_t n = pickSize(), expected = std::bit_ceil(alignment);
            // memalign asks for room to align in, so a block below the threshold may be mapped.
            allocated(s, mspace_memalign(s.msp, alignment, n), n, expected,
                      "mspace_memalign(" + std::to_string(alignment) + ")", 2 * expected + 64);
        } else if (r < 940) {
            doIndependent(s, r < 900);
        } else {
            unsigned long before = mspace_footprint(s.msp);
            int released = mspace_trim(s.msp, chance(0.5) ? 0 : uniform(0, 1 << 20));
            unsigned long after = mspace_footprint(s.msp);
            if (after > before || (released == 1) != (after < before)) fail("mspace_trim misreported");
        }
        for (Space& t : spaces_)
            if (!t.rec.error.empty()) fail(t.name + t.rec.error);
    }

    void doRealloc(Space& s) {
        if (s.blocks.empty() || chance(0.02)) {
            size_t n = pickSize();
            return allocated(s, mspace_realloc(s.msp, nullptr, n), n, 16, "mspace_realloc(null)");
        }
        Block old;
        if (!take(s, uniform(0, s.blocks.size() - 1), old, "mspace_realloc")) return;
        // Grow a little, grow a lot, shrink, anything; now and then size 0, which leaves a
        // minimum-size block like any other request.
        const size_t sizes[] = {old.size + uniform(1, 64), old.size * 2 + uniform(0, 4096),
                                old.size / 2, uniform(0, old.size + 16)};
        size_t n = chance(0.01) ? 0 : sizes[uniform(0, 3)];
        void* p = mspace_realloc(s.msp, old.p, n);
        if (p == nullptr) {  // refused: the block stays as it was
            if (nullAllowed(s, "mspace_realloc") &&
                (filledWith(old.p, old.size, old.fill) || fail("a refused realloc changed data")))
                accept(s, old.p, old.size, 16, "a refused realloc");
        } else if (filledWith(p, std::min(old.size, n), old.fill) || fail("mspace_realloc lost data")) {
            accept(s, p, n, 16, "mspace_realloc");
        }
    }

    // The blocks come from one chunk of the space, never from a mapping of their own.
    void doIndependent(Space& s, bool zeroed) {
        const std::string what = zeroed ? "independent_calloc" : "independent_comalloc";
        size_t n = uniform(1, 12), each = uniform(0, 300);
        std::vector<unsigned long> sizes(n, each);
        if (!zeroed) std::generate(sizes.begin(), sizes.end(), [&] { return uniform(0, 700); });
        std::vector<void*> given(chance(0.5) ? n : 0);
        void** array = given.empty() ? nullptr : given.data();
        void** got = zeroed ? mspace_independent_calloc(s.msp, n, each, array)
                            : mspace_independent_comalloc(s.msp, n, sizes.data(), array);
        if (got == nullptr) return void(nullAllowed(s, what));
        if (array != nullptr && got != array) return void(fail(what + " ignored the array given"));
        if (s.rec.largeCalls != largeBefore_) return void(fail(what + " mapped a block by itself"));
        std::vector<void*> blocks(got, got + n);
        if (array == nullptr && !accept(s, got, n * sizeof(void*), 16, what + "'s array")) return;
        for (size_t i = 0; i < n; ++i) {
            if (zeroed && !filledWith(blocks[i], sizes[i], 0)) return void(fail(what + ": not 0"));
            if (!accept(s, blocks[i], sizes[i], 16, what)) return;
        }
    }

    // ---- whole spaces ------------------------------------------------------------------------

    bool checkSpace(Space& s) {
        mspace_check_report rep{};
        if (mspace_check(s.msp, &rep) != 0) return fail(s.name + rep.problem);
        // Each block mapped by itself is one live mapping of the hooks.
        size_t large = s.rec.large.size(), largeBytes = 0;
        for (auto& l : s.rec.large) largeBytes += l.second;
        if (rep.in_use_chunks != s.blocks.size() - large || rep.mapped_chunks != large)
            return fail(s.name + "the checker's block counts differ from the model's");
        mallinfo mi = mspace_mallinfo(s.msp);
        unsigned long fp = mspace_footprint(s.msp);
        if (mi.arena != rep.segment_bytes || mi.ordblks != rep.free_chunks ||
            mi.fordblks != rep.free_bytes || mi.hblks != rep.mapped_chunks ||
            mi.hblkhd != rep.mapped_bytes || mi.uordblks != fp - rep.free_bytes ||
            mi.usmblks != mspace_max_footprint(s.msp) || rep.footprint != fp)
            return fail(s.name + "mallinfo disagrees with the checker");
        if (fp != s.rec.heldBytes() + s.rec.baseRegionSize || largeBytes != rep.mapped_bytes)
            return fail(s.name + "the footprint is not what the hooks hold");
        return true;
    }

    void tearDown(Space& s) {
        for (Block b; !s.blocks.empty();)
            if (take(s, s.blocks.size() - 1, b, "teardown")) mspace_free(s.msp, b.p);
        if (!res_.ok || !checkSpace(s)) return;
        Recorder& r = s.rec;
        size_t held = r.heldBytes();  // nothing is mapped by itself any more
        if (destroy_mspace(s.msp) != held || !r.held.empty())
            fail(s.name + "destroy_mspace did not unmap everything, or miscounted");
        if (r.breakCalls != 0 || !r.error.empty())
            fail(s.name + (r.error.empty() ? "the break hook was called" : r.error));
        if (r.baseRegionSize != 0) munmap(reinterpret_cast<void*>(r.baseRegion), r.baseRegionSize);
        res_.segmentMaps += r.segmentCalls;
        res_.largeMaps += r.largeCalls;
        res_.unmaps += r.unmapCalls;
        res_.injected += r.injected;
    }

    Options opt_;
    std::mt19937_64 rng_;
    Result res_;
    std::deque<Space> spaces_;              // a deque: the recorders must not move
    std::map<uintptr_t, size_t> occupied_;  // every live block of every space
    size_t mmapThreshold_ = kNever;
    std::uint64_t largeBefore_ = 0, injectedBefore_ = 0;  // the hooks' counts before this step
};

}  // namespace detail

inline Result run(const Options& options) { return detail::Engine(options).run(); }

}  // namespace mirel::arena_stress
