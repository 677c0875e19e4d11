#include "base/memory/memoryobject.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "base/memory/heapmanager.h"
#include "base/memory/memorypool.h"
#include "base/threads/spinlock.h"

namespace mirel {
namespace {

// A manager that serves from the process heap and remembers every request.
class RecordingManager : public MemoryManager {
public:
    void* alloc(unsigned long size) override {
        sizes.push_back(size);
        return std::malloc(size == 0 ? 1 : size);
    }
    void free(void* ptr) override { std::free(ptr); }
    std::vector<unsigned long> sizes;
};

struct Empty : MemoryObject {};
struct Payload : MemoryObject {
    char bytes[40];
};

// Sizes on the way in --------------------------------------------------------------------

TEST(AllocationFrame, ObjectsAskForAtLeastOneByteButPlainCallsPassZeroOn) {
    RecordingManager rec;
    Empty* e = new (&rec) Empty;
    Empty* many = new (&rec) Empty[0];
    void* plain = Malloc(0, &rec);
    ASSERT_EQ(rec.sizes.size(), 3u);
    EXPECT_EQ(rec.sizes[0], 1u) << "operator new must turn 0 into 1";
    EXPECT_EQ(rec.sizes[1], 1u) << "operator new[] must turn 0 into 1";
    EXPECT_EQ(rec.sizes[2], 0u) << "Malloc must not adjust the size";
    delete e;  // back to the process heap, where the recording manager took it from
    delete[] many;
    Free(plain);
}

TEST(AllocationFrame, DistinctObjectsOfAnEmptyClassGetDistinctAddresses) {
    Empty* a = new Empty;
    Empty* b = new Empty;
    EXPECT_NE(a, b);
    delete a;
    delete b;
}

// Finding the owner on the way out -------------------------------------------------------

TEST(AllocationFrame, NullIsIgnored) {
    RecordingManager rec;
    doDelete(nullptr, &rec);
    Free(nullptr);
    EXPECT_TRUE(rec.sizes.empty());
}

TEST(AllocationFrame, HeapBlocksGoBackToTheHeapWhilePoolsExist) {
    auto* pool = new MemoryPool("frame-heap", 1 << 16);
    HeapManager manager(pool);
    TestThenAdd(pool->referenceCount(), -1);  // the manager's reference is now the last
    void* heapBlock = Malloc(64, nullptr);
    void* poolBlock = Malloc(64, &manager);
    EXPECT_FALSE(MemoryPool::isPointerFromPool(heapBlock));
    EXPECT_TRUE(MemoryPool::isPointerFromPool(poolBlock));
    Free(heapBlock);  // a wrong route would read a header that is not there
    EXPECT_EQ(manager.getAllocatedSize(), 64u);
    Free(poolBlock);
    EXPECT_EQ(manager.getAllocatedSize(), 0u) << "Free must reach the block's manager";
}

TEST(AllocationFrame, DeleteFindsTheManagerAnObjectWasPlacedIn) {
    auto* pool = new MemoryPool("frame-objects", 1 << 16);
    HeapManager a(pool), b(pool);
    TestThenAdd(pool->referenceCount(), -1);
    Payload* pa = new (&a) Payload;
    Payload* pb = new (&b) Payload;
    EXPECT_EQ(a.getAllocatedSize(), sizeof(Payload));
    EXPECT_EQ(b.getAllocatedSize(), sizeof(Payload));
    delete pb;  // a plain delete: the manager comes from the header
    EXPECT_EQ(a.getAllocatedSize(), sizeof(Payload));
    EXPECT_EQ(b.getAllocatedSize(), 0u);
    delete pa;
    EXPECT_EQ(a.getAllocatedSize(), 0u);
}

// Realloc and Calloc ----------------------------------------------------------------------

TEST(AllocationFrame, ReallocOfNullAllocatesAndOfAHeapBlockKeepsItsBytes) {
    char* p = static_cast<char*>(Realloc(nullptr, 16));
    ASSERT_NE(p, nullptr);
    std::memcpy(p, "0123456789abcdef", 16);
    p = static_cast<char*>(Realloc(p, 1 << 20));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(std::memcmp(p, "0123456789abcdef", 16), 0);
    Free(p);
}

TEST(AllocationFrame, CallocZeroesMemoryThatWasDirty) {
    auto* pool = new MemoryPool("frame-calloc", 1 << 16);
    HeapManager manager(pool);
    TestThenAdd(pool->referenceCount(), -1);
    void* dirty = manager.alloc(256);
    std::memset(dirty, 0xAB, 256);
    manager.free(dirty);
    auto* clean = static_cast<unsigned char*>(Calloc(256, &manager));
    for (int i = 0; i < 256; ++i) ASSERT_EQ(clean[i], 0) << "byte " << i;
    Free(clean);
}

// The library's own operator new -------------------------------------------------------

TEST(LibraryOperatorNew, AllocationsInsideTheLibraryGoThroughTheFrame) {
    const unsigned long before = detail::libraryNewCalls();
    {
        SpinLock lock;  // its platform data is a plain `new` inside the library
        EXPECT_GE(detail::libraryNewCalls(), before + 1);
    }
    const unsigned long beforePool = detail::libraryNewCalls();
    auto* pool = new MemoryPool("frame-container", 1 << 16);  // range lists: std::vector
    EXPECT_GE(detail::libraryNewCalls(), beforePool + 2)
        << "the pool's range containers were not built through the library's operator new";
    delete pool;
}

TEST(LibraryOperatorNew, TheApplicationKeepsItsOwnOperators) {
    const unsigned long before = detail::libraryNewCalls();
    auto* n = new int(7);
    std::vector<int> v(1000, 1);
    delete n;
    EXPECT_EQ(detail::libraryNewCalls(), before);
}

}  // namespace
}  // namespace mirel
