// The way of an answer to the radio: cut into packets, stored while the queue is full, sent later; and the way of a
// request through a full receive queue.
#include "fixture.h"

namespace e2e {
namespace {

// A status query whose answer has exactly `length` bytes: two of header, id and length, and the text.
Script asksStatusOf(size_t length) {
    const std::string text(length - 4, 'x');
    return {pushes(R"({"status": {"29": ")" + text + R"("}})"), writes(1, kQuery, "13 1d")};
}

// Each of them is one packet.
Step asksVersion(int times) {
    return [=](Rig& rig) {
        for (int i = 0; i < times; ++i) {
            rig.radio->send(dataRecord(1, kCommand, fromHex("01 3a")));
        }
    };
}

Step answersVersion(size_t times) {
    return [=](Rig& rig) { play(rig, Script(times, answers(1, kCommand, kVersion))); };
}

constexpr uint8_t kNoStream = 99;  // its packets are handled, and logged, without an answer

using Transmit = E2e;

TEST_F(Transmit, AnswerKeepsTheBytesBehindTheDataOfItsRequest) {
    serve();
    ble_message_t request = dataRecord(1, kCommand, fromHex("01 3a"));
    request.rest[0] = 0xA1;
    request.rest[60] = 0xB2;

    play({joins(1), sends(request)});
    const std::optional<ble_message_t> answer = rig->radio->receive();

    ASSERT_TRUE(answer);
    EXPECT_EQ(describe(*answer), "type 2 connection 1 stream 4: 07 3a 00 04 31 2e 32 35");
    EXPECT_TRUE(answer->rest[0] == 0xA1 && answer->rest[60] == 0xB2);
}

TEST_F(Transmit, AnswerThatDoesNotFitIsStoredAndLeavesOnALaterTick) {
    serve({.transmitDepth = 4});
    play({joins(1), asksVersion(2)});

    play(asksStatusOf(50));  // three packets for two places
    play({logs("[ERROR] GATT Message queue is backed up, buffering response for later attempt"),
          logs("[ERROR] Failed to send a response of length 50 to connection_id:1")});
    EXPECT_EQ(rig->radio->fromDaemon.waiting(), 2);

    play({answersVersion(2), answers(1, kQuery, fromHex("13 00 1d 2e") + Bytes(46, 'x')), quiet()});
}

TEST_F(Transmit, AnswerThatTheRadioCouldNeverTakeIsAnError) {
    serve({.transmitDepth = 4});  // 75 bytes at most
    const Bytes presets(73, 0x55);

    play({joins(1), replies("command 81", 0, presets), writes(1, kQuery, "f5 72"),
          answers(1, kQuery, fromHex("f5 f2") + presets)});
    play({replies("command 81", 0, presets + Bytes{0x55}), asks(1, kQuery, "f5 72", "f5 01")});
}

TEST_F(Transmit, StoredAnswersLeaveByPriority) {
    serve({.transmitDepth = 4});
    play({joins(1), asks(1, kQuery, "52 02", "52 00 02 00"), asks(1, kQuery, "53 0a", "53 00 0a 00"), asksVersion(4)});

    // The queue is full; what follows is stored, the least urgent first.
    play({writes(1, kSensorData, "50 01"), writes(1, kQuery, "13 08"), writes(1, kSettings, "02 01 04"),
          pushes(R"({"status": {"10": 0}})"), pushes(R"({"settings": {"2": 9}})"), asksVersion(1), settles()});
    ASSERT_EQ(rig->radio->fromDaemon.waiting(), 4);

    play({answersVersion(5), answers(1, kQuery, "92 00 02 01 09"), answers(1, kQuery, "93 00 0a 01 00"),
          answers(1, kSettings, "02 00"), answers(1, kQuery, "13 00 08 00"), answers(1, kSensorData, "50 00"),
          quiet()});
}

TEST_F(Transmit, NewRequestWinsOverTheUnsentAnswerOfItsInterface) {
    serve({.transmitDepth = 1});
    play({joins(1), asksVersion(1)});
    const struct {
        const char* name;
        uint8_t interface;
        const char* first;
        const char* second;
    } rows[] = {
        {"command", kCommand, "51", kAskVersion},
        {"setting", kSettings, "03 01 00", "02 01 04"},
        {"query", kQuery, "13 21", "13 08"},
    };
    for (const auto& row : rows) {
        play({writes(1, row.interface, row.first),
              logs("[ERROR] GATT Message queue is backed up, buffering response for later attempt"),
              writes(1, row.interface, row.second),
              logs(std::string("[ERROR] We got a new ") + row.name +
                       " message on connection_id:1 before previous response could be sent!",
                   "bleDevice.cpp")});
    }

    // A sensor's answer stays: the next packet there may be a sample, which has none.
    play({writes(1, kSensorData, "50 01"), writesPacket(1, kSensorData, "20 28 01"), settles()});

    play({answersVersion(2), answers(1, kSettings, "02 00"), answers(1, kQuery, "13 00 08 00"),
          answers(1, kSensorData, "50 00"), quiet()});
}

TEST_F(Transmit, StoredAnswerWaitsForItsGateAndGoesWithItsClient) {
    serve({.transmitDepth = 1});
    play({joins(1), joins(2), asksVersion(1), writes(1, kQuery, "13 21"), writes(2, kQuery, "13 21"), closes(1, kQuery),
          settles()});

    play({answersVersion(1), answers(2, kQuery, "13 00 21 01 ff"), opens(1, kQuery),
          answers(1, kQuery, "13 00 21 01 ff")});

    play({asksVersion(1), writes(1, kQuery, "13 21"), disconnects(1), joins(1), settles(), answersVersion(1),
          asks(2, kCommand, kAskVersion, kVersion), quiet()});
}

TEST_F(Transmit, BacklogShedsDataButNeverEvents) {
    serve();
    play({joins(1), settles()});
    rig->daemon.pause();

    // The daemon discards data while more than 90 records wait behind it: the third to the ninth.
    play({connects(2), opens(2, kCommand), asksVersion(98)});
    rig->daemon.resume();

    play({answersVersion(91), quiet(), asks(2, kCommand, kAskVersion, kVersion)});
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

TEST_F(Transmit, ShedPacketEndsItsMessageSoThatTwoHalvesNeverJoin) {
    const Bytes start = cutIntoPackets(longCommand(37)).front();
    const Bytes rest = cutIntoPackets(longCommand(37)).back();
    serve();
    play({joins(1), writesPacket(1, kCommand, start), writesPacket(1, kQuery, start), settles()});
    rig->daemon.pause();

    // Only the first record of the backlog is shed. The second message lost nothing and is completed.
    play({writesPacket(1, kCommand, rest)});
    play(Script(88, writesPacket(1, kNoStream, "")));
    play({writesPacket(1, kCommand, rest), writesPacket(1, kQuery, rest), writesPacket(1, kNoStream, "")});
    rig->daemon.resume();

    play({answers(1, kCommand, "00 02"), answers(1, kQuery, "3a 02"), asks(1, kCommand, kAskVersion, kVersion),
          quiet()});
}

TEST_F(Transmit, MessageOfFourHundredPacketsIsTheLongest) {
    constexpr size_t kLongest = 18 + 399 * 19;
    serve();

    play({joins(1), asks(1, kCommand, longCommand(kLongest), kVersion),
          asks(1, kCommand, longCommand(kLongest + 2), "00 02"),
          logs("[ERROR] Parse error while parsing command packet", "bleDevice.cpp"), quiet(),
          asks(1, kCommand, kAskVersion, kVersion)});
}

TEST_F(Transmit, TicksComeHoweverBusyTheRadioIs) {
    serve({.transmitDepth = 4});
    play({joins(1), connects(2), asksVersion(4), writes(1, kQuery, "13 21"),
          logs("[ERROR] Failed to send a response of length 5 to connection_id:1"), answersVersion(4)});

    // Records without an answer, far more often than the tick, until the stored answer leaves.
    const bool left = waitUntil([&] {
        play({writes(2, kCommand, "3a")});
        return rig->radio->fromDaemon.waiting() == 1;
    });

    EXPECT_TRUE(left);
    play({answers(1, kQuery, "13 00 21 01 ff")});
}

}  // namespace
}  // namespace e2e
