// The running simulator, and the faults it can be told to make. Each case has a world of its own.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "engine/queue.h"
#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlD.h"
#include "radioLink.h"
#include "skylark/bleMessage.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class Simulator {
  public:
    explicit Simulator(const std::string& arguments = "") {
        kzcontrol_interface_close();  // the link to an earlier simulator
        const std::string settings = " --settings " KZ_SAMPLE_CATALOGUE "/settings.json ";
        m_output = popen(("echo $$; exec " KZ_CAMERA_SIM + settings + arguments).c_str(), "r");
        m_pid = std::stoi(line());
        ready = line() == "ready\n";
    }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator() { end(SIGKILL); }

    // The exit status; negative when a signal ended it.
    int end(int signal) {
        if (m_output == nullptr) {
            return 0;
        }
        kill(m_pid, signal);
        const int status = pclose(std::exchange(m_output, nullptr));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    bool ready = false;

  private:
    std::string line() {
        char text[16];
        return fgets(text, sizeof text, m_output) != nullptr ? text : "";
    }

    FILE* m_output = nullptr;
    pid_t m_pid = -1;
};

int camctl(const std::string& arguments) {
    return WEXITSTATUS(std::system((KZ_CAMCTL " " + arguments + " >/tmp/camctl 2>&1").c_str()));
}
nlohmann::json state() {
    EXPECT_EQ(camctl("state"), 0);
    return nlohmann::json::parse(std::ifstream("/tmp/camctl"));
}

// What the daemon sends to devices.
void sendPackets(e2e::Queue& radio, const kzclient::RadioLink& link, int count) {
    ble_message_t record{};
    record.eventType = KZBLE_SDK_MESSAGE_Data;
    record.connectionId = link.connectionId();
    record.streamId = KZ_STR_ID_COMMAND_RESPONSE;
    record.dataLength = 1;
    for (int i = 0; i < count; ++i) {
        radio.send(&record, sizeof record);
    }
}
// Whether that many packets come, and no more for a while.
bool receives(kzclient::RadioLink& link, int packets) {
    while (packets > 0 && link.receive(steady_clock::now() + std::chrono::seconds(20))) {
        --packets;
    }
    return packets == 0 && !link.receive(steady_clock::now() + milliseconds(100));
}

}  // namespace

TEST(CameraSim, RadioCanBeSlowedStoppedAndBrokenAndLosesOnlyWhatADeviceDoesNotRead) {
    const Simulator simulator;
    auto radio = e2e::Queue::openForSending(kMqToSkylark);
    const kzclient::RadioLink deaf("", {{2, 0, 0, 0, 0, 9}, 0, false});
    kzclient::RadioLink link("", {{2, 0, 0, 0, 0, 9}, 0, false});

    sendPackets(radio, deaf, 2000);
    sendPackets(radio, link, 1);
    EXPECT_TRUE(receives(link, 1));
    EXPECT_GT(state()["radio"]["connections"][0]["lost"], 0);

    ASSERT_EQ(camctl("radio slow 100"), 0);
    const auto start = steady_clock::now();
    sendPackets(radio, link, 10);
    EXPECT_TRUE(receives(link, 10));
    EXPECT_GE(steady_clock::now() - start, milliseconds(180));

    ASSERT_EQ(camctl("radio stop"), 0);
    sendPackets(radio, link, 10);
    EXPECT_TRUE(receives(link, 0));
    EXPECT_EQ(radio.waiting(), 10);

    ASSERT_EQ(camctl("radio drop 3 " + std::to_string(link.connectionId())), 0);
    ASSERT_EQ(camctl("radio slow 0"), 0);
    EXPECT_THROW(receives(link, 3), kzclient::Error);
}

TEST(CameraSim, RefusesTheCommandsItIsToldTo) {
    const Simulator simulator;
    const auto command = [] { return kzcontrol_send_command_param_response(KZCONTROL_MODE, "\1\0\0", 4, nullptr, 0); };

    ASSERT_EQ(camctl("refuse MODE -17"), 0);
    EXPECT_EQ(command(), -17);
    ASSERT_EQ(camctl("refuse KZCONTROL_MODE 0"), 0);
    EXPECT_EQ(command(), 0);
    EXPECT_EQ(camctl("refuse NO_SUCH_COMMAND 1"), 1);
}

TEST(CameraSim, OrderlyEndLeavesNothingAndLeftoversOfAKilledOneDoNotMatter) {
    Simulator first;
    ASSERT_TRUE(first.ready);
    EXPECT_FALSE(Simulator().ready) << "one at a time";
    first.end(SIGKILL);

    Simulator second("--life --second 5");
    ASSERT_TRUE(second.ready);
    const auto before = state();
    EXPECT_TRUE(e2e::waitUntil([&] { return state()["status"]["39"] > before["status"]["39"]; })) << "scripted life";
    EXPECT_EQ(second.end(SIGTERM), 0);

    for (const char* const name : {kMqToBleSdk, kMqToSkylark, "/to_kznet"}) {
        EXPECT_FALSE(e2e::queueExists(name)) << name;
    }
    EXPECT_TRUE(std::filesystem::is_empty("/tmp/kzcamera"));
    EXPECT_EQ(camctl("state"), 2);
}
