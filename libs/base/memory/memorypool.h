// Memory pools: named regions of process memory, each over its own arena, and the
// process-wide registry of the address ranges pools obtained from the system. The
// registry is what lets doDelete() tell a pool block from a process-heap block.
#pragma once

#include <vector>

#include "base/memory/memoryobject.h"
#include "base/mirel_export.h"

namespace mirel {

class SpinLock;

// One address range obtained from the system: [start, start + size).
struct MMapRange {
    char* start;
    unsigned long size;
};

// The registry of every range any pool has recorded, unordered, guarded by sRangesLock.
// Both exist from the library's static initialisation to its static destruction and are
// null outside that window.
MIREL_EXPORT extern std::vector<MMapRange>* sRanges;
MIREL_EXPORT extern SpinLock* sRangesLock;

// Removes the first entry of `list` whose start is `start` (the size is not compared) by
// moving the last entry into its place. The caller holds sRangesLock.
MIREL_EXPORT void removeFromList(std::vector<MMapRange>& list, void* start,
                                 unsigned long size);

class MIREL_EXPORT MemoryPool : public MemoryObject {
public:
    // True when `ptr` lies inside a range some pool recorded. Thread-safe; false when the
    // registry does not exist.
    static bool isPointerFromPool(void* ptr);
};

}  // namespace mirel
