// The arena's system-memory defaults on Linux: anonymous private mappings and the page
// size. Every space starts with these hooks; MemoryPool replaces them with its own, which
// call these and keep the range registry.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

#include "base/memory/mspace.h"
#include "base/memory/mspace_p.h"

namespace mirel {

std::size_t arena::systemPageSize() {
    const long page = sysconf(_SC_PAGESIZE);
    return page > 0 ? static_cast<std::size_t>(page) : 0;
}

extern "C" {

void* default_direct_mmap_func(unsigned long size, void*) {
    return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

void* default_mmap_func(unsigned long size, void*) {
    return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

int default_munmap_func(void* base, unsigned long size, void*) {
    return munmap(base, size);
}

void* default_sbrk_func(int, void*) { return MAP_FAILED; }

}  // extern "C"

}  // namespace mirel
