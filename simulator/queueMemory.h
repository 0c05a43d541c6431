// The memory that the kernel lets a user fill with message queues (RLIMIT_MSGQUEUE). It counts the queues of all of the
// user's cameras, in whatever world each of them lives, so that only a few cameras fit at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kzsim {

struct QueueMemory {
    std::optional<uint64_t> limit;  // bytes; nothing when there is none
    uint64_t camera;                // bytes of one camera with its daemon

    std::optional<uint64_t> camerasThatFit() const;
};

QueueMemory queueMemory();

// Whether another camera with its daemon would find room now. Makes that camera's queues for a moment to find out.
bool roomForCamera();

// What to say to a user whose memory is used up: the limit's name and size, how many cameras fit, and what to do.
std::string queueMemoryIsUsedUp();

}  // namespace kzsim
