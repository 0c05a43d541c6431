// Changes that the control daemon and the CSI service report, and who is told.
#include "fixture.h"

namespace e2e {
namespace {

// CSI keys of the notifications below.
enum : uint8_t {
    kOtaPercentage = 41,
    kOtaState = 42,
    kBattery = 43,
    kExternalPower = 61,
    kSdCard = 62,
};

Bytes csiMessage(uint8_t category, std::vector<std::pair<uint8_t, Bytes>> elements) {
    return TlvMessage{category, std::move(elements)}.encode();
}

Bytes command(uint8_t category, const char* name, const Bytes& argument) {
    return csiMessage(category, {{kTlvCommand, textBytes(name)}, {kTlvArgument, argument}});
}

class Push : public E2e {
  protected:
    // A daemon with a client that watches state and percentage of an update, and the presets.
    void serveWatcher() {
        serve();
        play({joins(1), asks(1, kQuery, "f5 76 08 01 08 02", "f5 f6 08 00 10 00 18 00"),
              writes(1, kQuery, "f5 72 08 01"), drains()});
    }
};

TEST_F(Push, ReachesExactlyTheClientsThatRegisteredAndEnabledIt) {
    serve();
    play({joins(1), asks(1, kQuery, "52", "52 00"), joins(2), asks(2, kQuery, "53 0a", "53 00 0a 00"), joins(3),
          asks(3, kQuery, "62 03", "62 00 03 00"), joins(4), asks(4, kQuery, "53 0a", "53 00 0a 00"), closes(4, kQuery),
          joins(5)});

    play({pushes(R"({"settings": {"2": 4, "30": 1000}, "status": {"8": 0, "10": 1}})"),
          answers(1, kQuery, "92 00 02 01 04 1e 04 00 00 03 e8"), answers(2, kQuery, "93 00 0a 01 01"),
          answers(3, kQuery, "a2 00 03 01 00"),  // 1 and 2 are forbidden now
          quiet()});

    // The same again is told again, what has changed since of the capabilities only.
    play({asks(1, kQuery, "72 02", "72 00"), pushes(R"({"settings": {"2": 4, "3": 0}, "status": {"10": 1}})"),
          answers(1, kQuery, "92 00 03 01 00"), answers(2, kQuery, "93 00 0a 01 01"), quiet()});
}

TEST_F(Push, ChangesThatNobodyWasNotifiedOfComeWithTheNext) {
    serve();

    play({joins(1), pushes(R"({"settings": {"2": 4}, "status": {"8": 1}})"),
          asks(1, kQuery, "52 02 03", "52 00 02 01 04 03 00"), asks(1, kQuery, "53 08 0a", "53 00 08 01 01 0a 00"),
          pushes(R"({"settings": {"3": 0}, "status": {"10": 1}})"), answers(1, kQuery, "92 00 02 01 04 03 01 00"),
          answers(1, kQuery, "93 00 08 01 01 0a 01 01"), pushes(R"({"settings": {"3": 0}, "status": {"10": 1}})"),
          answers(1, kQuery, "92 00 03 01 00"), answers(1, kQuery, "93 00 0a 01 01"), quiet()});
}

TEST_F(Push, ClosedGateDropsEveryKindOfPush) {
    serve();
    play({joins(1), asks(1, kQuery, "52 02", "52 00 02 00"), asks(1, kQuery, "53 0a", "53 00 0a 00"),
          asks(1, kQuery, "62 03", "62 00 03 00"), asks(1, kQuery, "f5 76 08 01", "f5 f6 08 00 10 00 18 00"),
          closes(1, kQuery), sets(5)});

    play({pushes(R"({"settings": {"2": 4}, "status": {"10": 1}})"),
          logs("[INFO ] Client provided data for push response, length:5"),
          logs("[INFO ] Settings Push dropped because notify disabled on conn_id 1 stream_id:14"),
          logs("[INFO ] Status Push dropped because notify disabled on conn_id 1 stream_id:14"),
          logs("[INFO ] Capabilities Push dropped because notify disabled on conn_id 1 stream_id:14"),
          notifies("CN", csiRecord(kOtaState, 2u)),
          logs("[INFO ] Status Push dropped because notify disabled on conn_id 1 stream_id:14"), opens(1, kQuery),
          quiet()});
}

TEST_F(Push, MalformedEventsAreReportedAndDropped) {
    serve();
    play({joins(1), asks(1, kQuery, "52", "52 00")});

    play({pushes(R"({"settings": {"2": )"), logs("[ERROR] Input JSON is nullptr", "settingsStatusMapping.cpp"),
          pushes(R"({"settings": {"200": 1}})"),
          logs("[ERROR] Key 200 is too big for notification table of size 182", "settingsStatusMapping.cpp"),
          pushes("[]"), pushes("7"), pushes(""), tells(kEventQueue, "00 0c 00 15 00 00 00 45 00 00 00 ee"),
          logs("[ERROR] Invalid command category received: 21")});
    for (const Message& broken : {Message("00"), Message("00 09 00 16"), Message("05 dc 00 16 00 05 d0 45"),
                                  Message("00 0c 00 16 00 ff ff 45 00 00 00 ee"), Message(Bytes(1500, 0xFF))}) {
        play({tells(kEventQueue, broken), quiet()});
    }
    play({pushes(R"({"settings": {"2": 1}})"), answers(1, kQuery, "92 00 02 01 01"), quiet()});
}

// ---------------------------------------------------------------- CSI notifications

TEST_F(Push, SeveralCsiRecordsAreFannedOutOneByOneAndAcknowledgedOnce) {
    serveWatcher();
    const Bytes records = csiRecord(kOtaState, 2u) + csiRecord(kOtaPercentage, 50u) + csiRecord(kOtaState, 4u);

    const TlvMessage acknowledgement = rig->notifyCsi("CU", records);

    EXPECT_EQ(acknowledgement.text(), "19 CU /to_blesdk>/to_e2e: " + toHex(records) + " | 00");
    std::vector<uint8_t> order;
    for (const auto& element : acknowledgement.elements) {
        order.push_back(element.first);
    }
    EXPECT_EQ(order, (std::vector<uint8_t>{kTlvCommand, kTlvArgument, kTlvDestination, kTlvSource, kTlvResponse}));
    play({answers(1, kQuery, "f5 f7 08 02"), answers(1, kQuery, "f5 f7 10 32"), answers(1, kQuery, "f5 f7 08 04 18 00"),
          quiet()});

    // A zero that ends a name counts or not; the elements go back as they came.
    const std::string zero(1, '\0');
    EXPECT_EQ(rig->notifyCsi("CN", csiRecord(kOtaPercentage, 50u), zero).text(),
              "19 CN" + zero + " /to_blesdk>/to_e2e" + zero + ": 29 04 00 00 00 32 00 00 00 | 00");
    play({answers(1, kQuery, "f5 f7 10 32"), quiet()});

    // A single notification holds one record only.
    play({notifies("CN", csiRecord(kOtaState, 2u) + csiRecord(kOtaPercentage, 50u)), answers(1, kQuery, "f5 f7 08 02"),
          quiet()});
}

TEST_F(Push, MalformedCsiMessagesAreReportedAndDropped) {
    const Bytes record = csiRecord(kOtaState, 9u);
    const std::string unexpected = "[ERROR] Unexpected Response type on CSI ";
    const std::string noArgument = "[ERROR] Failed to find TLV_CMDARG in message from kzNet";
    const std::string noLength = " bytes does not hold the length it announces";
    const std::pair<Bytes, std::string> rows[] = {
        {csiMessage(18, {{kTlvArgument, record}}), "[ERROR] Failed to find TLV_CMD in message from kzNet"},
        {csiMessage(18, {{kTlvCommand, textBytes("CN")}}), noArgument},
        {command(18, "CX", record), unexpected + "notification [CX]"},
        {csiMessage(17, {{kTlvCommand, textBytes("CR")}, {kTlvResponse, {1}}}),
         "[ERROR] CSI Subscribe/unsubscribe failed"},
        {csiMessage(17, {{kTlvCommand, textBytes("CR")}, {kTlvResponse, {0}}}),
         "[INFO ] Got success response to CSI subscribe/unsubscribe"},
        {csiMessage(17, {{kTlvCommand, textBytes("CX")}, {kTlvResponse, {1}}}), unexpected + "subscribe response [CX]"},
        {csiMessage(17, {{kTlvCommand, textBytes("CR")}}), noArgument},
        {csiMessage(10, {{kTlvCommand, textBytes("LB")}}), noArgument},
        {command(10, "LX", Bytes(6)), unexpected + "notification [LX]"},
        {command(10, "LB", Bytes(4)), "[ERROR] CAT RTOS TLV arg length <= TLV_ELEM_HDR_SIZE"},
        {command(10, "AL", Bytes(19)), "[ERROR] Accessory buffer of 19 bytes is longer than 18"},
        {fromHex("ff ff 00 12 00 00 00 00"), "[ERROR] CSI message of 8" + noLength},
        {fromHex("00 03 00 12"), "[ERROR] CSI message of 4" + noLength},
        {{}, "[ERROR] CSI message of 0" + noLength},
        {command(18, "CN", fromHex("2a 04 00 00")), "[ERROR] CSI record of 4 bytes has no header"},
        {command(18, "CU", fromHex("2a ff ff ff ff 01")),
         "[ERROR] CSI record of key 42 announces 4294967295 bytes, 1 arrived"},
        {command(18, "CN", csiRecord(130, Bytes(5))), "[ERROR] size error on csi 130"},
        {csiMessage(18, {{kTlvCommand, textBytes("CN")},
                         {kTlvArgument, csiRecord(130, 1u)},
                         {kTlvSource, textBytes("not/a queue")},
                         {kTlvDestination, textBytes(kCsiQueue)}}),
         "[ERROR] CSI notification names no queue for its acknowledgement"},
        {command(18, "CN", csiRecord(130, 1u) + Bytes(1500 - 29)), "[ERROR] tlv_validate failed"},
    };
    serveWatcher();
    play({sets(5)});
    for (const auto& [message, line] : rows) {
        SCOPED_TRACE(line);
        play({tells(kCsiQueue, message), logs(line), quiet()});
    }
    play({notifies("CN", csiRecord(kOtaState, 2u)), answers(1, kQuery, "f5 f7 08 02"), quiet()});
}

TEST_F(Push, StatusByteIsPublishedFromTheFirstPowerReport) {
    serve();

    play({notifies("CN", csiRecord(kBattery, 20u)), notifies("CN", csiRecord(kSdCard, 0u)),
          notifies("CN", csiRecord(kExternalPower, 0u)), tellsNet("18 CI /to_kznet>/to_kznet: 22 01 00 00 00 0c")});
    EXPECT_EQ(rig->network->waiting(), 0);
}

// ---------------------------------------------------------------- accessory buffers

TEST_F(Push, AccessoryBuffersGoToTheInterestedAccessoryAndStayForTheNext) {
    serve();
    play({joins(1), joins(2), asks(2, kSensorData, "50 01", "50 00"), asks(2, kSensorData, "52 01", "52 00")});

    play({tells(kCsiQueue, command(10, "LB", ramp(6, 0x10))), answers(2, kSensorData, "51 10 11 12 13 14 15"),
          tells(kCsiQueue, command(10, "AL", ramp(18))), answers(2, kSensorData, Bytes{0x53} + ramp(18)),
          tells(kCsiQueue, command(10, "AL", ramp(5, 0x20))), answers(2, kSensorData, "53 20 21 22 23 24")});

    play({joins(3, kSensor), asks(3, kSensorData, "50 01", "50 00"), answers(3, kSensorData, "51 10 11 12 13 14 15"),
          asks(3, kSensorData, "52 01", "52 00"), answers(3, kSensorData, "51 10 11 12 13 14 15"),
          answers(3, kSensorData, "53 20 21 22 23 24"), quiet()});
}

}  // namespace
}  // namespace e2e
