#include "script.h"

#include <gtest/gtest.h>

#include <exception>

namespace e2e {
namespace {

class Mismatch : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

void compare(const std::string& expected, const std::string& actual) {
    if (expected != actual) {
        throw Mismatch("\n  expected: " + expected + "\n  actual:   " + actual);
    }
}

std::string joinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += "\n    " + line;
    }
    return text;
}

std::string at(uint32_t connection, uint8_t stream, const Bytes& bytes) {
    return "connection " + std::to_string(connection) + " stream " + std::to_string(stream) + ": " + toHex(bytes);
}

}  // namespace

Step connects(uint32_t connection, uint8_t deviceType) {
    return {"connects " + std::to_string(connection), [=](Rig& rig) { rig.radio->connect(connection, deviceType); }};
}

Step disconnects(uint32_t connection) {
    return {"disconnects " + std::to_string(connection), [=](Rig& rig) { rig.radio->disconnect(connection); }};
}

Step opens(uint32_t connection, uint8_t gateDescriptor) {
    return {"opens gate " + std::to_string(gateDescriptor),
            [=](Rig& rig) { rig.radio->writeDescriptor(connection, gateDescriptor, 1); }};
}

Step opensAll(uint32_t connection) {
    return {"opens all gates", [=](Rig& rig) {
                for (const uint8_t descriptor : {kCommandGate, kSettingsGate, kQueryGate, kSensorGate}) {
                    rig.radio->writeDescriptor(connection, descriptor, 1);
                }
            }};
}

Step closes(uint32_t connection, uint8_t gateDescriptor) {
    return {"closes gate " + std::to_string(gateDescriptor),
            [=](Rig& rig) { rig.radio->writeDescriptor(connection, gateDescriptor, 0); }};
}

Step writes(uint32_t connection, uint8_t stream, const Bytes& message) {
    return {"writes " + at(connection, stream, message),
            [=](Rig& rig) { rig.radio->writeMessage(connection, stream, message); }};
}

Step writes(uint32_t connection, uint8_t stream, const std::string& messageHex) {
    return writes(connection, stream, fromHex(messageHex));
}

Step writesPacket(uint32_t connection, uint8_t stream, const std::string& packetHex) {
    const Bytes packet = fromHex(packetHex);
    return {"writes packet " + at(connection, stream, packet),
            [=](Rig& rig) { rig.radio->writePacket(connection, stream, packet); }};
}

Step pushes(const std::string& json) {
    return {"control daemon pushes " + json, [=](Rig& rig) { rig.pushJson(json); }};
}

Step notifies(const std::string& command, const Bytes& csiRecords) {
    return {"CSI service notifies " + command + " " + toHex(csiRecords),
            [=](Rig& rig) { rig.notifyCsi(command, csiRecords); }};
}

Step replies(uint32_t command, int result, const std::string& hex) {
    return {"command replies",
            [=](Rig& rig) { rig.camera.reply(fakes::Function::Command, command, result, fromHex(hex)); }};
}

Step csiHolds(uint8_t key, const std::string& hex) {
    return {"CSI key holds", [=](Rig& rig) { rig.camera.reply(fakes::Function::CsiGet, key, 0, fromHex(hex)); }};
}

Step sets(unsigned logLevel) {
    return {"log level " + std::to_string(logLevel), [=](Rig& rig) { rig.setLogLevel(logLevel); }};
}

Step answers(uint32_t connection, uint8_t stream, const Bytes& message) {
    return {"answers " + at(connection, stream, message), [=](Rig& rig) {
                const Message actual = rig.radio->receiveMessage();
                compare(at(connection, stream, message), at(actual.connection, actual.stream, actual.bytes));
            }};
}

Step answers(uint32_t connection, uint8_t stream, const std::string& messageHex) {
    return answers(connection, stream, fromHex(messageHex));
}

Step packet(uint32_t connection, uint8_t stream, const std::string& packetHex) {
    const ble_message_t expected = dataRecord(connection, stream, fromHex(packetHex));
    return {"packet " + describe(expected),
            [=](Rig& rig) { compare(describe(expected), describe(rig.radio->receive())); }};
}

Step calls(const std::vector<std::string>& expected) {
    return {"calls", [=](Rig& rig) {
                rig.settle();
                compare(joinLines(expected), joinLines(rig.camera.takeCalls()));
            }};
}

Step tellsNet(const std::string& message) {
    return {"tells the network daemon " + message, [=](Rig& rig) { compare(message, rig.receiveNet().text()); }};
}

Step logs(const std::string& level, const std::string& message, const std::string& module) {
    return {"logs " + level + " " + message, [=](Rig& rig) {
                if (!rig.daemon.waitForLog(level, message, module)) {
                    throw Mismatch("not logged; since the last text found the log says:\n" + rig.daemon.unread());
                }
            }};
}

Step settles() {
    return {"settles", [](Rig& rig) { rig.settle(); }};
}

Step quiet() {
    return {"quiet", [](Rig& rig) {
                rig.settle();
                if (const auto record = rig.radio->tryReceive(std::chrono::milliseconds(0))) {
                    throw Mismatch("unexpected " + describe(*record));
                }
            }};
}

void play(Rig& rig, const Script& script) {
    for (size_t i = 0; i < script.size(); ++i) {
        try {
            script[i].run(rig);
        } catch (const std::exception& failure) {
            FAIL() << "step " << i + 1 << " (" << script[i].text << "): " << failure.what() << "\nrecords:\n"
                   << (rig.radio ? rig.radio->transcript().text() : "no radio\n");
        }
    }
}

}  // namespace e2e
