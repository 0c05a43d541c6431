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

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Nobody listens, and no link to the service of an earlier test is left.
class ClientLibraries : public testing::Test {
  protected:
    ClientLibraries() {
        for (const auto& endpoint : {kzwire::kControlEndpoint, kzwire::kCsiEndpoint, kzwire::kIpcEndpoint}) {
            setenv(endpoint.variable, "/tmp/kzNobodyListensHere", 1);
        }
        kzcontrol_interface_close();
        csi_set(0, "", 1);  // fails, and so drops its link
        csi_set(0, "", 1);
    }

    static int sendCommand(uint32_t id) { return kzcontrol_send_command_param_response(id, nullptr, 0, nullptr, 0); }
    // A command whose reply goes to `reply`.
    int ask(uint32_t room) {
        reply = {"untouchd"};
        return kzcontrol_send_command_param_response_ex(30, "abc", 3, reply.data(), room, &length);
    }

    steady_clock::time_point start = steady_clock::now();
    std::array<char, 512> reply{};
    uint32_t length = 0;
    std::array<uint8_t, KZIPC_CHANNEL_SIZE + 1> storage{};
    void* channel = storage.data() + 1;  // the caller's record has no alignment
};

TEST_F(ClientLibraries, EveryCallFailsAtOnceWhenNobodyListens) {
    EXPECT_NE(kzcontrol_interface_open(), 0);
    EXPECT_NE(sendCommand(3), 0);
    length = 7;
    EXPECT_NE(ask(8), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_NE(kzcontrol_get_camera_info(reply.data()), 0);
    EXPECT_NE(kzc_state_get_model_number(storage.data()), 0);
    EXPECT_FALSE(optionIdExists(58, 2, 1));
    EXPECT_NE(csi_get(20, 4, &length, reply.data()), CSI_OK);
    EXPECT_NE(csi_set(20, reply.data(), 4), CSI_OK);
    EXPECT_LT(kzIpcInit("metadata", channel), 0);
    EXPECT_LT(kzIpcSend(channel, reply.data(), 8), 0);
    EXPECT_LT(kzIpcDestroy(channel), 0);

    EXPECT_LT(steady_clock::now() - start, milliseconds(500));
}

TEST_F(ClientLibraries, CommandCarriesItsCallerAndParameterOverOneLinkThatChildrenDoNotInherit) {
    FakeService service(kzwire::kControlEndpoint, {{}, {.payload = "abc!"}});
    const int next = open("/dev/null", O_RDONLY);  // the descriptor the library's socket gets is the lowest free one
    close(next);

    ASSERT_EQ(kzcontrol_interface_open(), 0);
    EXPECT_NE(fcntl(next, F_GETFD) & FD_CLOEXEC, 0);
    kzcontrol_set_caller_id(11);
    kzcontrol_set_caller_id(23);
    EXPECT_EQ(ask(8), 0);
    EXPECT_EQ(std::string(reply.data(), length), "abc!");
    kzcontrol_set_caller_id(0);
    EXPECT_EQ(sendCommand(4), 0);

    const auto seen = service.seen();
    ASSERT_EQ(seen.size(), 3u);  // the first opened the interface
    EXPECT_EQ(seen[1].header.callerId, 23u);
    EXPECT_EQ(seen[1].header.target, 30u);
    EXPECT_EQ(seen[1].payload, "abc");
    EXPECT_EQ(seen[2].header.callerId, 0u);
    EXPECT_EQ(service.connections, 1);
}

TEST_F(ClientLibraries, RefusalAndReplyThatDoesNotFitWriteNothingAndTheLinkStaysUsable) {
    const std::string tooLongForTheWire(kzwire::kMaxPayload + 1, 'p');
    FakeService service(kzwire::kControlEndpoint,
                        {{-17, "text"}, {0, "nineBytes"}, {0, "8 bytes."}, {0, "no record"}, {0, tooLongForTheWire}});

    EXPECT_EQ(ask(8), -17);
    EXPECT_STREQ(reply.data(), "untouchd");
    EXPECT_LT(ask(8), 0);
    EXPECT_STREQ(reply.data(), "untouchd");
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(ask(8), 0);
    EXPECT_STREQ(reply.data(), "8 bytes.");
    EXPECT_LT(kzcontrol_get_camera_info(reply.data()), 0);  // has one size only
    EXPECT_EQ(service.connections, 1);
    EXPECT_LT(ask(512), 0);  // cannot be told from a broken one
    EXPECT_EQ(sendCommand(3), 0);

    const auto size = static_cast<uint32_t>(tooLongForTheWire.size());
    EXPECT_LT(kzcontrol_send_command_param_response(3, tooLongForTheWire.data(), size, nullptr, 0), 0);
    EXPECT_LT(kzcontrol_send_command_param_response(3, nullptr, 4, nullptr, 0), 0);
    EXPECT_EQ(service.seen().size(), 6u) << "a bad parameter is not sent";
}

TEST_F(ClientLibraries, CsiValueLongerThanItsBufferIsRefused) {
    FakeService service(kzwire::kCsiEndpoint, {{0, "12345"}, {0, "12345"}});
    length = 77;

    EXPECT_NE(csi_get(94, 4, &length, reply.data()), CSI_OK);
    EXPECT_STREQ(reply.data(), "");
    EXPECT_EQ(length, 77u);
    EXPECT_EQ(csi_get(94, 5, &length, reply.data()), CSI_OK);
    EXPECT_EQ(std::string(reply.data(), length), "12345");
}

TEST_F(ClientLibraries, SilentServiceIsGivenUpAfterTwoSecondsAlsoUnderSignals) {
    FakeService service(kzwire::kControlEndpoint, {{.delayMs = 2600}});
    signal(SIGALRM, [](int) {});
    itimerval ticking{{0, 100000}, {0, 100000}};
    setitimer(ITIMER_REAL, &ticking, nullptr);

    EXPECT_LT(sendCommand(3), 0);

    EXPECT_GE(steady_clock::now() - start, milliseconds(1900));
    EXPECT_LT(steady_clock::now() - start, milliseconds(2500));
    ticking = {};
    setitimer(ITIMER_REAL, &ticking, nullptr);
}

TEST_F(ClientLibraries, ReplyThatIsLateOrAnothersOrMissingCostsOneCallAndNeverAnswersTheNext) {
    for (Answer answer : {Answer{.delayMs = 2200}, Answer{.toAnother = true}, Answer{.hangUp = true}}) {
        answer.payload = "stale";
        FakeService service(kzwire::kControlEndpoint, {answer, {.payload = "mine"}});

        EXPECT_LT(ask(8), 0);
        EXPECT_EQ(ask(8), 0);

        EXPECT_EQ(std::string(reply.data(), length), "mine");
        EXPECT_EQ(service.connections, 2);
        kzcontrol_interface_close();
    }
}

TEST_F(ClientLibraries, IpcChannelCarriesItsNameAndSurvivesAHangUp) {
    FakeService service(kzwire::kIpcEndpoint, {{}, {.hangUp = true}});

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
    EXPECT_LT(kzIpcInit(nullptr, channel), 0);
    EXPECT_LT(kzIpcInit("", channel), 0);
    EXPECT_LT(kzIpcInit(std::string(kzwire::kMaxChannelName + 1, 'n').c_str(), channel), 0);
    EXPECT_LT(kzIpcInit("metadata", nullptr), 0);
    EXPECT_LT(kzIpcSend(nullptr, "d", 1), 0);
}

}  // namespace
