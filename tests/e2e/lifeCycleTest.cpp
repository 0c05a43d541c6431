// Start, service and end of the daemon process: what it creates, says and leaves behind.
#include <fcntl.h>
#include <sys/stat.h>

#include "fixture.h"

namespace e2e {
namespace {

constexpr int kFailedStart = 255;

const std::string kStartFailed = std::string("[ERROR] Failed to start daemon [") + KZ_DAEMON + "]\n";

class LifeCycle : public E2e {
  protected:
    static bool ownQueuesExist() { return queueExists(kEventQueue) || queueExists(kCsiQueue); }
};

TEST_F(LifeCycle, StartSubscribesAndAnOrderlyStopTakesEverythingBack) {
    constexpr int kByRecord = 0;
    for (const int stop : {kByRecord, SIGTERM, SIGINT}) {
        SCOPED_TRACE(stop);
        prepare();

        rig->launch();
        play({tellsNet("18 CR /to_blesdk>/to_kznet: 04 14 61 62 63 66 6c 6d 5e 03 80 3e 26 28 2a 29 88 4a 08 06 1a 2b "
                       "3d 07 27 82 83 84 2f 1e 6f 9d"),
              calls("open, model-number"), connects(1), calls(registration(1))});
        rig->daemon.signal(SIGHUP);
        rig->daemon.signal(SIGPIPE);
        play({settles()});

        rig->daemon.signal(stop);
        EXPECT_EQ(stop == kByRecord ? rig->shutDown() : rig->daemon.waitForExit(), 0);
        play({tellsNet("16 CR /to_blesdk>/to_kznet: 03")});
        EXPECT_EQ(rig->camera.takeCalls(), registration(0) + ", close");
        EXPECT_EQ(rig->daemon.count("Unrecognized command"), 0u);
        EXPECT_FALSE(ownQueuesExist());
        EXPECT_TRUE(queueExists(kMqToBleSdk) && queueExists(kMqToSkylark)) << "they are the radio stack's";
    }
}

TEST_F(LifeCycle, LogThatNobodyReadsNeitherStopsTheDaemonNorEndsIt) {
    prepare();
    constexpr const char* kPipe = "/tmp/unread.log";
    ASSERT_EQ(mkfifo(kPipe, 0600), 0);
    const int reader = open(kPipe, O_RDONLY | O_NONBLOCK);
    DaemonProcess daemon(kPipe);
    daemon.start();
    rig->receiveNet();
    play({joins(1), sets(6)});
    for (int i = 0; i < 100; ++i) {  // more lines than a pipe holds
        play({asks(1, kCommand, kAskVersion, kVersion)});
    }

    close(reader);

    play({asks(1, kCommand, kAskVersion, kVersion), sends(debugRecord(KZBLE_DEBUG_SHUTDOWN))});
    EXPECT_EQ(daemon.waitForExit(), 0);
}

TEST_F(LifeCycle, FailedStartSaysWhyAndClosesEverythingAgain) {
    const char* const missing = "mq_open() failed for '/Mq_to_BleSdk': No such file or directory\n";
    const std::string loading = "open, model-number, model-number, close";
    const struct {
        Rig::Options options;
        int controlResult;
        const char* reason;
        size_t times;
        std::string calls;
    } rows[] = {
        {{.radioStack = false}, 0, missing, 12, ""},
        {{}, -1, "Unable to open interface to kzControl Daemon\n", 1, "open"},
        {{.catalogue = ""}, 0, "No data read from file \n", 2, loading},
        {{.catalogue = R"({"modes": [], "settings": [)"}, 0, "Unable to parse JSON from file \n", 2, loading},
        {{.catalogue = R"({"settings": []})"}, 0, "Unable to find <modes> array in file", 2, loading},
        {{.catalogue = R"({"modes": [], "settings": []})"}, 0, "Unable to find <status> in file", 2, loading},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reason);
        prepare(row.options);
        rig->camera.reply("open", row.controlResult);

        rig->launch();

        EXPECT_EQ(rig->daemon.waitForExit(), kFailedStart);
        EXPECT_EQ(rig->daemon.count(std::string("[ERROR] ") + row.reason), row.times);
        EXPECT_EQ(rig->daemon.count("[ERROR] Unable to start BLESDK Daemon because could not parse settings.json file! "
                                    "@kzBleServer:"),
                  row.calls == loading ? 1u : 0u);
        EXPECT_EQ(rig->daemon.count(kStartFailed), 1u);
        EXPECT_EQ(rig->camera.takeCalls(), row.calls);
        EXPECT_FALSE(ownQueuesExist());
    }
}

TEST_F(LifeCycle, QueueLeftByACrashStopsTheStart) {
    for (const char* name : {kEventQueue, kCsiQueue}) {
        SCOPED_TRACE(name);
        prepare();
        const Queue stale = Queue::create(name, 1, 16);

        rig->launch();

        EXPECT_EQ(rig->daemon.waitForExit(), kFailedStart);
        EXPECT_EQ(rig->daemon.count(std::string("[ERROR] mq_open() failed for '") + name + "': File exists\n"), 1u);
        EXPECT_TRUE(queueExists(name));
        EXPECT_NE(queueExists(kEventQueue), queueExists(kCsiQueue)) << "the other one is gone again";
    }
}

TEST_F(LifeCycle, SecondDaemonGivesUpAndLeavesTheFirstAlone) {
    serve();
    DaemonProcess second("/tmp/second.log");

    second.start();

    EXPECT_EQ(second.waitForExit(), kFailedStart);
    EXPECT_TRUE(second.waitForText(kStartFailed));
    play({joins(1), asks(1, kCommand, kAskVersion, kVersion)});
}

TEST_F(LifeCycle, WaitsForARadioStackThatComesLate) {
    prepare({.radioStack = false});
    rig->launch();
    EXPECT_TRUE(rig->daemon.waitForText("mq_open() failed for '/Mq_to_BleSdk': No such file or directory\n"));

    // Only one of the two queues comes: the daemon waits for the other without end.
    const Queue toDaemon = Queue::create(kMqToBleSdk, kRadioDepth, kBleRecordSize);
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_TRUE(rig->daemon.waitForText("mq_open() failed for '/Mq_to_Skylark': No such file or directory\n"));
    }
    const Queue fromDaemon = Queue::create(kMqToSkylark, kRadioDepth, kBleRecordSize);

    EXPECT_EQ(rig->receiveNet().text().substr(0, 5), "18 CR");
}

TEST_F(LifeCycle, RadioQueueOfAnotherRecordSizeCountsAsMissingAndAStopEndsTheWait) {
    const auto waitsFor = [&](const std::string& refused) {
        const std::string line = "[ERROR] " + refused + " bytes and not of 88, not using it\n";
        return rig->daemon.waitForText(line) && rig->daemon.waitForText(line);  // it tries again
    };
    prepare({.radioStack = false});
    std::optional<Queue> toDaemon = Queue::create(kMqToBleSdk, 10, 64);
    const Queue fromDaemon = Queue::create(kMqToSkylark, 10, 128);
    rig->launch();
    EXPECT_TRUE(waitsFor("'/Mq_to_BleSdk' carries messages of 64"));
    toDaemon.reset();
    toDaemon = Queue::create(kMqToBleSdk, kRadioDepth, kBleRecordSize);
    EXPECT_TRUE(waitsFor("'/Mq_to_Skylark' carries messages of 128"));

    rig->daemon.signal(SIGTERM);

    EXPECT_EQ(rig->daemon.waitForExit(), 0);
    EXPECT_FALSE(ownQueuesExist());
}

TEST_F(LifeCycle, SubscribesWhenTheNetworkDaemonComesLate) {
    serve({.networkDaemon = false});

    rig->openNetworkDaemon();

    EXPECT_EQ(rig->receiveNet().text().substr(0, 5), "18 CR");
}

}  // namespace
}  // namespace e2e
