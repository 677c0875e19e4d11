// The allocation frame: a single indirect call on the way in, one pool-range look-up on
// the way out.
#include "base/memory/memoryobject.h"

#include <cstdlib>
#include <cstring>

#include "base/memory/memorypool.h"

namespace mirel {

namespace {

// Objects always get distinct addresses, so a zero-sized object still takes a byte.
inline unsigned long objectSize(std::size_t size) { return size == 0 ? 1 : size; }

// The managed-block header: the owning manager, then the requested size, each one
// pointer-sized word, immediately before the user pointer.
inline MemoryManager* headerManager(void* ptr) {
    return static_cast<MemoryManager**>(ptr)[-2];
}

}  // namespace

void* doNew(unsigned long size, MemoryManager* manager) {
    if (manager == nullptr) return std::malloc(size);
    return manager->alloc(size);
}

void doDelete(void* ptr, MemoryManager* /*manager*/) {
    if (ptr == nullptr) return;
    if (MemoryPool::isPointerFromPool(ptr)) {
        headerManager(ptr)->free(ptr);
    } else {
        std::free(ptr);
    }
}

void* Malloc(unsigned long size, MemoryManager* manager) { return doNew(size, manager); }

void Free(void* ptr) { doDelete(ptr, nullptr); }

void* Realloc(void* ptr, unsigned long size) {
    if (ptr == nullptr) return doNew(size, nullptr);
    return std::realloc(ptr, size);
}

void* Calloc(unsigned long size, MemoryManager* manager) {
    void* p = Malloc(size, manager);
    std::memset(p, 0, size);
    return p;
}

MemoryManager::~MemoryManager() = default;

void* MemoryObject::operator new(std::size_t size) noexcept {
    return doNew(objectSize(size), nullptr);
}
void* MemoryObject::operator new[](std::size_t size) noexcept {
    return doNew(objectSize(size), nullptr);
}
void* MemoryObject::operator new(std::size_t size, MemoryManager* manager) noexcept {
    return doNew(objectSize(size), manager);
}
void* MemoryObject::operator new[](std::size_t size, MemoryManager* manager) noexcept {
    return doNew(objectSize(size), manager);
}
void MemoryObject::operator delete(void* ptr) noexcept { doDelete(ptr, nullptr); }
void MemoryObject::operator delete[](void* ptr) noexcept { doDelete(ptr, nullptr); }
void MemoryObject::operator delete(void* ptr, MemoryManager*) noexcept {
    doDelete(ptr, nullptr);
}
void MemoryObject::operator delete[](void* ptr, MemoryManager*) noexcept {
    doDelete(ptr, nullptr);
}

}  // namespace mirel
