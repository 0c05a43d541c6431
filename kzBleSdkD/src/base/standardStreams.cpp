#include "standardStreams.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "posixHandle.h"

namespace {

void OpenClosedStreams() {
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= STDIN_FILENO && descriptor < STDERR_FILENO) {
        descriptor = dup(descriptor);
    }
    if (descriptor > STDERR_FILENO) {
        close(descriptor);
    }
}

void MakeNonBlocking(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags >= 0) {
        fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
    }
}

// A disk file never makes its writers wait.
bool MayWait(int descriptor) {
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && !S_ISREG(status.st_mode);
}

}  // namespace

// "Non-blocking" is a property of the open file, which the parent process and others may share. So the file is opened
// once more, for this process alone; a socket cannot be, and the daemon's is shared with none but its own children.
void SecureStandardStreams() {
    OpenClosedStreams();
    if (!MayWait(STDERR_FILENO)) {
        return;
    }
    const FileDescriptor own(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (own.IsOpen()) {
        dup2(own, STDERR_FILENO);
    } else {
        MakeNonBlocking(STDERR_FILENO);
    }
}
