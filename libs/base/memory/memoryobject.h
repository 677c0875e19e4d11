// The allocation frame: every heap block of the library is obtained through doNew() and
// returned through doDelete(), either from the process heap (a null MemoryManager) or from
// a MemoryManager. Freeing never needs to know where a block came from: blocks that live in
// a memory pool are recognised by address and carry their manager in a header.
//
// Derive from MemoryObject to route a class's new/delete through the frame, optionally
// placing objects in a manager with `new (manager) T`.
#pragma once

#include <cstddef>

#include "base/mirel_export.h"

namespace mirel {

class MemoryManager;

// Allocation operators only; no data, no virtual functions, nothing added to the layout.
// None of them throws: an exhausted heap yields null.
class MIREL_EXPORT MemoryObject {
public:
    static void* operator new(std::size_t size) noexcept;
    static void* operator new[](std::size_t size) noexcept;
    static void* operator new(std::size_t size, MemoryManager* manager) noexcept;
    static void* operator new[](std::size_t size, MemoryManager* manager) noexcept;
    static void operator delete(void* ptr) noexcept;
    static void operator delete[](void* ptr) noexcept;
    // The manager is not consulted: the owner is found from the pointer.
    static void operator delete(void* ptr, MemoryManager* manager) noexcept;
    static void operator delete[](void* ptr, MemoryManager* manager) noexcept;
};

// An allocator. alloc() returns null on exhaustion; free() takes only what alloc() gave.
class MIREL_EXPORT MemoryManager : public MemoryObject {
public:
    MemoryManager() = default;
    virtual ~MemoryManager();
    virtual void* alloc(unsigned long size) = 0;
    virtual void free(void* ptr) = 0;

    MemoryManager(const MemoryManager&) = delete;
    MemoryManager& operator=(const MemoryManager&) = delete;
};

// Null manager: the process heap. The result is passed through as is (null on failure);
// a size of 0 is passed down unchanged.
MIREL_EXPORT void* doNew(unsigned long size, MemoryManager* manager);
// Frees a block from doNew(). `manager` is ignored on purpose: a block inside a pool's
// address range is handed to the manager recorded in its header, any other block to the
// process heap. Null does nothing.
MIREL_EXPORT void doDelete(void* ptr, MemoryManager* manager);

MIREL_EXPORT void* Malloc(unsigned long size, MemoryManager* manager);
MIREL_EXPORT void Free(void* ptr);
// Null `ptr` allocates from the process heap; otherwise the process heap's realloc,
// whatever the block's origin, so a pool block must never be passed here.
MIREL_EXPORT void* Realloc(void* ptr, unsigned long size);
// Malloc() and zero `size` bytes. The result is not tested: exhaustion here is fatal.
MIREL_EXPORT void* Calloc(unsigned long size, MemoryManager* manager);

namespace detail {
// How many times the calling thread has gone through the library's own operator new, which
// every plain new inside the library uses; for tests and diagnostics.
MIREL_EXPORT unsigned long libraryNewCalls();
}  // namespace detail

}  // namespace mirel
