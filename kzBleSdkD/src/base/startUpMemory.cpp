#include "startUpMemory.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// Whether the pages of a segment can be dropped and read again. Only those of a segment that never was writable hold
// what its file holds: relocations and variables are written into the others, some of which become read-only
// afterwards.
bool EqualsItsFile(const ElfW(Phdr) & segment) {
    return segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0;
}

int ReleaseFilePages(dl_phdr_info* object, size_t, void*) {
    const auto pageSize = static_cast<ElfW(Addr)>(sysconf(_SC_PAGESIZE));
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = object->dlpi_phdr[i];
        if (!EqualsItsFile(segment)) {
            continue;
        }
        const ElfW(Addr) begin = object->dlpi_addr + segment.p_vaddr;
        const ElfW(Addr) firstPage = begin & ~(pageSize - 1);
        // A failure is of no account: the kernel's own object has no file and refuses.
        madvise(reinterpret_cast<void*>(firstPage), begin + segment.p_memsz - firstPage, MADV_DONTNEED);
    }
    return 0;
}

}  // namespace

void UseOneHeap() {
#ifdef __GLIBC__
    mallopt(M_ARENA_MAX, 1);
#endif
}

void ReleaseStartUpMemory() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
    dl_iterate_phdr(ReleaseFilePages, nullptr);
}
