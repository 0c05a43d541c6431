// How the stand-ins of libkzCtrlD.so, libcsi.so and libkzipc.so answer: see paths.h. Allocates nothing.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

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

}  // namespace

int Answer(const char* call, int64_t number, const Argument& argument, int standard, Reply* reply) {
    char path[128];
    const int start = std::snprintf(path, sizeof(path), "%s", kCameraReplies);
    if (number == kNoNumber) {
        std::snprintf(path + start, sizeof(path) - static_cast<size_t>(start), "%s", call);
    } else {
        std::snprintf(path + start, sizeof(path) - static_cast<size_t>(start), "%s %lld", call,
                      static_cast<long long>(number));
    }
    WriteDown(path + start, argument);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    int32_t result = standard;
    struct stat status {};
    if (read(file, &result, sizeof(result)) == sizeof(result) && reply != nullptr && fstat(file, &status) == 0 &&
        read(file, reply->buffer, reply->capacity) >= 0) {
        reply->length = static_cast<size_t>(status.st_size) - sizeof(result);
    }
    close(file);
    return result;
}

}  // namespace fakes
