// The three client libraries against a service that is absent, silent, late, wordy or gone.
#include <gtest/gtest.h>
#include <sys/poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <thread>

#include "cameraWire.h"
#include "csi/csi.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzipc/kzipc.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct SeenRequest {
    kzwire::RequestHeader header{};
    std::string payload;
};
struct Answer {
    int32_t result = 0;
    std::string payload = {};
    int delayMs = 0;
    bool toAnother = false;  // carry the sequence number of another request
    bool hangUp = false;     // close the connection instead of answering
};

// The other end of one client library: a service on a socket of its own that gives its answers in order, and success
// when it has no more.
class FakeService {
  public:
    explicit FakeService(const kzwire::Endpoint& endpoint, std::vector<Answer> answers = {})
        : m_path("/tmp/kzFakeService." + std::to_string(getpid())), m_answers(std::move(answers)) {
        sockaddr_un address{AF_UNIX, {}};
        m_path.copy(address.sun_path, sizeof address.sun_path - 1);
        unlink(m_path.c_str());
        bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        listen(m_listener, 4);
        setenv(endpoint.variable, m_path.c_str(), 1);
        m_thread = std::thread([this] { serve(); });
    }
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;
    ~FakeService() {
        end();
        close(m_listener);
        unlink(m_path.c_str());
    }

    // What it was asked until now; it answers no more.
    const std::vector<SeenRequest>& end() {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
        return m_seen;
    }

    std::atomic<int> connections{0};

  private:
    // False when the service ends.
    bool waitFor(int descriptor) const {
        pollfd waiting{descriptor, POLLIN, 0};
        while (!m_stop && poll(&waiting, 1, 10) != 1) {
        }
        return !m_stop;
    }
    void serve() {
        while (waitFor(m_listener)) {
            const int connection = accept(m_listener, nullptr, nullptr);
            ++connections;
            while (waitFor(connection) && serveRequest(connection)) {
            }
            close(connection);
        }
    }
    bool serveRequest(int connection) {
        SeenRequest request;
        std::string record(sizeof request.header + kzwire::kMaxPayload, '\0');
        const ssize_t length = recv(connection, record.data(), record.size(), 0);
        if (length < static_cast<ssize_t>(sizeof request.header)) {
            return false;
        }
        std::memcpy(&request.header, record.data(), sizeof request.header);
        request.payload = record.substr(sizeof request.header, static_cast<size_t>(length) - sizeof request.header);
        m_seen.push_back(request);
        const Answer answer = m_seen.size() <= m_answers.size() ? m_answers[m_seen.size() - 1] : Answer();
        usleep(static_cast<useconds_t>(answer.delayMs) * 1000);
        const kzwire::ReplyHeader header{request.header.sequence - (answer.toAnother ? 1 : 0), answer.result};
        const std::string reply = std::string(reinterpret_cast<const char*>(&header), sizeof header) + answer.payload;
        return !answer.hangUp && send(connection, reply.data(), reply.size(), MSG_NOSIGNAL) > 0;
    }

    std::string m_path;
    std::vector<Answer> m_answers;
    std::vector<SeenRequest> m_seen;
    std::atomic<bool> m_stop{false};
    int m_listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    std::thread m_thread;
};

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

TEST_F(ClientLibraries, CommandCarriesItsCallerAndParameterOverOneLink) {
    FakeService service(kzwire::kControlEndpoint, {{}, {.payload = "abc!"}});

    ASSERT_EQ(kzcontrol_interface_open(), 0);
    kzcontrol_set_caller_id(23);
    EXPECT_EQ(ask(8), 0);

    EXPECT_EQ(std::string(reply.data(), length), "abc!");
    const auto& seen = service.end();
    ASSERT_EQ(seen.size(), 2u);  // the first opened the interface
    EXPECT_EQ(seen[1].header.callerId, 23u);
    EXPECT_EQ(seen[1].header.target, 30u);
    EXPECT_EQ(seen[1].payload, "abc");
    EXPECT_EQ(service.connections, 1);
}

TEST_F(ClientLibraries, RefusalAndReplyThatDoesNotFitWriteNothingAndTheLinkStaysUsable) {
    const std::string tooLongForTheWire(kzwire::kMaxPayload + 1, 'p');
    FakeService service(kzwire::kControlEndpoint, {{-17, "text"}, {0, "nineBytes"}, {0, "no record"}, {0, "8 bytes."}});

    EXPECT_EQ(ask(8), -17);
    EXPECT_LT(ask(8), 0);
    EXPECT_STREQ(reply.data(), "untouchd");
    EXPECT_EQ(length, 0u);
    EXPECT_LT(kzcontrol_get_camera_info(reply.data()), 0);  // has one size only
    EXPECT_EQ(ask(8), 0);
    EXPECT_STREQ(reply.data(), "8 bytes.");
    EXPECT_EQ(service.connections, 1);

    const auto size = static_cast<uint32_t>(tooLongForTheWire.size());
    EXPECT_LT(kzcontrol_send_command_param_response(3, tooLongForTheWire.data(), size, nullptr, 0), 0);
    EXPECT_LT(kzcontrol_send_command_param_response(3, nullptr, 4, nullptr, 0), 0);
    EXPECT_EQ(service.end().size(), 4u) << "a bad parameter is not sent";
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

TEST_F(ClientLibraries, ReplyThatIsLateOrAnothersOrMissingCostsOneCallOfTwoSecondsAndNeverAnswersTheNext) {
    signal(SIGALRM, [](int) {});  // signals do not lengthen the wait
    itimerval ticking{{0, 100000}, {0, 100000}};
    setitimer(ITIMER_REAL, &ticking, nullptr);
    for (Answer answer : {Answer{.delayMs = 2400}, Answer{.toAnother = true}, Answer{.hangUp = true}}) {
        answer.payload = "stale";
        FakeService service(kzwire::kControlEndpoint, {answer, {.payload = "mine"}});
        start = steady_clock::now();

        EXPECT_LT(ask(8), 0);
        EXPECT_LT(steady_clock::now() - start, milliseconds(2300));
        EXPECT_EQ(ask(8), 0);

        EXPECT_EQ(std::string(reply.data(), length), "mine");
        kzcontrol_interface_close();
    }
    ticking = {};
    setitimer(ITIMER_REAL, &ticking, nullptr);
}

TEST_F(ClientLibraries, IpcChannelCarriesItsNameSurvivesAHangUpAndRefusesNamesThatAreNone) {
    FakeService service(kzwire::kIpcEndpoint, {{}, {.hangUp = true}});

    EXPECT_LT(kzIpcInit(nullptr, channel), 0);
    EXPECT_LT(kzIpcInit(std::string(kzwire::kMaxChannelName + 1, 'n').c_str(), channel), 0);
    EXPECT_LT(kzIpcInit("metadata", nullptr), 0);
    EXPECT_EQ(kzIpcInit("metadata", channel), 0);
    EXPECT_LT(kzIpcSend(channel, "bye", 3), 0);
    EXPECT_EQ(kzIpcSend(channel, "data", 4), 0);
    EXPECT_EQ(kzIpcDestroy(channel), 0);
    EXPECT_LT(kzIpcSend(channel, "data", 4), 0);

    const auto& seen = service.end();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[2].payload, "metadatadata");
    EXPECT_EQ(seen[2].header.target, 8u);
}

}  // namespace
