// Conversations as data: a script is a list of steps, each one thing that happens at the daemon's edges, and one engine
// plays any script.
//
//     play({joins(1),
//           writes(1, kCommand, "01 01 01"),
//           calls("csi_set 92: 0b, command 3: 01"),
//           answers(1, kCommand, "01 00"),
//           quiet()});
//
// A step that does not come out as written fails the test and prints the records of both directions.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "rig.h"

namespace e2e {

// The four interfaces by the stream of their requests; answers come two streams, the gate's descriptor three above.
enum : uint8_t {
    kCommand = KZ_STR_ID_COMMAND,
    kSettings = KZ_STR_ID_SETTINGS,
    kQuery = KZ_STR_ID_QUERY,
    kSensorData = KZ_STR_ID_SENSOR,
};

// Bytes written as such or as hex digits.
struct Message {
    Message(const char* hex) : bytes(fromHex(hex)) {}
    Message(Bytes raw) : bytes(std::move(raw)) {}
    Bytes bytes;
};

using Step = std::function<void(Rig&)>;
using Script = std::vector<Step>;

// ---- what happens to the daemon
Step connects(uint32_t connection, uint8_t deviceType = kPhone, uint8_t lastAddressByte = 0);
Step opens(uint32_t connection, uint8_t interface);
Step closes(uint32_t connection, uint8_t interface);
Step joins(uint32_t connection, uint8_t deviceType = kPhone);  // connects and opens all four gates
Step disconnects(uint32_t connection);
Step sends(const ble_message_t& record);
Step writes(uint32_t connection, uint8_t stream, const Message& message);
Step writesPacket(uint32_t connection, uint8_t stream, const Message& packet);
Step pushes(const std::string& json);
Step notifies(const std::string& command, const Bytes& csiRecords);
Step tells(const char* queue, const Message& message);  // any bytes to one of the daemon's own queues
Step replies(const std::string& call, int result, const Message& reply = "");
Step hangs(const std::string& service);  // "control", "csi" or "ipc"
Step goes(const std::string& service);
Step comesBack(const std::string& service);
Step sets(unsigned logLevel);
Step occupies(long places);  // of the radio queue
Step drains();               // the radio queue

// ---- what it must do
// The next packets of this connection are this message on the answer stream of the interface, byte for byte.
Step answers(uint32_t connection, uint8_t interface, const Message& message);
Step asks(uint32_t connection, uint8_t interface, const Message& request, const Message& answer);  // writes and answers
Step packet(uint32_t connection, uint8_t stream, const Message& bytes);
Step calls(const std::string& list);        // all since the last look, "a, b"; callers only when the list names one
Step tellsNet(const std::string& message);  // TlvMessage::text of the next message to the network daemon
// A line "[ERROR] text" of that module.
Step logs(const std::string& line, const std::string& module = "kzBleServer");
Step settles();  // everything so far has been handled; packets may wait
Step quiet();    // no packet waits and none of what was sent is still unhandled

// Stops at the first step that fails; does nothing in a test that has failed.
void play(Rig& rig, const Script& script);

}  // namespace e2e
