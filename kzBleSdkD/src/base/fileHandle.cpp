#include "fileHandle.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "posixHandle.h"

namespace {

// Without O_NONBLOCK, opening a pipe for reading waits for a writer.
constexpr int kReadOnly = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
constexpr int kDirectory = O_PATH | O_DIRECTORY | O_CLOEXEC;

constexpr int kConfinedAttempts = 8;  // somebody who renames all the time may spoil each of them

// Takes over the descriptor. Null, with errno, when it is none or its file is not a regular one.
FileHandle HandleOf(FileDescriptor descriptor) {
    struct stat status {};
    if (!descriptor.IsOpen()) {
        return nullptr;
    }
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return nullptr;
    }
    FILE* file = fdopen(descriptor, "r");
    if (file != nullptr) {
        descriptor.Release();
    }
    return FileHandle(file);
}

// Opens the name step by step without following any link and without ever going up.
int OpenWithoutLinks(FileDescriptor directory, const std::string& name) {
    size_t begin = 0;
    for (size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', begin)) {
        const std::string step = name.substr(begin, slash - begin);
        if (step.empty() || step == "..") {
            errno = EXDEV;
            return -1;
        }
        directory = FileDescriptor(openat(directory, step.c_str(), kDirectory | O_NOFOLLOW));
        if (!directory.IsOpen()) {
            return -1;
        }
        begin = slash + 1;
    }
    const std::string last = name.substr(begin);
    if (last == "..") {
        errno = EXDEV;
        return -1;
    }
    return openat(directory, last.c_str(), kReadOnly | O_NOFOLLOW);
}

int OpenConfined(FileDescriptor directory, const std::string& name) {
    open_how how{};
    how.flags = kReadOnly;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    for (int attempt = 0; attempt < kConfinedAttempts; ++attempt) {
        const long descriptor = syscall(SYS_openat2, static_cast<int>(directory), name.c_str(), &how, sizeof(how));
        if (descriptor >= 0) {
            return static_cast<int>(descriptor);
        }
        // Older kernels do not know the call, and some sandboxes refuse what they do not know.
        if (errno == ENOSYS || errno == EPERM) {
            return OpenWithoutLinks(std::move(directory), name);
        }
        if (errno != EAGAIN) {
            break;
        }
    }
    return -1;
}

}  // namespace

FileHandle OpenRegularFile(const char* path) {
    return HandleOf(FileDescriptor(open(path, kReadOnly)));
}

FileHandle OpenBeneath(const std::string& directory, const std::string& name) {
    FileDescriptor root(open(directory.c_str(), kDirectory));
    return root.IsOpen() ? HandleOf(FileDescriptor(OpenConfined(std::move(root), name))) : nullptr;
}
