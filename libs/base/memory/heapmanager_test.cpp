#include "base/memory/heapmanager.h"

#include <gtest/gtest.h>

#include <string>

#include "base/testing/pools.h"

namespace mirel {
namespace {

using testing::managedPool;

// Pool lifetime ---------------------------------------------------------------------------

TEST(HeapManager, LastManagerLeavesACallerPoolToItsCreator) {
    auto* pool = new MemoryPool("kept", 1 << 16);
    char* start = pool->getRanges().front().start;
    { HeapManager m(pool); }
    EXPECT_EQ(*pool->referenceCount(), 1);
    EXPECT_TRUE(MemoryPool::isPointerFromPool(start)) << "the creator's reference keeps it";
    {
        HeapManager m(pool);
        TestThenAdd(pool->referenceCount(), -1);  // the creator lets go first
    }
    EXPECT_FALSE(MemoryPool::isPointerFromPool(start)) << "the last manager must delete it";
}

TEST(HeapManager, TheDefaultPoolIsMadeOnceAndOutlivesItsManagers) {
    MemoryPool* first = nullptr;
    {
        HeapManager m(nullptr);
        first = m.getPool();
        EXPECT_EQ(first, HeapManager::sDefaultPool);
        EXPECT_EQ(first->getName(), QString("default"));
        EXPECT_EQ(first->getRanges().front().size, 4194304u);
    }
    HeapManager again(nullptr);
    EXPECT_EQ(again.getPool(), first);
    void* p = again.alloc(32);
    EXPECT_TRUE(MemoryPool::isPointerFromPool(p));
    Free(p);
}

// HeapBuffer ------------------------------------------------------------------------------

TEST(HeapBuffer, AppendsWholeOrNotAtAllIntoStorageItsManagerAccounts) {
    HeapManager m(managedPool("buffers"));
    auto* buf = new (&m) HeapBuffer(&m, 8, 4);
    EXPECT_EQ(m.getAllocatedSize(), 8u + sizeof(HeapBuffer));
    EXPECT_TRUE(MemoryPool::isPointerFromPool(const_cast<char*>(buf->getData())));
    EXPECT_TRUE(buf->appendData(nullptr, 5));
    EXPECT_TRUE(buf->appendData("x", 0));
    EXPECT_TRUE(buf->appendData("abcde", 5));
    EXPECT_FALSE(buf->appendData("fghi", 4)) << "one byte past capacity";
    EXPECT_EQ(buf->getUsed(), 5u);
    EXPECT_TRUE(buf->appendData("fgh", 3)) << "exactly to capacity";
    EXPECT_FALSE(buf->appendData("i", 1));
    EXPECT_EQ(std::string(buf->getData(), buf->getUsed()), "abcdefgh");
    delete buf;
    EXPECT_EQ(m.getAllocatedSize(), 0u);
}

}  // namespace
}  // namespace mirel
