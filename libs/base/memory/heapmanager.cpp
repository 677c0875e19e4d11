// HeapManager and HeapBuffer.
#include "base/memory/heapmanager.h"

#include <cstring>

#include "base/threads/spinlock.h"

namespace mirel {

MemoryPool* HeapManager::sDefaultPool = nullptr;

namespace {

struct BlockHeader {
    HeapManager* manager;
    unsigned long size;
};
static_assert(sizeof(BlockHeader) == HeapManager::kHeaderSize);

inline BlockHeader* headerOf(void* ptr) { return static_cast<BlockHeader*>(ptr) - 1; }

inline void add(std::atomic<unsigned long>& total, unsigned long n) {
    total.store(total.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
}

}  // namespace

HeapManager::HeapManager(MemoryPool* pool) : mAllocatedSize(0), mPool(pool) {
    if (mPool == nullptr) {
        if (sDefaultPool == nullptr) sDefaultPool = new MemoryPool("default", 4194304);
        mPool = sDefaultPool;
    }
    TestThenAdd(mPool->referenceCount(), 1);
}

HeapManager::~HeapManager() {
    clear();
    if (TestThenAdd(mPool->referenceCount(), -1) == 1) delete mPool;
}

void* HeapManager::alloc(unsigned long size) {
    auto* header = static_cast<BlockHeader*>(mPool->malloc(size + kHeaderSize));
    header->manager = this;
    header->size = size;
    add(mAllocatedSize, size);
    mPool->addAllocation(size);
    return header + 1;
}

void HeapManager::free(void* ptr) {
    BlockHeader* header = headerOf(ptr);
    const unsigned long size = header->size;
    add(mAllocatedSize, 0 - size);
    mPool->subtractAllocation(size);
    mPool->free(header);
}

void* HeapManager::allocAligned(unsigned long size, unsigned long /*alignment*/) {
    return alloc(size);
}

void HeapManager::clear() {}

unsigned long HeapManager::getAllocatedSize() const {
    return mAllocatedSize.load(std::memory_order_relaxed);
}

HeapBuffer::HeapBuffer(HeapManager* manager, unsigned long size, unsigned long alignment)
    : mRefCount(1),
      mData(nullptr),
      mUsed(0),
      mCapacity(size),
      mAlignment(alignment),
      mManager(manager) {
    mData = static_cast<char*>(manager != nullptr ? manager->allocAligned(size, alignment)
                                                  : Malloc(size, nullptr));
}

HeapBuffer::~HeapBuffer() {
    if (mManager != nullptr) {
        mManager->free(mData);
    } else {
        Free(mData);
    }
}

bool HeapBuffer::appendData(void const* src, unsigned long length) {
    if (src == nullptr || length == 0) return true;
    if (length > mCapacity - mUsed) return false;
    std::memcpy(mData + mUsed, src, length);
    mUsed += length;
    return true;
}

}  // namespace mirel
