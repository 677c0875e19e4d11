// The arena's consistency checker: walks every segment, chunk, bin and tree of a space
// and reports the first broken invariant without changing anything. Used by tests and the
// stress program; never on an allocation path.
#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "base/memory/mspace.h"
#include "base/memory/mspace_p.h"

namespace mirel {

using namespace arena;

namespace {

// ---- consistency checker ------------------------------------------------------------------

class Checker {
public:
    ARENA_CODE Checker(Space& m, mspace_check_report& r) : m_(m), r_(r) {}
    ARENA_CODE ~Checker() {
        if (scratch_ != nullptr) default_munmap_func(scratch_, scratchBytes_, nullptr);
    }

    ARENA_CODE bool run();

private:
    ARENA_CODE bool problem(const char* what, const void* where = nullptr) {
        if (r_.problem[0] == '\0')
            std::snprintf(r_.problem, sizeof r_.problem, "%s (at %p)", what, where);
        return false;
    }
    ARENA_CODE bool insideSegment(const Chunk* p, size_t size) const;
    ARENA_CODE bool checkSegments();
    ARENA_CODE bool walkSegment(Segment* s, bool collect);
    ARENA_CODE bool checkFreeChunk(Chunk* p, const char* where);
    ARENA_CODE bool claim(Chunk* p);
    ARENA_CODE bool checkSmallBins();
    ARENA_CODE bool checkTree(TreeChunk* t, uint32_t bin, int bit, size_t mask, size_t value,
                              int depth);
    ARENA_CODE bool checkTreeBins();

    Space& m_;
    mspace_check_report& r_;
    size_t segmentCount_ = 0;
    size_t maxSegments_ = 0;
    size_t binnedExpected_ = 0;  // free chunks other than top and dv, from the walk
    size_t binnedFound_ = 0;
    bool topSeen_ = false;
    bool dvSeen_ = false;
    // Addresses of the binned free chunks, sorted, each with a "found in a bin" mark.
    // Kept in a private mapping: the checker must not allocate from any heap, least of all
    // the one it is checking.
    void* scratch_ = nullptr;
    size_t scratchBytes_ = 0;
    uintptr_t* addrs_ = nullptr;
    unsigned char* marks_ = nullptr;
    size_t addrCount_ = 0;
};

ARENA_CODE bool Checker::insideSegment(const Chunk* p, size_t size) const {
    size_t n = 0;
    for (Segment* s = m_.segments; s != nullptr && n < maxSegments_; s = s->next, ++n) {
        if (addr(p) >= addr(firstChunk(*s)) && addr(p) < addr(tailOf(s)) &&
            size <= static_cast<size_t>(addr(tailOf(s)) - addr(p)))
            return true;
    }
    return false;
}

ARENA_CODE bool Checker::checkSegments() {
    // Every segment is at least a few chunks long, so the footprint bounds their number.
    maxSegments_ = m_.footprint / (kStateChunk > kTailSize ? kTailSize : kStateChunk) + 2;
    for (Segment* s = m_.segments; s != nullptr; s = s->next) {
        if (++segmentCount_ > maxSegments_) return problem("segment list does not end", s);
        if ((reinterpret_cast<uintptr_t>(s) & kAlignMask) != 0)
            return problem("misaligned segment record", s);
        if (s->base == nullptr || s->size < kMinChunk + kTailSize)
            return problem("segment with no room", s);
        if (s->base < m_.leastAddr) return problem("segment below the least address", s->base);
        uint32_t kind = s->flags & (kSegMapped | kSegExternal);
        if (kind != kSegMapped && kind != kSegExternal)
            return problem("segment neither mapped nor external", s);
        Chunk* tail = tailOf(s);
        if (addr(tail) != segmentEnd(*s) - kTailSize)
            return problem("segment record not at the segment's end", s);
        if ((tail->head & ~kPrevInUse) != (kTailSize | kInUse | kSegmentTail))
            return problem("bad segment record header", tail);
        r_.segment_bytes += s->size;
    }
    r_.segments = segmentCount_;
    if (segmentCount_ == 0) return problem("space without segments", &m_);
    // Segments must not overlap; compare every pair when they are few, or sorted otherwise.
    size_t i = 0;
    for (Segment* a = m_.segments; a != nullptr; a = a->next, ++i) {
        size_t j = 0;
        for (Segment* b = m_.segments; b != nullptr && j < i; b = b->next, ++j) {
            if (a->base < b->base + b->size && b->base < a->base + a->size)
                return problem("overlapping segments", a->base);
        }
        if (i > 1024) break;  // beyond this the quadratic check costs more than it finds
    }
    return true;
}

ARENA_CODE bool Checker::checkFreeChunk(Chunk* p, const char* where) {
    if ((reinterpret_cast<uintptr_t>(p) & kAlignMask) != 0) return problem(where, p);
    size_t s = sizeOf(p);
    if (inUse(p) || !prevInUse(p) || (p->head & (kMapped | kSegmentTail)) != 0)
        return problem("binned chunk with wrong flags", p);
    // With the sorted address list, claim() has proved p is a walked chunk already.
    if (s < kMinChunk || (addrs_ == nullptr && !insideSegment(p, s)))
        return problem("binned chunk outside the segments", p);
    Chunk* next = plus(p, s);
    if (next->prevFoot != s || prevInUse(next))
        return problem("binned chunk with a bad boundary tag", p);
    if (p == m_.top || p == m_.dv) return problem("top or victim in a bin", p);
    return true;
}

// Marks p as found in a bin; each walked free chunk must be found exactly once.
ARENA_CODE bool Checker::claim(Chunk* p) {
    ++binnedFound_;
    if (binnedFound_ > binnedExpected_) return problem("more binned chunks than free chunks", p);
    if (addrs_ == nullptr) return true;
    uintptr_t key = reinterpret_cast<uintptr_t>(p);
    uintptr_t* at = std::lower_bound(addrs_, addrs_ + addrCount_, key);
    if (at == addrs_ + addrCount_ || *at != key)
        return problem("binned chunk that is not a chunk of any segment", p);
    unsigned char& mark = marks_[at - addrs_];
    if (mark != 0) return problem("chunk filed twice", p);
    mark = 1;
    return true;
}

ARENA_CODE bool Checker::walkSegment(Segment* s, bool collect) {
    Chunk* tail = tailOf(s);
    Chunk* p = firstChunk(*s);
    Chunk* state = fromMem(&m_);
    bool prevFree = false;
    while (p != tail) {
        if (addr(p) > addr(tail)) return problem("chunk runs past its segment", p);
        size_t size = sizeOf(p);
        if (size < kMinChunk || size > static_cast<size_t>(addr(tail) - addr(p)))
            return problem("chunk with an impossible size", p);
        if ((p->head & (kMapped | kSegmentTail)) != 0)
            return problem("segment chunk with mapped or record flag", p);
        if (prevInUse(p) == prevFree) return problem("previous-in-use bit is wrong", p);
        Chunk* next = plus(p, size);
        if (inUse(p)) {
            if (p == m_.top || p == m_.dv) return problem("top or victim marked in use", p);
            if (!collect && p != state) {
                ++r_.in_use_chunks;
                r_.in_use_bytes += size;
            }
            prevFree = false;
        } else {
            if (prevFree) return problem("two free chunks side by side", p);
            if (p == m_.top) {
                if (next != tail) return problem("top is not the last chunk of its segment", p);
                if (size != topSize(m_) || tail != m_.topEnd)
                    return problem("top size disagrees with its header", p);
                if (!collect) topSeen_ = true;
            } else {
                if (next->prevFoot != size) return problem("free chunk with a bad footer", p);
                if (p == m_.dv) {
                    if (size != m_.dvSize) return problem("victim size disagrees with its header", p);
                    if (!collect) dvSeen_ = true;
                } else if (collect) {
                    if (addrs_ != nullptr && addrCount_ < binnedExpected_)
                        addrs_[addrCount_++] = reinterpret_cast<uintptr_t>(p);
                } else {
                    ++binnedExpected_;
                }
            }
            if (!collect) {
                ++r_.free_chunks;
                r_.free_bytes += size;
            }
            prevFree = true;
        }
        p = next;
    }
    if (prevInUse(tail) == prevFree) return problem("segment record's previous-in-use bit is wrong", tail);
    return true;
}

ARENA_CODE bool Checker::checkSmallBins() {
    for (uint32_t i = 0; i < kSmallBinCount; ++i) {
        Chunk* bin = &m_.smallBins[i];
        bool marked = (m_.smallMap & (1u << i)) != 0;
        if (marked != (bin->fd != bin)) return problem("small bin map disagrees with its bin", bin);
        if (bin->fd->bk != bin || bin->bk->fd != bin) return problem("small bin ring broken", bin);
        if (marked && i < smallIndex(kMinChunk)) return problem("chunk in a bin below the minimum", bin);
        size_t steps = 0;
        for (Chunk* p = bin->fd; p != bin; p = p->fd) {
            if (++steps > binnedExpected_ + 1) return problem("small bin ring does not close", bin);
            if (p->fd->bk != p || p->bk->fd != p) return problem("small bin ring broken", p);
            if (sizeOf(p) != size_t{i} << 4) return problem("chunk in the wrong small bin", p);
            if (!claim(p) || !checkFreeChunk(p, "misaligned chunk in a small bin")) return false;
        }
    }
    return true;
}

ARENA_CODE bool Checker::checkTree(TreeChunk* t, uint32_t bin, int bit, size_t mask, size_t value,
                                   int depth) {
    if (depth > 64) return problem("tree deeper than the size has bits", t);
    size_t s = sizeOf(t);
    if (t->index != bin) return problem("tree chunk with the wrong bin index", t);
    if (treeIndex(s) != bin) return problem("chunk in the wrong tree bin", t);
    if ((s & mask) != value) return problem("tree chunk off its path", t);
    if (!claim(t) || !checkFreeChunk(t, "misaligned tree chunk")) return false;
    // The ring of chunks of the same size.
    size_t steps = 0;
    for (TreeChunk* u = asTree(t->fd); u != t; u = asTree(u->fd)) {
        if (++steps > binnedExpected_) return problem("tree ring does not close", t);
        if (u->fd->bk != u || u->bk->fd != u) return problem("tree ring broken", u);
        if (sizeOf(u) != s) return problem("ring member of another size", u);
        if (u->parent != nullptr || u->child[0] != nullptr || u->child[1] != nullptr)
            return problem("ring member linked into the trie", u);
        if (u->index != bin) return problem("ring member with the wrong bin index", u);
        if (!claim(u) || !checkFreeChunk(u, "misaligned ring member")) return false;
    }
    if (t->fd->bk != t || t->bk->fd != t) return problem("tree ring broken", t);
    for (int c = 0; c < 2; ++c) {
        TreeChunk* k = t->child[c];
        if (k == nullptr) continue;
        if (bit < 4) return problem("trie deeper than the size bits allow", t);
        if (k->parent != t) return problem("child does not point back to its parent", k);
        size_t b = size_t{1} << bit;
        if (!checkTree(k, bin, bit - 1, mask | b, value | (c != 0 ? b : 0), depth + 1))
            return false;
    }
    return true;
}

ARENA_CODE bool Checker::checkTreeBins() {
    for (uint32_t i = 0; i < kTreeBinCount; ++i) {
        TreeChunk* root = m_.treeBins[i];
        bool marked = (m_.treeMap & (1u << i)) != 0;
        if (marked != (root != nullptr)) return problem("tree map disagrees with its bin", root);
        if (root == nullptr) continue;
        if (root->parent != root) return problem("tree root without the root mark", root);
        if (!checkTree(root, i, static_cast<int>(trieTopBit(i)), 0, 0, 0)) return false;
    }
    return true;
}

ARENA_CODE bool Checker::run() {
    if (m_.magic != kMagic) return problem("not a live space", &m_);
    if (!checkSegments()) return false;
    for (Segment* s = m_.segments; s != nullptr; s = s->next)
        if (!walkSegment(s, false)) return false;
    if (!topSeen_) return problem("top is not a chunk of any segment", m_.top);
    if (topSize(m_) < kMinChunk) return problem("top smaller than a chunk", m_.top);
    if (m_.dvSize != 0 && !dvSeen_) return problem("victim is not a chunk of any segment", m_.dv);
    if (m_.dvSize == 0 && m_.dv != nullptr) return problem("empty victim still set", m_.dv);

    if (binnedExpected_ != 0) {
        scratchBytes_ = binnedExpected_ * (sizeof(uintptr_t) + 1);
        void* got = default_mmap_func(scratchBytes_, nullptr);
        if (!failedMapping(got)) {
            // Without it the count of binned chunks still has to agree; only the one-to-one
            // match is skipped.
            scratch_ = got;
            addrs_ = static_cast<uintptr_t*>(got);
            marks_ = reinterpret_cast<unsigned char*>(addrs_ + binnedExpected_);
            for (Segment* s = m_.segments; s != nullptr; s = s->next) walkSegment(s, true);
            std::sort(addrs_, addrs_ + addrCount_);
        }
    }
    if (!checkSmallBins() || !checkTreeBins()) return false;
    if (binnedFound_ != binnedExpected_)
        return problem("free chunks missing from the bins", nullptr);

    r_.mapped_chunks = m_.mappedChunks;
    r_.mapped_bytes = m_.mappedBytes;
    r_.footprint = m_.footprint;
    if (m_.footprint != r_.segment_bytes + m_.mappedBytes)
        return problem("footprint is not segments plus mapped blocks", nullptr);
    if (m_.maxFootprint < m_.footprint) return problem("highest footprint below footprint", nullptr);
    if ((m_.mappedChunks == 0) != (m_.mappedBytes == 0))
        return problem("mapped block count and bytes disagree", nullptr);
    for (Segment* s = m_.segments; s != nullptr; s = s->next)
        if (addr(s->base) < m_.leastAddr) return problem("least address too high", s->base);
    return true;
}

}  // namespace

extern "C" {

ARENA_CODE int mspace_check(mspace msp, mspace_check_report* report) {
    mspace_check_report local{};
    mspace_check_report& r = report != nullptr ? *report : local;
    r = mspace_check_report{};
    if (msp == nullptr) {
        std::snprintf(r.problem, sizeof r.problem, "null space");
        return 1;
    }
    Checker checker(*static_cast<Space*>(msp), r);
    return checker.run() ? 0 : 1;
}

}  // extern "C"

}  // namespace mirel
