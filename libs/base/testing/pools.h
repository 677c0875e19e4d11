// Memory pools for tests of what is built on them.
#pragma once

#include "base/memory/memorypool.h"
#include "base/threads/spinlock.h"

namespace mirel::testing {

// A pool whose creator's reference is already given up, so that its last manager deletes
// it, as the library's own pools are used.
inline MemoryPool* managedPool(const char* name) {
    auto* pool = new MemoryPool(name, 1 << 16);
    TestThenAdd(pool->referenceCount(), -1);
    return pool;
}

}  // namespace mirel::testing
