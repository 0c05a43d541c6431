// The client table: who is served, who is refused, and what connecting and leaving does.
#include "fixture.h"

namespace e2e {
namespace {

constexpr uint8_t kSystemState = 111;  // CSI key: 1 suspended, 0 resumed

// A command whose answer is the catalogue's version; it calls nothing but the analytics key.
constexpr const char* kAskVersion = "3a";
constexpr const char* kVersion = "3a 00 04 31 2e 32 35";

std::string registration(uint8_t operation) {
    Bytes record = little32(operation) + textBytes("/to_kzBleD");
    record.resize(264);
    return "command 0: " + toHex(record);
}

std::string unknownClientTexts(int connection, size_t clients) {
    return "Couldn't find connectionID:" + std::to_string(connection) + " in list of size " + std::to_string(clients);
}

using Connection = E2e;

TEST_F(Connection, TwentyClientsAreServedAndTheNextIsNot) {
    Rig& rig = serve();
    for (uint32_t id = 1; id <= 21; ++id) {
        play(rig, {connects(id), opens(id, kCommandGate)});
    }
    play(rig, {logs("[ERROR]", "Client limit 20 reached, connection_id:21 will not be serviced", "kzBleServer"),
               logs("[ERROR]", "Unable to update SDK device state", "kzBleServer"),
               logs("[ERROR]", "Unhandled device conenction event_type:3", "kzBleServer")});
    for (uint32_t id = 1; id <= 20; ++id) {
        play(rig, {writes(id, kCommand, kAskVersion), answers(id, kCommandAnswer, kVersion)});
    }

    play(rig, {writes(21, kCommand, kAskVersion), logs("[ERROR]", unknownClientTexts(21, 20), "kzBleServer"),
               logs("[ERROR]", "Client:0 , id:1", "kzBleServer"), logs("[ERROR]", "Client:19 , id:20", "kzBleServer"),
               logs("[ERROR]", "Received SDK message for non tracked connection_id:21", "kzBleServer"), quiet()});

    play(rig, {disconnects(7), connects(21), opens(21, kCommandGate), writes(21, kCommand, kAskVersion),
               answers(21, kCommandAnswer, kVersion), writes(8, kCommand, kAskVersion),
               answers(8, kCommandAnswer, kVersion)});
}

TEST_F(Connection, RecordsThatFitNoClientAreLoggedAndIgnored) {
    Rig& rig = serve();

    play(rig, {writes(5, kCommand, kAskVersion), logs("[ERROR]", unknownClientTexts(5, 0), "kzBleServer"),
               logs("[ERROR]", "Received SDK message for non tracked connection_id:5", "kzBleServer"), disconnects(5),
               logs("[ERROR]", "Unhandled device conenction event_type:1", "kzBleServer"),
               logs("[ERROR]", "Unable to update SDK device state", "kzBleServer"), connects(1), connects(1),
               logs("[WARN ]", "Received event 0 for already connected BLE client on connection_id 1", "kzBleServer"),
               opens(1, 9), logs("[DEBUG]", "Invalid CCC stream ID 9", "bleDevice.cpp"), writesPacket(1, 3, "01 3a"),
               logs("[ERROR]", "Unhandled stream type:3 in BLE SDK Message.", "kzBleServer"), quiet()});
}

TEST_F(Connection, UnknownEventTypeIsReportedWithItsErrorCode) {
    Rig& rig = serve();
    ble_message_t record = {};
    record.eventType = 77;

    rig.radio->send(record);

    play(rig, {logs("[ERROR]", "Unhandled event_type 77", "kzBleServer"),
               logs("[ERROR]", "event_type:77 returned kzErrno:(-104)", "kzBleServer")});
}

struct Gate {
    const char* name;
    uint8_t descriptor;
    uint8_t requestStream;
    uint8_t answerStream;
    const char* request;
    const char* answer;

    friend void PrintTo(const Gate& row, std::ostream* out) { *out << row.name; }
};

class Gates : public E2e, public testing::WithParamInterface<Gate> {};

TEST_P(Gates, AnswersLeaveWhileTheGateIsOpenAndAreDroppedWhileItIsClosed) {
    const Gate& gate = GetParam();
    Rig& rig = serve();
    const Script served = {writes(1, gate.requestStream, gate.request), answers(1, gate.answerStream, gate.answer)};
    const Script dropped = {writes(1, gate.requestStream, gate.request), quiet()};
    play(rig, {connects(1)});  // a new client's gates are closed

    play(rig, dropped);
    play(rig, {opens(1, gate.descriptor)});
    play(rig, served);
    play(rig, {closes(1, gate.descriptor)});
    play(rig, dropped);
    play(rig, {opens(1, gate.descriptor), quiet()});
    play(rig, served);
}

INSTANTIATE_TEST_SUITE_P(, Gates,
                         testing::Values(Gate{"Command", kCommandGate, kCommand, kCommandAnswer, kAskVersion, kVersion},
                                         Gate{"Settings", kSettingsGate, kSettings, kSettingsAnswer, "02 01 04",
                                              "02 00"},
                                         Gate{"Query", kQueryGate, kQuery, kQueryAnswer, "13 21", "13 00 21 01 ff"},
                                         Gate{"Sensor", kSensorGate, kSensorRequest, kSensorAnswer, "50 01", "50 00"}),
                         [](const auto& row) { return row.param.name; });

TEST_F(Connection, SensorDescriptorOpensEveryGate) {
    Rig& rig = serve();
    play(rig, {connects(1, kSensor)});

    rig.radio->enableSensor(1);

    play(rig, {writes(1, kCommand, kAskVersion), answers(1, kCommandAnswer, kVersion),
               writes(1, kSensorRequest, "50 01"), answers(1, kSensorAnswer, "50 00")});
}

TEST_F(Connection, SensorClientIsReportedToAnalytics) {
    Rig& rig = serve();

    play(rig, {connects(1, kSensor), tellsNet("18 CI /to_kznet>/to_kznet: 57 04 00 00 00 76 10 ff ff")});
}

TEST_F(Connection, CommandsAreAttributedToTheClientThatIsServed) {
    Rig& rig = serve();
    play(rig, {connects(1, 10), opens(1, kCommandGate)});
    rig.settle();
    rig.camera.takeCalls();

    play(rig, {writes(1, kCommand, "01 01 01"), answers(1, kCommandAnswer, "01 00")});
    rig.settle();

    EXPECT_EQ(rig.camera.takeCallsWithCallers(),
              (std::vector<std::string>{"caller 10", "csi_set 92: 0a", "command 3: 01", "caller 0"}));
}

TEST_F(Connection, DeviceKeepsItsIdWhenItComesBack) {
    Rig& rig = serve();
    play(rig, {sets(5)});

    play(rig, {connects(1), logs("[INFO ]", "Add Client connId=1 deviceId=1", "kzBleServer"), connects(2),
               logs("[INFO ]", "Add Client connId=2 deviceId=2", "kzBleServer"), disconnects(1)});
    rig.radio->connect(9, kPhone, 1);  // the first device's address

    play(rig, {logs("[INFO ]", "History devId= 1 addr = C00102030401", "kzBleServer"),
               logs("[INFO ]", "Add Client connId=9 deviceId=1", "kzBleServer"), connects(3),
               logs("[INFO ]", "Add Client connId=3 deviceId=3", "kzBleServer")});
}

TEST_F(Connection, PushRegistrationLastsFromTheFirstClientToTheLast) {
    Rig& rig = serve();

    play(rig,
         {connects(1), calls({registration(1)}), connects(2), calls({}), disconnects(1),
          calls({"csi_set 11: 00 00 00 00"}), disconnects(2), calls({"csi_set 11: 00 00 00 00", registration(0)})});
}

TEST_F(Connection, RefusedPushRegistrationIsTriedAgainWithTheNextClient) {
    Rig& rig = serve();

    play(rig, {replies(0, -1), connects(1), calls({registration(1)}),
               logs("[ERROR]", "Unable to register with kzControl for push notifications", "kzBleServer"),
               replies(0, 0), connects(2), calls({registration(1)})});
}

TEST_F(Connection, SuspendedCameraRegistersWhenItResumes) {
    Rig& rig = serve();
    play(rig,
         {notifies("CN", csiRecord(kSystemState, 1u)), connects(1), calls({}),
          logs("[DEBUG]",
               "BLE device connected while SYS_SUSPENDED_UNSAFE, mobile should call caminfo  cmd to determine when "
               "resumed",
               "kzBleServer")});

    play(rig, {notifies("CN", csiRecord(kSystemState, 0u)), calls({registration(1)})});
}

TEST_F(Connection, NothingOfADepartedClientReachesTheNextOne) {
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1), connects(2), opensAll(2),
               writesPacket(1, kQuery, "20 15 52 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02"),
               writes(1, kQuery, "53 0a"), answers(1, kQueryAnswer, "53 00 0a 00"),
               writesPacket(1, kQuery, "20 15 52 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02")});

    play(rig, {disconnects(1), connects(1), opensAll(1)});

    play(rig,
         {writesPacket(1, kQuery, "80 02 02 02"), answers(1, kQueryAnswer, "00 02"), pushes(R"({"status": {"10": 1}})"),
          quiet(), writes(2, kCommand, kAskVersion), answers(2, kCommandAnswer, kVersion)});
}

}  // namespace
}  // namespace e2e
