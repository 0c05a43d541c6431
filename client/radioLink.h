// One Bluetooth connection to the camera, over the simulated radio's local socket: packets of at most 20 bytes on
// numbered streams, both ways. Closing the link is the disconnection. One thread at a time.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace kzclient {

// What went wrong in talking to the camera, in words for the user.
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

using Address = std::array<uint8_t, 6>;

// Twelve hexadecimal digits, colons allowed. Throws Error.
Address parseAddress(const std::string& text);

struct Packet {
    uint8_t streamId = 0;
    std::vector<uint8_t> bytes;
};

// What passes over the connection, for whoever watches it.
struct LinkEvent {
    enum class Kind { Packet, Gate };  // a gate is a notification-enable descriptor; its byte is the value written
    Kind kind;
    bool outgoing;  // towards the camera
    uint8_t streamId;
    std::span<const uint8_t> bytes;
};

class RadioLink {
  public:
    using Recorder = std::function<void(const LinkEvent&)>;

    struct Peer {
        Address address{};
        uint8_t deviceType = 0;        // KZ_CALLER_*
        bool cameraIsCentral = false;  // a sensor: the camera opens all gates itself
    };

    // Connects as `peer`. Throws Error when no radio listens at `socketPath` (empty: the default) or it refuses.
    RadioLink(const std::string& socketPath, const Peer& peer);
    ~RadioLink();
    RadioLink(const RadioLink&) = delete;
    RadioLink& operator=(const RadioLink&) = delete;

    uint32_t connectionId() const { return m_connectionId; }
    // For poll(): readable when a packet is there, or the connection is gone.
    int descriptor() const { return m_socket; }
    // Called for all that passes from now on.
    void setRecorder(Recorder recorder) { m_recorder = std::move(recorder); }

    // At most 20 bytes. Throws Error when the connection is gone.
    void send(uint8_t streamId, std::span<const uint8_t> packet);
    // Writes a notification-enable descriptor.
    void writeDescriptor(uint8_t descriptorStream, uint8_t value);
    // A record for the daemon's own debugging: log level, status dump, shutdown.
    void sendDebug(uint32_t command, uint32_t argument);
    // The next packet, or nothing when none came until the deadline. Throws Error when the connection is gone.
    std::optional<Packet> receive(std::chrono::steady_clock::time_point deadline);

  private:
    int m_socket = -1;
    uint32_t m_connectionId = 0;
    Recorder m_recorder = [](const LinkEvent&) {};
};

}  // namespace kzclient
