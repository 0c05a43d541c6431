// The three client libraries against a service that is absent, late, confused or gone. What they carry is seen in the
// tour.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include "cameraWire.h"
#include "csi/csi.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzipc/kzipc.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct Answer {
    std::string payload = {};
    int delayMs = 0;
    bool toAnother = false;  // carry the sequence number of another request
    bool hangUp = false;     // close the connection instead of answering
};

// The control daemon: gives its answers in order to whoever connects, and hangs up.
void Serve(int listener, const std::vector<Answer>& answers) {
    int connection = -1;
    for (const Answer& answer : answers) {
        std::string record(sizeof(kzwire::RequestHeader) + kzwire::kMaxPayload, '\0');
        while (recv(connection, record.data(), record.size(), 0) <= 0) {  // none yet, or given up by the library
            close(connection);
            connection = accept(listener, nullptr, nullptr);
        }
        kzwire::RequestHeader request{};
        std::memcpy(&request, record.data(), sizeof request);
        EXPECT_EQ(request.target, 30u);
        EXPECT_STREQ(record.data() + sizeof request, "abc");
        std::this_thread::sleep_for(milliseconds(answer.delayMs));
        const kzwire::ReplyHeader header{request.sequence - (answer.toAnother ? 1 : 0), 0};
        const std::string reply = std::string(reinterpret_cast<const char*>(&header), sizeof header) + answer.payload;
        if (answer.hangUp) {
            close(std::exchange(connection, -1));
        } else {
            send(connection, reply.data(), reply.size(), MSG_NOSIGNAL);
        }
    }
    close(connection);
}

class ClientLibraries : public testing::Test {
  protected:
    // A command whose reply goes to `reply`.
    int ask() { return kzcontrol_send_command_param_response_ex(30, "abc", 3, reply.data(), 8, &length); }

    steady_clock::time_point start = steady_clock::now();
    std::array<char, 512> reply{};
    uint32_t length = 7;
    std::array<uint8_t, KZIPC_CHANNEL_SIZE + 1> storage{};
    void* channel = storage.data() + 1;  // the caller's record has no alignment
};

}  // namespace

TEST_F(ClientLibraries, EveryCallFailsAtOnceWhenNobodyListens) {
    for (const auto& endpoint : {kzwire::kControlEndpoint, kzwire::kCsiEndpoint, kzwire::kIpcEndpoint}) {
        setenv(endpoint.variable, "/tmp/kzNobodyListensHere", 1);
    }
    EXPECT_NE(kzcontrol_interface_open(), 0);
    EXPECT_NE(ask(), 0);
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

TEST_F(ClientLibraries, ReplyThatIsLateOrAnothersOrMissingOrTooLongCostsOneCallAndNeverAnswersTheNext) {
    sockaddr_un address{AF_UNIX, {}};
    const std::string path = testing::TempDir() + "kzService." + std::to_string(getpid());
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    listen(listener, 4);
    setenv(kzwire::kControlEndpoint.variable, path.c_str(), 1);
    for (Answer answer : {Answer{.delayMs = 2400}, Answer{.toAnother = true}, Answer{.hangUp = true},
                          Answer{.payload = "too long a reply"}}) {
        answer.payload += "stale";
        std::thread service(Serve, listener, std::vector{answer, Answer{.payload = "mine"}});
        start = steady_clock::now();

        EXPECT_LT(ask(), 0);
        EXPECT_LT(steady_clock::now() - start, milliseconds(2300));
        EXPECT_EQ(ask(), 0);

        EXPECT_EQ(std::string(reply.data(), length), "mine");
        kzcontrol_interface_close();
        service.join();
    }
    close(listener);
    unlink(path.c_str());
}
