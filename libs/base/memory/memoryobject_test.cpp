#include "base/memory/memoryobject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/memory/heapmanager.h"
#include "base/memory/memorypool.h"
#include "base/testing/pools.h"

namespace mirel {
namespace {

using testing::managedPool;

struct Empty : MemoryObject {};
struct Payload : MemoryObject {
    char bytes[40];
};

// Sizes on the way in, owners on the way out ---------------------------------------------

TEST(AllocationFrame, ObjectsAskForAtLeastOneByteButPlainCallsPassZeroOn) {
    HeapManager m(managedPool("sizes"));
    Empty* e = new (&m) Empty;
    Empty* many = new (&m) Empty[0];
    void* plain = Malloc(0, &m);
    EXPECT_EQ(m.getAllocatedSize(), 2u);
    delete e;
    delete[] many;
    Free(plain);
}

// Free and delete take no manager: the owner comes from the address (the header before
// every managed block), while other pools and process-heap blocks are about. Each manager's
// total, and its pool's over all its managers, follows every route back.
TEST(AllocationFrame, FreeFindsTheOwnerFromThePointerAlone) {
    auto* pool = new MemoryPool("frame", 1 << 16);
    {
        HeapManager a(pool), b(pool);
        MemoryPool unrelated("unrelated", 1 << 16);
        void* heapBlock = Malloc(64, nullptr);
        void* p100 = a.alloc(100);
        void* p28 = Malloc(28, &a);
        Payload* object = new (&b) Payload;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p28) % 16, 0u);
        EXPECT_EQ(static_cast<HeapManager**>(p28)[-2], &a);
        EXPECT_EQ(static_cast<unsigned long*>(p28)[-1], 28u);
        EXPECT_FALSE(MemoryPool::isPointerFromPool(heapBlock));
        EXPECT_EQ(a.getAllocatedSize(), 128u);
        EXPECT_EQ(b.getAllocatedSize(), sizeof(Payload));
        EXPECT_EQ(pool->getAllocatedMemory(), 128u + sizeof(Payload));
        a.free(p100);
        Free(heapBlock);  // a wrong route would read a header that is not there
        delete object;
        EXPECT_EQ(a.getAllocatedSize(), 28u);
        EXPECT_EQ(b.getAllocatedSize(), 0u);
        EXPECT_EQ(pool->getAllocatedMemory(), 28u);
        Free(p28);
        EXPECT_EQ(a.getAllocatedSize(), 0u);
        EXPECT_EQ(pool->getAllocatedMemory(), 0u);
    }
    delete pool;
}

TEST(AllocationFrame, ReallocKeepsTheBytesAndCallocZeroesDirtyMemory) {
    char* p = static_cast<char*>(Realloc(nullptr, 16));
    ASSERT_NE(p, nullptr);
    std::memcpy(p, "0123456789abcdef", 16);
    p = static_cast<char*>(Realloc(p, 1 << 20));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(std::memcmp(p, "0123456789abcdef", 16), 0);
    std::memset(p + 16, 0, (1 << 20) - 16);  // all of it is the caller's
    Free(p);

    HeapManager manager(managedPool("calloc"));
    void* dirty = manager.alloc(256);
    std::memset(dirty, 0xAB, 256);
    manager.free(dirty);
    auto* clean = static_cast<unsigned char*>(Calloc(256, &manager));
    EXPECT_EQ(std::count(clean, clean + 256, 0), 256);
    Free(clean);
}

// Plain new inside the library goes through the frame; the test program's own does not.
TEST(LibraryOperatorNew, TheLibraryUsesTheFrameAndTheApplicationKeepsItsOwn) {
    unsigned long before = detail::libraryNewCalls();
    auto* pool = new MemoryPool("frame-container", 1 << 16);  // range lists: std::vector
    EXPECT_GE(detail::libraryNewCalls(), before + 2) << "the pool's containers bypassed the frame";
    delete pool;

    before = detail::libraryNewCalls();
    auto* n = new int(7);
    std::vector<int> v(1000, 1);
    delete n;
    EXPECT_EQ(detail::libraryNewCalls(), before);
}

}  // namespace
}  // namespace mirel
