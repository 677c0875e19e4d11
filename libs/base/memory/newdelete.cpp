// The library's own operator new and operator delete. Every new and delete compiled into
// the library (plain classes, standard containers, their nodes) goes through the allocation
// frame like the MemoryObject classes do. The linker's version script (mirel.map) keeps
// these symbols local, so calls from inside the library bind here while an application
// that links the library keeps the process-wide operators.
#include <cstdlib>
#include <new>

#include "base/memory/memoryobject.h"

namespace mirel::detail {

__thread unsigned long tLibraryNewCalls __attribute__((tls_model("initial-exec"))) = 0;

unsigned long libraryNewCalls() { return tLibraryNewCalls; }

}  // namespace mirel::detail

namespace {

// Frame allocations never throw (a null passes through); the throwing forms keep the
// standard contract for the containers that rely on it.
void* frameNew(std::size_t size) {
    ++mirel::detail::tLibraryNewCalls;
    return mirel::doNew(size == 0 ? 1 : size, nullptr);
}

void* throwingNew(std::size_t size) {
    void* p = frameNew(size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

// The frame's process heap gives malloc's alignment; stricter alignments come from
// aligned_alloc, whose blocks the process heap's free takes back like any other.
void* alignedNew(std::size_t size, std::align_val_t alignment) {
    ++mirel::detail::tLibraryNewCalls;
    const auto a = static_cast<std::size_t>(alignment);
    if (a <= alignof(std::max_align_t)) return mirel::doNew(size == 0 ? 1 : size, nullptr);
    const std::size_t rounded = (size + a - 1) / a * a;
    return std::aligned_alloc(a, rounded == 0 ? a : rounded);
}

void frameDelete(void* ptr) { mirel::doDelete(ptr, nullptr); }

}  // namespace

void* operator new(std::size_t size) { return throwingNew(size); }
void* operator new[](std::size_t size) { return throwingNew(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return frameNew(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return frameNew(size); }
void* operator new(std::size_t size, std::align_val_t a) {
    void* p = alignedNew(size, a);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void* operator new[](std::size_t size, std::align_val_t a) { return operator new(size, a); }
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return alignedNew(size, a);
}
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return alignedNew(size, a);
}

void operator delete(void* p) noexcept { frameDelete(p); }
void operator delete[](void* p) noexcept { frameDelete(p); }
void operator delete(void* p, std::size_t) noexcept { frameDelete(p); }
void operator delete[](void* p, std::size_t) noexcept { frameDelete(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { frameDelete(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { frameDelete(p); }
void operator delete(void* p, std::align_val_t) noexcept { frameDelete(p); }
void operator delete[](void* p, std::align_val_t) noexcept { frameDelete(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { frameDelete(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { frameDelete(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { frameDelete(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    frameDelete(p);
}
