#include "radioStack.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace e2e {
namespace {

constexpr size_t kSimpleLimit = 19;      // longest message behind a one-byte header
constexpr size_t kExtendedLimit = 8188;  // behind a two-byte header
constexpr long kPacedBacklog = 60;       // the daemon discards data packets while more than 90 wait
constexpr uint8_t kContinuation = 0x80;
constexpr uint8_t kExtended = 0x20;
constexpr uint8_t kLong = 0x40;
constexpr uint8_t kLengthType = 0x60;

void putLittle32(ble_message_t& record, size_t offset, uint32_t value) {
    const Bytes bytes = little32(value);
    std::memcpy(reinterpret_cast<uint8_t*>(&record) + offset, bytes.data(), bytes.size());
}

Bytes startHeader(size_t length) {
    if (length <= kSimpleLimit) {
        return {static_cast<uint8_t>(length)};
    }
    return {static_cast<uint8_t>(kExtended | length >> 8), static_cast<uint8_t>(length)};
}

[[noreturn]] void broken(const ble_message_t& record, const std::string& what) {
    throw std::runtime_error("packet breaks the format (" + what + "): " + describe(record));
}

struct StartHeader {
    size_t length;
    size_t headerBytes;
};

StartHeader readStartHeader(const ble_message_t& record) {
    const uint8_t* data = record.data;
    StartHeader header = {};
    switch (data[0] & kLengthType) {
        case 0:
            header = {data[0], 1};
            break;
        case kExtended:
            header = {static_cast<size_t>((data[0] & 0x1F) << 8 | data[1]), 2};
            break;
        case kLong:
            header = {static_cast<size_t>(data[1] << 8 | data[2]), 3};
            break;
        default:
            broken(record, "undefined length type");
    }
    const size_t shortest = header.length <= kSimpleLimit ? 1 : header.length <= kExtendedLimit ? 2 : 3;
    if (header.headerBytes != shortest) {
        broken(record, "header form does not fit the length");
    }
    return header;
}

}  // namespace

std::vector<Bytes> cutIntoPackets(const Bytes& message) {
    std::vector<Bytes> packets;
    Bytes packet = startHeader(message.size());
    size_t done = 0;
    unsigned continuations = 0;
    do {
        const size_t chunk = std::min(kBlePacketSize - packet.size(), message.size() - done);
        packet.insert(packet.end(), message.begin() + static_cast<long>(done),
                      message.begin() + static_cast<long>(done + chunk));
        done += chunk;
        packets.push_back(packet);
        packet = {static_cast<uint8_t>(kContinuation | (continuations++ & 0x0F))};
    } while (done < message.size());
    return packets;
}

ble_message_t dataRecord(uint32_t connection, uint8_t stream, const Bytes& packet) {
    ble_message_t record = {};
    record.eventType = KZBLE_SDK_MESSAGE_Data;
    record.connectionId = connection;
    record.streamId = stream;
    record.dataLength = static_cast<uint8_t>(packet.size());
    std::copy_n(packet.begin(), std::min<size_t>(packet.size(), kBlePacketSize), record.data);
    return record;
}

RadioStack::RadioStack(long transmitDepth)
    : m_toDaemon(Queue::create(kMqToBleSdk, kDepth, kBleRecordSize)),
      m_fromDaemon(Queue::create(kMqToSkylark, transmitDepth, kBleRecordSize)) {}

void RadioStack::send(const ble_message_t& record) {
    m_transcript.toDaemon(record);
    m_toDaemon.send(&record, sizeof(record));
}

void RadioStack::connect(uint32_t connection, uint8_t deviceType, uint8_t lastAddressByte) {
    ble_message_t record = {};
    record.eventType = KZBLE_SDK_EVENT_Conn;
    record.connectionId = connection;
    auto* raw = reinterpret_cast<uint8_t*>(&record);
    const uint8_t address[kBleAddressSize] = {
        0xC0, 0x01, 0x02, 0x03, 0x04, lastAddressByte != 0 ? lastAddressByte : static_cast<uint8_t>(connection)};
    std::memcpy(raw + kConnAddressOffset, address, sizeof(address));
    raw[kConnDeviceTypeOffset] = deviceType;
    send(record);
}

void RadioStack::disconnect(uint32_t connection) {
    ble_message_t record = {};
    record.eventType = KZBLE_SDK_EVENT_Disconn;
    record.connectionId = connection;
    send(record);
}

void RadioStack::writeDescriptor(uint32_t connection, uint8_t descriptor, uint8_t value) {
    ble_message_t record = {};
    record.eventType = KZBLE_SDK_EVENT_CCC;
    record.connectionId = connection;
    record.streamId = descriptor;
    record.dataLength = value;
    send(record);
}

void RadioStack::enableSensor(uint32_t connection) {
    ble_message_t record = {};
    record.eventType = KZBLE_SDK_EVENT_SensorCCC;
    record.connectionId = connection;
    send(record);
}

void RadioStack::writePacket(uint32_t connection, uint8_t stream, const Bytes& packet) {
    send(dataRecord(connection, stream, packet));
}

void RadioStack::writeMessage(uint32_t connection, uint8_t stream, const Bytes& message) {
    for (const Bytes& packet : cutIntoPackets(message)) {
        if (recordsUnread() > kPacedBacklog) {
            waitUntil([this] { return recordsUnread() <= kPacedBacklog / 2; });
        }
        writePacket(connection, stream, packet);
    }
}

void RadioStack::debug(uint32_t command, uint32_t argument) {
    ble_message_t record = {};
    record.eventType = KZBLE_SDK_EVENT_Debug;
    putLittle32(record, kDebugCommandOffset, command);
    putLittle32(record, kDebugArgumentOffset, argument);
    send(record);
}

std::optional<ble_message_t> RadioStack::tryReceive(std::chrono::milliseconds patience) {
    const std::optional<Bytes> bytes = m_fromDaemon.receive(patience);
    if (!bytes) {
        return std::nullopt;
    }
    if (bytes->size() != kBleRecordSize) {
        throw std::runtime_error("a radio record of " + std::to_string(bytes->size()) + " bytes");
    }
    ble_message_t record;
    std::memcpy(&record, bytes->data(), sizeof(record));
    m_transcript.fromDaemon(record);
    return record;
}

ble_message_t RadioStack::receive() {
    const std::optional<ble_message_t> record = tryReceive(kPatience);
    if (!record) {
        throw std::runtime_error("the daemon sent no packet");
    }
    return *record;
}

std::optional<Message> RadioStack::join(const ble_message_t& record) {
    const uint32_t connection = record.connectionId;
    Partial& partial = m_partial[{connection, record.streamId}];
    if (record.dataLength == 0 || record.dataLength > kBlePacketSize) {
        broken(record, "length byte");
    }
    size_t headerBytes = 1;
    if ((record.data[0] & kContinuation) == 0) {
        const StartHeader header = readStartHeader(record);
        headerBytes = header.headerBytes;
        partial = {header.length, {}, 0};
    } else if (partial.bytes.size() >= partial.length) {
        broken(record, "continuation without a start");
    } else if (record.data[0] != (kContinuation | (partial.continuations++ & 0x0F))) {
        broken(record, "continuation counter");
    }
    const size_t room = kBlePacketSize - headerBytes;
    const size_t expected = std::min(room, partial.length - partial.bytes.size());
    if (record.dataLength != headerBytes + expected) {
        broken(record, "packet not filled");
    }
    partial.bytes.insert(partial.bytes.end(), record.data + headerBytes, record.data + record.dataLength);
    if (partial.bytes.size() < partial.length) {
        return std::nullopt;
    }
    Message message{connection, record.streamId, partial.bytes};
    partial = {};
    return message;
}

Message RadioStack::receiveMessage() {
    while (true) {
        if (std::optional<Message> message = join(receive())) {
            return *message;
        }
    }
}

}  // namespace e2e
