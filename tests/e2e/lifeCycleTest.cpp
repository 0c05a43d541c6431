// Start, service and end of the daemon process: what it creates, says and leaves behind.
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include "fixture.h"

namespace e2e {
namespace {

constexpr const char* kEventQueue = "/to_kzBleD";
constexpr const char* kCsiQueue = "/to_blesdk";
constexpr int kFailedStart = 255;

const std::string kStartFailed = std::string("Failed to start daemon [") + KZ_DAEMON + "]\n";

// Operation, the queue name in 256 bytes, four zero bytes.
std::string registration(uint8_t operation) {
    Bytes record = little32(operation) + textBytes(kEventQueue);
    record.resize(264);
    return "command 0: " + toHex(record);
}

using LifeCycle = E2e;

TEST_F(LifeCycle, OrderlyStopEndsTheSubscriptionAndRemovesTheCreatedQueues) {
    Rig& rig = serve();
    rig.radio->connect(1);
    rig.settle();
    ASSERT_EQ(rig.camera.takeCalls(), std::vector<std::string>{registration(1)});

    const std::optional<int> status = rig.shutDown();

    EXPECT_EQ(status, 0);
    EXPECT_EQ(rig.receiveNet().text(), "16 CR /to_blesdk>/to_kznet: 03");
    EXPECT_EQ(rig.camera.takeCalls(), (std::vector<std::string>{registration(0), "close"}));
    EXPECT_FALSE(queueExists(kEventQueue));
    EXPECT_FALSE(queueExists(kCsiQueue));
    EXPECT_TRUE(queueExists(kMqToBleSdk));
    EXPECT_TRUE(queueExists(kMqToSkylark));
}

TEST_F(LifeCycle, SubscribesToItsKeysOnceItServes) {
    Rig& rig = prepare();

    rig.launch();

    EXPECT_EQ(
        rig.receiveNet().text(),
        "18 CR /to_blesdk>/to_kznet: 04 14 61 62 63 66 6c 6d 5e 03 80 3e 26 28 2a 29 88 4a 08 06 1a 2b 3d 07 27 82 "
        "83 84 2f 1e 6f 9d");
    EXPECT_EQ(rig.camera.takeCalls(), (std::vector<std::string>{"open", "model-number"}));
}

TEST_F(LifeCycle, StartedFromAShellDetachesItself) {
    Rig& rig = prepare();

    rig.launch(true);
    rig.receiveNet();
    rig.settle();

    const std::string process = "/proc/" + std::to_string(rig.daemon.pid());
    char directory[PATH_MAX] = {};
    EXPECT_GT(readlink((process + "/cwd").c_str(), directory, sizeof(directory) - 1), 0);
    EXPECT_STREQ(directory, "/");
    EXPECT_EQ(getsid(rig.daemon.pid()), rig.daemon.pid());
    EXPECT_EQ(rig.shutDown(), 0);
}

TEST_F(LifeCycle, SecondDaemonGivesUpAndLeavesTheFirstAlone) {
    Rig& rig = serve();
    DaemonProcess second;

    second.start();
    const std::optional<int> status = second.waitForExit();

    EXPECT_EQ(status, kFailedStart);
    EXPECT_TRUE(second.waitForLog("[ERROR]", "mq_open() failed for '/to_kzBleD': File exists\n", "kzBleServer"));
    EXPECT_TRUE(second.waitForText("[ERROR] " + kStartFailed));
    EXPECT_TRUE(queueExists(kEventQueue));
    EXPECT_TRUE(queueExists(kCsiQueue));
    rig.settle();
}

TEST_F(LifeCycle, StaleCsiQueueStopsTheStartAndTheOtherQueueIsRemovedAgain) {
    Rig& rig = prepare();
    std::optional<Queue> stale;
    {
        const RoomLock lock;
        stale.emplace(Queue::create(kCsiQueue, 1, 16));
    }

    rig.launch();

    EXPECT_EQ(rig.daemon.waitForExit(), kFailedStart);
    EXPECT_TRUE(rig.daemon.waitForLog("[ERROR]", "mq_open() failed for '/to_blesdk': File exists\n", "kzBleServer"));
    EXPECT_FALSE(queueExists(kEventQueue));
    EXPECT_TRUE(queueExists(kCsiQueue));
}

TEST_F(LifeCycle, GivesUpAfterTwelveAttemptsWithoutARadioStack) {
    Rig::Options options;
    options.radioStack = false;
    Rig& rig = prepare(options);

    rig.launch();

    EXPECT_EQ(rig.daemon.waitForExit(), kFailedStart);
    EXPECT_EQ(
        rig.daemon.count("[ERROR] mq_open() failed for '/Mq_to_BleSdk': No such file or directory\n @kzBleServer:"),
        12u);
    EXPECT_EQ(rig.daemon.count("/Mq_to_Skylark"), 0u);
    EXPECT_FALSE(queueExists(kEventQueue));
    EXPECT_FALSE(queueExists(kCsiQueue));
}

TEST_F(LifeCycle, WaitsForARadioStackThatComesLate) {
    Rig::Options options;
    options.radioStack = false;
    Rig& rig = prepare(options);
    rig.launch();
    ASSERT_TRUE(rig.daemon.waitForText("mq_open() failed for '/Mq_to_BleSdk': No such file or directory\n"));
    // Only one of the two queues comes: the daemon waits for the other without end.
    std::optional<Queue> toDaemon;
    std::optional<Queue> fromDaemon;
    {
        const RoomLock lock;
        rig.giveBackRadioRoom();
        toDaemon.emplace(Queue::create(kMqToBleSdk, RadioStack::kDepth, kBleRecordSize));
        ASSERT_TRUE(rig.daemon.waitForText("mq_open() failed for '/Mq_to_Skylark': No such file or directory\n"));
        ASSERT_TRUE(rig.daemon.waitForText("mq_open() failed for '/Mq_to_Skylark': No such file or directory\n"));
        fromDaemon.emplace(Queue::create(kMqToSkylark, RadioStack::kDepth, kBleRecordSize));
    }

    EXPECT_EQ(rig.receiveNet().text().substr(0, 5), "18 CR");
    rig.daemon.kill();
}

struct BrokenCatalogue {
    const char* name;
    const char* content;
    const char* text;

    friend void PrintTo(const BrokenCatalogue& row, std::ostream* out) { *out << row.name; }
};

class BrokenSettings : public E2e, public testing::WithParamInterface<BrokenCatalogue> {};

TEST_P(BrokenSettings, StopTheStartAndEverythingIsClosedAgain) {
    Rig::Options options;
    options.catalogue = GetParam().content;
    Rig& rig = prepare(options);

    rig.launch();

    EXPECT_EQ(rig.daemon.waitForExit(), kFailedStart);
    EXPECT_TRUE(rig.daemon.waitForText(std::string("[ERROR] ") + GetParam().text));
    EXPECT_TRUE(rig.daemon.waitForLog(
        "[ERROR]", "Unable to start BLESDK Daemon because could not parse settings.json file!", "kzBleServer"));
    EXPECT_TRUE(rig.daemon.waitForText("[ERROR] " + kStartFailed));
    EXPECT_EQ(rig.camera.takeCalls(), (std::vector<std::string>{"open", "model-number", "model-number", "close"}));
    EXPECT_FALSE(queueExists(kEventQueue));
    EXPECT_FALSE(queueExists(kCsiQueue));
}

INSTANTIATE_TEST_SUITE_P(
    , BrokenSettings,
    testing::Values(BrokenCatalogue{"Empty", "", "No data read from file \n"},
                    BrokenCatalogue{"Cut", R"({"modes": [], "settings": [)", "Unable to parse JSON from file \n"},
                    BrokenCatalogue{"WithoutModes", R"({"settings": []})", "Unable to find <modes> array in file"},
                    BrokenCatalogue{"WithoutStatus", R"({"modes": [], "settings": []})",
                                    "Unable to find <status> in file"}),
    [](const auto& row) { return row.param.name; });

TEST_F(LifeCycle, StopsWhenTheControlDaemonRefuses) {
    Rig& rig = prepare();
    rig.camera.reply(fakes::Function::ControlOpen, 0, -1);

    rig.launch();

    EXPECT_EQ(rig.daemon.waitForExit(), kFailedStart);
    EXPECT_TRUE(rig.daemon.waitForLog("[ERROR]", "Unable to open interface to kzControl Daemon\n", "kzBleServer"));
    EXPECT_EQ(rig.camera.takeCalls(), std::vector<std::string>{"open"});
    EXPECT_FALSE(queueExists(kCsiQueue));
}

TEST_F(LifeCycle, SubscribesWhenTheNetworkDaemonComesLate) {
    Rig::Options options;
    options.networkDaemon = false;
    Rig& rig = serve(options);
    rig.radio->connect(1);
    rig.settle();

    rig.openNetworkDaemon();

    EXPECT_EQ(rig.receiveNet().text().substr(0, 5), "18 CR");
}

}  // namespace
}  // namespace e2e
