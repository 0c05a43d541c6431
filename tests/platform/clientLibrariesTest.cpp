// The three client libraries against a service that is absent, silent, late, wordy or gone.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <array>
#include <chrono>
#include <csignal>

#include "csi/csi.h"
#include "fakeService.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzipc/kzipc.h"

namespace {

constexpr const char* kNowhere = "/tmp/kzNobodyListensHere";

class Stopwatch {
  public:
    long milliseconds() const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_start)
            .count();
    }

  private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

void forgetServices() {
    for (const auto& endpoint : {kzwire::kControlEndpoint, kzwire::kCsiEndpoint, kzwire::kIpcEndpoint}) {
        setenv(endpoint.variable, kNowhere, 1);
    }
    kzcontrol_interface_close();
    const uint8_t value = 0;
    csi_set(0, &value, 1);  // fails, and so drops a link to the service of an earlier test
    csi_set(0, &value, 1);
}

class ClientLibraries : public testing::Test {
  protected:
    void SetUp() override { forgetServices(); }
    void TearDown() override { forgetServices(); }
};

Answer acceptAll(const SeenRequest&) {
    return {};
}

int sendCommand(uint32_t id) {
    return kzcontrol_send_command_param_response(id, nullptr, 0, nullptr, 0);
}

}  // namespace

TEST_F(ClientLibraries, EveryCallFailsAtOnceWhenNobodyListens) {
    const Stopwatch watch;
    std::array<uint8_t, 512> buffer{};
    std::array<uint8_t, KZIPC_CHANNEL_SIZE> channel{};
    uint32_t length = 7;

    EXPECT_NE(kzcontrol_interface_open(), 0);
    EXPECT_NE(sendCommand(3), 0);
    EXPECT_NE(kzcontrol_send_command_param_response_ex(81, "x", 1, buffer.data(), buffer.size(), &length), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_NE(kzcontrol_get_camera_info(buffer.data()), 0);
    EXPECT_NE(kzc_state_get_model_number(buffer.data()), 0);
    EXPECT_FALSE(optionIdExists(58, 2, 1));
    EXPECT_NE(csi_get(20, 4, &length, buffer.data()), CSI_OK);
    EXPECT_NE(csi_set(20, buffer.data(), 4), CSI_OK);
    EXPECT_LT(kzIpcInit("metadata", channel.data()), 0);
    EXPECT_LT(kzIpcSend(channel.data(), buffer.data(), 8), 0);
    EXPECT_LT(kzIpcDestroy(channel.data()), 0);

    EXPECT_LT(watch.milliseconds(), 500);
}

TEST_F(ClientLibraries, CallerIdTravelsWithTheNextCommandAndCostsNoExchange) {
    FakeService service(kzwire::kControlEndpoint, acceptAll);
    ASSERT_TRUE(service.ready());

    kzcontrol_set_caller_id(11);
    kzcontrol_set_caller_id(23);
    EXPECT_EQ(sendCommand(3), 0);
    kzcontrol_set_caller_id(0);
    EXPECT_EQ(sendCommand(4), 0);

    const auto seen = service.seen();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].header.callerId, 23u);
    EXPECT_EQ(seen[0].header.target, 3u);
    EXPECT_EQ(seen[1].header.callerId, 0u);
    EXPECT_EQ(service.connections(), 1);
}

TEST_F(ClientLibraries, ParametersAndRepliesArriveWhole) {
    FakeService service(kzwire::kControlEndpoint, [](const SeenRequest& request) {
        return Answer{0, request.payload + "!", 0, 0, false};
    });
    std::array<char, 16> reply{};
    uint32_t length = 0;

    EXPECT_EQ(kzcontrol_send_command_param_response_ex(30, "abc", 3, reply.data(), reply.size(), &length), 0);

    EXPECT_EQ(std::string(reply.data(), length), "abc!");
    EXPECT_EQ(service.seen().at(0).header.target, 30u);
}

TEST_F(ClientLibraries, RefusalOfTheServiceIsPassedOnAndWritesNothing) {
    FakeService service(kzwire::kControlEndpoint, [](const SeenRequest&) { return Answer{-17, "text", 0, 0, false}; });
    std::array<char, 4> reply{'k', 'e', 'p', 't'};

    EXPECT_EQ(kzcontrol_send_command_param_response(33, nullptr, 0, reply.data(), reply.size()), -17);

    EXPECT_EQ(std::string(reply.data(), reply.size()), "kept");
    EXPECT_EQ(service.connections(), 1);
}

TEST_F(ClientLibraries, ReplyLongerThanItsBufferIsRefusedAndTheLinkStaysUsable) {
    FakeService control(kzwire::kControlEndpoint, [](const SeenRequest& request) {
        return Answer{0, std::string(request.header.target, 'r'), 0, 0, false};
    });
    std::array<char, 9> reply{"untouchd"};
    uint32_t length = 99;

    EXPECT_LT(kzcontrol_send_command_param_response_ex(9, nullptr, 0, reply.data(), 8, &length), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_STREQ(reply.data(), "untouchd");
    EXPECT_EQ(kzcontrol_send_command_param_response_ex(8, nullptr, 0, reply.data(), 8, &length), 0);
    EXPECT_EQ(length, 8u);
    EXPECT_EQ(control.connections(), 1);
    // A record that has one size only is refused in any other.
    std::array<char, 512> record{};
    EXPECT_LT(kzcontrol_get_camera_info(record.data()), 0);
    // A reply beyond what the wire carries cannot be told from a broken one.
    EXPECT_LT(kzcontrol_send_command_param_response(kzwire::kMaxPayload + 1, nullptr, 0, nullptr, 0), 0);
    EXPECT_EQ(sendCommand(3), 0);
}

TEST_F(ClientLibraries, CsiValueLongerThanItsBufferIsRefused) {
    FakeService service(kzwire::kCsiEndpoint, [](const SeenRequest&) { return Answer{0, "12345", 0, 0, false}; });
    std::array<char, 5> value{"keep"};
    uint32_t length = 77;

    EXPECT_NE(csi_get(94, 4, &length, value.data()), CSI_OK);
    EXPECT_STREQ(value.data(), "keep");
    EXPECT_EQ(length, 77u);
    EXPECT_EQ(csi_get(94, 5, &length, value.data()), CSI_OK);
    EXPECT_EQ(length, 5u);
}

TEST_F(ClientLibraries, ParameterTooLongForTheWireIsRefusedWithoutSending) {
    FakeService service(kzwire::kControlEndpoint, acceptAll);
    const std::string large(kzwire::kMaxPayload + 1, 'p');

    EXPECT_LT(kzcontrol_send_command_param_response(3, large.data(), static_cast<uint32_t>(large.size()), nullptr, 0),
              0);
    EXPECT_LT(kzcontrol_send_command_param_response(3, nullptr, 4, nullptr, 0), 0);

    EXPECT_TRUE(service.seen().empty());
}

TEST_F(ClientLibraries, SilentServiceIsGivenUpAfterTwoSecondsAlsoUnderSignals) {
    FakeService service(kzwire::kControlEndpoint, [](const SeenRequest&) { return Answer{0, "", 0, 2600, false}; });
    struct sigaction ignoreAlarm {};
    ignoreAlarm.sa_handler = [](int) {};
    sigaction(SIGALRM, &ignoreAlarm, nullptr);
    const itimerval ticking{{0, 100000}, {0, 100000}};
    setitimer(ITIMER_REAL, &ticking, nullptr);
    const Stopwatch watch;

    EXPECT_LT(sendCommand(3), 0);

    EXPECT_GE(watch.milliseconds(), 1900);
    EXPECT_LT(watch.milliseconds(), 2500);
    const itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
}

TEST_F(ClientLibraries, LateReplyNeverAnswersTheNextRequest) {
    FakeService service(kzwire::kControlEndpoint, [](const SeenRequest& request) {
        return Answer{0, std::to_string(request.header.target), 0, request.header.target == 1 ? 2200 : 0, false};
    });
    std::array<char, 4> reply{};

    EXPECT_LT(kzcontrol_send_command_param_response(1, nullptr, 0, reply.data(), 3), 0);
    EXPECT_EQ(kzcontrol_send_command_param_response(2, nullptr, 0, reply.data(), 3), 0);

    EXPECT_STREQ(reply.data(), "2");
    EXPECT_EQ(service.connections(), 2);
}

TEST_F(ClientLibraries, AnswerToAnotherRequestIsRefused) {
    FakeService service(kzwire::kControlEndpoint, [](const SeenRequest& request) {
        return Answer{0, "", request.header.target == 1 ? -1 : 0, 0, false};
    });

    EXPECT_LT(sendCommand(1), 0);
    EXPECT_EQ(sendCommand(2), 0);
}

TEST_F(ClientLibraries, ServiceThatHungUpCostsOneCallAndIsFoundAgainByTheNext) {
    FakeService service(kzwire::kControlEndpoint, [](const SeenRequest& request) {
        return Answer{0, "", 0, 0, request.header.target == 1};
    });

    EXPECT_EQ(kzcontrol_interface_open(), 0);
    EXPECT_LT(sendCommand(1), 0);
    EXPECT_EQ(sendCommand(2), 0);

    EXPECT_EQ(service.connections(), 2);
}

TEST_F(ClientLibraries, IpcChannelCarriesItsNameAndSurvivesAHangUp) {
    FakeService service(kzwire::kIpcEndpoint, [](const SeenRequest& request) {
        return Answer{0, "", 0, 0, request.payload == "metadatabye"};
    });
    alignas(1) std::array<uint8_t, KZIPC_CHANNEL_SIZE + 1> storage{};
    void* channel = storage.data() + 1;  // the caller's record has no alignment

    EXPECT_EQ(kzIpcInit("metadata", channel), 0);
    EXPECT_LT(kzIpcSend(channel, "bye", 3), 0);
    EXPECT_EQ(kzIpcSend(channel, "data", 4), 0);
    EXPECT_EQ(kzIpcDestroy(channel), 0);
    EXPECT_LT(kzIpcSend(channel, "data", 4), 0);

    const auto seen = service.seen();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[2].payload, "metadatadata");
    EXPECT_EQ(seen[2].header.target, 8u);
}

TEST_F(ClientLibraries, IpcRefusesNamesAndRecordsThatAreNone) {
    std::array<uint8_t, KZIPC_CHANNEL_SIZE> channel{};
    const std::string longName(kzwire::kMaxChannelName + 1, 'n');

    EXPECT_LT(kzIpcInit(nullptr, channel.data()), 0);
    EXPECT_LT(kzIpcInit("", channel.data()), 0);
    EXPECT_LT(kzIpcInit(longName.c_str(), channel.data()), 0);
    EXPECT_LT(kzIpcInit("metadata", nullptr), 0);
    EXPECT_LT(kzIpcSend(nullptr, "d", 1), 0);
    EXPECT_LT(kzIpcDestroy(channel.data()), 0);
}

TEST_F(ClientLibraries, LibrarySocketsAreNotInheritedByChildren) {
    FakeService service(kzwire::kControlEndpoint, acceptAll);
    const int next = open("/dev/null", O_RDONLY);  // the descriptor the library's socket gets is the lowest free one
    close(next);

    ASSERT_EQ(kzcontrol_interface_open(), 0);

    EXPECT_NE(fcntl(next, F_GETFD) & FD_CLOEXEC, 0);
}
