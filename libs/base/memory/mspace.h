// Independent allocation arenas ("mspaces"): each space is a private heap built from
// memory it maps for itself, through hooks that its owner can replace to watch every
// mapping made on its behalf. MemoryPool is the intended user; use a space directly only
// when you need a heap whose memory can be told apart from the process heap and released
// all at once with destroy_mspace.
//
// The functions carry C names (they are exported unmangled) and take no lock: callers
// serialise all calls on one space. Different spaces may be used from different threads.
// The tuning parameters set with mspace_mallopt are shared by every space in the process.
//
// Blocks are aligned to 16 bytes. A pointer handed to mspace_free or mspace_realloc that
// the space did not hand out, or a block freed twice, ends the process with abort() when
// the allocator's own checks notice it; so does a handle that is not a live space.
#pragma once

#include "base/mirel_export.h"

namespace mirel {

// An opaque handle to a space; null is never a valid space.
using mspace = void*;

// Hook signatures. A mapping hook returns memory aligned to at least 16 bytes (whole pages,
// as mmap gives), or the failure value (all bits set, as mmap returns) when it cannot map;
// the space gives a misaligned result straight back and treats it as a failure. An
// unmapping hook returns 0 on success. Every hook receives the context stored with the
// space.
using mspace_map_func = void* (*)(unsigned long size, void* context);
using mspace_unmap_func = int (*)(void* base, unsigned long size, void* context);
using mspace_break_func = void* (*)(int increment, void* context);

// The system-memory hooks of one space, in the order they are stored.
//   direct_mmap_func: maps one large block by itself (requests at or above the mmap
//                     threshold, see mspace_mallopt);
//   mmap_func:        maps a new segment when the space must grow, always a multiple of
//                     the granularity;
//   munmap_func:      returns a block mapped by itself, a trimmed tail, a wholly free
//                     segment, or (from destroy_mspace) a whole segment;
//   sbrk_func:        stored but never called: spaces never grow by program break.
struct mspace_hooks {
    void* context;
    mspace_map_func direct_mmap_func;
    mspace_map_func mmap_func;
    mspace_unmap_func munmap_func;
    mspace_break_func sbrk_func;
};

// Usage summary of one space (all figures in bytes unless said otherwise).
struct mallinfo {
    unsigned long arena;     // bytes of the segments (memory not mapped block by block)
    unsigned long ordblks;   // number of free chunks, the top chunk included
    unsigned long smblks;    // always 0
    unsigned long hblks;     // number of blocks mapped by themselves
    unsigned long hblkhd;    // bytes mapped for those blocks
    unsigned long usmblks;   // highest footprint so far
    unsigned long fsmblks;   // always 0
    unsigned long uordblks;  // bytes in use: footprint minus fordblks
    unsigned long fordblks;  // bytes in free chunks, the top chunk included
    unsigned long keepcost;  // size of the top chunk (what trimming could give back)
};

// What mspace_check found. The counts describe the space as walked, so tests can compare
// them with mspace_mallinfo, mspace_footprint and their own bookkeeping.
struct mspace_check_report {
    unsigned long segments;        // segments walked
    unsigned long segment_bytes;   // their total size (equals mallinfo arena)
    unsigned long in_use_chunks;   // blocks handed out from the segments
    unsigned long in_use_bytes;    // chunk bytes of those blocks, headers included
    unsigned long free_chunks;     // free chunks, top included
    unsigned long free_bytes;      // their total size
    unsigned long mapped_chunks;   // blocks mapped by themselves
    unsigned long mapped_bytes;    // bytes mapped for them
    unsigned long footprint;       // segment_bytes + mapped_bytes
    char problem[160];             // the first broken invariant; empty when sound
};

// Parameter numbers of mspace_mallopt.
// A free that leaves the top chunk larger than this trims it (default 2 MiB).
inline constexpr int kMspaceTrimThreshold = -1;
// Unit of segment mappings: a power of two, at least the page size (default 64 KiB).
inline constexpr int kMspaceGranularity = -2;
// Requests of this many bytes or more are mapped by themselves through the large-block
// hook (default: never).
inline constexpr int kMspaceMmapThreshold = -3;
// The value that stands for the largest size.
inline constexpr int kMspaceLargest = -1;

extern "C" {

// Default hooks, installed by every creation function. Both mapping hooks make an
// anonymous private read-write mapping; the unmapping hook is munmap; the break hook
// always fails. All ignore the context.
MIREL_EXPORT void* default_direct_mmap_func(unsigned long size, void* context);
MIREL_EXPORT void* default_mmap_func(unsigned long size, void* context);
MIREL_EXPORT int default_munmap_func(void* base, unsigned long size, void* context);
MIREL_EXPORT void* default_sbrk_func(int increment, void* context);

// Maps a first segment of `capacity` bytes plus the space's own bookkeeping (one
// granularity unit when `capacity` is 0), rounded up to the granularity, and builds a
// space in it. `locked` is accepted and ignored. Null when the mapping fails or
// `capacity` is too large.
MIREL_EXPORT mspace create_mspace(unsigned long capacity, int locked);

// Builds a space inside the caller's memory [base, base + capacity). The space never
// unmaps that region; the caller keeps it alive until destroy_mspace and frees it
// afterwards. Null when `base` is null or `capacity` cannot hold the space's bookkeeping
// and a first free chunk.
MIREL_EXPORT mspace create_mspace_with_base(void* base, unsigned long capacity, int locked);

// create_mspace_with_base, then stores `context` and the segment, large-block and break
// hooks given (a null hook keeps the default). The unmapping hook stays the default.
MIREL_EXPORT mspace create_mspace_with_base_ca(void* base, unsigned long capacity, int locked,
                                               mspace_map_func mmap_func,
                                               mspace_map_func direct_mmap_func,
                                               mspace_break_func sbrk_func, void* context);

// Reads or replaces all five hooks of a space at once. Setting refuses (returns 0) a
// record with a null function; both return 1 on success. Replacing the hooks of a space
// that already holds mappings is the caller's business: the new unmapping hook will be
// handed ranges that the old mapping hooks made.
MIREL_EXPORT int mspace_get_hooks(mspace msp, mspace_hooks* hooks);
MIREL_EXPORT int mspace_set_hooks(mspace msp, const mspace_hooks* hooks);

// Ends a space: every segment the space mapped itself goes to the unmapping hook; the
// caller's base region is left alone. Returns the bytes whose unmapping succeeded.
// Blocks that were mapped by themselves and are still in use are not unmapped here (a
// MemoryPool releases them with its own range list). The handle is dead afterwards.
MIREL_EXPORT unsigned long destroy_mspace(mspace msp);

// The allocation functions of the space, with the usual contracts: null when the request
// cannot be served (nothing is changed then), 16-byte alignment, mspace_free(msp, null)
// does nothing, mspace_realloc(msp, null, n) allocates, and mspace_realloc(msp, p, 0)
// shrinks p to a minimum-size block and returns it (free it as any other), just as
// mspace_malloc(msp, 0) hands out a unique block. mspace_realloc returns null and leaves
// the block untouched when it cannot grow it. mspace_calloc returns zeroed memory; a
// product that overflows is refused.
MIREL_EXPORT void* mspace_malloc(mspace msp, unsigned long bytes);
MIREL_EXPORT void mspace_free(mspace msp, void* mem);
MIREL_EXPORT void* mspace_calloc(mspace msp, unsigned long n_elements, unsigned long elem_size);
MIREL_EXPORT void* mspace_realloc(mspace msp, void* mem, unsigned long bytes);

// A block aligned to `alignment` bytes; an alignment that is not a power of two is rounded
// up to one. Free it with mspace_free.
MIREL_EXPORT void* mspace_memalign(mspace msp, unsigned long alignment, unsigned long bytes);

// Allocates `n_elements` blocks in one step, laid out next to each other, each freeable on
// its own. The calloc form makes zeroed blocks of `elem_size` bytes, the comalloc form
// blocks of sizes[i] bytes. The block pointers go to `chunks` when it is not null (and
// `chunks` is returned), otherwise to a new array that is itself a block of the space
// (free it with mspace_free). Null when the space is exhausted or a size overflows.
MIREL_EXPORT void** mspace_independent_calloc(mspace msp, unsigned long n_elements,
                                              unsigned long elem_size, void* chunks[]);
MIREL_EXPORT void** mspace_independent_comalloc(mspace msp, unsigned long n_elements,
                                                unsigned long sizes[], void* chunks[]);

// Gives free memory back to the system: the top chunk's tail beyond `pad` bytes (in whole
// granularity units) and every wholly free segment. 1 when anything was released.
MIREL_EXPORT int mspace_trim(mspace msp, unsigned long pad);

// Bytes the space holds from the system now, and the most it has held.
MIREL_EXPORT unsigned long mspace_footprint(mspace msp);
MIREL_EXPORT unsigned long mspace_max_footprint(mspace msp);

MIREL_EXPORT struct mallinfo mspace_mallinfo(mspace msp);

// Writes three lines to standard error: highest footprint, footprint, bytes in use.
MIREL_EXPORT void mspace_malloc_stats(mspace msp);

// Sets a process-wide parameter, one of the kMspace* numbers below; 1 on success, 0 for an
// unknown number or a refused value. kMspaceLargest (-1) as a value means the largest size.
MIREL_EXPORT int mspace_mallopt(int number, int value);

// Walks every segment, chunk, bin and tree of the space and verifies their invariants
// without changing anything. Returns 0 when the space is sound; otherwise nonzero, with
// the first broken invariant in report->problem. `report` may be null.
MIREL_EXPORT int mspace_check(mspace msp, mspace_check_report* report);

}  // extern "C"

}  // namespace mirel
