// Recordings of what passes over the radio: pcapng files of link type USER0, which packaging/wireshark/kzble.lua
// decodes. A frame, numbers in it big-endian:
//   0  1  version, 1
//   1  1  event
//   2  1  direction
//   3  1  stream, or descriptor; 0 for the other events
//   4  4  number of the connection
//   8     packet: its bytes, at most 20; descriptor: the value written (1);
//         connected: address (6), device type (1), and whether the camera is the central and asks for all notifications
//         itself (1)
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>

#include "pcapng.h"

namespace kzcapture {

constexpr uint16_t kRadioLinkType = 147;  // USER0

enum class Event : uint8_t { Connected = 0, Disconnected = 1, Packet = 2, Descriptor = 3 };
enum class Direction : uint8_t { ToCamera = 0, FromCamera = 1 };

struct Peer {
    std::array<uint8_t, 6> address{};
    uint8_t deviceType = 0;
    bool cameraIsCentral = false;
};

struct Frame {
    Time time;
    Event event = Event::Packet;
    Direction direction = Direction::ToCamera;
    uint8_t stream = 0;
    uint32_t connection = 0;
    std::vector<uint8_t> bytes;

    // Of a connected event; nothing when the frame does not say it.
    std::optional<Peer> peer() const;
};

class RadioRecorder {
  public:
    // Makes the file, or empties it. Throws CaptureError. When the file takes no more, `failed` is called once with the
    // reason, and the recording ends there.
    RadioRecorder(const std::string& path, const std::string& application,
                  std::function<void(const std::string& why)> failed);

    // Each is recorded with the present time.
    void connected(uint32_t connection, const Peer& peer);
    void disconnected(uint32_t connection);
    void packet(uint32_t connection, Direction direction, uint8_t stream, std::span<const uint8_t> bytes);
    void descriptor(uint32_t connection, uint8_t descriptorStream, uint8_t value);

  private:
    void record(uint32_t connection, Event event, Direction direction, uint8_t stream, std::span<const uint8_t> bytes);

    PcapngWriter m_writer;
    std::function<void(const std::string& why)> m_failed;
    bool m_ended = false;
};

// The frames of a recording in the file's order. Packets of other link types are left out. Throws CaptureError, also
// when there is no frame.
std::vector<Frame> parseRadioCapture(std::span<const uint8_t> file);
// The same from a file; its name is then part of the error.
std::vector<Frame> readRadioCapture(const std::string& path);

}  // namespace kzcapture
