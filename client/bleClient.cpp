#include "bleClient.h"

#include <google/protobuf/message_lite.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <iterator>

#include "messageCutter.h"
#include "skylark/bleMessage.h"

namespace kzclient {

namespace {

using std::chrono::steady_clock;

constexpr uint8_t kAnswerBit = 0x80;
constexpr std::chrono::milliseconds kReadingPatience{100};  // a daemon that is busy reads within it
constexpr size_t kLongestMessage = 18 + 399 * 19;           // what the camera rebuilds at most

// Their packets are no messages.
constexpr uint8_t kRawStreams[] = {KZ_STR_ID_REBOOT_OTA, KZ_STR_ID_OTA_RESPONSE, KZ_STR_ID_OTA_DATA};

struct Interface {
    uint8_t requestStream;
    uint8_t responseStream;
    uint8_t descriptor;
};

constexpr Interface kInterfaces[] = {
    {KZ_STR_ID_COMMAND, KZ_STR_ID_COMMAND_RESPONSE, KZ_STR_ID_COMMAND_CCC},
    {KZ_STR_ID_SETTINGS, KZ_STR_ID_SETTINGS_RESPONSE, KZ_STR_ID_SETTINGS_CCC},
    {KZ_STR_ID_QUERY, KZ_STR_ID_QUERY_RESPONSE, KZ_STR_ID_QUERY_CCC},
    {KZ_STR_ID_SENSOR, KZ_STR_ID_SENSOR_RESPONSE, KZ_STR_ID_SENSOR_CCC},
};

uint8_t responseStreamOf(uint8_t requestStream) {
    const auto* row = std::find_if(std::begin(kInterfaces), std::end(kInterfaces),
                                   [&](const Interface& i) { return i.requestStream == requestStream; });
    if (row == std::end(kInterfaces)) {
        throw Error("stream " + std::to_string(requestStream) + " takes no requests");
    }
    return row->responseStream;
}

// Whether `bytes` answers `message`, or is a push that came first. An answer repeats the first byte, and a protobuf
// query's the action with the answer bit, since pushes come on the same stream. A camera that cannot tell what it was
// sent answers two bytes, of which the first is 0.
bool answers(std::span<const uint8_t> bytes, std::span<const uint8_t> message) {
    if (bytes.empty() || message.empty() || (bytes.size() == 2 && bytes[0] == 0)) {
        return true;
    }
    constexpr uint8_t kProtobufQuery = 245;
    if (bytes[0] != message[0]) {
        return false;
    }
    const bool pushOrAnswer = message[0] == kProtobufQuery && bytes.size() != 2 && message.size() >= 2;
    return !pushOrAnswer || bytes[1] == (message[1] | kAnswerBit);
}

void expectSuccess(uint8_t result) {
    if (result != 0) {
        throw Refused(describeResult(result), result);
    }
}

}  // namespace

std::string describeResult(uint8_t result) {
    switch (result) {
        case 0:
            return "success";
        case 1:
            return "failure";
        case 2:
            return "invalid parameter";
        default:
            return "camera error " + std::to_string(result);
    }
}

std::string hex(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), "%s%02x", text.empty() ? "" : " ", byte);
        text += digits;
    }
    return text;
}

Bytes parseHex(std::string_view text) {
    Bytes bytes;
    for (size_t at = 0; at < text.size();) {
        if (text[at] == ' ' || text[at] == ':') {
            ++at;
            continue;
        }
        const std::string_view pair = text.substr(at, 2);
        uint8_t byte = 0;
        const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
        if (error != std::errc{} || end != pair.data() + 2) {
            throw WrongUse("not two hexadecimal digits: \"" + std::string(pair) + "\"");
        }
        bytes.push_back(byte);
        at += 2;
    }
    return bytes;
}

BleClient::BleClient(const std::string& socketPath, const RadioLink::Peer& peer, std::chrono::milliseconds timeout)
    : m_link(socketPath, peer), m_timeout(timeout) {
    m_link.daemon().expectReading(std::max(m_timeout, kReadingPatience));
}

void BleClient::expectDaemon() {
    m_link.daemon().expectSame();
    m_link.writeDescriptor(KZ_STR_ID_QUERY_CCC, 1);  // open it is already: the daemon reads it, nothing changes
    m_link.daemon().expectReading(std::max(m_timeout, kReadingPatience));
}

void BleClient::enableNotifications() {
    for (const auto& row : kInterfaces) {
        m_link.writeDescriptor(row.descriptor, 1);
    }
}

void BleClient::send(uint8_t requestStream, std::span<const uint8_t> message) {
    if (message.size() > kLongestMessage) {
        throw WrongUse("a request holds at most " + std::to_string(kLongestMessage) + " bytes");
    }
    MessageCutter cutter(static_cast<unsigned>(message.size()));
    while (cutter.HasNext()) {
        std::array<uint8_t, kBlePacketSize> packet{};
        const auto length = cutter.WriteNext(message.data(), packet.data());
        m_link.send(requestStream, std::span(packet).first(length));
    }
}

Bytes BleClient::request(uint8_t requestStream, std::span<const uint8_t> message) {
    const uint8_t responseStream = responseStreamOf(requestStream);
    send(requestStream, message);
    const auto deadline = steady_clock::now() + m_timeout;
    while (const auto packet = receivePacket(deadline)) {
        auto received = assemble(*packet);
        if (!received) {
            continue;
        }
        if (received->streamId == responseStream && answers(received->bytes, message)) {
            return std::move(received->bytes);
        }
        m_kept.push_back(std::move(*received));
    }
    failSilent("no answer from the camera within " + std::to_string(m_timeout.count()) +
               " ms; the request may still be carried out");
}

void BleClient::failSilent(const std::string& what) {
    m_link.daemon().expectSame();
    m_link.daemon().expectReading(kReadingPatience);
    throw TimedOut(what);
}

Bytes BleClient::command(uint8_t commandId, const std::vector<Bytes>& parameters) {
    Bytes message{commandId};
    for (const auto& parameter : parameters) {
        if (parameter.empty() || parameter.size() > UINT8_MAX) {
            throw Error("a parameter holds 1 to 255 bytes");
        }
        message.push_back(static_cast<uint8_t>(parameter.size()));
        message.insert(message.end(), parameter.begin(), parameter.end());
    }
    Bytes answer = request(KZ_STR_ID_COMMAND, message);
    if (answer.size() < 2) {
        throw Error("the camera's answer is too short");
    }
    expectSuccess(answer[1]);
    return {answer.begin() + 2, answer.end()};
}

void BleClient::sendCommand(uint8_t commandId) {
    send(KZ_STR_ID_COMMAND, Bytes{commandId});
}

void BleClient::set(uint8_t settingId, std::span<const uint8_t> value) {
    if (value.empty() || value.size() > UINT8_MAX) {
        throw Error("a value holds 1 to 255 bytes");
    }
    Bytes message{settingId, static_cast<uint8_t>(value.size())};
    message.insert(message.end(), value.begin(), value.end());
    const Bytes answer = request(KZ_STR_ID_SETTINGS, message);
    if (answer.size() < 2) {
        throw Error("the camera's answer is too short");
    }
    expectSuccess(answer[1]);
}

QueryAnswer BleClient::query(uint8_t header, std::span<const uint8_t> ids) {
    Bytes message{header};
    message.insert(message.end(), ids.begin(), ids.end());
    const Bytes bytes = request(KZ_STR_ID_QUERY, message);
    if (bytes.size() < 2) {
        throw Error("the camera's answer is too short");
    }
    constexpr uint8_t kEntriesLeftOut = 1;
    if (bytes.size() == 2) {
        expectSuccess(bytes[1]);  // with entries, another result says that some ids had no value
    }
    return {parseEntries(std::span(bytes).subspan(2)), bytes[1] == kEntriesLeftOut};
}

void BleClient::protobuf(uint8_t requestStream, uint8_t featureId, uint8_t actionId,
                         const google::protobuf::MessageLite* payload, google::protobuf::MessageLite& answer) {
    Bytes message{featureId, actionId};
    if (payload != nullptr) {
        const std::string body = payload->SerializePartialAsString();
        message.insert(message.end(), body.begin(), body.end());
    }
    const Bytes bytes = request(requestStream, message);
    if (bytes.size() < 2) {
        throw Error("the camera's answer is too short");
    }
    if (bytes[1] != (actionId | kAnswerBit)) {
        expectSuccess(bytes[1]);
        throw Error("the camera's answer belongs to another action");
    }
    if (!answer.ParsePartialFromArray(bytes.data() + 2, static_cast<int>(bytes.size() - 2))) {
        throw Error("the camera's answer cannot be read");
    }
}

std::optional<Packet> BleClient::receivePacket(steady_clock::time_point deadline) {
    return m_link.receive(deadline);
}

std::optional<Message> BleClient::assemble(const Packet& packet) {
    if (std::find(std::begin(kRawStreams), std::end(kRawStreams), packet.streamId) != std::end(kRawStreams)) {
        return Message{packet.streamId, packet.bytes};
    }
    auto result = m_assemblers[packet.streamId].add(packet.bytes);
    if (!result.message) {
        return std::nullopt;
    }
    return Message{packet.streamId, std::move(*result.message)};
}

void BleClient::forgetPushes() {
    m_kept.clear();
}

std::optional<Message> BleClient::receive(steady_clock::time_point deadline) {
    if (!m_kept.empty()) {
        Message message = std::move(m_kept.front());
        m_kept.pop_front();
        return message;
    }
    while (const auto packet = receivePacket(deadline)) {
        if (auto message = assemble(*packet)) {
            return message;
        }
    }
    return std::nullopt;
}

std::optional<Message> BleClient::receiveWithProgress(std::chrono::milliseconds patience,
                                                      const std::function<void(std::pair<size_t, size_t>)>& report) {
    while (const auto packet = receivePacket(steady_clock::now() + patience)) {
        if (auto message = assemble(*packet)) {
            return message;
        }
        const auto& assembler = m_assemblers[packet->streamId];
        report({assembler.received(), assembler.announced()});
    }
    return std::nullopt;
}

std::vector<Entry> parseEntries(std::span<const uint8_t> bytes) {
    std::vector<Entry> entries;
    while (!bytes.empty()) {
        if (bytes.size() < 2 || bytes.size() < 2u + bytes[1]) {
            throw Error("the camera's values end in the middle of an entry");
        }
        const auto value = bytes.subspan(2, bytes[1]);
        entries.push_back({bytes[0], {value.begin(), value.end()}});
        bytes = bytes.subspan(2 + value.size());
    }
    return entries;
}

uint64_t bigEndian(std::span<const uint8_t> bytes) {
    uint64_t number = 0;
    for (const uint8_t byte : bytes) {
        number = number << 8 | byte;
    }
    return number;
}

}  // namespace kzclient
