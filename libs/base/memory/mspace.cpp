// The arena allocator behind memory pools: boundary-tagged chunks with small bins, bitwise
// tries for large chunks, a top chunk per space and a designated victim, over segments
// that the space maps through its own hooks.
//
// Layout of a chunk (16-byte aligned; the user's block starts at chunk + 16):
//
//   prevFoot  size of the previous chunk while that one is free (for a chunk mapped by
//             itself: its offset into the mapping); the previous chunk's payload otherwise
//   head      size | flags
//   fd, bk    ring links while free (tree chunks add two children, a parent, a bin index)
//
// An in-use chunk also owns the next chunk's prevFoot, so it costs one word of overhead.
// Every segment ends in a small in-use chunk that holds the segment's record; the top
// chunk, when it lives in a segment, always ends right before that record.
//
// Under AddressSanitizer everything the space has not handed out is poisoned, down to
// the exact requested size of each block. The allocator's own functions are built
// without instrumentation so that they can read and write headers and free chunks.

#include "base/memory/mspace.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/memory/mspace_p.h"

#if defined(MIREL_ARENA_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace mirel {

using namespace arena;

namespace {

// The process-wide parameters. Spaces read them while other threads may set them, so each
// word is atomic; relaxed order is enough, nothing else is published through them.
struct Params {
    std::atomic<size_t> pageSize{0};
    std::atomic<size_t> granularity{kDefaultGranularity};
    std::atomic<size_t> mmapThreshold{~size_t{0}};
    std::atomic<size_t> trimThreshold{kDefaultTrimThreshold};
};
constinit Params gParams;
constexpr uint32_t kDefaultFlags = kUseMmap | kNonContiguous;

ARENA_CODE void ensureParams() {
    if (gParams.pageSize.load(std::memory_order_acquire) != 0) return;
    size_t ps = systemPageSize();
    // Every rounding in this file masks with page - 1.
    if (ps == 0 || (ps & (ps - 1)) != 0) std::abort();
    if (ps > kDefaultGranularity) {
        size_t expected = kDefaultGranularity;
        gParams.granularity.compare_exchange_strong(expected, ps, std::memory_order_relaxed);
    }
    gParams.pageSize.store(ps, std::memory_order_release);
}

ARENA_CODE inline size_t granularity() { return gParams.granularity.load(std::memory_order_relaxed); }

// ---- sanitizer bookkeeping -------------------------------------------------------------

#if defined(MIREL_ARENA_ASAN)
ARENA_CODE inline void poison(const void* p, size_t n) { ASAN_POISON_MEMORY_REGION(p, n); }
ARENA_CODE inline void unpoison(const void* p, size_t n) { ASAN_UNPOISON_MEMORY_REGION(p, n); }
#else
inline void poison(const void*, size_t) {}
inline void unpoison(const void*, size_t) {}
#endif

// ---- chunk and segment updates ----------------------------------------------------------

[[noreturn]] ARENA_CODE void fail() { std::abort(); }
ARENA_CODE inline bool isMapped(const Chunk* p) { return (p->head & kMapped) != 0; }
ARENA_CODE inline size_t usable(const Chunk* p) { return sizeOf(p) - kOverhead; }
// An in-use chunk of size s whose predecessor is in use; the successor is left alone.
ARENA_CODE inline void setInUseHead(Chunk* p, size_t s) { p->head = s | kPrevInUse | kInUse; }
// An in-use chunk of size s that keeps what its head says about its predecessor.
ARENA_CODE inline void keepPrevHead(Chunk* p, size_t s) {
    p->head = s | (p->head & kPrevInUse) | kInUse;
}
// Same as setInUseHead, and tells the successor.
ARENA_CODE inline void setInUse(Chunk* p, size_t s) {
    setInUseHead(p, s);
    plus(p, s)->head |= kPrevInUse;
}
// A free chunk of size s (its predecessor is in use, or it would have been merged).
ARENA_CODE inline void setFree(Chunk* p, size_t s) {
    p->head = s | kPrevInUse;
    plus(p, s)->prevFoot = s;
}
ARENA_CODE inline bool releasable(const Segment* s) {
    return (s->flags & kSegMapped) != 0 && (s->flags & kSegExternal) == 0;
}
ARENA_CODE Segment* writeTail(const Segment& rec, bool prevUsed) {
    Chunk* tail = minus(segmentEnd(rec), kTailSize);
    tail->head = kTailSize | kInUse | kSegmentTail | (prevUsed ? kPrevInUse : 0);
    Segment* s = recordOf(tail);
    *s = rec;
    return s;
}
ARENA_CODE inline Segment* topSegment(Space& m) { return recordOf(m.topEnd); }
// Points whoever referred to `from` (the list head or a predecessor) at `to`.
ARENA_CODE void relink(Space& m, Segment* from, Segment* to) {
    Segment** link = &m.segments;
    while (*link != from) link = &(*link)->next;
    *link = to;
}
ARENA_CODE inline Space& spaceOf(mspace msp) {
    Space* m = static_cast<Space*>(msp);
    if (m == nullptr || m->magic != kMagic) fail();
    return *m;
}
ARENA_CODE inline void addFootprint(Space& m, size_t n) {
    m.footprint += n;
    if (m.footprint > m.maxFootprint) m.maxFootprint = m.footprint;
}
ARENA_CODE inline TreeChunk* leftmostChild(TreeChunk* t) {
    return t->child[0] != nullptr ? t->child[0] : t->child[1];
}

// ---- small bins ---------------------------------------------------------------------------


ARENA_CODE inline void insertSmall(Space& m, Chunk* p, size_t s) {
    uint32_t i = smallIndex(s);
    Chunk* bin = &m.smallBins[i];
    Chunk* f = bin->fd;
    if (f->bk != bin) fail();
    m.smallMap |= 1u << i;
    p->fd = f;
    p->bk = bin;
    f->bk = p;
    bin->fd = p;
}

ARENA_CODE inline void unlinkSmall(Space& m, Chunk* p, size_t s) {
    Chunk* f = p->fd;
    Chunk* b = p->bk;
    if (f->bk != p || b->fd != p) fail();
    f->bk = b;
    b->fd = f;
    if (f == b) m.smallMap &= ~(1u << smallIndex(s));  // only the sentinel is left
}

ARENA_CODE inline Chunk* takeFirstSmall(Space& m, uint32_t i) {
    Chunk* bin = &m.smallBins[i];
    Chunk* p = bin->fd;
    Chunk* f = p->fd;
    if (p == bin || f->bk != p) fail();
    bin->fd = f;
    f->bk = bin;
    if (f == bin) m.smallMap &= ~(1u << i);
    return p;
}

// ---- tree bins ----------------------------------------------------------------------------

ARENA_CODE void insertLarge(Space& m, TreeChunk* x, size_t s) {
    uint32_t i = treeIndex(s);
    x->index = i;
    x->child[0] = x->child[1] = nullptr;
    if ((m.treeMap & (1u << i)) == 0) {
        m.treeMap |= 1u << i;
        m.treeBins[i] = x;
        x->parent = x;
        x->fd = x->bk = x;
        return;
    }
    TreeChunk* t = m.treeBins[i];
    unsigned bit = trieTopBit(i);
    for (;;) {
        if (sizeOf(t) == s) {
            Chunk* f = t->fd;
            if (f->bk != t) fail();
            t->fd = x;
            f->bk = x;
            x->fd = f;
            x->bk = t;
            x->parent = nullptr;
            return;
        }
        TreeChunk** slot = &t->child[(s >> bit) & 1];
        --bit;
        if (*slot == nullptr) {
            *slot = x;
            x->parent = t;
            x->fd = x->bk = x;
            return;
        }
        t = *slot;
    }
}

ARENA_CODE void unlinkLarge(Space& m, TreeChunk* x) {
    TreeChunk* parent = x->parent;
    TreeChunk* r = nullptr;
    if (x->bk != x) {
        TreeChunk* f = asTree(x->fd);
        r = asTree(x->bk);
        if (f->bk != x || r->fd != x) fail();
        f->bk = r;
        r->fd = f;
        if (parent == nullptr) return;  // a ring member, not in the trie
    } else {
        if (parent == nullptr) fail();
        // Any leaf below x shares x's path, so it can take x's place.
        TreeChunk** slot = x->child[1] ? &x->child[1] : (x->child[0] ? &x->child[0] : nullptr);
        if (slot != nullptr) {
            r = *slot;
            for (;;) {
                TreeChunk** below =
                    r->child[1] ? &r->child[1] : (r->child[0] ? &r->child[0] : nullptr);
                if (below == nullptr) break;
                slot = below;
                r = *slot;
            }
            *slot = nullptr;
        }
    }
    if (parent == x) {
        if (m.treeBins[x->index] != x) fail();
        m.treeBins[x->index] = r;
        if (r != nullptr)
            r->parent = r;
        else
            m.treeMap &= ~(1u << x->index);
    } else {
        if (parent->child[0] == x)
            parent->child[0] = r;
        else if (parent->child[1] == x)
            parent->child[1] = r;
        else
            fail();
        if (r != nullptr) r->parent = parent;
    }
    if (r != nullptr) {
        for (int c = 0; c < 2; ++c) {
            r->child[c] = x->child[c];
            if (r->child[c] != nullptr) r->child[c]->parent = r;
        }
    }
}

ARENA_CODE inline void insertChunk(Space& m, Chunk* p, size_t s) {
    if (s < kMinLarge)
        insertSmall(m, p, s);
    else
        insertLarge(m, asTree(p), s);
}

ARENA_CODE inline void unlinkChunk(Space& m, Chunk* p, size_t s) {
    if (s < kMinLarge)
        unlinkSmall(m, p, s);
    else
        unlinkLarge(m, asTree(p));
}

// The designated victim is the remainder of the last split for a small request; keeping it
// out of the bins lets runs of small requests carve it up in address order.
ARENA_CODE inline void replaceDv(Space& m, Chunk* r, size_t s) {
    if (m.dvSize != 0) insertChunk(m, m.dv, m.dvSize);
    m.dv = r;
    m.dvSize = s;
}

// Takes a chunk of best's size out of its bin. A ring member goes without touching the
// trie, and it is the most recently freed of its size.
ARENA_CODE inline TreeChunk* takeTreeChunk(Space& m, TreeChunk* best) {
    TreeChunk* victim = best->fd != best ? asTree(best->fd) : best;
    unlinkLarge(m, victim);
    return victim;
}

// Hands out nb bytes of the free chunk p (already out of its bin), which holds nb + rem.
// A remainder too small to stand as a chunk stays with the block; otherwise it becomes the
// designated victim (after a small request) or goes to its bin.
enum class Remainder { Victim, Bin };
ARENA_CODE inline void* splitOff(Space& m, Chunk* p, size_t nb, size_t rem, Remainder to) {
    if (rem < kMinChunk) {
        setInUse(p, nb + rem);
        return toMem(p);
    }
    setInUseHead(p, nb);
    Chunk* r = plus(p, nb);
    setFree(r, rem);
    if (to == Remainder::Victim)
        replaceDv(m, r, rem);
    else
        insertChunk(m, r, rem);
    return toMem(p);
}

// Smallest chunk of the smallest non-empty tree bin, for a small request.
ARENA_CODE void* smallFromTree(Space& m, size_t nb) {
    uint32_t i = static_cast<uint32_t>(std::countr_zero(m.treeMap));
    TreeChunk* t = m.treeBins[i];
    TreeChunk* best = t;
    size_t rem = sizeOf(t) - nb;
    while ((t = leftmostChild(t)) != nullptr) {
        size_t r = sizeOf(t) - nb;
        if (r < rem) {
            rem = r;
            best = t;
        }
    }
    return splitOff(m, takeTreeChunk(m, best), nb, rem, Remainder::Victim);
}

// Best fit for a large request, unless the designated victim fits as well or better.
ARENA_CODE void* largeFromTree(Space& m, size_t nb) {
    TreeChunk* best = nullptr;
    size_t rem = ~size_t{0};
    uint32_t idx = treeIndex(nb);
    TreeChunk* t = nullptr;
    if ((m.treeMap & (1u << idx)) != 0) {
        // Walk nb's path; remember the deepest subtree to its right, which holds the
        // smallest sizes above the path.
        t = m.treeBins[idx];
        TreeChunk* rightOfPath = nullptr;
        unsigned bit = trieTopBit(idx);
        for (;;) {
            size_t ts = sizeOf(t);
            if (ts >= nb && ts - nb < rem) {
                best = t;
                rem = ts - nb;
                if (rem == 0) break;
            }
            TreeChunk* right = t->child[1];
            TreeChunk* next = t->child[(nb >> bit) & 1];
            if (right != nullptr && right != next) rightOfPath = right;
            if (next == nullptr) break;
            t = next;
            --bit;
        }
        t = rem == 0 ? nullptr : rightOfPath;
    }
    if (t == nullptr && best == nullptr) {
        uint32_t above = idx + 1 < kTreeBinCount ? m.treeMap & (~0u << (idx + 1)) : 0;
        if (above != 0) t = m.treeBins[std::countr_zero(above)];
    }
    for (; t != nullptr; t = leftmostChild(t)) {
        size_t r = sizeOf(t) - nb;
        if (r < rem) {
            rem = r;
            best = t;
        }
    }
    if (best == nullptr || rem >= m.dvSize - nb) return nullptr;
    return splitOff(m, takeTreeChunk(m, best), nb, rem, Remainder::Bin);
}

// ---- system memory ------------------------------------------------------------------------

ARENA_CODE Chunk* mapLarge(Space& m, size_t nb) {
    size_t page = gParams.pageSize.load(std::memory_order_relaxed);
    // The chunk starts the mapping; the last header's worth holds the next chunk's prevFoot,
    // which belongs to this chunk's block.
    size_t len = (nb + kHeader + page - 1) & ~(page - 1);
    void* got = m.hooks.direct_mmap_func(len, m.hooks.context);
    if (failedMapping(got)) return nullptr;
    if ((reinterpret_cast<uintptr_t>(got) & kAlignMask) != 0) {
        m.hooks.munmap_func(got, len, m.hooks.context);
        return nullptr;
    }
    Chunk* p = static_cast<Chunk*>(got);
    p->prevFoot = 0;
    p->head = (len - kHeader) | kPrevInUse | kInUse | kMapped;
    if (addr(p) < m.leastAddr) m.leastAddr = addr(p);
    addFootprint(m, len);
    m.mappedBytes += len;
    ++m.mappedChunks;
    return p;
}

// Chunks mapped by themselves are never poisoned: they are unmapped when freed, so a late
// access faults anyway, and one left over at destroy_mspace must not leave poisoned shadow
// behind for memory its owner will unmap later.
ARENA_CODE void unmapLarge(Space& m, Chunk* p) {
    size_t offset = p->prevFoot;
    size_t len = offset + sizeOf(p) + kHeader;
    char* base = addr(p) - offset;
    if (m.hooks.munmap_func(base, len, m.hooks.context) == 0) {
        m.footprint -= len;
        m.mappedBytes -= len;
        --m.mappedChunks;
    }
}

ARENA_CODE size_t releaseFreeSegments(Space& m);
ARENA_CODE bool trimTop(Space& m, size_t pad);
[[gnu::noinline]] ARENA_CODE void autoTrim(Space& m);

// Merges a chunk that has just stopped being in use with its free neighbours and files it.
ARENA_CODE void releaseChunk(Space& m, Chunk* p, bool mayTrim) {
    size_t size = sizeOf(p);
    Chunk* next = plus(p, size);
    if (!prevInUse(p)) {
        size_t prevSize = p->prevFoot;
        if (prevSize > static_cast<size_t>(addr(p) - m.leastAddr)) fail();
        p = minus(p, prevSize);
        size += prevSize;
        if (p != m.dv) {
            unlinkChunk(m, p, prevSize);
        } else if (inUse(next)) {
            m.dvSize = size;
            setFree(p, size);
            next->head &= ~kPrevInUse;
            return;
        }
    }
    if (next <= p || !prevInUse(next)) fail();
    if (!inUse(next)) {
        if (next == m.top) {
            m.top = p;
            p->head = topSize(m) | kPrevInUse;
            if (p == m.dv) {
                m.dv = nullptr;
                m.dvSize = 0;
            }
            if (mayTrim && !m.trimPaused &&
                topSize(m) > gParams.trimThreshold.load(std::memory_order_relaxed))
                autoTrim(m);
            return;
        }
        if (next == m.dv) {
            m.dvSize += size;
            m.dv = p;
            setFree(p, m.dvSize);
            return;
        }
        size_t ns = sizeOf(next);
        unlinkChunk(m, next, ns);
        size += ns;
        setFree(p, size);
        if (p == m.dv) {
            m.dvSize = size;
            return;
        }
    } else {
        next->head &= ~kPrevInUse;
        setFree(p, size);
    }
    insertChunk(m, p, size);
    if (size >= kMinLarge && mayTrim) {
        // A segment that went wholly free counts towards the trim threshold like the top:
        // when segments cannot merge, the top alone would never grow past it.
        Chunk* after = plus(p, size);
        if ((after->head & kSegmentTail) != 0 && p == firstChunk(*recordOf(after)) &&
            releasable(recordOf(after))) {
            m.wholeFreeBytes += size;
            if (m.wholeFreeBytes > gParams.trimThreshold.load(std::memory_order_relaxed)) {
                releaseFreeSegments(m);
                return;
            }
        }
        if (--m.releaseChecks == 0) releaseFreeSegments(m);
    }
}

// The new mapping ends where the top's segment ends: the top simply grows.
ARENA_CODE void appendToTopSegment(Space& m, Segment* seg, size_t len) {
    Segment rec = *seg;
    rec.size += len;
    Segment* moved = writeTail(rec, false);
    relink(m, seg, moved);
    m.topEnd = tailOf(moved);
    m.top->head = topSize(m) | kPrevInUse;
}

// The new mapping ends where `seg` begins: it becomes the segment's first chunk.
ARENA_CODE void prependToSegment(Space& m, Segment* seg, char* base, size_t len) {
    Chunk* oldFirst = firstChunk(*seg);
    seg->base = base;
    seg->size += len;
    Chunk* q = reinterpret_cast<Chunk*>(base);
    size_t qs = len;
    if (!inUse(oldFirst)) {
        if (oldFirst == m.top) {
            m.top = q;
            q->head = topSize(m) | kPrevInUse;
            return;
        }
        if (oldFirst == m.dv) {
            m.dv = q;
            m.dvSize += qs;
            setFree(q, m.dvSize);
            return;
        }
        size_t fs = sizeOf(oldFirst);
        unlinkChunk(m, oldFirst, fs);
        qs += fs;
        setFree(q, qs);
    } else {
        oldFirst->head &= ~kPrevInUse;
        setFree(q, qs);
    }
    insertChunk(m, q, qs);
}

// A mapping next to nothing of ours: a segment of its own, which takes over as top.
ARENA_CODE void addSegment(Space& m, char* base, size_t len) {
    size_t oldTopSize = topSize(m);
    setFree(m.top, oldTopSize);
    insertChunk(m, m.top, oldTopSize);
    Segment* rec = writeTail(Segment{base, len, m.segments, kSegMapped}, false);
    m.segments = rec;
    m.top = reinterpret_cast<Chunk*>(base);
    m.topEnd = tailOf(rec);
    m.top->head = topSize(m) | kPrevInUse;
}

// Maps a segment big enough for a chunk of nb bytes; false when the hook cannot.
ARENA_CODE bool grow(Space& m, size_t nb) {
    size_t gran = granularity();
    size_t len = (nb + kTailSize + kMinChunk + gran - 1) & ~(gran - 1);
    void* got = m.hooks.mmap_func(len, m.hooks.context);
    if (failedMapping(got)) return false;
    char* base = static_cast<char*>(got);
    if ((reinterpret_cast<uintptr_t>(base) & kAlignMask) != 0) {
        m.hooks.munmap_func(got, len, m.hooks.context);
        return false;
    }
    poison(base, len);
    addFootprint(m, len);
    if (base < m.leastAddr) m.leastAddr = base;
    m.trimPaused = false;

    Segment* top = topSegment(m);
    if (releasable(top) && segmentEnd(*top) == base) {
        appendToTopSegment(m, top, len);
        return true;
    }
    // Never in front of the space's own state: memory freed there could not reach the top
    // and would stay mapped until destroy_mspace.
    Chunk* state = fromMem(&m);
    for (Segment* s = m.segments; s != nullptr; s = s->next) {
        if (releasable(s) && s->base == base + len && firstChunk(*s) != state) {
            prependToSegment(m, s, base, len);
            return true;
        }
    }
    addSegment(m, base, len);
    return true;
}

// ---- allocation ---------------------------------------------------------------------------

// Serves nb from the bins, the designated victim or the top; null when none can.
ARENA_CODE inline void* fromFreeChunks(Space& m, size_t nb) {
    if (nb < kMinLarge) {
        uint32_t idx = smallIndex(nb);
        uint32_t bits = m.smallMap >> idx;
        if ((bits & 3u) != 0) {
            // An exact fit, or one 16 bytes larger: too little left over to split off.
            idx += ~bits & 1u;
            Chunk* p = takeFirstSmall(m, idx);
            setInUse(p, size_t{idx} << 4);
            return toMem(p);
        }
        if (nb > m.dvSize) {
            if (bits != 0) {
                uint32_t i = idx + static_cast<uint32_t>(std::countr_zero(bits));
                return splitOff(m, takeFirstSmall(m, i), nb, (size_t{i} << 4) - nb,
                                Remainder::Victim);
            }
            if (m.treeMap != 0) return smallFromTree(m, nb);
        }
    } else if (m.treeMap != 0) {
        if (void* mem = largeFromTree(m, nb)) return mem;
    }

    if (nb <= m.dvSize) {
        Chunk* p = m.dv;
        size_t rem = m.dvSize - nb;
        if (rem >= kMinChunk) {
            Chunk* r = plus(p, nb);
            m.dv = r;
            m.dvSize = rem;
            setFree(r, rem);
            setInUseHead(p, nb);
        } else {
            setInUse(p, m.dvSize);
            m.dv = nullptr;
            m.dvSize = 0;
        }
        return toMem(p);
    }
    // The top always keeps room for a chunk, so that it can be binned when a new segment
    // takes over.
    size_t ts = topSize(m);
    if (nb + kMinChunk <= ts) {
        Chunk* p = m.top;
        m.top = plus(p, nb);
        m.top->head = (ts - nb) | kPrevInUse;
        setInUseHead(p, nb);
        return toMem(p);
    }
    return nullptr;
}

// Everything but the commonest small cases: mapping by itself, trees, growth.
[[gnu::noinline]] ARENA_CODE void* allocateSlow(Space& m, size_t nb, bool mayMap) {
    // Checked before the free chunks, so that every request at or above the threshold is
    // mapped by itself, as the threshold promises.
    if (nb >= gParams.mmapThreshold.load(std::memory_order_relaxed) && mayMap &&
        (m.flags & kUseMmap) != 0) {
        if (Chunk* p = mapLarge(m, nb)) return toMem(p);
    }
    if (void* mem = fromFreeChunks(m, nb)) return mem;
    if (!grow(m, nb)) return nullptr;
    return fromFreeChunks(m, nb);
}

ARENA_CODE inline void* allocate(Space& m, size_t bytes, bool mayMap) {
    if (bytes <= kMaxSmallRequest) {
        // The three cases that need nothing but a bin, the victim or the top, in the order
        // fromFreeChunks tries them.
        size_t nb = requestSize(bytes);
        uint32_t idx = smallIndex(nb);
        uint32_t bits = m.smallMap >> idx;
        if (nb < gParams.mmapThreshold.load(std::memory_order_relaxed)) {
            if ((m.smallMap | m.treeMap | m.dvSize) == 0 && nb + kMinChunk <= topSize(m)) {
                Chunk* p = m.top;  // nothing but the top to take from
                m.top = plus(p, nb);
                m.top->head = topSize(m) | kPrevInUse;
                setInUseHead(p, nb);
                return toMem(p);
            }
            if ((bits & 3u) != 0) {
                idx += ~bits & 1u;
                Chunk* p = takeFirstSmall(m, idx);
                setInUse(p, size_t{idx} << 4);
                return toMem(p);
            }
            if (nb <= m.dvSize) {
                Chunk* p = m.dv;
                size_t rem = m.dvSize - nb;
                if (rem >= kMinChunk) {
                    Chunk* r = plus(p, nb);
                    m.dv = r;
                    m.dvSize = rem;
                    setFree(r, rem);
                    setInUseHead(p, nb);
                    return toMem(p);
                }
            } else if (bits == 0 && m.treeMap == 0 && nb + kMinChunk <= topSize(m)) {
                Chunk* p = m.top;
                m.top = plus(p, nb);
                m.top->head = topSize(m) | kPrevInUse;
                setInUseHead(p, nb);
                return toMem(p);
            }
        }
        return allocateSlow(m, nb, mayMap);
    }
    if (bytes > kMaxRequest) return nullptr;
    return allocateSlow(m, padRequest(bytes), mayMap);
}

ARENA_CODE bool trimTop(Space& m, size_t pad) {
    size_t released = 0;
    if (pad < kMaxRequest) {
        Segment* seg = topSegment(m);
        size_t gran = granularity();
        size_t keep = pad + kMinChunk;
        if (releasable(seg) && topSize(m) > keep) {
            size_t extra = (topSize(m) - keep) / gran * gran;
            if (extra != 0) {
                Segment rec = *seg;
                char* cut = segmentEnd(rec) - extra;
                unpoison(cut, extra);
                if (m.hooks.munmap_func(cut, extra, m.hooks.context) == 0) {
                    rec.size -= extra;
                    Segment* moved = writeTail(rec, false);
                    relink(m, seg, moved);
                    m.topEnd = tailOf(moved);
                    m.top->head = topSize(m) | kPrevInUse;
                    m.footprint -= extra;
                    released += extra;
                } else {
                    poison(cut, extra);
                }
            }
        }
        released += releaseFreeSegments(m);
    }
    if (released != 0) m.trimPaused = false;
    return released != 0;
}

ARENA_CODE size_t releaseFreeSegments(Space& m) {
    size_t released = 0;
    size_t count = 0;
    Segment* topSeg = topSegment(m);
    Segment** link = &m.segments;
    while (Segment* seg = *link) {
        ++count;
        if (seg != topSeg && releasable(seg)) {
            Chunk* first = firstChunk(*seg);
            if (!inUse(first) && plus(first, sizeOf(first)) == tailOf(seg)) {
                size_t fs = sizeOf(first);
                bool wasDv = first == m.dv;
                if (wasDv) {
                    m.dv = nullptr;
                    m.dvSize = 0;
                } else {
                    unlinkChunk(m, first, fs);
                }
                Segment rec = *seg;
                *link = rec.next;
                unpoison(rec.base, rec.size);
                if (m.hooks.munmap_func(rec.base, rec.size, m.hooks.context) == 0) {
                    m.footprint -= rec.size;
                    released += rec.size;
                    continue;
                }
                poison(rec.base, rec.size);
                *link = seg;
                if (wasDv) {
                    m.dv = first;
                    m.dvSize = fs;
                } else {
                    insertChunk(m, first, fs);
                }
            }
        }
        link = &seg->next;
    }
    m.releaseChecks = std::max(count, kReleaseCheckPeriod);
    m.wholeFreeBytes = 0;
    return released;
}

// Validates a block handed back by the caller; anything that fails ends the process.
ARENA_CODE inline Chunk* checkedBlock(Space& m, void* mem) {
    Chunk* p = fromMem(mem);
    if ((reinterpret_cast<uintptr_t>(mem) & kAlignMask) != 0 || addr(p) < m.leastAddr ||
        !inUse(p) || (p->head & kSegmentTail) != 0 || p == fromMem(&m))
        fail();
    return p;
}

// The free path's slow ends, kept out of line so that the common path needs no stack frame.
[[gnu::noinline]] ARENA_CODE void autoTrim(Space& m) {
    if (!trimTop(m, 0)) m.trimPaused = true;
}

ARENA_CODE void freeBlock(Space& m, Chunk* p);

[[gnu::noinline]] ARENA_CODE void freeUnusual(Space& m, void* mem) {
    freeBlock(m, checkedBlock(m, mem));
}

ARENA_CODE void freeBlock(Space& m, Chunk* p) {
    if (isMapped(p)) {
        unmapLarge(m, p);
        return;
    }
    poison(toMem(p), usable(p));
    releaseChunk(m, p, true);
}

// Tries to make p hold nb bytes without moving it.
ARENA_CODE bool resizeInPlace(Space& m, Chunk* p, size_t nb) {
    size_t old = sizeOf(p);
    if (isMapped(p)) {
        // No remapping: a mapped block stays only where the mapping already fits the new
        // size and would not waste more than two granularity units.
        return nb >= kMapKeepMinimum && old >= nb + kWord && old - nb <= 2 * granularity();
    }
    Chunk* next = plus(p, old);
    if (next <= p || !prevInUse(next)) fail();
    if (old >= nb) {
        size_t rem = old - nb;
        if (rem >= kMinChunk) {
            keepPrevHead(p, nb);
            Chunk* r = plus(p, nb);
            setInUseHead(r, rem);
            releaseChunk(m, r, false);
        }
        return true;
    }
    if (next == m.top) {
        if (old + topSize(m) < nb + kMinChunk) return false;
        size_t newTop = old + topSize(m) - nb;
        keepPrevHead(p, nb);
        m.top = plus(p, nb);
        m.top->head = newTop | kPrevInUse;
        return true;
    }
    if (next == m.dv) {
        size_t total = old + m.dvSize;
        if (total < nb) return false;
        size_t rem = total - nb;
        if (rem >= kMinChunk) {
            keepPrevHead(p, nb);
            Chunk* r = plus(p, nb);
            setFree(r, rem);
            m.dv = r;
            m.dvSize = rem;
        } else {
            keepPrevHead(p, total);
            plus(p, total)->head |= kPrevInUse;
            m.dv = nullptr;
            m.dvSize = 0;
        }
        return true;
    }
    if (!inUse(next)) {
        size_t ns = sizeOf(next);
        if (old + ns < nb) return false;
        unlinkChunk(m, next, ns);
        size_t total = old + ns;
        size_t rem = total - nb;
        if (rem < kMinChunk) {
            keepPrevHead(p, total);
            plus(p, total)->head |= kPrevInUse;
        } else {
            keepPrevHead(p, nb);
            Chunk* r = plus(p, nb);
            setInUse(r, rem);
            releaseChunk(m, r, false);
        }
        return true;
    }
    return false;
}

ARENA_CODE void* alignedAllocate(Space& m, size_t alignment, size_t bytes) {
    if (alignment <= kAlignment) return allocate(m, bytes, true);
    if (alignment < kMinChunk) alignment = kMinChunk;
    if (alignment > kMaxRequest) return nullptr;
    alignment = std::bit_ceil(alignment);
    if (bytes >= kMaxRequest - alignment) return nullptr;
    size_t nb = requestSize(bytes);
    // Room for the block plus a leading piece big enough to stand as a chunk of its own.
    void* mem = allocate(m, nb + alignment + kMinChunk - kOverhead, true);
    if (mem == nullptr) return nullptr;
    Chunk* p = fromMem(mem);
    if ((reinterpret_cast<uintptr_t>(mem) & (alignment - 1)) != 0) {
        uintptr_t aligned = (reinterpret_cast<uintptr_t>(mem) + alignment - 1) & ~(alignment - 1);
        Chunk* q = fromMem(reinterpret_cast<void*>(aligned));
        if (static_cast<size_t>(addr(q) - addr(p)) < kMinChunk) q = plus(q, alignment);
        size_t lead = static_cast<size_t>(addr(q) - addr(p));
        size_t rest = sizeOf(p) - lead;
        if (isMapped(p)) {
            q->prevFoot = p->prevFoot + lead;
            q->head = rest | kPrevInUse | kInUse | kMapped;
        } else {
            setInUseHead(q, rest);
            p->head = lead | (p->head & kPrevInUse) | kInUse;
            releaseChunk(m, p, false);
        }
        p = q;
    }
    if (!isMapped(p)) {
        size_t size = sizeOf(p);
        if (size >= nb + kMinChunk) {
            keepPrevHead(p, nb);  // the leading piece may have gone free
            Chunk* r = plus(p, nb);
            setInUseHead(r, size - nb);
            releaseChunk(m, r, false);
        }
    }
    return toMem(p);
}

ARENA_CODE void** independentAllocate(Space& m, size_t n, const size_t* sizes, bool sameSize,
                                      bool zero, void** chunks) {
    size_t arrayBytes = 0;
    if (chunks != nullptr) {
        if (n == 0) return chunks;
    } else {
        if (n == 0) return static_cast<void**>(allocate(m, 0, true));
        if (n > kMaxRequest / sizeof(void*)) return nullptr;
        arrayBytes = requestSize(n * sizeof(void*));
    }
    size_t contents = 0;
    size_t elemSize = 0;
    if (sameSize) {
        if (sizes[0] > kMaxRequest) return nullptr;
        elemSize = requestSize(sizes[0]);
        if (n > kMaxRequest / elemSize) return nullptr;
        contents = n * elemSize;
    } else {
        for (size_t i = 0; i < n; ++i) {
            if (sizes[i] > kMaxRequest) return nullptr;
            contents += requestSize(sizes[i]);
            if (contents > kMaxRequest) return nullptr;
        }
    }
    if (contents + arrayBytes > kMaxRequest) return nullptr;
    // One chunk carved into the blocks; never mapped by itself, or the blocks could not be
    // freed one by one.
    void* mem = allocate(m, contents + arrayBytes - kOverhead, false);
    if (mem == nullptr) return nullptr;
    Chunk* p = fromMem(mem);
    size_t remaining = sizeOf(p);
    void** array = chunks;
    if (array == nullptr) {
        Chunk* ac = plus(p, contents);
        setInUseHead(ac, remaining - contents);
        array = static_cast<void**>(toMem(ac));
        unpoison(array, n * sizeof(void*));
        remaining = contents;
    }
    for (size_t i = 0;; ++i) {
        size_t want = sameSize ? sizes[0] : sizes[i];
        void* block = toMem(p);
        array[i] = block;
        unpoison(block, want);
        if (zero) std::memset(block, 0, want);
        if (i + 1 == n) {
            setInUseHead(p, remaining);
            break;
        }
        size_t s = sameSize ? elemSize : requestSize(want);
        setInUseHead(p, s);
        remaining -= s;
        p = plus(p, s);
    }
    return array;
}

// ---- walking a space ----------------------------------------------------------------------

struct Usage {
    size_t segmentBytes = 0;
    size_t freeChunks = 0;
    size_t freeBytes = 0;
};

ARENA_CODE Usage measure(Space& m) {
    Usage u;
    for (Segment* s = m.segments; s != nullptr; s = s->next) {
        u.segmentBytes += s->size;
        Chunk* tail = tailOf(s);
        for (Chunk* p = firstChunk(*s); p != tail; p = plus(p, sizeOf(p))) {
            if (!inUse(p)) {
                ++u.freeChunks;
                u.freeBytes += sizeOf(p);
            }
        }
    }
    return u;
}

ARENA_CODE Space* buildSpace(char* base, size_t size, uint32_t segFlags) {
    unpoison(base, size);  // a caller's region may carry poison from an earlier space
    Chunk* sc = firstChunk(Segment{base, size, nullptr, 0});
    sc->prevFoot = 0;
    setInUseHead(sc, kStateChunk);
    Space* m = new (toMem(sc)) Space{};
    m->magic = kMagic;
    m->flags = kDefaultFlags;
    m->leastAddr = base;
    m->releaseChecks = kReleaseCheckPeriod;
    for (Chunk& bin : m->smallBins) bin.fd = bin.bk = &bin;
    m->hooks = mspace_hooks{nullptr, default_direct_mmap_func, default_mmap_func,
                            default_munmap_func, default_sbrk_func};
    Segment* rec = writeTail(Segment{base, size, nullptr, segFlags}, false);
    m->segments = rec;
    m->top = plus(sc, kStateChunk);
    m->topEnd = tailOf(rec);
    m->top->head = topSize(*m) | kPrevInUse;
    m->footprint = m->maxFootprint = size;
    poison(base, size);
    return m;
}

}  // namespace

// ---- exported functions -------------------------------------------------------------------

extern "C" {

ARENA_CODE mspace create_mspace(unsigned long capacity, int) {
    ensureParams();
    if (capacity > kMaxRequest) return nullptr;
    size_t gran = granularity();
    size_t want = capacity == 0 ? gran : capacity + kSmallestRegion;
    size_t len = (want + gran - 1) & ~(gran - 1);
    void* base = default_mmap_func(len, nullptr);
    if (failedMapping(base)) return nullptr;
    return buildSpace(static_cast<char*>(base), len, kSegMapped);
}

ARENA_CODE mspace create_mspace_with_base(void* base, unsigned long capacity, int) {
    ensureParams();
    if (base == nullptr || capacity > kMaxRequest || capacity < kSmallestRegion) return nullptr;
    uintptr_t b = reinterpret_cast<uintptr_t>(base);
    if (b + capacity < b) return nullptr;
    return buildSpace(static_cast<char*>(base), capacity, kSegExternal);
}

ARENA_CODE mspace create_mspace_with_base_ca(void* base, unsigned long capacity, int locked,
                                             mspace_map_func mmap_func,
                                             mspace_map_func direct_mmap_func,
                                             mspace_break_func sbrk_func, void* context) {
    mspace msp = create_mspace_with_base(base, capacity, locked);
    if (msp == nullptr) return nullptr;
    Space& m = spaceOf(msp);
    m.hooks.context = context;
    if (mmap_func != nullptr) m.hooks.mmap_func = mmap_func;
    if (direct_mmap_func != nullptr) m.hooks.direct_mmap_func = direct_mmap_func;
    if (sbrk_func != nullptr) m.hooks.sbrk_func = sbrk_func;
    return msp;
}

ARENA_CODE int mspace_get_hooks(mspace msp, mspace_hooks* hooks) {
    Space& m = spaceOf(msp);
    if (hooks == nullptr) return 0;
    *hooks = m.hooks;
    return 1;
}

ARENA_CODE int mspace_set_hooks(mspace msp, const mspace_hooks* hooks) {
    Space& m = spaceOf(msp);
    if (hooks == nullptr || hooks->direct_mmap_func == nullptr || hooks->mmap_func == nullptr ||
        hooks->munmap_func == nullptr || hooks->sbrk_func == nullptr)
        return 0;
    m.hooks = *hooks;
    return 1;
}

ARENA_CODE unsigned long destroy_mspace(mspace msp) {
    Space& m = spaceOf(msp);
    // Copies first: the state itself may sit in a segment about to be unmapped.
    mspace_hooks hooks = m.hooks;
    Segment* seg = m.segments;
    m.magic = 0;
    size_t freed = 0;
    while (seg != nullptr) {
        Segment rec = *seg;
        seg = rec.next;
        unpoison(rec.base, rec.size);
        if ((rec.flags & kSegMapped) != 0 && (rec.flags & kSegExternal) == 0 &&
            hooks.munmap_func(rec.base, rec.size, hooks.context) == 0)
            freed += rec.size;
    }
    return freed;
}

ARENA_CODE void* mspace_malloc(mspace msp, unsigned long bytes) {
    Space& m = spaceOf(msp);
    void* mem = allocate(m, bytes, true);
    if (mem != nullptr) unpoison(mem, bytes);
    return mem;
}

ARENA_CODE void mspace_free(mspace msp, void* mem) {
    if (mem == nullptr) return;
    Space& m = spaceOf(msp);
    Chunk* p = fromMem(mem);
    size_t head = p->head;
    if ((reinterpret_cast<uintptr_t>(mem) & kAlignMask) != 0 || addr(p) < m.leastAddr ||
        (head & (kInUse | kMapped | kSegmentTail)) != kInUse || p == fromMem(&m))
        return freeUnusual(m, mem);  // mapped by itself, or not a block at all
    poison(mem, usable(p));
    // The commonest ends of a free need no merging with the bins: the block meets the
    // top, or both its neighbours are in use.
    size_t size = head & ~kFlagBits;
    Chunk* next = plus(p, size);
    size_t nextHead = next->head;
    if ((head & kPrevInUse) != 0 && (nextHead & kPrevInUse) != 0 && next > p) {
        if (next == m.top) {
            m.top = p;
            size_t ts = topSize(m);
            p->head = ts | kPrevInUse;
            if (ts > gParams.trimThreshold.load(std::memory_order_relaxed) && !m.trimPaused)
                return autoTrim(m);
            return;
        }
        if (next == m.dv) {
            m.dv = p;
            m.dvSize += size;
            setFree(p, m.dvSize);
            return;
        }
        if ((nextHead & kInUse) != 0 && size < kMinLarge) {
            next->head = nextHead & ~kPrevInUse;
            setFree(p, size);
            insertSmall(m, p, size);
            return;
        }
    }
    releaseChunk(m, p, true);
}

ARENA_CODE void* mspace_calloc(mspace msp, unsigned long n_elements, unsigned long elem_size) {
    Space& m = spaceOf(msp);
    if (n_elements != 0 && elem_size > ~size_t{0} / n_elements) return nullptr;
    size_t bytes = n_elements * elem_size;
    void* mem = allocate(m, bytes, true);
    if (mem == nullptr) return nullptr;
    unpoison(mem, bytes);
    // Fresh mappings from the default hook are zero already; a caller's hook may recycle.
    if (!isMapped(fromMem(mem)) || m.hooks.direct_mmap_func != default_direct_mmap_func)
        std::memset(mem, 0, bytes);
    return mem;
}

ARENA_CODE void* mspace_realloc(mspace msp, void* mem, unsigned long bytes) {
    if (mem == nullptr) return mspace_malloc(msp, bytes);
    // Zero bytes is a request like any other: the block shrinks to the smallest chunk and
    // stays the caller's, as malloc(0) gives a block too. Freeing is not this arena's way.
    Space& m = spaceOf(msp);
    Chunk* p = checkedBlock(m, mem);
    if (bytes > kMaxRequest) return nullptr;
    size_t nb = requestSize(bytes);
    size_t oldUsable = usable(p);
    bool mapped = isMapped(p);
    if (resizeInPlace(m, p, nb)) {
        if (!mapped) {
            poison(mem, std::max(oldUsable, usable(p)));
            unpoison(mem, bytes);
        }
        return mem;
    }
    void* moved = allocate(m, bytes, true);
    if (moved == nullptr) return nullptr;
    size_t keep = std::min<size_t>(oldUsable, bytes);
    // The copy may read past the caller's old size, into bytes that are poisoned.
    unpoison(mem, keep);
    unpoison(moved, bytes);
    std::memcpy(moved, mem, keep);
    freeBlock(m, p);
    return moved;
}

ARENA_CODE void* mspace_memalign(mspace msp, unsigned long alignment, unsigned long bytes) {
    Space& m = spaceOf(msp);
    void* mem = alignedAllocate(m, alignment, bytes);
    if (mem != nullptr) unpoison(mem, bytes);
    return mem;
}

ARENA_CODE void** mspace_independent_calloc(mspace msp, unsigned long n_elements,
                                            unsigned long elem_size, void* chunks[]) {
    Space& m = spaceOf(msp);
    size_t size = elem_size;
    return independentAllocate(m, n_elements, &size, true, true, chunks);
}

ARENA_CODE void** mspace_independent_comalloc(mspace msp, unsigned long n_elements,
                                              unsigned long sizes[], void* chunks[]) {
    Space& m = spaceOf(msp);
    if (sizes == nullptr && n_elements != 0) return nullptr;
    return independentAllocate(m, n_elements, sizes, false, false, chunks);
}

ARENA_CODE int mspace_trim(mspace msp, unsigned long pad) {
    Space& m = spaceOf(msp);
    return trimTop(m, pad) ? 1 : 0;
}

ARENA_CODE unsigned long mspace_footprint(mspace msp) { return spaceOf(msp).footprint; }

ARENA_CODE unsigned long mspace_max_footprint(mspace msp) { return spaceOf(msp).maxFootprint; }

ARENA_CODE struct mallinfo mspace_mallinfo(mspace msp) {
    Space& m = spaceOf(msp);
    Usage u = measure(m);
    struct mallinfo info {};
    info.arena = u.segmentBytes;
    info.ordblks = u.freeChunks;
    info.hblks = m.mappedChunks;
    info.hblkhd = m.mappedBytes;
    info.usmblks = m.maxFootprint;
    info.uordblks = m.footprint - u.freeBytes;
    info.fordblks = u.freeBytes;
    info.keepcost = topSize(m);
    return info;
}

ARENA_CODE void mspace_malloc_stats(mspace msp) {
    Space& m = spaceOf(msp);
    Usage u = measure(m);
    std::fprintf(stderr, "max system bytes = %10lu\n", static_cast<unsigned long>(m.maxFootprint));
    std::fprintf(stderr, "system bytes     = %10lu\n", static_cast<unsigned long>(m.footprint));
    std::fprintf(stderr, "in use bytes     = %10lu\n",
                 static_cast<unsigned long>(m.footprint - u.freeBytes));
}

ARENA_CODE int mspace_mallopt(int number, int value) {
    ensureParams();
    // kMspaceLargest becomes the largest size, as promised; other negative values become
    // huge sizes the same way.
    size_t v = static_cast<size_t>(static_cast<long>(value));
    switch (number) {
        case kMspaceTrimThreshold:
            gParams.trimThreshold.store(v, std::memory_order_relaxed);
            return 1;
        case kMspaceGranularity:
            if (v < gParams.pageSize.load(std::memory_order_relaxed) || (v & (v - 1)) != 0) return 0;
            gParams.granularity.store(v, std::memory_order_relaxed);
            return 1;
        case kMspaceMmapThreshold:
            gParams.mmapThreshold.store(v, std::memory_order_relaxed);
            return 1;
        default:
            return 0;
    }
}


}  // extern "C"

}  // namespace mirel
