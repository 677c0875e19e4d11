// Randomised workout of the arena against a model of what each space should hold. Shared by
// the unit test (a couple of million operations, also under AddressSanitizer) and the
// stand-alone stress program (ten million and more).
//
// Several spaces run at once, each with hooks that record every mapping, so that the run
// also proves where the space takes and returns system memory: every block lies in memory
// the space obtained, no two blocks overlap, unmapping only ever returns what the hooks
// mapped (never a caller's base region), requests at or above the mmap threshold go
// through the large-block hook, and the footprint always equals what the hooks hold.
#pragma once

#include "base/memory/mspace.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace mirel::arena_stress {

struct Options {
    std::uint64_t seed = 1;
    std::uint64_t ops = 100000;
    std::uint64_t checkEvery = 3000;      // full consistency check of every space
    std::uint64_t phaseLength = 150000;   // operations between changes of the global parameters
    std::function<void(const std::string&)> log;  // progress lines; may be empty
};

struct Stats {
    std::uint64_t ops = 0, mallocs = 0, frees = 0, reallocs = 0, callocs = 0, memaligns = 0,
                  independents = 0, trims = 0, refused = 0, checks = 0;
    std::uint64_t segmentMaps = 0, largeMaps = 0, unmaps = 0, injectedFailures = 0;
    std::uint64_t movedReallocs = 0, phases = 0;
    unsigned long peakFootprint = 0;
};

struct Result {
    bool ok = true;
    std::string failure;
    Stats stats;
};

namespace detail {

constexpr std::size_t kNever = ~std::size_t{0};

inline bool filledWith(const unsigned char* p, std::size_t n, unsigned char v) {
    if (n == 0) return true;
    return p[0] == v && std::memcmp(p, p + 1, n - 1) == 0;
}

// Byte ranges kept as start -> size, split when part of a range is given back.
class RangeSet {
public:
    void add(std::uintptr_t b, std::size_t n) { ranges_[b] = n; }
    bool empty() const { return ranges_.empty(); }
    std::size_t bytes() const {
        std::size_t t = 0;
        for (auto& [b, n] : ranges_) t += n;
        return t;
    }
    // True when [b, b + n) is covered by ranges laid end to end.
    bool covers(std::uintptr_t b, std::size_t n) const {
        std::uintptr_t pos = b, end = b + n;
        while (pos < end) {
            auto it = ranges_.upper_bound(pos);
            if (it == ranges_.begin()) return false;
            --it;
            if (it->first + it->second <= pos) return false;
            pos = it->first + it->second;
        }
        return true;
    }
    // Removes [b, b + n); false (and nothing removed) unless all of it was there.
    bool remove(std::uintptr_t b, std::size_t n) {
        if (!covers(b, n)) return false;
        std::uintptr_t pos = b, end = b + n;
        while (pos < end) {
            auto it = std::prev(ranges_.upper_bound(pos));
            std::uintptr_t rb = it->first, re = it->first + it->second;
            ranges_.erase(it);
            if (rb < pos) ranges_[rb] = pos - rb;
            std::uintptr_t cut = std::min(end, re);
            if (cut < re) ranges_[cut] = re - cut;
            pos = cut;
        }
        return true;
    }
    bool exact(std::uintptr_t b, std::size_t n) const {
        auto it = ranges_.find(b);
        return it != ranges_.end() && it->second == n;
    }
    void erase(std::uintptr_t b) { ranges_.erase(b); }
    const std::map<std::uintptr_t, std::size_t>& ranges() const { return ranges_; }

private:
    std::map<std::uintptr_t, std::size_t> ranges_;
};

// Where the segment hook puts a new mapping, to steer the space into each way of growing.
enum class Placement {
    Anywhere,    // where the system likes (on Linux usually just below the last one)
    Spaced,      // with a gap on both sides: segments can never merge
    Ascending,   // each right after the previous one: the space appends
    Descending,  // right before the previous one, when free: the space prepends
};

// The hooks of one space: they map and unmap for real and keep the books.
struct Recorder {
    static constexpr std::uint64_t kTag = 0x7265636f72646572;
    std::uint64_t tag = kTag;
    RangeSet held;             // everything the space holds from the system, but the base region
    RangeSet large;            // blocks mapped by themselves (also in `held`)
    std::uintptr_t baseRegion = 0;
    std::size_t baseRegionSize = 0;
    std::size_t granularity = 65536;
    double failRate = 0;
    Placement placement = Placement::Anywhere;
    std::uintptr_t lastBase = 0, lastEnd = 0;  // the previous segment mapping
    std::uint64_t adjacent = 0;                // segment mappings that touched the previous one
    // Address space held back for ascending mappings: above the newest mapping there is
    // rarely room, since the system hands out addresses downwards.
    static constexpr std::size_t kReserve = std::size_t{512} << 20;
    std::uintptr_t reserveCursor = 0, reserveEnd = 0;

    Recorder() = default;
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder() {
        if (reserveCursor < reserveEnd)
            munmap(reinterpret_cast<void*>(reserveCursor), reserveEnd - reserveCursor);
    }
    std::mt19937_64 rng{7};
    std::uint64_t segmentCalls = 0, largeCalls = 0, unmapCalls = 0, breakCalls = 0,
                  injected = 0;
    std::size_t unmappedBytes = 0;
    std::uintptr_t lastLarge = 0;
    std::size_t lastLargeSize = 0;
    std::string error;

    void note(const std::string& what) {
        if (error.empty()) error = what;
    }
    static Recorder* from(void* context) {
        auto* r = static_cast<Recorder*>(context);
        if (r == nullptr || r->tag != kTag) std::abort();  // a hook got someone else's context
        return r;
    }
    bool injectFailure() {
        if (failRate <= 0 || std::uniform_real_distribution<double>(0, 1)(rng) >= failRate)
            return false;
        ++injected;
        return true;
    }
    static void* mapSystem(std::size_t n) {
        return mmap(nullptr, n, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    }
    void* mapAscending(std::size_t n) {
        if (reserveEnd == 0) {
            void* r = mmap(nullptr, kReserve, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE,
                           -1, 0);
            if (r == MAP_FAILED) return r;
            reserveCursor = reinterpret_cast<std::uintptr_t>(r);
            reserveEnd = reserveCursor + kReserve;
        }
        if (n > reserveEnd - reserveCursor) return MAP_FAILED;
        void* p = mmap(reinterpret_cast<void*>(reserveCursor), n, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
        if (p != MAP_FAILED) reserveCursor += n;
        return p;
    }
    void noteSegment(std::uintptr_t b, std::size_t n) {
        if (b == lastEnd || b + n == lastBase) ++adjacent;
        held.add(b, n);
        lastBase = b;
        lastEnd = b + n;
    }
    static void* mapWithGaps(std::size_t n) {
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        auto* p = static_cast<char*>(mapSystem(n + 2 * page));
        if (p == MAP_FAILED) return p;
        munmap(p, page);
        munmap(p + page + n, page);
        return p + page;
    }
    static void* segmentHook(unsigned long size, void* context) {
        Recorder* r = from(context);
        ++r->segmentCalls;
        if (size == 0 || size % r->granularity != 0)
            r->note("segment mapping of " + std::to_string(size) +
                    " bytes, not a multiple of the granularity " + std::to_string(r->granularity));
        if (r->injectFailure()) return MAP_FAILED;
        void* p = MAP_FAILED;
        if (r->placement == Placement::Spaced) {
            p = mapWithGaps(size);
        } else if (r->placement == Placement::Ascending) {
            p = r->mapAscending(size);
        } else if (r->placement == Placement::Descending && r->lastBase > size) {
            std::uintptr_t want = r->lastBase - size;
            p = mmap(reinterpret_cast<void*>(want), size, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
            if (p != MAP_FAILED && reinterpret_cast<std::uintptr_t>(p) != want) {
                munmap(p, size);  // an old kernel took the address as a hint only
                p = MAP_FAILED;
            }
        }
        if (p == MAP_FAILED) p = mapSystem(size);
        if (p != MAP_FAILED) r->noteSegment(reinterpret_cast<std::uintptr_t>(p), size);
        return p;
    }
    static void* largeHook(unsigned long size, void* context) {
        Recorder* r = from(context);
        ++r->largeCalls;
        if (size == 0 || size % static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) != 0)
            r->note("large mapping of " + std::to_string(size) + " bytes, not whole pages");
        if (r->injectFailure()) return MAP_FAILED;
        void* p = mapSystem(size);
        if (p != MAP_FAILED) {
            auto b = reinterpret_cast<std::uintptr_t>(p);
            r->held.add(b, size);
            r->large.add(b, size);
            r->lastLarge = b;
            r->lastLargeSize = size;
        }
        return p;
    }
    static int unmapHook(void* base, unsigned long size, void* context) {
        Recorder* r = from(context);
        ++r->unmapCalls;
        auto b = reinterpret_cast<std::uintptr_t>(base);
        if (r->baseRegionSize != 0 && b < r->baseRegion + r->baseRegionSize &&
            r->baseRegion < b + size) {
            r->note("the caller's base region reached the unmapping hook");
            return -1;
        }
        if (!r->held.remove(b, size)) {
            r->note("unmapping memory the hooks never mapped");
            return -1;
        }
        if (r->large.covers(b, 1)) {
            if (!r->large.exact(b, size)) r->note("large block unmapped in part");
            r->large.erase(b);
        }
        r->unmappedBytes += size;
        return munmap(base, size);
    }
    static void* breakHook(int, void* context) {
        ++from(context)->breakCalls;
        return MAP_FAILED;
    }
    mspace_hooks hooks() {
        return mspace_hooks{this, largeHook, segmentHook, unmapHook, breakHook};
    }
};

struct Block {
    unsigned char* p;
    std::size_t size;
    unsigned char fill;
    bool large;
};

struct SpaceUnderTest {
    const char* kind;
    mspace msp = nullptr;
    std::unique_ptr<Recorder> rec = std::make_unique<Recorder>();
    void* region = nullptr;  // the caller's base region, if any
    std::size_t regionSize = 0;
    std::vector<Block> blocks;
    std::size_t liveBytes = 0;
};

class Engine {
public:
    explicit Engine(const Options& o) : opt_(o), rng_(o.seed) {}

    Result run() {
        setUp();
        for (std::uint64_t i = 0; i < opt_.ops && ok(); ++i) {
            if (i % opt_.phaseLength == 0) newPhase();
            step();
            ++res_.stats.ops;
            if (ok() && (i + 1) % opt_.checkEvery == 0) checkAll();
            if (ok() && opt_.log && (i + 1) % 1000000 == 0)
                opt_.log(std::to_string(i + 1) + " operations");
        }
        if (ok()) tearDown();
        restoreDefaults();
        return res_;
    }

private:
    bool ok() const { return res_.ok; }
    void fail(const std::string& what) {
        if (!res_.ok) return;
        res_.ok = false;
        std::ostringstream s;
        s << "seed " << opt_.seed << ", operation " << res_.stats.ops << ": " << what;
        res_.failure = s.str();
    }
    bool hookErrors() {
        for (auto& s : spaces_)
            if (!s.rec->error.empty()) {
                fail(std::string(s.kind) + ": " + s.rec->error);
                return true;
            }
        return false;
    }
    std::size_t uniform(std::size_t lo, std::size_t hi) {
        return std::uniform_int_distribution<std::size_t>(lo, hi)(rng_);
    }
    bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(rng_) < p; }

    // Mostly small blocks, some medium, a few far beyond the granularity.
    std::size_t pickSize() {
        std::size_t r = uniform(0, 999);
        if (r < 550) return uniform(0, 128);
        if (r < 800) return uniform(129, 1024);
        if (r < 940) return uniform(1025, 16384);
        if (r < 993) return uniform(16385, 160000);
        return uniform(160001, 1600000);
    }

    void setUp() {
        restoreDefaults();
        const long page = sysconf(_SC_PAGESIZE);
        for (int k = 0; k < 4; ++k) {
            SpaceUnderTest s;
            Recorder& r = *s.rec;
            r.rng.seed(opt_.seed * 31 + static_cast<unsigned>(k));
            if (k == 0 || k == 3) {
                s.kind = k == 0 ? "create_mspace(0)" : "create_mspace(1 MiB)";
                s.msp = create_mspace(k == 0 ? 0 : 1 << 20, 0);
                if (s.msp == nullptr) return fail("create_mspace failed");
                // The space's state opens its first mapping, which the default hook made.
                auto first = reinterpret_cast<std::uintptr_t>(s.msp) & ~static_cast<std::uintptr_t>(page - 1);
                r.noteSegment(first, mspace_footprint(s.msp));
            } else {
                s.regionSize = k == 1 ? 256 * 1024 : 1 << 20;
                s.region = Recorder::mapSystem(s.regionSize);
                if (s.region == MAP_FAILED) return fail("no memory for a base region");
                r.baseRegion = reinterpret_cast<std::uintptr_t>(s.region);
                r.baseRegionSize = s.regionSize;
                // Growth placed right next to the caller's region must not merge with it.
                r.lastBase = r.baseRegion;
                r.lastEnd = r.baseRegion + s.regionSize;
                if (k == 1) {
                    s.kind = "create_mspace_with_base";
                    s.msp = create_mspace_with_base(s.region, s.regionSize, 0);
                } else {
                    s.kind = "create_mspace_with_base_ca";
                    s.msp = create_mspace_with_base_ca(s.region, s.regionSize, 0,
                                                       Recorder::segmentHook, Recorder::largeHook,
                                                       Recorder::breakHook, &r);
                    mspace_hooks h{};
                    if (s.msp != nullptr &&
                        (mspace_get_hooks(s.msp, &h) != 1 || h.context != &r ||
                         h.mmap_func != Recorder::segmentHook ||
                         h.direct_mmap_func != Recorder::largeHook ||
                         h.sbrk_func != Recorder::breakHook ||
                         h.munmap_func != default_munmap_func))
                        return fail("create_mspace_with_base_ca stored the wrong hooks");
                }
                if (s.msp == nullptr) return fail(std::string(s.kind) + " failed");
            }
            // Every space gets the full set, so that unmapping is watched as well.
            mspace_hooks h = r.hooks();
            if (mspace_set_hooks(s.msp, &h) != 1) return fail("mspace_set_hooks refused");
            spaces_.push_back(std::move(s));
        }
    }

    void restoreDefaults() {
        mspace_mallopt(-1, 2 * 1024 * 1024);
        mspace_mallopt(-2, 65536);
        mspace_mallopt(-3, -1);
    }

    void newPhase() {
        ++res_.stats.phases;
        static constexpr std::size_t kGranularities[] = {65536, 65536, 4096, 1 << 20};
        static constexpr std::size_t kMmapThresholds[] = {kNever, kNever, 65536, 300000};
        static constexpr std::size_t kTrimThresholds[] = {2 * 1024 * 1024, 128 * 1024, kNever};
        granularity_ = kGranularities[uniform(0, 3)];
        mmapThreshold_ = kMmapThresholds[uniform(0, 3)];
        std::size_t trim = kTrimThresholds[uniform(0, 2)];
        double failRate = chance(0.3) ? 0.05 : 0.0;
        auto asInt = [](std::size_t v) { return v == kNever ? -1 : static_cast<int>(v); };
        if (mspace_mallopt(-2, asInt(granularity_)) != 1 ||
            mspace_mallopt(-3, asInt(mmapThreshold_)) != 1 || mspace_mallopt(-1, asInt(trim)) != 1)
            return fail("mspace_mallopt refused a valid setting");
        static constexpr Placement kPlacements[] = {Placement::Anywhere, Placement::Anywhere,
                                                    Placement::Spaced, Placement::Ascending,
                                                    Placement::Descending};
        for (auto& s : spaces_) {
            s.rec->granularity = granularity_;
            s.rec->failRate = failRate;
            s.rec->placement = kPlacements[uniform(0, 4)];
        }
    }

    // ---- the model -------------------------------------------------------------------------

    // Checks a block the space has just handed out and adds it to the model.
    bool accept(SpaceUnderTest& s, void* mem, std::size_t size, std::size_t alignment,
                const char* what) {
        auto b = reinterpret_cast<std::uintptr_t>(mem);
        if (b % std::max<std::size_t>(alignment, 16) != 0)
            return fail(std::string(what) + " returned a misaligned block"), false;
        std::size_t extent = std::max<std::size_t>(size, 1);
        auto it = occupied_.upper_bound(b);
        if (it != occupied_.end() && it->first < b + extent)
            return fail(std::string(what) + " returned a block overlapping a live one"), false;
        if (it != occupied_.begin()) {
            auto prev = std::prev(it);
            if (prev->first + prev->second > b)
                return fail(std::string(what) + " returned a block overlapping a live one"), false;
        }
        bool inBase = s.region != nullptr && b >= s.rec->baseRegion &&
                      b + size <= s.rec->baseRegion + s.rec->baseRegionSize;
        if (!inBase && !s.rec->held.covers(b, extent))
            return fail(std::string(what) + " returned memory the space does not hold"), false;
        occupied_[b] = extent;
        Block blk{static_cast<unsigned char*>(mem), size, static_cast<unsigned char>(uniform(1, 255)),
                  s.rec->large.covers(b, 1)};
        std::memset(blk.p, blk.fill, size);
        s.blocks.push_back(blk);
        s.liveBytes += size;
        return true;
    }

    bool intact(const Block& b, std::size_t n, const char* what) {
        if (!filledWith(b.p, n, b.fill))
            return fail(std::string("a block's contents changed before ") + what), false;
        return true;
    }

    void forget(SpaceUnderTest& s, std::size_t i) {
        occupied_.erase(reinterpret_cast<std::uintptr_t>(s.blocks[i].p));
        s.liveBytes -= s.blocks[i].size;
        s.blocks[i] = s.blocks.back();
        s.blocks.pop_back();
    }

    // The threshold rule: a request of at least the threshold must have gone through the
    // large-block hook, and then the block lies in that mapping. Requests a chunk header
    // below it must not have.
    bool checkMapping(SpaceUnderTest& s, std::uint64_t callsBefore, std::uint64_t injectedBefore,
                      void* mem, std::size_t bytes, const char* what, std::size_t slack = 32) {
        const Recorder& r = *s.rec;
        bool called = r.largeCalls > callsBefore;
        if (mmapThreshold_ == kNever) {
            if (called) return fail(std::string(what) + " mapped a block with no threshold set"), false;
            return true;
        }
        if (bytes >= mmapThreshold_) {
            if (!called)
                return fail(std::string(what) + " of " + std::to_string(bytes) +
                            " bytes did not use the large-block hook"), false;
            auto b = reinterpret_cast<std::uintptr_t>(mem);
            bool inLast = b >= r.lastLarge && b + bytes <= r.lastLarge + r.lastLargeSize;
            if (r.injected == injectedBefore && !inLast)
                return fail(std::string(what) + " did not return the block it mapped"), false;
        } else if (bytes + slack < mmapThreshold_ && called) {
            return fail(std::string(what) + " mapped a block below the threshold"), false;
        }
        return true;
    }

    // Null is acceptable only when a mapping failed on purpose during the call.
    bool nullAllowed(SpaceUnderTest& s, std::uint64_t injectedBefore, const char* what) {
        if (s.rec->injected > injectedBefore) {
            ++res_.stats.refused;
            return true;
        }
        return fail(std::string(what) + " returned null with memory to spare"), false;
    }

    // ---- operations ------------------------------------------------------------------------

    void step() {
        SpaceUnderTest& s = spaces_[uniform(0, spaces_.size() - 1)];
        bool full = s.blocks.size() > 3000 || s.liveBytes > (24u << 20);
        std::size_t r = uniform(0, 999);
        if (s.blocks.empty() && r >= 300 && r < 650) r = 0;
        if (full && chance(0.6)) r = 300;
        if (r < 300) doMalloc(s);
        else if (r < 600) doFree(s);
        else if (r < 700) doRealloc(s);
        else if (r < 770) doCalloc(s);
        else if (r < 860) doMemalign(s);
        else if (r < 900) doIndependent(s, true);
        else if (r < 940) doIndependent(s, false);
        else if (r < 945) doTrim(s);
        else if (r < 948) doUnservable(s);
        else doMalloc(s);
        hookErrors();
    }

    void doMalloc(SpaceUnderTest& s) {
        ++res_.stats.mallocs;
        std::size_t n = pickSize();
        auto calls = s.rec->largeCalls, inj = s.rec->injected;
        void* p = mspace_malloc(s.msp, n);
        if (p == nullptr) {
            nullAllowed(s, inj, "mspace_malloc");
            return;
        }
        if (checkMapping(s, calls, inj, p, n, "mspace_malloc")) accept(s, p, n, 16, "mspace_malloc");
    }

    void doFree(SpaceUnderTest& s) {
        if (s.blocks.empty()) return;
        ++res_.stats.frees;
        std::size_t i = uniform(0, s.blocks.size() - 1);
        if (!intact(s.blocks[i], s.blocks[i].size, "mspace_free")) return;
        void* p = s.blocks[i].p;
        forget(s, i);
        mspace_free(s.msp, p);
    }

    void doRealloc(SpaceUnderTest& s) {
        ++res_.stats.reallocs;
        if (s.blocks.empty() || chance(0.02)) {
            std::size_t n = pickSize();
            auto inj = s.rec->injected;
            void* p = mspace_realloc(s.msp, nullptr, n);
            if (p == nullptr) nullAllowed(s, inj, "mspace_realloc(null)");
            else accept(s, p, n, 16, "mspace_realloc(null)");
            return;
        }
        std::size_t i = uniform(0, s.blocks.size() - 1);
        Block old = s.blocks[i];
        if (!intact(old, old.size, "mspace_realloc")) return;
        if (chance(0.01)) {  // size 0 frees
            forget(s, i);
            if (mspace_realloc(s.msp, old.p, 0) != nullptr) fail("mspace_realloc(p, 0) did not free");
            return;
        }
        std::size_t n;
        switch (uniform(0, 3)) {
            case 0: n = old.size + uniform(1, 64); break;             // grow a little
            case 1: n = old.size * 2 + uniform(0, 4096); break;       // grow a lot
            case 2: n = old.size / 2; break;                          // shrink
            default: n = uniform(0, old.size + 16); break;
        }
        auto inj = s.rec->injected;
        forget(s, i);
        void* p = mspace_realloc(s.msp, old.p, n);
        if (p == nullptr) {
            if (n == 0) return;  // freed
            if (!nullAllowed(s, inj, "mspace_realloc")) return;
            // A refused realloc leaves the old block as it was.
            if (!filledWith(old.p, old.size, old.fill)) return fail("a refused realloc changed the block");
            occupied_[reinterpret_cast<std::uintptr_t>(old.p)] = std::max<std::size_t>(old.size, 1);
            s.blocks.push_back(old);
            s.liveBytes += old.size;
            return;
        }
        if (p != old.p) ++res_.stats.movedReallocs;
        if (!filledWith(static_cast<unsigned char*>(p), std::min(old.size, n), old.fill))
            return fail("mspace_realloc lost the block's contents");
        accept(s, p, n, 16, "mspace_realloc");
    }

    void doCalloc(SpaceUnderTest& s) {
        ++res_.stats.callocs;
        std::size_t count = uniform(0, 40), each = uniform(0, 400);
        if (chance(0.05)) each = pickSize();
        auto calls = s.rec->largeCalls, inj = s.rec->injected;
        void* p = mspace_calloc(s.msp, count, each);
        if (p == nullptr) {
            nullAllowed(s, inj, "mspace_calloc");
            return;
        }
        if (!filledWith(static_cast<unsigned char*>(p), count * each, 0))
            return fail("mspace_calloc returned memory that is not zero");
        if (checkMapping(s, calls, inj, p, count * each, "mspace_calloc"))
            accept(s, p, count * each, 16, "mspace_calloc");
    }

    void doMemalign(SpaceUnderTest& s) {
        ++res_.stats.memaligns;
        std::size_t alignment = std::size_t{1} << uniform(0, 12);  // up to a page
        std::size_t expected = alignment;
        if (chance(0.05)) {  // not a power of two: rounded up
            alignment = uniform(17, 5000);
            expected = std::bit_ceil(alignment);
        }
        std::size_t n = pickSize();
        auto calls = s.rec->largeCalls, inj = s.rec->injected;
        void* p = mspace_memalign(s.msp, alignment, n);
        if (p == nullptr) {
            nullAllowed(s, inj, "mspace_memalign");
            return;
        }
        // memalign asks for room to align in, so a block below the threshold may be mapped.
        if (checkMapping(s, calls, inj, p, n, "mspace_memalign", 2 * expected + 64))
            accept(s, p, n, expected, "mspace_memalign");
    }

    void doIndependent(SpaceUnderTest& s, bool zeroed) {
        ++res_.stats.independents;
        std::size_t n = uniform(1, 12);
        std::vector<unsigned long> sizes(n);
        std::size_t each = uniform(0, 300);
        for (auto& z : sizes) z = zeroed ? each : uniform(0, 700);
        bool ownArray = chance(0.5);
        std::vector<void*> given(n, nullptr);
        auto inj = s.rec->injected;
        void** got = zeroed
            ? mspace_independent_calloc(s.msp, n, each, ownArray ? given.data() : nullptr)
            : mspace_independent_comalloc(s.msp, n, sizes.data(), ownArray ? given.data() : nullptr);
        if (got == nullptr) {
            nullAllowed(s, inj, zeroed ? "mspace_independent_calloc" : "mspace_independent_comalloc");
            return;
        }
        if (ownArray && got != given.data()) return fail("independent allocation ignored the array given");
        std::vector<void*> blocks(got, got + n);
        if (!ownArray && !accept(s, got, n * sizeof(void*), 16, "the independent allocation's array"))
            return;
        for (std::size_t i = 0; i < n; ++i) {
            if (zeroed && !filledWith(static_cast<unsigned char*>(blocks[i]), sizes[i], 0))
                return fail("mspace_independent_calloc returned memory that is not zero");
            if (!accept(s, blocks[i], sizes[i], 16, "independent allocation")) return;
            if (s.blocks.back().large) return fail("an independent block was mapped by itself");
        }
    }

    void doTrim(SpaceUnderTest& s) {
        ++res_.stats.trims;
        unsigned long before = mspace_footprint(s.msp);
        int released = mspace_trim(s.msp, uniform(0, 1) ? 0 : uniform(0, 1 << 20));
        unsigned long after = mspace_footprint(s.msp);
        if (after > before) return fail("mspace_trim grew the footprint");
        if ((released == 1) != (after < before)) return fail("mspace_trim's result disagrees with the footprint");
    }

    void doUnservable(SpaceUnderTest& s) {
        const std::size_t huge = ~std::size_t{0};
        void* p = nullptr;
        switch (uniform(0, 5)) {
            case 0: p = mspace_malloc(s.msp, huge - uniform(0, 64)); break;
            case 1: p = mspace_calloc(s.msp, huge / 2 + 1, 2); break;
            case 2: p = mspace_calloc(s.msp, std::size_t{1} << 33, std::size_t{1} << 31); break;
            case 3: p = mspace_memalign(s.msp, std::size_t{1} << 12, huge - 100); break;
            case 4: p = mspace_independent_calloc(s.msp, huge / 8, 64, nullptr); break;
            default:
                if (!s.blocks.empty()) {
                    Block& b = s.blocks[uniform(0, s.blocks.size() - 1)];
                    p = mspace_realloc(s.msp, b.p, huge - 32);
                    if (p == nullptr && !intact(b, b.size, "a refused huge realloc")) return;
                }
                break;
        }
        if (p != nullptr) fail("an unservable request returned a block");
    }

    // ---- whole-space checks ----------------------------------------------------------------

    void checkSpace(SpaceUnderTest& s) {
        mspace_check_report rep{};
        if (mspace_check(s.msp, &rep) != 0) return fail(std::string(s.kind) + ": " + rep.problem);
        std::size_t large = 0;
        for (auto& b : s.blocks) large += b.large ? 1 : 0;
        if (rep.in_use_chunks != s.blocks.size() - large)
            return fail(std::string(s.kind) + ": checker counts " + std::to_string(rep.in_use_chunks) +
                        " blocks in segments, the model " + std::to_string(s.blocks.size() - large));
        if (rep.mapped_chunks != large) return fail("mapped block count differs from the model");
        mallinfo mi = mspace_mallinfo(s.msp);
        unsigned long fp = mspace_footprint(s.msp);
        if (mi.arena != rep.segment_bytes || mi.ordblks != rep.free_chunks ||
            mi.fordblks != rep.free_bytes || mi.hblks != rep.mapped_chunks ||
            mi.hblkhd != rep.mapped_bytes || mi.uordblks != fp - rep.free_bytes ||
            mi.usmblks != mspace_max_footprint(s.msp) || rep.footprint != fp)
            return fail(std::string(s.kind) + ": mallinfo disagrees with the checker");
        if (fp != s.rec->held.bytes() + s.rec->baseRegionSize)
            return fail(std::string(s.kind) + ": footprint " + std::to_string(fp) +
                        " is not what the hooks hold (" +
                        std::to_string(s.rec->held.bytes() + s.rec->baseRegionSize) + ")");
        if (s.rec->large.bytes() != rep.mapped_bytes)
            return fail(std::string(s.kind) + ": mapped bytes differ from the large-block hook's");
        res_.stats.peakFootprint = std::max(res_.stats.peakFootprint, fp);
    }

    void checkAll() {
        ++res_.stats.checks;
        for (auto& s : spaces_) {
            checkSpace(s);
            if (!ok()) return;
        }
    }

    void tearDown() {
        for (auto& s : spaces_) {
            while (!s.blocks.empty() && ok()) {
                if (!intact(s.blocks.back(), s.blocks.back().size, "teardown")) return;
                void* p = s.blocks.back().p;
                forget(s, s.blocks.size() - 1);
                mspace_free(s.msp, p);
            }
            checkSpace(s);
            if (!ok()) return;
            mspace_check_report rep{};
            mspace_check(s.msp, &rep);
            if (rep.in_use_chunks != 0 || rep.mapped_chunks != 0)
                return fail(std::string(s.kind) + ": blocks left after freeing everything");
            Recorder& r = *s.rec;
            std::size_t before = r.unmappedBytes;
            unsigned long freed = destroy_mspace(s.msp);
            if (freed != r.unmappedBytes - before)
                return fail(std::string(s.kind) + ": destroy_mspace reported " + std::to_string(freed) +
                            " bytes, its unmapping hook saw " + std::to_string(r.unmappedBytes - before));
            if (!r.held.empty()) return fail(std::string(s.kind) + ": memory left mapped after destroy_mspace");
            if (r.breakCalls != 0) return fail("the break hook was called");
            res_.stats.segmentMaps += r.segmentCalls;
            res_.stats.largeMaps += r.largeCalls;
            res_.stats.unmaps += r.unmapCalls;
            res_.stats.injectedFailures += r.injected;
            if (hookErrors()) return;
            if (s.region != nullptr) munmap(s.region, s.regionSize);
            s.msp = nullptr;
        }
    }

    Options opt_;
    std::mt19937_64 rng_;
    Result res_;
    std::vector<SpaceUnderTest> spaces_;
    std::map<std::uintptr_t, std::size_t> occupied_;  // every live block of every space
    std::size_t granularity_ = 65536;
    std::size_t mmapThreshold_ = kNever;
};

}  // namespace detail

// Runs the workout; the result names the seed and operation of the first failure.
inline Result run(const Options& options) { return detail::Engine(options).run(); }

}  // namespace mirel::arena_stress
