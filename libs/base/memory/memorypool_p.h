// The process-wide registry of pool address ranges. Private to the library and its tests:
// the registry's look-up index is rebuilt by the library's own writers only, so code that
// edits the registry from outside could only make isPointerFromPool wrong.
#pragma once

#include <vector>

#include "base/memory/memorypool.h"
#include "base/mirel_export.h"
#include "base/threads/spinlock.h"

namespace mirel {

// Every range some pool owns now, unordered, guarded by sRangesLock (taken after a pool's
// own lock, never before). Both exist from the library's static initialisation to its
// static destruction and are null outside that window.
MIREL_EXPORT extern std::vector<MMapRange>* sRanges;
MIREL_EXPORT extern SpinLock* sRangesLock;

// Removes the first entry of `list` whose start is `start` (the size is not compared) by
// moving the last entry into its place; no match leaves the list unchanged. The caller
// holds sRangesLock. Removing from sRanges itself keeps isPointerFromPool exact.
MIREL_EXPORT void removeFromList(std::vector<MMapRange>& list, void* start, unsigned long size);

}  // namespace mirel
