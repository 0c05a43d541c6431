// The running simulator, seen by those around it: the BLE daemon's side of the queues, the client libraries, devices on
// the radio, and kzcamctl. Each case has a world of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "csi/csi.h"
#include "csi/csiKeys.h"
#include "engine/queue.h"
#include "engine/tlvMessage.h"
#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzipc/kzipc.h"
#include "radioLink.h"
#include "skylark/bleMessage.h"

namespace {

using e2e::Bytes;
using e2e::Queue;
using e2e::TlvMessage;
using e2e::waitUntil;
using e2e::operator+;
using Json = nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kSoon{100};  // within which something that must not come would have come

class Simulator {
  public:
    explicit Simulator(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {KZ_CAMERA_SIM, "--settings", KZ_SAMPLE_CATALOGUE "/settings.json"});
        std::vector<char*> words;
        for (std::string& one : arguments) {
            words.push_back(one.data());
        }
        words.push_back(nullptr);
        kzcontrol_interface_close();  // the link to an earlier simulator
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        m_pid = fork();
        if (m_pid == 0) {
            dup2(ends[1], STDOUT_FILENO);
            execv(words[0], words.data());
            _exit(127);
        }
        close(ends[1]);
        char text[16] = {};
        ready = read(ends[0], text, sizeof text) > 0 && std::string(text) == "ready\n";
        close(ends[0]);
    }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator() {
        if (m_pid > 0) {
            end(SIGKILL);
        }
    }
    // The exit status; negative when a signal ended it.
    int end(int signal) {
        int status = 0;
        kill(m_pid, signal);
        waitpid(std::exchange(m_pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    bool ready = false;

  private:
    pid_t m_pid = -1;
};

// kzcamctl's exit status, with its output if asked for.
int camctl(const std::string& arguments, std::string* output = nullptr) {
    FILE* const pipe = popen((KZ_CAMCTL " " + arguments + " 2>/dev/null").c_str(), "r");
    char text[4096];
    for (size_t got; (got = fread(text, 1, sizeof text, pipe)) > 0;) {
        if (output != nullptr) {
            output->append(text, got);
        }
    }
    return WEXITSTATUS(pclose(pipe));
}

Json state() {
    std::string text;
    return camctl("state", &text) == 0 ? Json::parse(text) : Json();
}

int command(uint32_t id, const Bytes& parameter) {
    return kzcontrol_send_command_param_response(id, parameter.data(), static_cast<uint32_t>(parameter.size()), nullptr,
                                                 0);
}

// The BLE daemon's side: its queues and the camera's.
struct DaemonSide {
    DaemonSide() = default;
    DaemonSide(const DaemonSide&) = delete;
    DaemonSide& operator=(const DaemonSide&) = delete;
    ~DaemonSide() { mq_close(fromRadio); }

    static int registerForPushes(uint32_t operation) {
        Bytes record = e2e::little32(operation) + e2e::textBytes("/to_kzBleD");
        record.resize(264);
        return command(KZCONTROL_EVENT_REGISTER_MQUEUE, record);
    }
    Json push() {
        const Bytes text = TlvMessage::decode(events.receive().value_or(Bytes())).find(e2e::kTlvResponse);
        return Json::parse(std::string(text.begin(), text.end()));
    }
    void request(uint8_t category, const char* name, const Bytes& argument) {
        toNetwork.send(TlvMessage{category,
                                  {{e2e::kTlvCommand, e2e::textBytes(name)},
                                   {e2e::kTlvArgument, argument},
                                   {e2e::kTlvSource, e2e::textBytes("/to_blesdk")},
                                   {e2e::kTlvDestination, e2e::textBytes("/to_kznet")}}}
                           .encode());
    }
    std::string notification() { return TlvMessage::decode(notifications.receive().value_or(Bytes())).text(); }
    ble_message_t record() const {
        ble_message_t record{};
        const timespec deadline = e2e::queueDeadline();
        EXPECT_GT(mq_timedreceive(fromRadio, reinterpret_cast<char*>(&record), sizeof record, nullptr, &deadline), 0);
        return record;
    }
    void sendPackets(uint32_t connectionId, int count) {
        ble_message_t record{};
        record.eventType = KZBLE_SDK_MESSAGE_Data;
        record.connectionId = connectionId;
        record.streamId = KZ_STR_ID_COMMAND_RESPONSE;
        record.dataLength = 1;
        for (int i = 0; i < count; ++i) {
            toRadio.send(&record, sizeof record);
        }
    }

    Queue events = Queue::create("/to_kzBleD", 10, 1500);
    Queue notifications = Queue::create("/to_blesdk", 40, 1500);
    Queue toNetwork = Queue::openForSending("/to_kznet");
    Queue toRadio = Queue::openForSending(kMqToSkylark);
    mqd_t fromRadio = mq_open(kMqToBleSdk, O_RDONLY | O_CLOEXEC);
};

kzclient::RadioLink::Peer device(uint8_t type = 0, bool cameraIsCentral = false) {
    return {{2, 0, 0, 0, 0, 9}, type, cameraIsCentral};
}

// Whether that many packets come, and no more for a while.
bool receives(kzclient::RadioLink& link, int packets) {
    while (packets > 0 && link.receive(steady_clock::now() + std::chrono::seconds(20))) {
        --packets;
    }
    return packets == 0 && !link.receive(steady_clock::now() + kSoon);
}

}  // namespace

TEST(RadioRole, EventsAndPacketsReachTheDaemonInOrder) {
    const Simulator simulator;
    const DaemonSide daemon;
    auto link = std::make_unique<kzclient::RadioLink>("", device(11));
    const uint8_t packet[] = {1, 51};

    link->writeDescriptor(KZ_STR_ID_COMMAND_CCC, 1);
    link->send(KZ_STR_ID_COMMAND, packet);
    const uint32_t id = link->connectionId();
    link.reset();

    const ble_message_t opened = daemon.record();
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&opened);
    EXPECT_EQ(opened.eventType, KZBLE_SDK_EVENT_Conn);
    EXPECT_EQ(opened.connectionId, id);
    EXPECT_EQ(Bytes(bytes + 5, bytes + 11), Bytes({2, 0, 0, 0, 0, 9}));
    EXPECT_EQ(bytes[kConnDeviceTypeOffset], 11);
    const ble_message_t descriptor = daemon.record();
    EXPECT_EQ(descriptor.eventType, KZBLE_SDK_EVENT_CCC);
    EXPECT_EQ(descriptor.streamId, KZ_STR_ID_COMMAND_CCC);
    const ble_message_t data = daemon.record();
    EXPECT_EQ(data.eventType, KZBLE_SDK_MESSAGE_Data);
    EXPECT_EQ(Bytes(data.data, data.data + data.dataLength), Bytes({1, 51}));
    EXPECT_EQ(daemon.record().eventType, KZBLE_SDK_EVENT_Disconn);

    const kzclient::RadioLink sensor("", device(12, true));
    EXPECT_EQ(daemon.record().eventType, KZBLE_SDK_EVENT_Conn);
    EXPECT_EQ(daemon.record().eventType, KZBLE_SDK_EVENT_SensorCCC);
}

TEST(RadioRole, PacketsBeyondTheDaemonsQueueWaitInOrderAndTheRadioStaysAwake) {
    const Simulator simulator({"--blesdk-depth", "10"});
    const DaemonSide daemon;
    kzclient::RadioLink link("", device());

    std::thread sender([&link] {
        for (int number = 0; number < 200; ++number) {
            link.send(KZ_STR_ID_COMMAND, Bytes{static_cast<uint8_t>(number)});
        }
    });
    EXPECT_TRUE(waitUntil([] { return state()["radio"]["waitingForDaemon"] > 0; }));
    EXPECT_EQ(daemon.record().eventType, KZBLE_SDK_EVENT_Conn);
    for (int number = 0; number < 200; ++number) {
        EXPECT_EQ(daemon.record().data[0], number);
    }
    sender.join();
}

TEST(RadioRole, DeviceThatDoesNotReadCostsOnlyItsOwnPackets) {
    const Simulator simulator;
    DaemonSide daemon;
    const kzclient::RadioLink deaf("", device());
    kzclient::RadioLink listener("", device());

    daemon.sendPackets(deaf.connectionId(), 2000);
    daemon.sendPackets(listener.connectionId(), 1);

    EXPECT_TRUE(receives(listener, 1));
    EXPECT_GT(state()["radio"]["connections"][0]["lost"], 0);
}

TEST(RadioRole, CanBeSlowedStoppedAndBroken) {
    const Simulator simulator;
    DaemonSide daemon;
    kzclient::RadioLink link("", device());

    ASSERT_EQ(camctl("radio slow 100"), 0);
    const auto start = steady_clock::now();
    daemon.sendPackets(link.connectionId(), 10);
    EXPECT_TRUE(receives(link, 10));
    EXPECT_GE(steady_clock::now() - start, milliseconds(80) + kSoon);

    ASSERT_EQ(camctl("radio stop"), 0);
    daemon.sendPackets(link.connectionId(), 10);
    EXPECT_TRUE(receives(link, 0));
    EXPECT_EQ(daemon.toRadio.waiting(), 10);

    ASSERT_EQ(camctl("radio drop 3 " + std::to_string(link.connectionId())), 0);
    ASSERT_EQ(camctl("radio slow 0"), 0);
    EXPECT_THROW(receives(link, 3), kzclient::Error);
    EXPECT_EQ(camctl("radio drop"), 1);
}

TEST(ControlRole, RegistrationBringsEveryValueAndThenEveryChange) {
    const Simulator simulator({"--second", "60000"});  // nothing changes by itself
    DaemonSide daemon;

    ASSERT_EQ(daemon.registerForPushes(1), 0);
    const Json before = state();
    size_t missing = before["settings"].size() + before["status"].size();
    while (missing > 0) {
        const Json push = daemon.push();
        missing -= push.value("settings", Json::object()).size() + push.value("status", Json::object()).size();
    }
    ASSERT_EQ(command(KZCONTROL_COMMAND_SHUTTER, {1}), 0);
    EXPECT_EQ(daemon.push(), Json::parse(R"({"status":{"10":1,"8":1}})"));

    for (int percent = 1; percent <= 20; ++percent) {  // more changes than the queue takes
        ASSERT_EQ(camctl("battery " + std::to_string(percent)), 0);
    }
    while (daemon.push() != Json::parse(R"({"status":{"70":20}})")) {
    }
    ASSERT_EQ(daemon.registerForPushes(0), 0);
    ASSERT_EQ(camctl("battery 12"), 0);
    EXPECT_FALSE(daemon.events.receive(kSoon).has_value());
}

TEST(ControlRole, CommandIsAttributedToItsCallerAndCanBeRefused) {
    const Simulator simulator;

    ASSERT_EQ(camctl("refuse MODE -17"), 0);
    kzcontrol_set_caller_id(23);
    EXPECT_EQ(command(KZCONTROL_MODE, e2e::little32(1)), -17);
    ASSERT_EQ(camctl("refuse KZCONTROL_MODE 0"), 0);
    EXPECT_EQ(command(KZCONTROL_MODE, e2e::little32(1)), 0);

    EXPECT_EQ(state()["control"]["commands"][0]["caller"], 23);
    EXPECT_EQ(state()["control"]["commands"][0]["parameter"], "01000000");
    EXPECT_EQ(camctl("refuse NO_SUCH_COMMAND 1"), 1);
}

TEST(NetworkRole, SubscriptionIsAnsweredAndBringsFirstValuesThenChanges) {
    const Simulator simulator;
    DaemonSide daemon;

    daemon.request(18, "CR", {CSI_CAMERA_BUSY, CSI_NEW_MEDIA, CSI_BATTERY_LEVEL});
    EXPECT_EQ(daemon.notification().substr(0, 5), "17 CR");
    EXPECT_EQ(daemon.notification(),
              "18 CU /to_kznet>/to_blesdk: 03 04 00 00 00 00 00 00 00 80 04 00 00 00 00 00 00 00 "
              "2b 04 00 00 00 50 00 00 00");
    ASSERT_EQ(camctl("battery 21"), 0);
    EXPECT_EQ(daemon.notification(), "18 CN /to_kznet>/to_blesdk: 2b 04 00 00 00 15 00 00 00");

    daemon.request(16, "CR", {3});
    ASSERT_TRUE(waitUntil([] { return state()["network"]["subscribers"].empty(); }));
    ASSERT_EQ(camctl("battery 22"), 0);
    EXPECT_FALSE(daemon.notifications.receive(kSoon).has_value());
}

TEST(NetworkRole, KeysAreWrittenByMessagesThatMakeSenseAndReadThroughTheLibrary) {
    const Simulator simulator;
    DaemonSide daemon;
    uint32_t length = 0;
    uint8_t value[8] = {};

    daemon.toNetwork.send(Bytes());
    daemon.toNetwork.send(Bytes(1500, 0xff));
    daemon.request(18, "CI", Bytes{1} + e2e::little32(0xffffffff));
    daemon.request(18, "CI", {1, 2});
    daemon.request(18, "XX", {1});
    daemon.request(20, "CR", {1});
    daemon.request(18, "CI", Bytes{CSI_ST_STATE} + e2e::little32(1) + Bytes{0x3f});

    ASSERT_TRUE(waitUntil([&] { return csi_get(CSI_ST_STATE, sizeof value, &length, value) == CSI_OK; }));
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(value[0], 0x3f);
    EXPECT_EQ(state()["network"]["refusedMessages"], 6);
    ASSERT_EQ(csi_set(CSI_CLIENT_ANALYTICS, "\x76\x01\x00\x00", 4), CSI_OK);
    std::string printed;
    EXPECT_EQ(camctl("csi 87", &printed), 0);
    EXPECT_EQ(printed, "76010000\n");
    EXPECT_NE(csi_get(250, sizeof value, &length, value), CSI_OK);
}

TEST(MetadataRole, RecordsAreCheckedAndKept) {
    const Simulator simulator({"--metadata-file", "/tmp/metadata"});
    Bytes channel(KZIPC_CHANNEL_SIZE);
    const Bytes payload = e2e::fromHex("44455643 00 01 000c 44564944 4c 04 0001 00000401");
    const auto send = [&](uint32_t sequence, const Bytes& content) {
        const Bytes record = e2e::little32(sequence) + content;
        return kzIpcSend(channel.data(), record.data(), static_cast<uint32_t>(record.size()));
    };

    EXPECT_LT(kzIpcInit("another", channel.data()), 0);
    ASSERT_EQ(kzIpcInit("metadata", channel.data()), 0);
    EXPECT_EQ(send(49, payload), 0);
    EXPECT_EQ(send(51, payload), 0);
    EXPECT_LT(send(52, Bytes(20, 0)), 0);
    EXPECT_EQ(kzIpcDestroy(channel.data()), 0);

    const Json metadata = state()["metadata"];
    EXPECT_EQ(metadata["records"], 2);
    EXPECT_EQ(metadata["gaps"], 1);
    EXPECT_EQ(metadata["malformed"], 1);
    EXPECT_EQ(std::filesystem::file_size("/tmp/metadata"), 2 * payload.size());
}

TEST(SimulatorLife, OrderlyEndLeavesNothingAndLeftoversOfAKilledOneDoNotMatter) {
    Simulator first;
    ASSERT_TRUE(first.ready);
    EXPECT_FALSE(Simulator().ready) << "one at a time";
    EXPECT_EQ(camctl("battery 50"), 0);
    first.end(SIGKILL);

    Simulator second({"--life", "--second", "5"});
    ASSERT_TRUE(second.ready);
    const Json before = state();
    EXPECT_TRUE(waitUntil([&] { return state()["status"]["39"] > before["status"]["39"]; })) << "scripted life";
    EXPECT_EQ(second.end(SIGTERM), 0);

    for (const char* const name : {kMqToBleSdk, kMqToSkylark, "/to_kznet"}) {
        EXPECT_FALSE(e2e::queueExists(name)) << name;
    }
    EXPECT_TRUE(std::filesystem::is_empty("/tmp/kzcamera"));
    EXPECT_EQ(camctl("state"), 2);
}
