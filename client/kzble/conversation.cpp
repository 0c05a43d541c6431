#include "conversation.h"

#include <algorithm>
#include <iterator>

#include "skylark/bleMessage.h"

namespace kzble {

namespace {

using Bytes = std::span<const uint8_t>;

struct Interface {
    uint8_t requestStream;
    uint8_t answerStream;
    bool saysMore;  // than answers
};

constexpr Interface kInterfaces[] = {
    {KZ_STR_ID_COMMAND, KZ_STR_ID_COMMAND_RESPONSE, false},
    {KZ_STR_ID_SETTINGS, KZ_STR_ID_SETTINGS_RESPONSE, false},
    {KZ_STR_ID_QUERY, KZ_STR_ID_QUERY_RESPONSE, true},
    {KZ_STR_ID_SENSOR, KZ_STR_ID_SENSOR_RESPONSE, true},
};

constexpr uint8_t kFirstFeature = 0xf0;  // from here on, the first byte of a message is that of a protobuf feature
constexpr uint8_t kAnswerBit = 0x80;     // in the action of an answer

const Interface* find(uint8_t Interface::*side, uint8_t streamId) {
    const auto* row = std::find_if(std::begin(kInterfaces), std::end(kInterfaces),
                                   [&](const Interface& one) { return one.*side == streamId; });
    return row == std::end(kInterfaces) ? nullptr : row;
}

// An answer repeats the first byte of its request, and of a protobuf request the action with the answer bit; a refusal
// has two bytes only.
bool repeats(Bytes message, Bytes request) {
    if (message.empty() || request.empty() || message[0] != request[0]) {
        return false;
    }
    const bool hasAction = message[0] >= kFirstFeature && message.size() > 2 && request.size() > 1;
    return !hasAction || message[1] == (request[1] | kAnswerBit);
}

// The answer to what the camera could not make out.
bool refusesUnread(Bytes message) {
    return message.size() == 2 && message[0] == 0;
}

}  // namespace

bool Conversation::sent(uint8_t streamId, Bytes packet) {
    if (find(&Interface::requestStream, streamId) == nullptr) {
        return false;
    }
    auto result = m_assemblers[streamId].add(packet);
    if (!result.message) {
        return false;
    }
    m_requests.push_back({streamId, std::move(*result.message)});
    return true;
}

std::optional<Conversation::Heard> Conversation::received(uint8_t streamId, Bytes packet) {
    // One byte on the sensor interface is the request to reboot, which is no message.
    const bool raw = streamId == KZ_STR_ID_SENSOR_RESPONSE && packet.size() == 1;
    if (raw || find(&Interface::answerStream, streamId) == nullptr) {
        return Heard{{Place::Kind::Other, streamId, m_counts[streamId]++}, {packet.begin(), packet.end()}};
    }
    auto result = m_assemblers[streamId].add(packet);
    if (!result.message) {
        return std::nullopt;
    }
    const Place place = placeOf(streamId, *result.message);
    return Heard{place, std::move(*result.message)};
}

Conversation::Place Conversation::placeOf(uint8_t streamId, Bytes message) {
    const Interface& interface = *find(&Interface::answerStream, streamId);
    const auto firstOpen = [&](auto&& fits) {
        return std::find_if(m_requests.begin(), m_requests.end(), [&](const Request& request) {
            return !request.answered && request.streamId == interface.requestStream && fits(request);
        });
    };
    auto asked = firstOpen([&](const Request& request) { return repeats(message, request.bytes); });
    if (asked == m_requests.end() && refusesUnread(message)) {
        asked = firstOpen([](const Request&) { return true; });
    }
    if (asked != m_requests.end()) {
        asked->answered = true;
        return {Place::Kind::Answer, streamId, static_cast<size_t>(asked - m_requests.begin())};
    }
    const auto kind = interface.saysMore ? Place::Kind::Unasked : Place::Kind::Other;
    return {kind, streamId, m_counts[streamId]++};
}

}  // namespace kzble
