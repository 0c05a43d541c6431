#include "script.h"

#include <gtest/gtest.h>

#include <exception>
#include <filesystem>
#include <stdexcept>

#include "../fakes/paths.h"

namespace e2e {
namespace {

constexpr uint8_t kAnswerStream = KZ_STR_ID_COMMAND_RESPONSE - KZ_STR_ID_COMMAND;
constexpr uint8_t kGateDescriptor = KZ_STR_ID_COMMAND_CCC - KZ_STR_ID_COMMAND;
constexpr uint8_t kCategoryEvent = 22;
constexpr uint32_t kOtherTraffic = 99;  // a connection no test uses
constexpr std::chrono::milliseconds kAtOnce{0};

void compare(const std::string& expected, const std::string& actual) {
    if (expected != actual) {
        throw std::runtime_error("\n  expected: " + expected + "\n  actual:   " + actual);
    }
}

void receivePacket(Rig& rig, const ble_message_t& expected) {
    const std::optional<ble_message_t> actual = rig.radio->receiveOf(expected.connectionId);
    compare(describe(expected), actual ? describe(*actual) : "nothing");
}

Step setsGate(uint32_t connection, uint8_t interface, uint8_t value) {
    const auto descriptor = static_cast<uint8_t>(interface + kGateDescriptor);
    return sends(eventRecord(KZBLE_SDK_EVENT_CCC, connection, {descriptor, value}));
}

}  // namespace

Step sends(const ble_message_t& record) {
    return [=](Rig& rig) { rig.radio->send(record); };
}

Step connects(uint32_t connection, uint8_t deviceType, uint8_t lastAddressByte) {
    const uint8_t lastByte = lastAddressByte != 0 ? lastAddressByte : static_cast<uint8_t>(connection);
    return sends(eventRecord(KZBLE_SDK_EVENT_Conn, connection, {0xC0, 1, 2, 3, 4, lastByte, 0, deviceType}));
}

Step opens(uint32_t connection, uint8_t interface) {
    return setsGate(connection, interface, 1);
}

Step closes(uint32_t connection, uint8_t interface) {
    return setsGate(connection, interface, 0);
}

Step joins(uint32_t connection, uint8_t deviceType) {
    return [=](Rig& rig) {
        connects(connection, deviceType)(rig);
        for (const uint8_t interface : {kCommand, kSettings, kQuery, kSensorData}) {
            opens(connection, interface)(rig);
        }
    };
}

Step disconnects(uint32_t connection) {
    return sends(eventRecord(KZBLE_SDK_EVENT_Disconn, connection));
}

Step writes(uint32_t connection, uint8_t stream, const Message& message) {
    return [=](Rig& rig) { rig.radio->writeMessage(connection, stream, message.bytes); };
}

Step writesPacket(uint32_t connection, uint8_t stream, const Message& packet) {
    return sends(dataRecord(connection, stream, packet.bytes));
}

// The loop looks at the event queue before the radio queue, one message of each a pass: records that wait are awaited
// before, and the push itself behind them.
Step pushes(const std::string& json) {
    return [=](Rig& rig) {
        tells(kEventQueue, TlvMessage{kCategoryEvent, {{kTlvResponse, textBytes(json)}}}.encode())(rig);
        rig.settle();
    };
}

Step notifies(const std::string& command, const Bytes& csiRecords) {
    return [=](Rig& rig) { rig.notifyCsi(command, csiRecords); };
}

Step tells(const char* queue, const Message& message) {
    return [=](Rig& rig) {
        rig.settle();
        Queue::openForSending(queue).send(message.bytes);
    };
}

Step replies(const std::string& call, int result, const Message& reply) {
    return [=](Rig& rig) { rig.camera.reply(call, result, reply.bytes); };
}

Step hangs(const std::string& service) {
    return replies(service, fakes::kHangs);
}

Step goes(const std::string& service) {
    return replies(service, fakes::kGone);
}

Step comesBack(const std::string& service) {
    return [=](Rig&) { std::filesystem::remove(fakes::kCameraReplies + service); };
}

Step sets(unsigned logLevel) {
    return sends(debugRecord(KZBLE_SET_LOG_LEVEL, logLevel));
}

Step occupies(long places) {
    return [=](Rig& rig) {
        const ble_message_t filler = dataRecord(kOtherTraffic, 0, {});
        for (long i = 0; i < places; ++i) {
            rig.radio->fromDaemon.send(&filler, sizeof(filler));
        }
    };
}

Step drains() {
    return [](Rig& rig) {
        rig.settle();
        while (rig.radio->receive(kAtOnce)) {
        }
    };
}

Step answers(uint32_t connection, uint8_t interface, const Message& message) {
    return [=](Rig& rig) {
        for (const Bytes& part : cutIntoPackets(message.bytes)) {
            receivePacket(rig, dataRecord(connection, static_cast<uint8_t>(interface + kAnswerStream), part));
        }
    };
}

Step asks(uint32_t connection, uint8_t interface, const Message& request, const Message& answer) {
    return [=](Rig& rig) {
        writes(connection, interface, request)(rig);
        answers(connection, interface, answer)(rig);
    };
}

Step packet(uint32_t connection, uint8_t stream, const Message& bytes) {
    return [=](Rig& rig) { receivePacket(rig, dataRecord(connection, stream, bytes.bytes)); };
}

Step calls(const std::string& list) {
    return [=](Rig& rig) {
        rig.settle();
        compare(list, rig.camera.takeCalls(list.starts_with("caller ")));
    };
}

Step tellsNet(const std::string& message) {
    return [=](Rig& rig) { compare(message, rig.receiveNet().text()); };
}

Step logs(const std::string& line, const std::string& module) {
    return [=](Rig& rig) {
        if (!rig.daemon.waitForText(line + " @" + module + ":")) {
            throw std::runtime_error("not logged since the last line found: " + line);
        }
    };
}

Step settles() {
    return [](Rig& rig) { rig.settle(); };
}

Step quiet() {
    return [](Rig& rig) {
        rig.settle();
        const std::optional<ble_message_t> record = rig.radio->receive(kAtOnce);
        compare("nothing", record ? describe(*record) : "nothing");
    };
}

void play(Rig& rig, const Script& script) {
    for (size_t i = 0; i < script.size() && !testing::Test::HasFatalFailure(); ++i) {
        try {
            script[i](rig);
        } catch (const std::exception& failure) {
            FAIL() << "step " << i + 1 << " of " << script.size() << ": " << failure.what() << "\nrecords:\n"
                   << (rig.radio ? rig.radio->transcript() : "no radio\n") << "log:\n"
                   << rig.daemon.unread();
        }
    }
}

}  // namespace e2e
