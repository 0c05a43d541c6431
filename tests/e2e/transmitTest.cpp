// The way of an answer to the radio: cut into packets, stored while the queue is full, sent later; and the way of a
// request through a full receive queue.
#include "fixture.h"

namespace e2e {
namespace {

constexpr const char* kAskVersion = "3a";
constexpr const char* kVersion = "3a 00 04 31 2e 32 35";
constexpr uint32_t kLocate = 37;  // control command of "16 01 xx"

// A status query whose answer has exactly `length` bytes: two of header, id and length, and the text.
Script statusAnswerOf(size_t length) {
    const std::string text(length - 4, 'x');
    return {pushes(R"({"status": {"29": ")" + text + R"("}})"), writes(1, kQuery, "13 1d")};
}

void append(Script& script, const Script& more) {
    script.insert(script.end(), more.begin(), more.end());
}

using Transmit = E2e;

TEST_F(Transmit, AnswersAreCutIntoPacketsByteForByte) {
    Rig& rig = serve();
    Script script = {connects(1), opensAll(1)};

    append(script, statusAnswerOf(19));
    append(script, {packet(1, kQueryAnswer, "13 13 00 1d 0f 78 78 78 78 78 78 78 78 78 78 78 78 78 78 78"), quiet()});
    append(script, statusAnswerOf(20));
    append(script, {packet(1, kQueryAnswer, "20 14 13 00 1d 10 78 78 78 78 78 78 78 78 78 78 78 78 78 78"),
                    packet(1, kQueryAnswer, "80 78 78"), quiet()});
    append(script, statusAnswerOf(50));
    append(script, {packet(1, kQueryAnswer, "20 32 13 00 1d 2e 78 78 78 78 78 78 78 78 78 78 78 78 78 78"),
                    packet(1, kQueryAnswer, "80 78 78 78 78 78 78 78 78 78 78 78 78 78 78 78 78 78 78 78"),
                    packet(1, kQueryAnswer, "81 78 78 78 78 78 78 78 78 78 78 78 78 78"), quiet()});

    play(rig, script);
}

TEST_F(Transmit, PacketRecordKeepsTheBytesBehindTheDataOfItsRequest) {
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1)});
    ble_message_t request = dataRecord(1, kCommand, fromHex("01 3a"));
    request.rest[0] = 0xA1;
    request.rest[60] = 0xB2;

    rig.radio->send(request);
    const ble_message_t answer = rig.radio->receive();

    EXPECT_EQ(describe(answer), "data 1 on 4: 07 3a 00 04 31 2e 32 35");
    EXPECT_EQ(answer.rest[0], 0xA1);
    EXPECT_EQ(answer.rest[60], 0xB2);
}

TEST_F(Transmit, ContinuationCounterWrapsWithinOneAnswer) {
    Rig& rig = serve();
    Script script = {connects(1), opensAll(1)};
    // Four settings queries at once: the longest answer the small catalogue gives.
    append(script, {pushes(R"({"status": {"29": ")" + std::string(250, 'a') + R"(", "30": ")" + std::string(250, 'b') +
                           R"("}})"),
                    writes(1, kQuery, "13 1d")});

    play(rig, script);
    const Message answer = rig.radio->receiveMessage();

    EXPECT_EQ(answer.bytes, fromHex("13 00 1d fa") + Bytes(250, 'a'));
}

TEST_F(Transmit, AnswerThatDoesNotFitIsStoredAndLeavesOnALaterTick) {
    Rig::Options options;
    options.transmitDepth = 4;
    Rig& rig = serve(options);
    Script script = {connects(1), opensAll(1), writes(1, kCommand, kAskVersion), writes(1, kCommand, kAskVersion)};
    append(script, statusAnswerOf(50));  // three packets for two places
    append(script,
           {logs("[ERROR]", "GATT Message queue is backed up, buffering response for later attempt", "kzBleServer"),
            logs("[ERROR]", "Failed to send a response of length 50 to connection_id:1", "kzBleServer")});
    play(rig, script);
    EXPECT_EQ(rig.radio->packetsWaiting(), 2);

    play(rig, {answers(1, kCommandAnswer, kVersion), answers(1, kCommandAnswer, kVersion),
               answers(1, kQueryAnswer, fromHex("13 00 1d 2e") + Bytes(46, 'x')), quiet()});
}

TEST_F(Transmit, StoredAnswersLeaveByPriority) {
    Rig::Options options;
    options.transmitDepth = 4;
    Rig& rig = serve(options);
    play(rig, {connects(1), opensAll(1), writes(1, kQuery, "52 02"), answers(1, kQueryAnswer, "52 00 02 00"),
               writes(1, kQuery, "53 0a"), answers(1, kQueryAnswer, "53 00 0a 00"), writes(1, kCommand, kAskVersion),
               writes(1, kCommand, kAskVersion), writes(1, kCommand, kAskVersion), writes(1, kCommand, kAskVersion)});

    // The queue is full; what follows is stored, the least urgent first.
    play(rig, {writes(1, kSensorRequest, "50 01"), writes(1, kQuery, "13 08"), writes(1, kSettings, "02 01 04"),
               pushes(R"({"status": {"10": 0}})"), pushes(R"({"settings": {"2": 9}})"),
               writes(1, kCommand, kAskVersion), settles()});
    ASSERT_EQ(rig.radio->packetsWaiting(), 4);

    for (int i = 0; i < 4; ++i) {
        play(rig, {answers(1, kCommandAnswer, kVersion)});
    }
    play(rig, {answers(1, kCommandAnswer, kVersion), answers(1, kQueryAnswer, "92 00 02 01 09"),
               answers(1, kQueryAnswer, "93 00 0a 01 00"), answers(1, kSettingsAnswer, "02 00"),
               answers(1, kQueryAnswer, "13 00 08 00"), answers(1, kSensorAnswer, "50 00"), quiet()});
}

TEST_F(Transmit, NewRequestWinsOverItsUnsentPredecessor) {
    Rig::Options options;
    options.transmitDepth = 1;
    Rig& rig = serve(options);

    play(rig, {connects(1), opensAll(1), writes(1, kCommand, kAskVersion), writes(1, kQuery, "13 21"),
               logs("[ERROR]", "Failed to send a response of length 5 to connection_id:1", "kzBleServer"),
               writes(1, kQuery, "13 08"),
               logs("[ERROR]", "We got a new query message on connection_id:1 before previous response could be sent!",
                    "bleDevice.cpp"),
               answers(1, kCommandAnswer, kVersion), answers(1, kQueryAnswer, "13 00 08 00"), quiet()});
}

TEST_F(Transmit, StoredAnswerWaitsForItsGateAndGoesWithItsClient) {
    Rig::Options options;
    options.transmitDepth = 1;
    Rig& rig = serve(options);
    play(rig, {connects(1), opensAll(1), connects(2), opensAll(2), writes(1, kCommand, kAskVersion),
               writes(1, kQuery, "13 21"), writes(2, kQuery, "13 21"), closes(1, kQueryGate), settles()});

    play(rig, {answers(1, kCommandAnswer, kVersion), answers(2, kQueryAnswer, "13 00 21 01 ff"), opens(1, kQueryGate),
               answers(1, kQueryAnswer, "13 00 21 01 ff")});

    play(rig, {writes(1, kCommand, kAskVersion), writes(1, kQuery, "13 21"), disconnects(1), connects(1), opensAll(1),
               settles(), answers(1, kCommandAnswer, kVersion), writes(2, kCommand, kAskVersion),
               answers(2, kCommandAnswer, kVersion), quiet()});
}

TEST_F(Transmit, BacklogShedsDataButNeverEvents) {
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1), replies(kLocate, 0)});
    rig.camera.hold(kLocate);
    play(rig, {writes(1, kCommand, "16 01 01")});
    ASSERT_TRUE(rig.camera.waitHeld());

    // 100 records behind the held command. The daemon discards data while more than 90 wait behind it: records 2 to 8.
    play(rig, {connects(2), opens(2, kCommandGate)});
    for (int i = 2; i < 100; ++i) {
        rig.radio->writePacket(1, kCommand, fromHex("01 3a"));
    }
    ASSERT_EQ(rig.radio->recordsUnread(), 100);
    rig.camera.release(kLocate);

    play(rig, {answers(1, kCommandAnswer, "16 00")});
    for (int i = 9; i < 100; ++i) {
        play(rig, {answers(1, kCommandAnswer, kVersion)});
    }
    play(rig, {quiet(), writes(2, kCommand, kAskVersion), answers(2, kCommandAnswer, kVersion)});
}

// A command of that many bytes that any number of parameters may follow.
Bytes longCommand(size_t length) {
    Bytes message = fromHex(kAskVersion);
    while (message.size() < length) {
        const size_t parameter = std::min<size_t>(255, length - message.size() - 1);
        message = message + Bytes{static_cast<uint8_t>(parameter)} + Bytes(parameter, 0x55);
    }
    return message;
}

TEST_F(Transmit, MessageOfFourHundredPacketsIsTheLongest) {
    constexpr size_t kLongest = 18 + 399 * 19;
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1)});

    play(rig, {writes(1, kCommand, longCommand(kLongest)), answers(1, kCommandAnswer, kVersion),
               writes(1, kCommand, longCommand(kLongest + 2)), answers(1, kCommandAnswer, "00 02"),
               logs("[ERROR]", "Parse error while parsing command packet", "bleDevice.cpp"), quiet(),
               writes(1, kCommand, kAskVersion), answers(1, kCommandAnswer, kVersion)});
}

TEST_F(Transmit, TicksComeHoweverBusyTheRadioIs) {
    Rig::Options options;
    options.transmitDepth = 4;
    Rig& rig = serve(options);
    play(rig, {connects(1), opensAll(1), connects(2)});
    for (int i = 0; i < 4; ++i) {
        play(rig, {writes(1, kCommand, kAskVersion)});
    }
    play(rig, {writes(1, kQuery, "13 21"),
               logs("[ERROR]", "Failed to send a response of length 5 to connection_id:1", "kzBleServer")});
    for (int i = 0; i < 4; ++i) {
        play(rig, {answers(1, kCommandAnswer, kVersion)});
    }

    // Records without an answer, far more often than the tick, until the stored answer leaves.
    const bool left = waitUntil([&] {
        rig.radio->writePacket(2, kCommand, fromHex("01 3a"));
        return rig.radio->packetsWaiting() == 1;
    });

    EXPECT_TRUE(left);
    play(rig, {answers(1, kQueryAnswer, "13 00 21 01 ff")});
}

}  // namespace
}  // namespace e2e
