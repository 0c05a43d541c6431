#include "trace.h"

#include <algorithm>
#include <cstdio>

#include "bleClient.h"
#include "messageText.h"
#include "protocolTable.h"
#include "session.h"
#include "skylark/bleMessage.h"

namespace kzble {

namespace {

// The meaning of packets that are no messages; null where they are.
const char* rawMeaning(const kzclient::LinkEvent& event) {
    switch (event.streamId) {
        case KZ_STR_ID_REBOOT_OTA:
            return "restart into update mode";
        case KZ_STR_ID_START_OTA:
            return "firmware request";
        case KZ_STR_ID_OTA_RESPONSE:
            return "firmware reply";
        case KZ_STR_ID_OTA_DATA:
            return "firmware image";
        case KZ_STR_ID_SENSOR_RESPONSE:
            return event.bytes.size() == 1 ? "restart into update mode" : nullptr;
        default:
            return nullptr;
    }
}

// Bytes of the message in its first packet.
std::span<const uint8_t> payloadOf(std::span<const uint8_t> packet) {
    constexpr uint8_t kLengthTypeMask = 0x60;
    const size_t header = 1 + static_cast<size_t>((packet[0] & kLengthTypeMask) >> 5);
    return packet.subspan(std::min(header, packet.size()));
}

std::string unknown(std::span<const uint8_t> message) {
    return message.empty() ? "empty message" : "unknown " + kzclient::hex(message.first(1));
}

}  // namespace

void Trace::operator()(const kzclient::LinkEvent& event) {
    std::fprintf(stderr, "%s %s %s %2u %-16s %-40s %s\n", timestamp().c_str(), m_address.c_str(),
                 event.outgoing ? "->" : "<-", event.streamId,
                 std::string(kzprotocol::streamName(event.streamId)).c_str(), meaning(event).c_str(),
                 kzclient::hex(event.bytes).c_str());
}

std::string Trace::meaning(const kzclient::LinkEvent& event) {
    if (event.kind == kzclient::LinkEvent::Kind::Gate) {
        return event.bytes[0] == 1 ? "notifications on" : "notifications off";
    }
    const char* raw = rawMeaning(event);
    return raw != nullptr ? raw : packetMeaning(event);
}

std::string Trace::packetMeaning(const kzclient::LinkEvent& event) {
    if (event.bytes.empty()) {
        return "empty packet";
    }
    auto& assembler = m_messages[{event.outgoing, event.streamId}];
    const size_t before = assembler.received();
    const size_t announced = assembler.announced();
    const auto result = assembler.add(event.bytes);
    if (result.problem != kzclient::PacketAssembler::Problem::None) {
        return kzclient::describe(result.problem);
    }
    if (announced != 0) {
        const size_t received = result.message ? result.message->size() : assembler.received();
        return "  byte " + std::to_string(before + 1) + " to " + std::to_string(received) + " of " +
               std::to_string(announced);
    }
    const Message message = payloadOf(event.bytes);
    std::string text =
        event.outgoing ? requestMeaning(event.streamId, message) : answerMeaning(event.streamId, message);
    if (!result.message) {
        text += ", first of " + std::to_string(assembler.announced()) + " bytes";
    }
    return text;
}

std::string Trace::requestMeaning(uint8_t streamId, Message message) {
    const kzprotocol::Row* row = kzprotocol::requestOf(streamId, message);
    if (row == nullptr) {
        return unknown(message);
    }
    if (row->answerStream != 0) {
        m_open.insert(row);
    }
    return row->name + requestDetails(*row, message, names());
}

// Some pushes begin as an answer does: it is the answer while that request waits for one.
std::string Trace::answerMeaning(uint8_t streamId, Message message) {
    const kzprotocol::Row* answered = kzprotocol::answerOf(streamId, message);
    const kzprotocol::Row* push = kzprotocol::pushOf(streamId, message);
    const auto open = m_open.find(answered);
    const bool isAnswer = answered != nullptr && (push == nullptr || open != m_open.end());
    if (isAnswer) {
        if (open != m_open.end()) {
            m_open.erase(open);
        }
        return answered->name + answerDetails(*answered, message, names());
    }
    return push != nullptr ? push->name + pushDetails(*push, message, names()) : kzclient::refusalOrUnknown(message);
}

const kzclient::Catalogue& Trace::names() const {
    static const kzclient::Catalogue none;
    try {
        return m_names();
    } catch (const kzclient::Error&) {
        return none;  // a trace does not fail for want of a name
    }
}

}  // namespace kzble
