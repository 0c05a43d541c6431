// Changes that the control daemon and the CSI service report, and who is told.
#include "fixture.h"

namespace e2e {
namespace {

constexpr const char* kAskVersion = "3a";
constexpr const char* kVersion = "3a 00 04 31 2e 32 35";

// CSI keys of the notifications below.
enum : uint8_t {
    kBusy = 3,
    kOtaError = 40,
    kOtaPercentage = 41,
    kOtaState = 42,
    kBattery = 43,
    kExternalPower = 61,
    kSdCard = 62,
    kUploadProgress = 94,
    kNewMedia = 128,
};

using Push = E2e;

TEST_F(Push, ReachesExactlyTheClientsThatRegisteredAndEnabledIt) {
    Rig& rig = serve();
    play(rig,
         {connects(1), opensAll(1), writes(1, kQuery, "52"), answers(1, kQueryAnswer, "52 00"),  // all settings
          connects(2), opensAll(2), writes(2, kQuery, "53 0a"), answers(2, kQueryAnswer, "53 00 0a 00"), connects(3),
          opensAll(3), writes(3, kQuery, "62 03"), answers(3, kQueryAnswer, "62 00 03 00"), connects(4), opensAll(4),
          writes(4, kQuery, "53 0a"), answers(4, kQueryAnswer, "53 00 0a 00"), closes(4, kQueryGate),  // not enabled
          connects(5), opensAll(5)});                                                                  // not registered

    play(rig, {pushes(R"({"settings": {"2": 4, "30": 1000}, "status": {"8": 0, "10": 1}})"),
               answers(1, kQueryAnswer, "92 00 02 01 04 1e 04 00 00 03 e8"), answers(2, kQueryAnswer, "93 00 0a 01 01"),
               answers(3, kQueryAnswer, "a2 00 03 01 00"),  // 1 and 2 are forbidden now
               quiet()});
}

TEST_F(Push, EndsWithTheRegistration) {
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1), writes(1, kQuery, "52 02 03"), answers(1, kQueryAnswer, "52 00 02 00 03 00"),
               writes(1, kQuery, "72 02"), answers(1, kQueryAnswer, "72 00")});

    play(rig, {pushes(R"({"settings": {"2": 4}})"), quiet(), pushes(R"({"settings": {"2": 4, "3": 0}})"),
               answers(1, kQueryAnswer, "92 00 03 01 00"), quiet()});
}

TEST_F(Push, SameValueAgainIsPushedAgain) {
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1), writes(1, kQuery, "53 0a"), answers(1, kQueryAnswer, "53 00 0a 00")});

    for (int i = 0; i < 2; ++i) {
        play(rig, {pushes(R"({"status": {"10": 1}})"), answers(1, kQueryAnswer, "93 00 0a 01 01"), quiet()});
    }
}

TEST_F(Push, NewestOfSeveralUnsentPushesWins) {
    Rig::Options options;
    options.transmitDepth = 1;
    Rig& rig = serve(options);
    play(rig, {connects(1), opensAll(1), writes(1, kQuery, "52 02"), answers(1, kQueryAnswer, "52 00 02 00"),
               writes(1, kCommand, kAskVersion), settles()});

    play(rig, {pushes(R"({"settings": {"2": 1}})"),
               logs("[ERROR]", "Failed to send a response of length 5 to connection_id:1, will buffer.", "kzBleServer"),
               pushes(R"({"settings": {"2": 9}})"),
               logs("[ERROR]", "Settings Push Notifications backed up, replacing oldest", "bleDevice.cpp"),
               answers(1, kCommandAnswer, kVersion), answers(1, kQueryAnswer, "92 00 02 01 09"), quiet()});
}

TEST_F(Push, MalformedEventsAreReportedAndDropped) {
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1), writes(1, kQuery, "52"), answers(1, kQueryAnswer, "52 00")});

    play(rig, {pushes(R"({"settings": {"2": )"), logs("[ERROR]", "Input JSON is nullptr", "settingsStatusMapping.cpp"),
               pushes(R"({"settings": {"200": 1}})"),
               logs("[ERROR]", "Key 200 is too big for notification table of size 182", "settingsStatusMapping.cpp"),
               pushes("[]"), pushes("7"), pushes(""), quiet()});
    const Bytes wrongCategory = fromHex("00 0c 00 15 00 00 00 45 00 00 00 ee");
    const Bytes broken[] = {fromHex("00"), fromHex("00 09 00 16"), fromHex("05 dc 00 16 00 05 d0 45"),
                            fromHex("00 0c 00 16 00 ff ff 45 00 00 00 ee"), Bytes(1500, 0xFF)};
    Queue events = Queue::openForSending("/to_kzBleD");
    events.send(wrongCategory);
    play(rig, {logs("[ERROR]", "Invalid command category received: 21", "kzBleServer")});
    for (const Bytes& message : broken) {
        events.send(message);
        rig.settle();
    }

    play(rig, {pushes(R"({"settings": {"2": 1}})"), answers(1, kQueryAnswer, "92 00 02 01 01"), quiet()});
}

TEST_F(Push, LastDisconnectionForgetsTheSdCardStatus) {
    Rig& rig = serve();
    const Script ask = {opensAll(1), writes(1, kQuery, "13 21")};
    play(rig, {connects(1), pushes(R"({"status": {"33": 0}})")});
    play(rig, ask);
    play(rig, {answers(1, kQueryAnswer, "13 00 21 01 00"), disconnects(1), connects(1)});
    play(rig, ask);
    play(rig, {answers(1, kQueryAnswer, "13 00 21 01 ff")});
}

// ---------------------------------------------------------------- CSI notifications

// A client that watches state and percentage of an update.
const Script kWatchesOta = {connects(1), opensAll(1), writes(1, kQuery, "f5 76 08 01 08 02"),
                            answers(1, kQueryAnswer, "f5 f6 08 00 10 00 18 00")};

TEST_F(Push, SeveralCsiRecordsAreFannedOutOneByOneAndAcknowledgedOnce) {
    Rig& rig = serve();
    play(rig, kWatchesOta);
    const Bytes records = csiRecord(kOtaState, 2u) + csiRecord(kOtaPercentage, 50u) + csiRecord(kOtaState, 4u);

    const TlvMessage acknowledgement = rig.notifyCsi("CU", records);

    EXPECT_EQ(acknowledgement.text(), "19 CU /to_blesdk>/to_e2e: " + toHex(records) + " | 00");
    std::vector<uint8_t> order;
    for (const auto& element : acknowledgement.elements) {
        order.push_back(element.first);
    }
    EXPECT_EQ(order, (std::vector<uint8_t>{kTlvCommand, kTlvArgument, kTlvDestination, kTlvSource, kTlvResponse}));
    play(rig, {answers(1, kQueryAnswer, "f5 f7 08 02"), answers(1, kQueryAnswer, "f5 f7 10 32"),
               answers(1, kQueryAnswer, "f5 f7 08 04 18 00"), quiet()});
}

TEST_F(Push, SingleNotificationHoldsOneRecordOnly) {
    Rig& rig = serve();
    play(rig, kWatchesOta);

    play(rig, {notifies("CN", csiRecord(kOtaState, 2u) + csiRecord(kOtaPercentage, 50u)),
               answers(1, kQueryAnswer, "f5 f7 08 02"), quiet()});
}

TEST_F(Push, BadCsiRecordsDoNotReachTheClients) {
    Rig& rig = serve();
    play(rig, kWatchesOta);

    play(rig, {notifies("CN", csiRecord(kOtaPercentage, fromHex("00 00 00 00 63"))),
               logs("[ERROR]", "size error on csi 41", "kzBleServer"), answers(1, kQueryAnswer, "f5 f7 10 00"),
               notifies("CN", csiRecord(kUploadProgress, textBytes("1:2"))),
               logs("[DEBUG]", "Error parsing CSI_CAH_UPLOAD_PROGRESS", "kzBleServer"),
               notifies("CU", fromHex("2a 04 00 00")), notifies("CU", fromHex("2a ff ff ff ff 01")), notifies("CN", {}),
               quiet()});
    Queue csi = Queue::openForSending("/to_blesdk");
    const Bytes broken[] = {fromHex("00"), fromHex("05 dc 00 12 00 05 d0 42"),
                            fromHex("00 0c 00 12 00 ff ff 41 00 00 00 ee"), Bytes(1500, 0xFF)};
    for (const Bytes& message : broken) {
        csi.send(message);
    }
    TlvMessage unknown;
    unknown.category = 18;
    unknown.elements = {{kTlvCommand, textBytes("XY")}, {kTlvArgument, {0}}};
    csi.send(unknown.encode());
    play(rig, {logs("[ERROR]", "Unexpected Response type on CSI notification [XY]", "kzBleServer")});
    unknown.elements = {{kTlvCommand, textBytes("CN")}};
    csi.send(unknown.encode());
    play(rig, {logs("[ERROR]", "Failed to find TLV_CMDARG in message from kzNet", "kzBleServer"),
               notifies("CN", csiRecord(kOtaState, 2u)), answers(1, kQueryAnswer, "f5 f7 08 02"), quiet()});
}

TEST_F(Push, UploadProgressReachesClientsOfTheCloudFeature) {
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1), writes(1, kQuery, "f5 7e 08 01"), settles()});
    rig.radio->receiveMessage();

    play(rig, {notifies("CN", csiRecord(kUploadProgress, textBytes("3:10:27"))),
               answers(1, kQueryAnswer, "f5 ff 88 01 03 90 01 0a 98 01 1b"), quiet()});
}

TEST_F(Push, SubscriptionAnswerIsChecked) {
    Rig& rig = serve();
    play(rig, {sets(5)});
    Queue csi = Queue::openForSending("/to_blesdk");
    TlvMessage answer;
    answer.category = 17;
    const auto send = [&](const char* command, uint8_t result) {
        answer.elements = {{kTlvCommand, textBytes(command)}, {kTlvArgument, {0}}, {kTlvResponse, {result}}};
        csi.send(answer.encode());
    };

    send("CR", 0);
    play(rig, {logs("[INFO ]", "Got success response to CSI subscribe/unsubscribe", "kzBleServer")});
    send("CR", 1);
    play(rig, {logs("[ERROR]", "CSI Subscribe/unsubscribe failed", "kzBleServer")});
    send("XX", 0);
    play(rig, {logs("[ERROR]", "Unexpected Response type on CSI subscribe response [XX]", "kzBleServer")});
}

TEST_F(Push, StatusByteIsPublishedFromTheFirstPowerReportAndOnlyWhenItChanges) {
    Rig& rig = serve();
    const auto publishes = [](const std::string& value) {
        return tellsNet("18 CI /to_kznet>/to_kznet: 22 01 00 00 00 " + value);
    };

    play(rig, {notifies("CN", csiRecord(kBattery, 50u)), notifies("CN", csiRecord(kSdCard, 0u)),
               notifies("CN", csiRecord(kExternalPower, 0u)), publishes("0c"),
               notifies("CN", csiRecord(kExternalPower, 1u)), notifies("CN", csiRecord(kBusy, 1u)), publishes("1c"),
               notifies("CN", csiRecord(kBusy, 0u)), publishes("0c"), notifies("CN", csiRecord(kNewMedia, 1u)),
               publishes("0f"), tellsNet("18 CI /to_kznet>/to_kznet: 26 04 00 00 00 00 00 00 00")});
    EXPECT_EQ(rig.network->waiting(), 0);
}

// ---------------------------------------------------------------- accessory buffers

TEST_F(Push, AccessoryBuffersGoToTheInterestedAccessoryAndStayForTheNext) {
    Rig& rig = serve();
    Queue csi = Queue::openForSending("/to_blesdk");
    const auto show = [&](const char* command, const Bytes& data) {
        TlvMessage message;
        message.category = 10;
        message.elements = {{kTlvCommand, textBytes(command)}, {kTlvArgument, data}};
        csi.send(message.encode());
    };
    play(rig,
         {connects(1), opensAll(1), connects(2), opensAll(2), writes(2, kSensorRequest, "50 01"),
          answers(2, kSensorAnswer, "50 00"), writes(2, kSensorRequest, "52 01"), answers(2, kSensorAnswer, "52 00")});

    show("LB", ramp(6, 0x10));
    play(rig, {answers(2, kSensorAnswer, "51 10 11 12 13 14 15")});
    show("AL", ramp(5, 0x20));
    play(rig, {answers(2, kSensorAnswer, "53 20 21 22 23 24")});
    show("LB", ramp(4));
    play(rig, {logs("[ERROR]", "CAT RTOS TLV arg length <= TLV_ELEM_HDR_SIZE", "kzBleServer")});
    show("AL", ramp(40));
    show("QQ", ramp(5));
    play(rig, {logs("[ERROR]", "Unexpected Response type on CSI notification [QQ]", "kzBleServer"), quiet()});

    play(rig, {connects(3, kSensor), opensAll(3), writes(3, kSensorRequest, "50 01"),
               answers(3, kSensorAnswer, "50 00"), answers(3, kSensorAnswer, "51 10 11 12 13 14 15"), quiet()});
}

}  // namespace
}  // namespace e2e
