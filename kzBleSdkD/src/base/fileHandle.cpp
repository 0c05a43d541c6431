#include "fileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

FileHandle OpenRegularFile(const char* path) {
    // Without O_NONBLOCK, opening a pipe for reading waits for a writer.
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        return nullptr;
    }
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(descriptor);
        errno = EINVAL;
        return nullptr;
    }
    FILE* file = fdopen(descriptor, "r");
    if (file == nullptr) {
        close(descriptor);
    }
    return FileHandle(file);
}
