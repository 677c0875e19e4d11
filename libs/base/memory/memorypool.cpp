// Memory pools and the process-wide range registry.
#include "base/memory/memorypool.h"

#include "base/threads/spinlock.h"

namespace mirel {

std::vector<MMapRange>* sRanges = nullptr;
SpinLock* sRangesLock = nullptr;

namespace {

// Creates the registry before any pool can exist and tears it down at static
// destruction; a null registry afterwards makes isPointerFromPool() answer false.
struct RangeRegistryLifetime {
    RangeRegistryLifetime() {
        sRangesLock = new SpinLock(0);
        sRanges = new std::vector<MMapRange>();
    }
    ~RangeRegistryLifetime() {
        std::vector<MMapRange>().swap(*sRanges);
        delete sRanges;
        sRanges = nullptr;
        delete sRangesLock;
        sRangesLock = nullptr;
    }
};

RangeRegistryLifetime sRegistryLifetime;

}  // namespace

void removeFromList(std::vector<MMapRange>& list, void* start, unsigned long /*size*/) {
    for (auto it = list.begin(); it != list.end(); ++it) {
        if (it->start == start) {
            *it = list.back();
            list.pop_back();
            return;
        }
    }
}

bool MemoryPool::isPointerFromPool(void* ptr) {
    if (sRanges == nullptr) return false;
    CSMutex guard(*sRangesLock);
    auto p = reinterpret_cast<unsigned long>(ptr);
    for (const MMapRange& r : *sRanges) {
        auto start = reinterpret_cast<unsigned long>(r.start);
        if (start <= p && p - start < r.size) return true;
    }
    return false;
}

}  // namespace mirel
