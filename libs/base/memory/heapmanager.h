// HeapManager, the library's concrete MemoryManager: it carves blocks out of a MemoryPool,
// heads each with the manager and the requested size (so doDelete() finds its way back
// from the pointer alone), and keeps a running total of what it has out. HeapBuffer is a
// fixed-capacity byte buffer over a manager or the process heap.
//
//   MemoryPool* pool = new MemoryPool("tiles", 1 << 20);
//   HeapManager manager(pool);                 // shares the pool
//   auto* t = new (&manager) Tile;             // Tile derives from MemoryObject
//   delete t;                                  // back through `manager`
#pragma once

#include "base/memory/memoryobject.h"
#include "base/memory/memorypool.h"
#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT HeapManager : public MemoryManager {
public:
    // The block header: the manager, then the requested size, immediately before the
    // pointer handed out. Two pointer-sized words keep the 16-byte alignment of the pool.
    static constexpr unsigned long kHeaderSize = 2 * sizeof(void*);

    // Takes a reference on `pool`; a null pool means the process-wide pool "default"
    // (4 MiB), made by the first such call. That first call is not guarded: make it before
    // other threads can.
    explicit HeapManager(MemoryPool* pool);
    // Drops the reference; the last one deletes the pool.
    ~HeapManager() override;

    // `size` bytes from the pool, headed as above. The pool's result is not tested:
    // exhaustion here is fatal.
    void* alloc(unsigned long size) override;
    // Takes back a block of this manager's.
    void free(void* ptr) override;
    // alloc(size): every block is already 16-byte aligned, so the alignment is ignored.
    void* allocAligned(unsigned long size, unsigned long alignment);
    // Blocks are not tracked one by one, so there is nothing to release in bulk.
    void clear();
    // Sum of the sizes of the blocks out. Updated unlocked: one manager used from several
    // threads needs outside serialisation for an exact total.
    unsigned long getAllocatedSize() const;
    MemoryPool* getPool() const { return mPool; }

    static MemoryPool* sDefaultPool;

private:
    std::atomic<unsigned long> mAllocatedSize;
    MemoryPool* mPool;
};

// A fixed-capacity byte buffer; it never grows.
class MIREL_EXPORT HeapBuffer : public MemoryObject {
public:
    // Storage of `size` bytes from `manager`, or from the process heap when it is null.
    // The alignment is recorded only.
    HeapBuffer(HeapManager* manager, unsigned long size, unsigned long alignment);
    virtual ~HeapBuffer();

    // Appends `length` bytes of `src`. Null or empty appends succeed and change nothing; an
    // append that does not fit whole is refused (false) and nothing is copied.
    bool appendData(void const* src, unsigned long length);

    const char* getData() const { return mData; }
    unsigned long getUsed() const { return mUsed; }
    unsigned long getCapacity() const { return mCapacity; }
    unsigned long getAlignment() const { return mAlignment; }

    HeapBuffer(const HeapBuffer&) = delete;
    HeapBuffer& operator=(const HeapBuffer&) = delete;

private:
    // Part of the buffer's layout; nothing counts references to a buffer yet.
    [[maybe_unused]] std::int32_t mRefCount;
    char* mData;
    unsigned long mUsed;
    unsigned long mCapacity;
    unsigned long mAlignment;
    HeapManager* mManager;
};

}  // namespace mirel
