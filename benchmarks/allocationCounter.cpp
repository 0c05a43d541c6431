// Preloaded into an unchanged program: counts its heap allocations in a word that the benchmark reads.
//
// The word is the first eight bytes of the file below, made by the benchmark; without it nothing is counted. The C
// library's own allocator does the work.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "roadsAllocations.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

std::atomic<uint64_t>* g_count = nullptr;

__attribute__((constructor)) void attach() {
    const int fd = open(roads::kAllocationCount, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    void* memory = mmap(nullptr, sizeof(std::atomic<uint64_t>), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (memory != MAP_FAILED) {
        g_count = static_cast<std::atomic<uint64_t>*>(memory);
    }
}

void count() {
    if (g_count != nullptr) {
        g_count->fetch_add(1, std::memory_order_relaxed);
    }
}

}  // namespace

// operator new of the C++ library ends in malloc or aligned_alloc, so these see every allocation.
extern "C" {

void* malloc(size_t size) {
    count();
    return __libc_malloc(size);
}

void* calloc(size_t elements, size_t size) {
    count();
    return __libc_calloc(elements, size);
}

void* realloc(void* memory, size_t size) {
    count();
    return __libc_realloc(memory, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    count();
    return __libc_memalign(alignment, size);
}

}  // extern "C"
