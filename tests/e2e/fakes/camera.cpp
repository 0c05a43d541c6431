// How the stand-ins of libkzCtrlD.so, libcsi.so and libkzipc.so answer: see paths.h. Allocates nothing.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "../../fakes/cameraLibraries.h"
#include "paths.h"

namespace fakes {
namespace {

constexpr size_t kLongestLine = 1 << 16;

void WriteDown(const char* call, const Argument& argument) {
    static thread_local char s_line[kLongestLine];
    auto length = static_cast<size_t>(std::snprintf(s_line, sizeof(s_line), "%s", call));
    const auto* bytes = static_cast<const uint8_t*>(argument.data);
    for (size_t i = 0; i < argument.length && length + 5 < sizeof(s_line); ++i) {
        length += static_cast<size_t>(std::snprintf(s_line + length, 5, i == 0 ? ": %02x" : " %02x", bytes[i]));
    }
    s_line[length++] = '\n';
    const int file = open(kCameraCalls, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (write(file, s_line, length) < 0) {
        std::perror(kCameraCalls);
    }
    close(file);
}

constexpr useconds_t kDeadline = 1'100'000;

const char* ServiceOf(const char* call) {
    return std::strncmp(call, "csi", 3) == 0 ? "csi" : std::strncmp(call, "ipc", 3) == 0 ? "ipc" : "control";
}

int OpenReply(const char* call) {
    char path[128];
    std::snprintf(path, sizeof(path), "%s%s", kCameraReplies, call);
    return open(path, O_RDONLY | O_CLOEXEC);
}

int Failed(int error) {
    errno = error;
    return -1;
}

}  // namespace

int Answer(const char* call, int64_t number, const Argument& argument, int standard, Reply* reply) {
    char name[64];
    if (number == kNoNumber) {
        std::snprintf(name, sizeof(name), "%s", call);
    } else {
        std::snprintf(name, sizeof(name), "%s %lld", call, static_cast<long long>(number));
    }
    WriteDown(name, argument);
    const bool local = std::strcmp(call, "caller") == 0;  // asks no service
    const int ofService = local ? -1 : OpenReply(ServiceOf(call));
    const int file = ofService >= 0 ? ofService : OpenReply(name);
    int32_t result = standard;
    struct stat status {};
    if (read(file, &result, sizeof(result)) == sizeof(result) && reply != nullptr && fstat(file, &status) == 0 &&
        read(file, reply->buffer, reply->capacity) >= 0) {
        reply->length = static_cast<size_t>(status.st_size) - sizeof(result);
    }
    close(file);
    if (result == kHangs) {
        usleep(kDeadline);
        return Failed(EAGAIN);
    }
    if (result == kGone) {
        return Failed(ECONNREFUSED);
    }
    errno = 0;
    return result;
}

}  // namespace fakes
