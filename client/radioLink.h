// One Bluetooth connection to the camera, over the simulated radio's local socket: packets of at most 20 bytes on
// numbered streams, both ways. Closing the link is the disconnection. One thread at a time, except that one may send
// and another one receive, and that any may disconnect.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "daemonLook.h"
#include "errors.h"

namespace kzclient {

// Nothing listens where the radio should be.
class NoRadio : public NoCamera {
  public:
    using NoCamera::NoCamera;
};

// The radio takes no further connection.
class RadioRefuses : public NoCamera {
  public:
    using NoCamera::NoCamera;
};

using Address = std::array<uint8_t, 6>;

// Twelve hexadecimal digits, colons allowed. Throws WrongUse.
Address parseAddress(const std::string& text);
// "02:00:00:00:01:01"
std::string addressText(const Address& address);

struct Packet {
    uint8_t streamId = 0;
    std::vector<uint8_t> bytes;
};

// What passes over the connection, for whoever traces or records it.
struct LinkEvent {
    enum class Kind { Packet, Gate };  // a gate is a notification-enable descriptor; its byte is the value written
    Kind kind;
    bool outgoing;  // towards the camera
    uint8_t streamId;
    std::span<const uint8_t> bytes;
};

class RadioLink {
  public:
    using Trace = std::function<void(const LinkEvent&)>;

    struct Peer {
        Address address{};
        uint8_t deviceType = 0;        // KZ_CALLER_*
        bool cameraIsCentral = false;  // a sensor: the camera opens all gates itself
    };

    // Connects as `peer`. Throws NoRadio when none listens at `socketPath` (empty: the default), RadioRefuses, and
    // NoCamera when no daemon is behind it.
    RadioLink(const std::string& socketPath, const Peer& peer);
    ~RadioLink();
    RadioLink(const RadioLink&) = delete;
    RadioLink& operator=(const RadioLink&) = delete;

    uint32_t connectionId() const { return m_connectionId; }
    // For poll(): readable when a packet is there, or the connection is gone.
    int descriptor() const { return m_socket; }
    const DaemonLook& daemon() const { return *m_daemon; }
    // Both are called for all that passes from now on; the recorder lives as long as the connection.
    void setTrace(Trace trace) { m_trace = std::move(trace); }
    void setRecorder(Trace recorder) { m_recorder = std::move(recorder); }

    // At most 20 bytes. Throws NoCamera when the connection is gone.
    void send(uint8_t streamId, std::span<const uint8_t> packet);
    // Writes a notification-enable descriptor.
    void writeDescriptor(uint8_t descriptorStream, uint8_t value);
    // A record for the daemon's own debugging: log level, status dump, shutdown.
    void sendDebug(uint32_t command, uint32_t argument);
    // Ends the connection at once, also under a call of another thread, which then throws.
    void disconnect();
    // How long a write waits for a radio that takes nothing, 10 s at first; then it throws TimedOut.
    void setSendPatience(std::chrono::seconds patience);
    // The next packet, or nothing when none came until the deadline. Throws NoCamera when the connection is gone, and
    // Interrupted.
    std::optional<Packet> receive(std::chrono::steady_clock::time_point deadline);

  private:
    void passes(const LinkEvent& event) const;

    int m_socket = -1;
    uint32_t m_connectionId = 0;
    std::optional<DaemonLook> m_daemon;
    Trace m_trace;
    Trace m_recorder;
};

}  // namespace kzclient
