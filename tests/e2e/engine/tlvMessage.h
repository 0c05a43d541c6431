// Messages between the camera's daemons, as a test writes and reads them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "bytes.h"

namespace e2e {

struct TlvMessage {
    uint8_t category = 0;
    std::vector<std::pair<uint8_t, Bytes>> elements;  // type and data, the end marker left out

    // With the end marker.
    Bytes encode() const;
    // Throws std::runtime_error unless the bytes are one well-formed message.
    static TlvMessage decode(const Bytes& bytes);
    // The data of the first element of that type; empty when there is none.
    Bytes find(uint8_t type) const;
    // "18 CI /to_kznet>/to_kznet: 22 04 00 00 00 01 00 00 00"; a response argument follows as " | 00".
    std::string text() const;
};

enum : uint8_t { kTlvCommand = 65, kTlvArgument = 66, kTlvDestination = 67, kTlvSource = 68, kTlvResponse = 69 };

}  // namespace e2e
