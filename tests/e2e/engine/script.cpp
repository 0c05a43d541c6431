#include "script.h"

#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>

namespace e2e {
namespace {

constexpr uint8_t kAnswerStream = KZ_STR_ID_COMMAND_RESPONSE - KZ_STR_ID_COMMAND;
constexpr uint8_t kGateDescriptor = KZ_STR_ID_COMMAND_CCC - KZ_STR_ID_COMMAND;

void compare(const std::string& expected, const std::string& actual) {
    if (expected != actual) {
        throw std::runtime_error("\n  expected: " + expected + "\n  actual:   " + actual);
    }
}

ble_message_t gateRecord(uint32_t connection, uint8_t interface, uint8_t value) {
    const auto descriptor = static_cast<uint8_t>(interface + kGateDescriptor);
    return eventRecord(KZBLE_SDK_EVENT_CCC, connection, {descriptor, value});
}

void receivePacket(Rig& rig, const ble_message_t& expected) {
    const std::optional<ble_message_t> actual = rig.radio->receiveOf(expected.connectionId);
    compare(describe(expected), actual ? describe(*actual) : "nothing");
}

void receiveAnswer(Rig& rig, uint32_t connection, uint8_t interface, const Bytes& message) {
    for (const Bytes& packet : cutIntoPackets(message)) {
        receivePacket(rig, dataRecord(connection, static_cast<uint8_t>(interface + kAnswerStream), packet));
    }
}

}  // namespace

Step sends(const ble_message_t& record) {
    return {"sends " + describe(record), [=](Rig& rig) { rig.radio->send(record); }};
}

Step connects(uint32_t connection, uint8_t deviceType, uint8_t lastAddressByte) {
    const auto ownByte = static_cast<uint8_t>(connection);
    return sends(connectionRecord(connection, deviceType, lastAddressByte != 0 ? lastAddressByte : ownByte));
}

Step opens(uint32_t connection, uint8_t interface) {
    return sends(gateRecord(connection, interface, 1));
}

Step closes(uint32_t connection, uint8_t interface) {
    return sends(gateRecord(connection, interface, 0));
}

Step joins(uint32_t connection, uint8_t deviceType) {
    return {"joins", [=](Rig& rig) {
                connects(connection, deviceType).run(rig);
                for (const uint8_t interface : {kCommand, kSettings, kQuery, kSensorData}) {
                    opens(connection, interface).run(rig);
                }
            }};
}

Step disconnects(uint32_t connection) {
    return sends(eventRecord(KZBLE_SDK_EVENT_Disconn, connection));
}

Step writes(uint32_t connection, uint8_t stream, const Message& message) {
    return {"writes " + toHex(message.bytes),
            [=](Rig& rig) { rig.radio->writeMessage(connection, stream, message.bytes); }};
}

Step writesPacket(uint32_t connection, uint8_t stream, const Message& packet) {
    return sends(dataRecord(connection, stream, packet.bytes));
}

Step pushes(const std::string& json) {
    return {"control daemon pushes " + json, [=](Rig& rig) { rig.pushJson(json); }};
}

Step notifies(const std::string& command, const Bytes& csiRecords) {
    return {"CSI service notifies " + command + " " + toHex(csiRecords),
            [=](Rig& rig) { rig.notifyCsi(command, csiRecords); }};
}

Step tells(const char* queue, const Message& message) {
    return {std::string("tells ") + queue + " " + toHex(message.bytes),
            [=](Rig& rig) { rig.send(queue, message.bytes); }};
}

Step replies(const std::string& call, int result, const Message& reply) {
    return {"camera replies to " + call, [=](Rig& rig) { rig.camera.reply(call, result, reply.bytes); }};
}

Step sets(unsigned logLevel) {
    return sends(debugRecord(KZBLE_SET_LOG_LEVEL, logLevel));
}

Step occupies(long places) {
    return {"occupies places of the radio queue", [=](Rig& rig) { rig.radio->occupy(places); }};
}

Step drains() {
    return {"drains", [](Rig& rig) {
                rig.settle();
                rig.radio->drain();
            }};
}

Step answers(uint32_t connection, uint8_t interface, const Message& message) {
    return {"answers " + toHex(message.bytes),
            [=](Rig& rig) { receiveAnswer(rig, connection, interface, message.bytes); }};
}

Step asks(uint32_t connection, uint8_t interface, const Message& request, const Message& answer) {
    return {"asks " + toHex(request.bytes), [=](Rig& rig) {
                rig.radio->writeMessage(connection, interface, request.bytes);
                receiveAnswer(rig, connection, interface, answer.bytes);
            }};
}

Step packet(uint32_t connection, uint8_t stream, const Message& bytes) {
    const ble_message_t expected = dataRecord(connection, stream, bytes.bytes);
    return {"packet " + describe(expected), [=](Rig& rig) { receivePacket(rig, expected); }};
}

Step calls(const std::string& list) {
    return {"calls " + list, [=](Rig& rig) {
                rig.settle();
                compare(list, rig.camera.takeCalls(list.starts_with("caller ")));
            }};
}

Step tellsNet(const std::string& message) {
    return {"tells the network daemon " + message, [=](Rig& rig) { compare(message, rig.receiveNet().text()); }};
}

Step logs(const std::string& line, const std::string& module) {
    return {"logs " + line, [=](Rig& rig) {
                if (!rig.daemon.waitForText(line + " @" + module + ":")) {
                    throw std::runtime_error("not since the last line found");
                }
            }};
}

Step settles() {
    return {"settles", [](Rig& rig) { rig.settle(); }};
}

Step quiet() {
    return {"quiet", [](Rig& rig) {
                rig.settle();
                const std::optional<ble_message_t> record = rig.radio->receive(std::chrono::milliseconds(0));
                compare("nothing", record ? describe(*record) : "nothing");
            }};
}

void play(Rig& rig, const Script& script) {
    for (size_t i = 0; i < script.size() && !testing::Test::HasFatalFailure(); ++i) {
        try {
            script[i].run(rig);
        } catch (const std::exception& failure) {
            FAIL() << "step " << i + 1 << " (" << script[i].text << "): " << failure.what() << "\nrecords:\n"
                   << (rig.radio ? rig.radio->transcript() : "no radio\n") << "log:\n"
                   << rig.daemon.unread();
        }
    }
}

}  // namespace e2e
