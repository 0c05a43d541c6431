#include "radioStack.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "messageCutter.h"

namespace e2e {
namespace {

constexpr long kPacedBacklog = 60;  // the daemon discards data packets while more than 90 wait
constexpr size_t kShownTranscript = 5000;

}  // namespace

std::vector<Bytes> cutIntoPackets(const Bytes& message) {
    std::vector<Bytes> packets;
    MessageCutter cutter(static_cast<unsigned>(message.size()));
    while (cutter.HasNext()) {
        Bytes& packet = packets.emplace_back(kBlePacketSize);
        packet.resize(cutter.WriteNext(message.data(), packet.data()));
    }
    return packets;
}

ble_message_t eventRecord(uint8_t type, uint32_t connection, const Bytes& rest) {
    const Bytes bytes = Bytes{type} + little32(connection) + rest;
    ble_message_t record = {};
    std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
    return record;
}

ble_message_t dataRecord(uint32_t connection, uint8_t stream, const Bytes& packet) {
    return eventRecord(KZBLE_SDK_MESSAGE_Data, connection, Bytes{stream, static_cast<uint8_t>(packet.size())} + packet);
}

// The command lies across the end of the connection id.
ble_message_t debugRecord(uint32_t command, uint32_t argument) {
    return eventRecord(KZBLE_SDK_EVENT_Debug, command << 24, Bytes(3) + little32(argument));
}

std::string describe(const ble_message_t& record) {
    return "type " + std::to_string(record.eventType) + " connection " + std::to_string(record.connectionId) +
           " stream " + std::to_string(record.streamId) + ": " +
           toHex({record.data, std::min<size_t>(record.dataLength, kBlePacketSize)});
}

void RadioStack::send(const ble_message_t& record) {
    m_transcript += "-> " + describe(record) + '\n';
    toDaemon.send(&record, sizeof(record));
}

void RadioStack::writeMessage(uint32_t connection, uint8_t stream, const Bytes& message) {
    for (const Bytes& packet : cutIntoPackets(message)) {
        waitUntil([this] { return toDaemon.waiting() <= kPacedBacklog; });
        send(dataRecord(connection, stream, packet));
    }
}

std::optional<ble_message_t> RadioStack::receive(std::chrono::milliseconds patience) {
    ble_message_t record;
    if (!m_ofOthers.empty()) {
        record = m_ofOthers.front();
        m_ofOthers.pop_front();
        return record;
    }
    const std::optional<Bytes> bytes = fromDaemon.receive(patience);
    if (!bytes) {
        return std::nullopt;
    }
    if (bytes->size() != kBleRecordSize) {
        throw std::runtime_error("a radio record of " + std::to_string(bytes->size()) + " bytes");
    }
    std::memcpy(&record, bytes->data(), sizeof(record));
    m_transcript += "<- " + describe(record) + '\n';
    return record;
}

std::optional<ble_message_t> RadioStack::receiveOf(uint32_t connection) {
    std::deque<ble_message_t> ofOthers;
    std::optional<ble_message_t> record = receive();
    while (record && record->connectionId != connection) {
        ofOthers.push_back(*record);
        record = receive();
    }
    m_ofOthers.insert(m_ofOthers.begin(), ofOthers.begin(), ofOthers.end());
    return record;
}

std::string RadioStack::transcript() const {
    return m_transcript.substr(m_transcript.size() - std::min(m_transcript.size(), kShownTranscript));
}

}  // namespace e2e
