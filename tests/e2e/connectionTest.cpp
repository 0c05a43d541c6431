// The client table: who is served, who is refused, and what connecting and leaving does.
#include "fixture.h"

namespace e2e {
namespace {

constexpr uint8_t kVoice = 10;
constexpr uint8_t kSystemState = 111;  // CSI keys: 1 suspended, 0 resumed;
constexpr uint8_t kWmsState = 74;      // 17 configure mode

using Connection = E2e;

TEST_F(Connection, TwentyClientsAreServedAndTheNextIsNot) {
    serve();
    for (uint32_t id = 1; id <= 21; ++id) {
        play({connects(id), opens(id, kCommand)});
    }
    play({logs("[ERROR] Client limit 20 reached, connection_id:21 will not be serviced"),
          logs("[ERROR] Unable to update SDK device state"), logs("[ERROR] Unhandled device conenction event_type:3")});
    for (uint32_t id = 1; id <= 20; ++id) {
        play({asks(id, kCommand, kAskVersion, kVersion)});
    }

    play({writes(21, kCommand, kAskVersion), logs("[ERROR] Couldn't find connectionID:21 in list of size 20"),
          logs("[ERROR] Client:0 , id:1"), logs("[ERROR] Client:19 , id:20"),
          logs("[ERROR] Received SDK message for non tracked connection_id:21"), quiet()});

    play({disconnects(7), connects(21), opens(21, kCommand), asks(21, kCommand, kAskVersion, kVersion),
          asks(8, kCommand, kAskVersion, kVersion), quiet()});
}

TEST_F(Connection, RecordsThatFitNoClientAreLoggedAndIgnored) {
    serve();

    play({writes(5, kCommand, kAskVersion), logs("[ERROR] Couldn't find connectionID:5 in list of size 0"),
          logs("[ERROR] Received SDK message for non tracked connection_id:5"), disconnects(5),
          logs("[ERROR] Unhandled device conenction event_type:1"), logs("[ERROR] Unable to update SDK device state"),
          connects(1), connects(1),
          logs("[WARN ] Received event 0 for already connected BLE client on connection_id 1"),
          sends(eventRecord(KZBLE_SDK_EVENT_CCC, 1, {9, 1})), logs("[DEBUG] Invalid CCC stream ID 9", "bleDevice.cpp"),
          writesPacket(1, 3, "01 3a"), logs("[ERROR] Unhandled stream type:3 in BLE SDK Message."),
          sends(eventRecord(77, 1)), logs("[ERROR] Unhandled event_type 77"),
          logs("[ERROR] event_type:77 returned kzErrno:(-104)"), sends(debugRecord(9)),
          logs("[ERROR] Unrecognized command on debug event"), quiet()});
    // Each event is one of its kind and no other.
    for (const char* line : {"Received event", "Unhandled device conenction", "Invalid CCC stream ID",
                             "Unhandled stream", "Unrecognized command on debug"}) {
        EXPECT_EQ(rig->daemon.count(line), 1u) << line;
    }
    EXPECT_EQ(rig->daemon.count("Unhandled event_type " + std::to_string(KZBLE_SDK_EVENT_Debug) + " "), 0u);
}

TEST_F(Connection, AnswersLeaveThroughTheirOpenGateAndAreDroppedByAClosedOne) {
    const struct {
        const char* name;
        uint8_t interface;
        const char* request;
        const char* answer;
        const char* dropped;
    } gates[] = {
        {"command", kCommand, kAskVersion, kVersion, "stream_id:2 for response:4"},
        {"settings", kSettings, "02 01 04", "02 00", "stream_id:7"},
        {"query", kQuery, "13 21", "13 00 21 01 ff", "stream_id:12"},
        {"sensor", kSensorData, "50 01", "50 00", "stream_id:17"},
    };
    serve();
    play({sets(5)});
    for (const auto& gate : gates) {
        SCOPED_TRACE(gate.name);
        const Step served = asks(1, gate.interface, gate.request, gate.answer);
        const std::string text = "[INFO ] Response dropped because notify disabled on conn_id 1 ";
        const Script dropped = {writes(1, gate.interface, gate.request), logs(text + gate.dropped), quiet()};

        play({connects(1)});
        for (const auto& other : gates) {
            play({other.interface != gate.interface ? opens(1, other.interface) : settles()});
        }
        play(dropped);
        play({opens(1, gate.interface), served, closes(1, gate.interface)});
        play(dropped);
        play({opens(1, gate.interface), quiet(), served, disconnects(1)});
    }
}

TEST_F(Connection, SensorIsReportedToAnalyticsAndItsDescriptorOpensEveryGate) {
    serve();

    play({connects(1, kSensor), tellsNet("18 CI /to_kznet>/to_kznet: 57 04 00 00 00 76 10 ff ff"),
          sends(eventRecord(KZBLE_SDK_EVENT_SensorCCC, 1)), asks(1, kCommand, kAskVersion, kVersion),
          asks(1, kSettings, "02 01 04", "02 00"), asks(1, kQuery, "13 21", "13 00 21 01 ff"),
          asks(1, kSensorData, "50 01", "50 00")});
}

TEST_F(Connection, CommandsAreAttributedToTheClientThatIsServed) {
    serve();
    play({joins(1, kVoice), calls(registration(1))});

    play({asks(1, kCommand, "01 01 01", "01 00"), calls("caller 10, csi_set 92: 0a, command 3: 01, caller 0")});
}

TEST_F(Connection, DeviceKeepsItsIdWhenItComesBack) {
    serve();

    play({sets(5), connects(1), logs("[INFO ] Add Client connId=1 deviceId=1"), connects(2),
          logs("[INFO ] Add Client connId=2 deviceId=2"), disconnects(1), connects(9, kPhone, 1),
          logs("[INFO ] History devId= 1 addr = C00102030401"), logs("[INFO ] Add Client connId=9 deviceId=1"),
          connects(3), logs("[INFO ] Add Client connId=3 deviceId=3")});
}

TEST_F(Connection, PushRegistrationLastsFromTheFirstClientToTheLast) {
    serve();

    play({connects(1), calls(registration(1)), connects(2), calls(""), disconnects(1), calls("csi_set 11: 00 00 00 00"),
          disconnects(2), calls("csi_set 11: 00 00 00 00, " + registration(0))});
    play({replies("command 0", -1), connects(1), calls(registration(1)),
          logs("[ERROR] Unable to register with kzControl for push notifications"), replies("command 0", 0),
          connects(2), calls(registration(1)), replies("command 0", -1), disconnects(1), disconnects(2),
          logs("[ERROR] Unable to unregister with kzControl for push notifications")});
}

TEST_F(Connection, WhoLeavesInConfigureModeEndsIt) {
    serve();
    play({connects(1), connects(2), disconnects(1), notifies("CN", csiRecord(kWmsState, 17u)), disconnects(2),
          logs("[ERROR] EXIT CONFIGURE MODE on BLE DISCONNECT", "bleDevice.cpp"),
          tellsNet("18 CI /to_kznet>/to_kznet: 49 01 00 00 00 02")});
    EXPECT_EQ(rig->network->waiting(), 0);
}

TEST_F(Connection, SuspendedCameraRegistersWhenItResumes) {
    serve();
    play({notifies("CN", csiRecord(kSystemState, 1u)), joins(1), calls(""),
          logs("[DEBUG] BLE device connected while SYS_SUSPENDED_UNSAFE, mobile should call caminfo  cmd to determine "
               "when resumed"),
          asks(1, kCommand, "3c", "3c 01"), logs("[ERROR] ERROR - BLE message recieved while resuming"),
          logs("[ERROR] Camera Info command while still resuming, return error, mobile should retry",
               "bleCommandMessage.cpp"),
          calls("csi_set 92: 0b")});

    play({notifies("CN", csiRecord(kSystemState, 0u)), calls(registration(1))});
}

TEST_F(Connection, NothingOfADepartedClientReachesTheNextOne) {
    const char* const firstOfTwoPackets = "20 15 52 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02";
    serve();
    play({pushes(R"({"status": {"33": 0}})"), joins(1), asks(1, kQuery, "13 21", "13 00 21 01 00"),
          asks(1, kQuery, "53 0a", "53 00 0a 00"), writesPacket(1, kQuery, firstOfTwoPackets)});

    play({disconnects(1), joins(1)});

    play({writesPacket(1, kQuery, "80 02 02 02"), answers(1, kQuery, "00 02"), pushes(R"({"status": {"10": 1}})"),
          asks(1, kQuery, "13 21", "13 00 21 01 ff"), quiet()});
}

}  // namespace
}  // namespace e2e
