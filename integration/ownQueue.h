// A message queue that the daemon would make, made here in its place: it must not exist before and is removed at the
// end.
#pragma once

#include <mqueue.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kzcheck {

constexpr const char* kEventQueue = "/to_kzBleD";   // control daemon to the daemon
constexpr const char* kCsiQueue = "/to_blesdk";     // CSI service and network daemon to the daemon
constexpr const char* kNetworkQueue = "/to_kznet";  // the daemon to the network daemon

class OwnQueue {
  public:
    OwnQueue() = default;
    // As deep as the daemon's; throws std::system_error.
    explicit OwnQueue(const char* name);
    ~OwnQueue();
    OwnQueue(const OwnQueue&) = delete;
    OwnQueue& operator=(const OwnQueue&) = delete;

    // The next message; nothing when none comes in time.
    std::optional<std::vector<uint8_t>> receive(int milliseconds) const;
    // Fills it with messages of one byte.
    void occupy() const;

  private:
    const char* m_name = nullptr;
    mqd_t m_descriptor = -1;
};

}  // namespace kzcheck
