// What the operator sees: texts at each level, dumps, and where the lines go.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "fixture.h"

namespace e2e {
namespace {

constexpr const char* kAskVersion = "3a";
constexpr const char* kVersion = "3a 00 04 31 2e 32 35";

// Something for every level: an unknown event, a connection twice, a bad descriptor, a request, a push.
const Script kOneOfEach = {connects(1),
                           connects(1),
                           opens(1, kCommandGate),
                           opens(1, 9),
                           writes(1, kCommand, kAskVersion),
                           answers(1, kCommandAnswer, kVersion),
                           pushes(R"({"status": {"8": 1}})"),
                           settles()};

class LogLevel : public E2e, public testing::WithParamInterface<unsigned> {};

TEST_P(LogLevel, ShowsItsOwnLinesAndThoseBelowAndNoOther) {
    const unsigned level = GetParam();
    Rig& rig = serve();
    rig.setLogLevel(level);
    rig.settle();
    const size_t before = rig.daemon.logSize();

    play(rig, kOneOfEach);

    const std::string log = rig.daemon.log(before);
    constexpr const char* kTags[] = {"", "", "[ERROR] ", "[WARN ] ", "[DEBUG] ", "[INFO ] ", "[TRACE] "};
    for (unsigned tag = 2; tag <= 6; ++tag) {
        EXPECT_EQ(log.find(kTags[tag]) != std::string::npos, tag <= level) << kTags[tag];
    }
}

INSTANTIATE_TEST_SUITE_P(, LogLevel, testing::Range(2u, 7u),
                         [](const auto& row) { return "Level" + std::to_string(row.param); });

using Log = E2e;

TEST_F(Log, RoadOfARequestIsTracedAtLevelFive) {
    Rig& rig = serve();

    play(rig, {connects(1), opens(1, kCommandGate), sets(5), writes(1, kCommand, kAskVersion),
               answers(1, kCommandAnswer, kVersion),
               logs("[INFO ]", "received 88 bytes at server from skylark\n", "kzBleServer"),
               logs("[INFO ]", "Received KZBLE_SDK_MESSAGE_Data", "kzBleServer"),
               logs("[INFO ]", "BlePacket RX [01:3a:]", "kzBleServer"),
               logs("[INFO ]", "Received message on Command Interface", "kzBleServer"),
               logs("[INFO ]", "Got a first packet, fragmented:0 length:1", "messageBuilders.cpp"),
               logs("[INFO ]", "Received valid ble command:58 from a device", "bleCommandMessage.cpp"),
               logs("[INFO ]", "Executing Command:58", "bleCommandMessage.cpp"),
               logs("[INFO ]", "command message executed and returned code: 0", "bleDevice.cpp"),
               logs("[INFO ]", "Sent 1 packet to GATT MQ for connection_id:1 stream_id:4", "kzBleServer"),
               logs("[INFO ]", "->GATT type:2 conn_id:1 str_id:4 data_len:8", "kzBleServer"),
               logs("[INFO ]", "Sent 1 packets to GATT for connection_id:1 stream_id:4", "kzBleServer"),
               logs("[INFO ]", "Response sent to client 1 stream_id:4", "kzBleServer"),
               logs("[INFO ]", "Response Generated for BLE Client", "kzBleServer")});
}

TEST_F(Log, DroppedAnswersNameTheirGate) {
    Rig& rig = serve();

    play(rig, {connects(1), sets(5), writes(1, kCommand, kAskVersion),
               logs("[INFO ]", "Response dropped because notify disabled on conn_id 1 stream_id:2 for response:4",
                    "kzBleServer"),
               writes(1, kQuery, "13 08"),
               logs("[INFO ]", "Response dropped because notify disabled on conn_id 1 stream_id:12", "kzBleServer"),
               writes(1, kSettings, "02 01 04"),
               logs("[INFO ]", "Response dropped because notify disabled on conn_id 1 stream_id:7", "kzBleServer")});
}

TEST_F(Log, EveryPacketIsDumpedAtLevelSixOnly) {
    Rig& rig = serve();
    const Script ask = {writes(1, kCommand, kAskVersion), answers(1, kCommandAnswer, kVersion)};
    play(rig, {connects(1), opens(1, kCommandGate), sets(5)});
    play(rig, ask);
    rig.settle();
    ASSERT_EQ(rig.daemon.count("First 24 bytes of message"), 0u);

    play(rig, {sets(6)});
    play(rig, ask);

    play(rig, {logs("[TRACE]", "First 24 bytes of message (BLE Data starts at 5th byte)", "kzBleServer"),
               logs("[ERROR]", "02 01 00 00 00 04 08 07", "kzBleServer"),
               logs("[ERROR]", "3a 00 04 31 2e 32 35 00", "kzBleServer"),
               logs("[ERROR]", "00 00 00 00 00 00 00 00", "kzBleServer")});
}

TEST_F(Log, LevelsBeyondTheHighestChangeNothing) {
    Rig& rig = serve();

    play(rig, {sets(5), sets(7), sets(0xFFFFFFFF), connects(1),
               logs("[INFO ]", "Received KZBLE_SDK_EVENT_Conn message for connection_id:1", "kzBleServer")});
    rig.radio->debug(9);
    play(rig, {logs("[ERROR]", "Unrecognized command on debug event", "kzBleServer")});
}

TEST_F(Log, StatusDumpListsQueuesAndClients) {
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1), connects(2), writes(1, kQuery, "53 08 0a"),
               answers(1, kQueryAnswer, "53 00 08 00 0a 00"), sets(5)});

    rig.radio->debug(KZBLE_DEBUG_DUMP_STATUS);

    play(rig, {logs("[WARN ]", "ble rx message queue fullness 0 of 100, max:0", "kzBleServer"),
               logs("[WARN ]", "ble tx message queue fullness 0 of 100, max:0", "kzBleServer"),
               logs("[INFO ]", "========= DEVICE INFO =============", "bleDevice.cpp"),
               logs("[INFO ]", "connection_id         :1", "bleDevice.cpp"),
               logs("[INFO ]", "SDK in message count  :1", "bleDevice.cpp"),
               logs("[INFO ]", "SDK out message count :0", "bleDevice.cpp"),
               logs("[INFO ]", "SDK push message count:0", "bleDevice.cpp"),
               logs("[INFO ]", "SDK Notify stream_id:2 enabled:1", "bleDevice.cpp"),
               logs("[INFO ]", "    Bytes of stored response:0", "bleDevice.cpp"),
               logs("[INFO ]", "SDK Notify stream_id:12 enabled:1", "bleDevice.cpp"),
               logs("[INFO ]", "status interest       : 8 10 ", "bleDevice.cpp"),
               logs("[INFO ]", "settings interest     : NONE", "bleDevice.cpp"),
               logs("[INFO ]", "capabilities interest : NONE", "bleDevice.cpp"),
               logs("[INFO ]", "connection_id         :2", "bleDevice.cpp"),
               logs("[INFO ]", "SDK Notify stream_id:2 enabled:0", "bleDevice.cpp"),
               logs("[INFO ]", "status interest       : NONE", "bleDevice.cpp")});
}

TEST_F(Log, FullQueueIsReportedOnTheTick) {
    Rig& rig = serve();
    const ble_message_t filler = dataRecord(99, 4, fromHex("00"));
    for (int i = 0; i < 40; ++i) {
        rig.radio->fromDaemon().send(&filler, sizeof(filler));
    }

    play(rig, {logs("[WARN ]", "ble tx message queue fullness 40 of 100, max:40", "kzBleServer")});
}

// A system log as the machine has it, for worlds that start without.
class SystemLog {
  public:
    SystemLog() : m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "/dev/log");
        if (bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::runtime_error("cannot listen on /dev/log");
        }
    }
    ~SystemLog() {
        close(m_socket);
        unlink("/dev/log");
    }
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    // The first line that arrives and contains the text; empty when none does.
    std::string waitFor(const std::string& text) {
        std::string line;
        const bool found = waitUntil([&] {
            char buffer[1024];
            const ssize_t length = recv(m_socket, buffer, sizeof(buffer), 0);
            line.assign(buffer, length > 0 ? static_cast<size_t>(length) : 0);
            return line.find(text) != std::string::npos;
        });
        return found ? line : std::string();
    }

  private:
    int m_socket;
};

TEST_F(Log, LinesGoToTheSystemLogAsErrorsWhereOneListens) {
    SystemLog systemLog;
    Rig& rig = prepare();
    rig.launch();
    rig.receiveNet();
    ble_message_t record = {};
    record.eventType = 77;

    rig.radio->send(record);
    const std::string line = systemLog.waitFor("Unhandled event_type 77");

    EXPECT_EQ(line.substr(0, 4), "<11>");  // user facility, LOG_ERR
    EXPECT_NE(line.find(" [ERROR] Unhandled event_type 77 @kzBleServer:"), std::string::npos) << line;
}

}  // namespace
}  // namespace e2e
