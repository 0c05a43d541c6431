// What the operator sees: texts at each level, and dumps.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "fixture.h"

namespace e2e {
namespace {

// The system's log. It holds ten lines while nobody reads.
class SystemLog {
  public:
    SystemLog() : m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_un address = {AF_UNIX, "/dev/log"};
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    }
    ~SystemLog() {
        close(m_socket);
        unlink("/dev/log");
    }
    // Reads until a line contains the text.
    bool shows(const std::string& text) {
        return waitUntil([&] {
            char line[4096];
            ssize_t length = 0;
            while ((length = recv(m_socket, line, sizeof(line), MSG_DONTWAIT)) > 0) {
                if (std::string(line, static_cast<size_t>(length)).find(text) != std::string::npos) {
                    return true;
                }
            }
            return false;
        });
    }

  private:
    int m_socket;
};

using Log = E2e;

TEST_F(Log, RoadOfARequestIsToldAtLevelFiveAndItsBytesAtLevelSix) {
    serve();

    play({joins(1), sets(5), asks(1, kCommand, kAskVersion, kVersion),
          logs("[INFO ] received 88 bytes at server from skylark\n"), logs("[INFO ] Received KZBLE_SDK_MESSAGE_Data"),
          logs("[INFO ] BlePacket RX [01:3a:]"), logs("[INFO ] Received message on Command Interface"),
          logs("[INFO ] Got a first packet, fragmented:0 length:1", "messageBuilders.cpp"),
          logs("[INFO ] Received valid ble command:58 from a device", "bleCommandMessage.cpp"),
          logs("[INFO ] Executing Command:58", "bleCommandMessage.cpp"),
          logs("[INFO ] command message executed and returned code: 0", "bleDevice.cpp"),
          logs("[INFO ] Sent 1 packet to GATT MQ for connection_id:1 stream_id:4"),
          logs("[INFO ] ->GATT type:2 conn_id:1 str_id:4 data_len:8"),
          logs("[INFO ] Sent 1 packets to GATT for connection_id:1 stream_id:4"),
          logs("[INFO ] Response sent to client 1 stream_id:4"), logs("[INFO ] Response Generated for BLE Client")});
    EXPECT_EQ(rig->daemon.count("First 24 bytes of message"), 0u);

    play({sets(6), asks(1, kCommand, kAskVersion, kVersion),
          logs("[TRACE] First 24 bytes of message (BLE Data starts at 5th byte)"),
          logs("[ERROR] 02 01 00 00 00 04 08 07"), logs("[ERROR] 3a 00 04 31 2e 32 35 00"),
          logs("[ERROR] 00 00 00 00 00 00 00 00")});
}

TEST_F(Log, StatusDumpListsQueuesAndClients) {
    serve({.transmitDepth = 2});
    play({joins(1), connects(2), asks(1, kQuery, "53 08 0a", "53 00 08 00 0a 00"), closes(1, kSettings), occupies(2),
          writes(1, kQuery, "13 08"), logs("[ERROR] Failed to send a response of length 4 to connection_id:1")});

    play({sets(5), sends(debugRecord(KZBLE_DEBUG_DUMP_STATUS))});

    EXPECT_TRUE(rig->daemon.waitForText("[WARN ] ble rx message queue fullness 0 of 100, max:"));
    EXPECT_TRUE(rig->daemon.waitForText("[WARN ] ble tx message queue fullness 2 of 2, max:"));
    for (const char* line : {"========= DEVICE INFO =============",
                             "connection_id         :1",
                             "SDK in message count  :2",
                             "SDK out message count :0",
                             "SDK push message count:0",
                             "SDK Notify stream_id:2 enabled:1",
                             "    Bytes of stored response:0",
                             "SDK Notify stream_id:12 enabled:1",
                             "    Bytes of stored response:0",
                             "SDK Notify stream_id:12 enabled:1",
                             "    Bytes of stored response:0",
                             "SDK Notify stream_id:12 enabled:1",
                             "    Bytes of stored response:0",
                             "SDK Notify stream_id:7 enabled:0",
                             "    Bytes of stored response:0",
                             "SDK Notify stream_id:12 enabled:1",
                             "    Bytes of stored response:4",
                             "SDK Notify stream_id:17 enabled:1",
                             "    Bytes of stored response:0",
                             "status interest       : 8 10 ",
                             "settings interest     : NONE",
                             "capabilities interest : NONE",
                             "connection_id         :2",
                             "SDK Notify stream_id:2 enabled:0",
                             "status interest       : NONE"}) {
        play({logs(std::string("[INFO ] ") + line, "bleDevice.cpp")});
    }
    EXPECT_EQ(rig->daemon.count("Dumping device status at server"), 1u);
}

TEST_F(Log, FullQueueIsReportedOnTheTick) {
    serve();

    play({occupies(40), logs("[WARN ] ble tx message queue fullness 40 of 100, max:40")});
}

TEST_F(Log, UnreadLogDelaysNoAnswerAndWhatItLostIsReported) {
    constexpr int kRequests = 1500;  // more lines than wait for the log
    serve();
    SystemLog systemLog;

    play({joins(1), sets(6)});
    for (int i = 0; i < kRequests; ++i) {
        play({asks(1, kCommand, kAskVersion, kVersion)});
    }

    EXPECT_TRUE(systemLog.shows(" log lines lost because the log is not read @logWriter.cpp:"));
    play({asks(1, kCommand, kAskVersion, kVersion)});
    EXPECT_TRUE(systemLog.shows("Executing Command:58"));
}

TEST_F(Log, LinesOfOneConnectionBeyondAHundredASecondAreCountedUnlessEverythingIsWanted) {
    constexpr size_t kRequests = 200;
    serve();
    play({joins(1)});
    const auto linesOfBadRequests = [&] {
        const size_t before = rig->daemon.count("event_type:2 returned");
        for (size_t i = 0; i < kRequests; ++i) {
            play({asks(1, kCommand, "ee", "ee 02")});
        }
        rig->settle();
        return rig->daemon.count("event_type:2 returned") - before;
    };
    const size_t shown = linesOfBadRequests();
    EXPECT_LT(shown, kRequests);
    EXPECT_TRUE(rig->daemon.waitForText("more log lines in a second because of connection_id:1 @logWriter.cpp:"));

    play({sets(6)});
    EXPECT_EQ(linesOfBadRequests(), kRequests);
}

}  // namespace
}  // namespace e2e
