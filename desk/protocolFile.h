// What the desk has to know of the protocol's description (protocol.json), and its text to hand out. Immutable: any
// thread may read it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kzdesk {

struct Interface {
    std::string name;
    uint8_t request;  // stream that a device writes
    uint8_t answer;   // stream that the camera notifies: answers, and pushes
    uint8_t gate;     // descriptor that opens it
};

class ProtocolFile {
  public:
    // Throws std::runtime_error when the file cannot be read or is not such a description.
    explicit ProtocolFile(const std::string& path);

    const std::string& text() const { return m_text; }
    const std::vector<Interface>& interfaces() const { return m_interfaces; }
    // The interface that has this stream as its request or answer stream; null when it carries no messages.
    const Interface* interfaceOf(uint8_t stream) const;
    // Whether a device may write to the stream.
    bool takesWrites(uint8_t stream) const;
    bool isGate(uint8_t descriptor) const;

    // Names compare as they are written in the description.
    std::optional<uint8_t> deviceType(const std::string& name) const;
    // Empty for a type that has no name.
    std::string deviceTypeName(uint8_t type) const;

  private:
    struct DeviceType {
        uint8_t id;
        std::string name;
    };

    std::string m_text;
    std::vector<Interface> m_interfaces;
    std::vector<uint8_t> m_writeStreams;
    std::vector<DeviceType> m_deviceTypes;
};

}  // namespace kzdesk
