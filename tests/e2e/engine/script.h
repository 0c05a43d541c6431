// Conversations as data: a script is a list of steps, each one thing that happens at the daemon's edges, and one engine
// plays any script.
//
//     play(rig, {connects(1), opens(1, kCommandGate),
//                writes(1, kCommand, "01 01 01"),
//                calls({"csi_set 92: 0b", "command 3: 01"}),
//                answers(1, kCommandAnswer, "01 00"),
//                quiet()});
//
// A step that does not come out as written fails the test and prints the records of both directions.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "rig.h"

namespace e2e {

// Streams, in the words of the scripts.
enum : uint8_t {
    kCommand = KZ_STR_ID_COMMAND,
    kCommandAnswer = KZ_STR_ID_COMMAND_RESPONSE,
    kCommandGate = KZ_STR_ID_COMMAND_CCC,
    kSettings = KZ_STR_ID_SETTINGS,
    kSettingsAnswer = KZ_STR_ID_SETTINGS_RESPONSE,
    kSettingsGate = KZ_STR_ID_SETTINGS_CCC,
    kQuery = KZ_STR_ID_QUERY,
    kQueryAnswer = KZ_STR_ID_QUERY_RESPONSE,
    kQueryGate = KZ_STR_ID_QUERY_CCC,
    kSensorRequest = KZ_STR_ID_SENSOR,
    kSensorAnswer = KZ_STR_ID_SENSOR_RESPONSE,
    kSensorGate = KZ_STR_ID_SENSOR_CCC,
};

struct Step {
    std::string text;  // what it is, for the reader of a failure
    std::function<void(Rig&)> run;
};
using Script = std::vector<Step>;

// ---- what happens to the daemon
Step connects(uint32_t connection, uint8_t deviceType = kPhone);
Step disconnects(uint32_t connection);
Step opens(uint32_t connection, uint8_t gateDescriptor);
Step opensAll(uint32_t connection);  // the four descriptors, one after the other
Step closes(uint32_t connection, uint8_t gateDescriptor);
Step writes(uint32_t connection, uint8_t stream, const std::string& messageHex);
Step writes(uint32_t connection, uint8_t stream, const Bytes& message);
Step writesPacket(uint32_t connection, uint8_t stream, const std::string& packetHex);
Step pushes(const std::string& json);
Step notifies(const std::string& command, const Bytes& csiRecords);
Step replies(uint32_t command, int result, const std::string& hex = "");
Step csiHolds(uint8_t key, const std::string& hex);  // csi_get of that key succeeds with this value
Step sets(unsigned logLevel);

// ---- what it must do
Step answers(uint32_t connection, uint8_t stream, const std::string& messageHex);
Step answers(uint32_t connection, uint8_t stream, const Bytes& message);
Step packet(uint32_t connection, uint8_t stream, const std::string& packetHex);
Step calls(const std::vector<std::string>& expected);  // all since the last look, callers left out
Step tellsNet(const std::string& message);             // TlvMessage::text of the next message to the network daemon
Step logs(const std::string& level, const std::string& message, const std::string& module);
Step settles();  // everything so far has been handled; packets may wait
Step quiet();    // no packet waits and none of what was sent is still unhandled

// Stops at the first step that fails.
void play(Rig& rig, const Script& script);

}  // namespace e2e
