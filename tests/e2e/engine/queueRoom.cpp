#include "queueRoom.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace e2e {
namespace {

constexpr std::chrono::seconds kRoomPatience{200};  // the rigs before this one may be many
constexpr std::chrono::milliseconds kPause{50};

}  // namespace

RoomLock::RoomLock() : m_file(open(KZ_WORLD_SCRIPT, O_RDONLY | O_CLOEXEC)) {
    if (m_file < 0 || flock(m_file, LOCK_EX) != 0) {
        throw std::runtime_error(std::string("cannot lock ") + KZ_WORLD_SCRIPT + ": " + std::strerror(errno));
    }
}

RoomLock::~RoomLock() {
    flock(m_file, LOCK_UN);  // a child between fork and exec shares the file
    close(m_file);
}

void QueueRoom::reserve(const std::vector<QueueSize>& sizes) {
    const auto end = std::chrono::steady_clock::now() + kRoomPatience;
    while (!tryReserve(sizes)) {
        if (std::chrono::steady_clock::now() >= end) {
            throw std::runtime_error("no room for the message queues of a rig");
        }
        std::this_thread::sleep_for(kPause);
    }
}

bool QueueRoom::tryReserve(const std::vector<QueueSize>& sizes) {
    const RoomLock lock;
    m_placeholders.clear();
    for (size_t i = 0; i < sizes.size(); ++i) {
        std::optional<Queue> placeholder =
            Queue::tryCreate("/e2e_room_" + std::to_string(i), sizes[i].depth, sizes[i].messageSize);
        if (!placeholder) {
            m_placeholders.clear();
            return false;
        }
        m_placeholders.emplace_back(std::move(placeholder));
    }
    return true;
}

void QueueRoom::release(size_t index) {
    if (holds(index)) {
        m_placeholders[index].reset();
    }
}

}  // namespace e2e
