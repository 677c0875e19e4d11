// Memory pools: named regions of process memory, each managed by its own arena, and the
// process-wide registry of the address ranges pools hold from the system (a range leaves it
// when the arena gives it back). The registry is what lets doDelete() tell a pool block
// from a process-heap block by address.
//
// Create a pool, then place objects in it through HeapManager (heapmanager.h), which shares
// the pool by reference count. A pool is not a limit: it grows by further mappings.
#pragma once

#include <QString>

#include <atomic>
#include <vector>

#include "base/memory/memoryobject.h"
#include "base/memory/mspace.h"
#include "base/mirel_export.h"
#include "base/threads/spinlock.h"

namespace mirel {

// One address range obtained from the system: [start, start + size). The registry of the
// ranges pools own lives in memorypool_p.h.
struct MMapRange {
    char* start;
    unsigned long size;
};

class MIREL_EXPORT MemoryPool : public MemoryObject {
public:
    // Maps a first region of `size` bytes for the pool's arena. Every construction also
    // sets the process-wide arena granularity to 4 MiB and turns automatic trimming off.
    // The reference count starts at 1: the creator's.
    MemoryPool(char const* name, unsigned long size);
    // Releases the arena and unmaps, once each, the ranges the pool still owns. Normally
    // reached through the last HeapManager's release.
    virtual ~MemoryPool();

    // Thread-safe (the pool's lock). Null when the arena cannot grow. Inline, since every
    // managed block passes through here twice.
    void* malloc(unsigned long size) {
        if (mMspace == nullptr) return nullptr;
        CSMutex guard(mLock);
        return mspace_malloc(mMspace, size);
    }
    void free(void* ptr) {
        CSMutex guard(mLock);
        mspace_free(mMspace, ptr);
    }

    // The sum managers reported. Updated unlocked, as a plain read-modify-write: managers of
    // one pool used from several threads at once may lose updates here.
    unsigned long getAllocatedMemory() const { return mAllocated.load(std::memory_order_relaxed); }
    void addAllocation(unsigned long n) {
        mAllocated.store(mAllocated.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
    }
    void subtractAllocation(unsigned long n) {
        mAllocated.store(mAllocated.load(std::memory_order_relaxed) - n, std::memory_order_relaxed);
    }

    const QString& getName() const { return mName; }
    // The reference count, for TestThenAdd; the pool is deleted by whoever takes it from
    // 1 to 0 (HeapManager does so for its own reference).
    long volatile* referenceCount() { return &mRefCount; }
    // The arena under the pool; calls into it must hold getLock().
    void* getMspace() const { return mMspace; }
    SpinLock& getLock() { return mLock; }
    // A copy of the ranges this pool owns now, taken under the registry lock. A range the
    // arena gave back to the system (or the part of it given back) is no longer listed.
    std::vector<MMapRange> getRanges() const;

    // True when `ptr` lies inside a range some pool owns now; false when the registry does
    // not exist. Thread-safe and lock-free on the common path.
    static bool isPointerFromPool(void* ptr);

    // The arena's mapping hooks; `context` is the owning pool. Each mapping is recorded in
    // the registry and the pool's list; the failure value is recorded and returned too.
    static void* directMmapCB(unsigned long size, void* context);
    static void* mmapCB(unsigned long size, void* context);
    // The arena's unmapping hook: unmaps, and on success drops [base, base + size) from
    // the registry and the pool's list first, so that no one sees the range as the pool's
    // once the system may hand it out again. Returns munmap's result.
    static int munmapCB(char* base, unsigned long size, void* context);
    // Always fails: pools never grow by program break.
    static void* sbreakCB(int increment, void* context);

    MemoryPool(const MemoryPool&) = delete;
    MemoryPool& operator=(const MemoryPool&) = delete;

private:
    QString mName;
    long volatile mRefCount;
    std::atomic<unsigned long> mAllocated;
    void* mMspace;
    SpinLock mLock;
    std::vector<MMapRange> mRanges;
};

}  // namespace mirel
