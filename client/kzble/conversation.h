// One connection as requests and what the camera says to them, made of its packets as they pass. A recording and a live
// camera are read by the same rules, so that what was said at the same place can be compared.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "packetAssembler.h"

namespace kzble {

class Conversation {
  public:
    struct Request {
        uint8_t streamId = 0;
        std::vector<uint8_t> bytes;
        bool answered = false;
    };

    // Where in the conversation the camera says something.
    struct Place {
        enum class Kind {
            Answer,   // to the request of this number
            Unasked,  // a push, or a buffer of an accessory; numbered on each stream
            Other,    // a packet of a stream without requests, or an answer to what is no request; numbered alike
        };
        Kind kind = Kind::Other;
        uint8_t streamId = 0;
        size_t number = 0;
        auto operator<=>(const Place&) const = default;
    };

    struct Heard {
        Place place;
        std::vector<uint8_t> bytes;
    };

    // A packet to the camera. True when it completes a request.
    bool sent(uint8_t streamId, std::span<const uint8_t> packet);
    // A packet from the camera, and what it completes.
    std::optional<Heard> received(uint8_t streamId, std::span<const uint8_t> packet);

    const std::vector<Request>& requests() const { return m_requests; }

  private:
    Place placeOf(uint8_t streamId, std::span<const uint8_t> message);

    std::map<uint8_t, kzclient::PacketAssembler> m_assemblers;
    std::vector<Request> m_requests;
    std::map<uint8_t, size_t> m_counts;  // by stream: messages that answer nothing
};

}  // namespace kzble
