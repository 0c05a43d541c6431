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
using e2e::kTlvArgument;
using e2e::kTlvCommand;
using e2e::kTlvResponse;
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
        if (pipe(ends) != 0) {
            return;
        }
        m_pid = fork();
        if (m_pid == 0) {
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            close(ends[1]);
            execv(words[0], words.data());
            _exit(127);
        }
        close(ends[1]);
        char text[16] = {};
        m_ready = read(ends[0], text, sizeof text) > 0 && std::string(text) == "ready\n";
        close(ends[0]);
    }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator() {
        if (m_pid > 0) {
            end(SIGKILL);
        }
    }

    bool ready() const { return m_ready; }
    // The exit status; 128 + the signal when one ended it.
    int end(int signal) {
        kill(m_pid, signal);
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

  private:
    pid_t m_pid = -1;
    bool m_ready = false;
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

// The daemon's reading end of a queue that the simulator made.
class ReceivingEnd {
  public:
    explicit ReceivingEnd(const char* name) : m_queue(mq_open(name, O_RDONLY | O_CLOEXEC)) {}
    ReceivingEnd(const ReceivingEnd&) = delete;
    ReceivingEnd& operator=(const ReceivingEnd&) = delete;
    ~ReceivingEnd() { mq_close(m_queue); }

    ble_message_t receive() {
        ble_message_t record{};
        const timespec deadline = e2e::queueDeadline();
        EXPECT_EQ(mq_timedreceive(m_queue, reinterpret_cast<char*>(&record), sizeof record, nullptr, &deadline),
                  static_cast<ssize_t>(sizeof record));
        return record;
    }

  private:
    mqd_t m_queue;
};

// The BLE daemon's side: its two queues, and the camera's.
class DaemonSide {
  public:
    Queue events = Queue::create("/to_kzBleD", 10, 1500);
    Queue notifications = Queue::create("/to_blesdk", 40, 1500);
    Queue toNetwork = Queue::openForSending("/to_kznet");
    Queue toRadio = Queue::openForSending(kMqToSkylark);
    ReceivingEnd fromRadio{kMqToBleSdk};

    static int registerForPushes(uint32_t operation) {
        Bytes record = e2e::little32(operation) + e2e::textBytes("/to_kzBleD");
        record.resize(264);
        return kzcontrol_send_command_param_response(KZCONTROL_EVENT_REGISTER_MQUEUE, record.data(), 264, nullptr, 0);
    }
    void request(uint8_t category, const char* command, const Bytes& argument) {
        const TlvMessage message{category,
                                 {{kTlvCommand, e2e::textBytes(command)},
                                  {kTlvArgument, argument},
                                  {e2e::kTlvSource, e2e::textBytes("/to_blesdk")},
                                  {e2e::kTlvDestination, e2e::textBytes("/to_kznet")}}};
        toNetwork.send(message.encode());
    }
    TlvMessage notification() {
        const auto message = notifications.receive();
        return message.has_value() ? TlvMessage::decode(*message) : TlvMessage();
    }
    Json push() {
        const auto message = events.receive();
        const Bytes text = message.has_value() ? TlvMessage::decode(*message).find(kTlvResponse) : Bytes();
        return Json::parse(std::string(text.begin(), text.end()));
    }
    void sendPacket(uint32_t connectionId, uint32_t number) {
        ble_message_t record{};
        record.eventType = KZBLE_SDK_MESSAGE_Data;
        record.connectionId = connectionId;
        record.streamId = KZ_STR_ID_COMMAND_RESPONSE;
        record.dataLength = sizeof number;
        std::memcpy(record.data, &number, sizeof number);
        toRadio.send(&record, sizeof record);
    }
};

kzclient::RadioLink::Peer device(uint8_t type = 0, bool cameraIsCentral = false) {
    return {{2, 0, 0, 0, 0, 9}, type, cameraIsCentral};
}

auto soon() {
    return steady_clock::now() + std::chrono::seconds(20);
}

// Takes pushes until status `id` has this value.
bool statusArrives(DaemonSide& daemon, const char* id, uint64_t value) {
    for (int pushes = 0; pushes < 50; ++pushes) {
        const Json push = daemon.push();
        if (push.contains("status") && push["status"].contains(id) && push["status"][id] == value) {
            return true;
        }
    }
    return false;
}

}  // namespace

TEST(RadioRole, ConnectionDescriptorAndPacketsReachTheDaemonInOrder) {
    const Simulator simulator;
    ASSERT_TRUE(simulator.ready());
    DaemonSide daemon;
    auto link = std::make_unique<kzclient::RadioLink>("", device(11));
    const uint8_t packet[] = {1, 51};

    link->writeDescriptor(KZ_STR_ID_COMMAND_CCC, 1);
    link->send(KZ_STR_ID_COMMAND, packet);
    const uint32_t id = link->connectionId();
    link.reset();

    const ble_message_t opened = daemon.fromRadio.receive();
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&opened);
    EXPECT_EQ(opened.eventType, KZBLE_SDK_EVENT_Conn);
    EXPECT_EQ(opened.connectionId, id);
    EXPECT_EQ(Bytes(bytes + 5, bytes + 11), Bytes({2, 0, 0, 0, 0, 9}));
    EXPECT_EQ(bytes[kConnDeviceTypeOffset], 11);
    const ble_message_t descriptor = daemon.fromRadio.receive();
    EXPECT_EQ(descriptor.eventType, KZBLE_SDK_EVENT_CCC);
    EXPECT_EQ(descriptor.streamId, KZ_STR_ID_COMMAND_CCC);
    EXPECT_EQ(descriptor.dataLength, 1);
    const ble_message_t data = daemon.fromRadio.receive();
    EXPECT_EQ(data.eventType, KZBLE_SDK_MESSAGE_Data);
    EXPECT_EQ(Bytes(data.data, data.data + data.dataLength), Bytes({1, 51}));
    EXPECT_EQ(daemon.fromRadio.receive().eventType, KZBLE_SDK_EVENT_Disconn);
}

TEST(RadioRole, SensorGetsItsNotificationEventWithTheConnection) {
    const Simulator simulator;
    DaemonSide daemon;

    const kzclient::RadioLink link("", device(12, true));

    EXPECT_EQ(daemon.fromRadio.receive().eventType, KZBLE_SDK_EVENT_Conn);
    const ble_message_t event = daemon.fromRadio.receive();
    EXPECT_EQ(event.eventType, KZBLE_SDK_EVENT_SensorCCC);
    EXPECT_EQ(event.connectionId, link.connectionId());
}

TEST(RadioRole, PacketsBeyondTheDaemonsQueueWaitInOrderAndTheRadioStaysAwake) {
    const Simulator simulator({"--blesdk-depth", "10"});
    DaemonSide daemon;
    constexpr uint32_t kPackets = 500;
    kzclient::RadioLink link("", device());

    std::thread sender([&link] {
        for (uint32_t number = 0; number < kPackets; ++number) {
            link.send(KZ_STR_ID_COMMAND, std::span(reinterpret_cast<const uint8_t*>(&number), sizeof number));
        }
    });
    EXPECT_TRUE(waitUntil([] { return state()["radio"]["waitingForDaemon"] > 0; }));
    EXPECT_EQ(daemon.fromRadio.receive().eventType, KZBLE_SDK_EVENT_Conn);
    for (uint32_t number = 0; number < kPackets; ++number) {
        const ble_message_t record = daemon.fromRadio.receive();
        ASSERT_EQ(e2e::readLittle32(record.data), number);
    }
    sender.join();
}

TEST(RadioRole, DeviceThatDoesNotReadCostsOnlyItsOwnPackets) {
    const Simulator simulator;
    DaemonSide daemon;
    const kzclient::RadioLink deaf("", device());
    kzclient::RadioLink listener("", device());

    for (uint32_t number = 0; number < 2000; ++number) {
        daemon.sendPacket(deaf.connectionId(), number);
    }
    daemon.sendPacket(listener.connectionId(), 7);

    const auto packet = listener.receive(soon());
    ASSERT_TRUE(packet.has_value());
    EXPECT_EQ(packet->streamId, KZ_STR_ID_COMMAND_RESPONSE);
    EXPECT_EQ(e2e::readLittle32(packet->bytes.data()), 7u);
    EXPECT_GT(state()["radio"]["connections"][0]["lost"], 0);
}

TEST(RadioRole, CanBeSlowedStoppedAndBroken) {
    const Simulator simulator;
    DaemonSide daemon;
    kzclient::RadioLink link("", device());
    const auto sendTen = [&] {
        for (uint32_t number = 0; number < 10; ++number) {
            daemon.sendPacket(link.connectionId(), number);
        }
    };

    ASSERT_EQ(camctl("radio slow 100"), 0);
    const auto start = steady_clock::now();
    sendTen();
    for (int packets = 0; packets < 10; ++packets) {
        ASSERT_TRUE(link.receive(soon()).has_value());
    }
    EXPECT_GE(steady_clock::now() - start, milliseconds(80));

    ASSERT_EQ(camctl("radio stop"), 0);
    sendTen();
    EXPECT_FALSE(link.receive(steady_clock::now() + kSoon).has_value());
    EXPECT_EQ(daemon.toRadio.waiting(), 10);

    ASSERT_EQ(camctl("radio drop 3 " + std::to_string(link.connectionId())), 0);
    ASSERT_EQ(camctl("radio slow 0"), 0);
    for (int packets = 0; packets < 3; ++packets) {
        ASSERT_TRUE(link.receive(soon()).has_value());
    }
    EXPECT_THROW(link.receive(soon()), kzclient::Error);
    EXPECT_EQ(camctl("radio drop"), 1);
}

TEST(ControlRole, RegistrationBringsEveryValueAndThenEveryChange) {
    const Simulator simulator({"--second", "60000"});  // nothing changes by itself
    DaemonSide daemon;

    ASSERT_EQ(daemon.registerForPushes(1), 0);
    size_t values = 0;
    const Json before = state();
    while (values < before["settings"].size() + before["status"].size()) {
        const Json push = daemon.push();
        values += push.value("settings", Json::object()).size() + push.value("status", Json::object()).size();
    }
    EXPECT_EQ(values, before["settings"].size() + before["status"].size());

    const uint8_t press = 1;
    ASSERT_EQ(kzcontrol_send_command_param_response(KZCONTROL_COMMAND_SHUTTER, &press, 1, nullptr, 0), 0);
    EXPECT_EQ(daemon.push(), Json::parse(R"({"status":{"10":1,"8":1}})"));

    ASSERT_EQ(daemon.registerForPushes(0), 0);
    ASSERT_EQ(camctl("battery 12"), 0);
    EXPECT_FALSE(daemon.events.receive(kSoon).has_value());
}

TEST(ControlRole, ChangesThatFindTheQueueFullAreToldOnceWithTheirLastValue) {
    const Simulator simulator;
    DaemonSide daemon;
    ASSERT_EQ(daemon.registerForPushes(1), 0);

    for (int percent = 1; percent <= 20; ++percent) {
        ASSERT_EQ(camctl("battery " + std::to_string(percent)), 0);
    }

    EXPECT_EQ(daemon.events.waiting(), 10);
    EXPECT_TRUE(statusArrives(daemon, "70", 20));
    EXPECT_FALSE(daemon.events.receive(kSoon).has_value());
}

TEST(ControlRole, CommandIsAttributedToItsCallerAndCanBeRefused) {
    const Simulator simulator;
    const uint32_t mode = 1;

    ASSERT_EQ(camctl("refuse MODE -17"), 0);
    kzcontrol_set_caller_id(23);
    EXPECT_EQ(kzcontrol_send_command_param_response(KZCONTROL_MODE, &mode, sizeof mode, nullptr, 0), -17);
    ASSERT_EQ(camctl("refuse KZCONTROL_MODE 0"), 0);
    kzcontrol_set_caller_id(0);
    EXPECT_EQ(kzcontrol_send_command_param_response(KZCONTROL_MODE, &mode, sizeof mode, nullptr, 0), 0);

    const Json commands = state()["control"]["commands"];
    EXPECT_EQ(commands[0]["caller"], 23);
    EXPECT_EQ(commands[0]["parameter"], "01000000");
    EXPECT_EQ(commands[1]["caller"], 0);
    EXPECT_EQ(camctl("refuse NO_SUCH_COMMAND 1"), 1);
}

TEST(NetworkRole, SubscriptionIsAnsweredAndBringsFirstValuesThenChanges) {
    const Simulator simulator;
    DaemonSide daemon;

    daemon.request(18, "CR", {CSI_CAMERA_BUSY, CSI_NEW_MEDIA, CSI_BATTERY_LEVEL});
    const TlvMessage answer = daemon.notification();
    EXPECT_EQ(answer.category, 17);
    EXPECT_EQ(answer.find(kTlvCommand), e2e::textBytes("CR"));
    EXPECT_EQ(answer.find(kTlvResponse), Bytes{0});
    const TlvMessage first = daemon.notification();
    EXPECT_EQ(first.text(),
              "18 CU /to_kznet>/to_blesdk: 03 04 00 00 00 00 00 00 00 80 04 00 00 00 00 00 00 00 "
              "2b 04 00 00 00 50 00 00 00");

    ASSERT_EQ(camctl("battery 21"), 0);
    EXPECT_EQ(daemon.notification().text(), "18 CN /to_kznet>/to_blesdk: 2b 04 00 00 00 15 00 00 00");
    ASSERT_EQ(camctl("record on"), 0);
    daemon.notification();
    ASSERT_EQ(camctl("record off"), 0);
    EXPECT_EQ(daemon.notification().text(),
              "18 CU /to_kznet>/to_blesdk: 03 04 00 00 00 00 00 00 00 80 04 00 00 00 01 00 00 00");

    daemon.request(16, "CR", {3});
    ASSERT_TRUE(waitUntil([] { return state()["network"]["subscribers"].empty(); }));
    ASSERT_EQ(camctl("battery 22"), 0);
    EXPECT_FALSE(daemon.notifications.receive(kSoon).has_value());
}

TEST(NetworkRole, KeysAreWrittenByMessageAndReadThroughTheLibrary) {
    const Simulator simulator;
    DaemonSide daemon;
    uint32_t length = 0;
    uint8_t value[8] = {};

    daemon.request(18, "CI", Bytes{CSI_ST_STATE} + e2e::little32(1) + Bytes{0x3f});
    ASSERT_TRUE(waitUntil([&] { return csi_get(CSI_ST_STATE, sizeof value, &length, value) == CSI_OK; }));
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(value[0], 0x3f);

    ASSERT_EQ(csi_set(CSI_CLIENT_ANALYTICS, "\x76\x01\x00\x00", 4), CSI_OK);
    std::string printed;
    EXPECT_EQ(camctl("csi 87", &printed), 0);
    EXPECT_EQ(printed, "76010000\n");
    EXPECT_NE(csi_get(250, sizeof value, &length, value), CSI_OK);
}

TEST(NetworkRole, MessagesThatMakeNoSenseChangeNothing) {
    const Simulator simulator;
    DaemonSide daemon;

    daemon.toNetwork.send(Bytes());
    daemon.toNetwork.send(Bytes(1500, 0xff));
    daemon.request(18, "CI", Bytes{1} + e2e::little32(0xffffffff));
    daemon.request(18, "CI", {1, 2});
    daemon.request(18, "XX", {1});
    daemon.request(20, "CR", {1});

    EXPECT_TRUE(waitUntil([] { return state()["network"]["refusedMessages"] == 6; }));
}

TEST(MetadataRole, RecordsAreCheckedAndKept) {
    const Simulator simulator({"--metadata-file", "/tmp/metadata"});
    Bytes channel(KZIPC_CHANNEL_SIZE);
    const Bytes payload = e2e::fromHex("44455643 00 01 000c 44564944 4c 04 0001 00000401");
    const auto send = [&](uint32_t sequence, const Bytes& content) {
        const Bytes record = e2e::little32(sequence) + content;
        return kzIpcSend(channel.data(), record.data(), static_cast<uint32_t>(record.size()));
    };

    ASSERT_EQ(kzIpcInit("metadata", channel.data()), 0);
    EXPECT_EQ(send(49, payload), 0);
    EXPECT_EQ(send(51, payload), 0);
    EXPECT_LT(send(52, Bytes(20, 0)), 0);
    EXPECT_LT(send(52, {}), 0);
    EXPECT_EQ(kzIpcDestroy(channel.data()), 0);
    Bytes other(KZIPC_CHANNEL_SIZE);
    EXPECT_LT(kzIpcInit("another", other.data()), 0);

    const Json metadata = state()["metadata"];
    EXPECT_EQ(metadata["records"], 2);
    EXPECT_EQ(metadata["gaps"], 1);
    EXPECT_EQ(metadata["malformed"], 2);
    EXPECT_EQ(std::filesystem::file_size("/tmp/metadata"), 2 * payload.size());
}

TEST(SimulatorLife, OrderlyEndLeavesNoQueueAndNoSocket) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Simulator simulator;
        ASSERT_TRUE(simulator.ready());

        EXPECT_EQ(simulator.end(signal), 0);

        for (const char* const name : {kMqToBleSdk, kMqToSkylark, "/to_kznet"}) {
            EXPECT_FALSE(e2e::queueExists(name)) << name;
        }
        EXPECT_TRUE(std::filesystem::is_empty("/tmp/kzcamera"));
        EXPECT_EQ(camctl("state"), 2);
    }
}

TEST(SimulatorLife, SecondOneRefusesAndLeftoversOfAKilledOneDoNotMatter) {
    Simulator first;
    ASSERT_TRUE(first.ready());

    EXPECT_FALSE(Simulator().ready());
    EXPECT_EQ(camctl("battery 50"), 0);
    first.end(SIGKILL);

    EXPECT_TRUE(Simulator().ready());
}

TEST(SimulatorLife, ScriptedLifeShowsInTheState) {
    const Simulator simulator({"--life", "--second", "5"});
    const Json before = state();

    EXPECT_TRUE(waitUntil([&] { return state()["status"]["39"] > before["status"]["39"]; }));
    EXPECT_TRUE(waitUntil([&] { return state()["status"]["70"] < before["status"]["70"]; }));
}
