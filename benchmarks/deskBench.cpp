// A write through the desk until its answer is in the event stream, beside what it cannot do without: the same over the
// radio's socket, and one exchange of HTTP on this machine. Then twenty phones at once, each asking 100 times a second:
// how many answers come. Camera, daemon and desk run in a private world.
#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bleClient.h"
#include "engine/world.h"
#include "roadTable.h"
#include "roadsRig.h"
#include "skylark/bleMessage.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kHere = "127.0.0.1";
constexpr const char* kJson = "application/json";
constexpr const char* kAsk = R"({"stream":12,"message":"12 02"})";  // the value of a setting
constexpr int kPhones = 20;
constexpr int kMessages = 500;  // of each phone
constexpr std::chrono::milliseconds kInterval{10};
constexpr std::chrono::seconds kPatience{20};

int FreePort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const bytes = reinterpret_cast<sockaddr*>(&address);
    const bool isFound = bind(fd, bytes, size) == 0 && getsockname(fd, bytes, &size) == 0;
    close(fd);
    if (!isFound) {
        throw std::runtime_error("no port is free");
    }
    return ntohs(address.sin_port);
}

void Check(const httplib::Result& result, int status, const char* what) {
    if (!result || result->status != status) {
        throw std::runtime_error(std::string(what) + " failed: " + (result ? result->body : to_string(result.error())));
    }
}

// A phone on the desk, with a thread that reads its events and counts the answers.
class Phone {
  public:
    explicit Phone(int port) : m_port(port), m_client(kHere, port) {
        m_client.set_tcp_nodelay(true);
        const auto made = m_client.Post("/devices", R"({"gates":true})", kJson);
        Check(made, 201, "connecting");
        const std::string head = R"({"device":)";
        m_path = "/devices/" + std::to_string(std::stoul(made->body.substr(head.size())));
        m_reader = std::thread([this] { Read(); });
    }
    ~Phone() {
        m_client.Delete(m_path);
        m_reader.join();
    }
    Phone(const Phone&) = delete;
    Phone& operator=(const Phone&) = delete;

    void Ask() { Check(m_client.Post(m_path + "/write", kAsk, kJson), 202, "writing"); }
    // Whether there are so many answers in time.
    bool Await(int answers) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, kPatience, [&] { return m_answers >= answers; });
    }
    int Answers() {
        const std::lock_guard lock(m_mutex);
        return m_answers;
    }

  private:
    void Read() {
        httplib::Client stream(kHere, m_port);
        stream.set_read_timeout(kPatience);
        std::string text;
        stream.Get(m_path + "/events", [&](const char* data, size_t size) {
            text.append(data, size);
            for (size_t end = 0; (end = text.find("\n\n")) != std::string::npos; text.erase(0, end + 2)) {
                Count(text.substr(0, end));
            }
            return true;
        });
    }
    void Count(const std::string& event) {
        if (event.find("event: message") != std::string::npos && event.find("\"notify\"") != std::string::npos) {
            {
                const std::lock_guard lock(m_mutex);
                ++m_answers;
            }
            m_changed.notify_one();
        }
    }

    int m_port;
    httplib::Client m_client;
    std::string m_path;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_answers = 0;
    std::thread m_reader;
};

// A phone on the radio's socket, and a server that says nothing.
class Floor {
  public:
    Floor() : m_port(m_server.bind_to_any_port(kHere)), m_phone("", {{2, 0, 0, 0, 9, 9}, KZ_CALLER_BLE_RC}, kPatience) {
        m_server.set_tcp_nodelay(true);
        m_server.Post("/", [](const httplib::Request&, httplib::Response& response) { response.status = 202; });
        m_serving = std::thread([this] { m_server.listen_after_bind(); });
        m_phone.enableNotifications();
    }
    ~Floor() {
        m_server.stop();
        m_serving.join();
    }
    void Ask() {
        const uint8_t ask[] = {0x12, 0x02};
        m_phone.request(KZ_STR_ID_QUERY, ask);
    }
    void Exchange() {
        httplib::Client client(kHere, m_port);
        client.set_tcp_nodelay(true);
        Check(client.Post("/", kAsk, kJson), 202, "an exchange");
    }

  private:
    httplib::Server m_server;
    int m_port;
    std::thread m_serving;
    kzclient::BleClient m_phone;
};

void AwaitDaemon() {
    for (const auto end = Clock::now() + kPatience; Clock::now() < end;
         std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
        try {
            kzclient::BleClient phone("", {{2, 0, 0, 0, 9, 8}, KZ_CALLER_BLE_RC}, std::chrono::milliseconds(500));
            phone.enableNotifications();
            phone.command(0x51);
            return;
        } catch (const kzclient::Error&) {
            continue;
        }
    }
    throw std::runtime_error("the daemon does not answer");
}

void AwaitDesk(int port) {
    for (const auto end = Clock::now() + kPatience; Clock::now() < end;
         std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
        if (httplib::Client(kHere, port).Get("/state")) {
            return;
        }
    }
    throw std::runtime_error("the desk does not answer");
}

void OneAtATime(int port) {
    Phone phone(port);
    Floor floor;
    int asked = 0;
    RoadTable table;
    table.Measure(
        "write until its answer is an event", 20, 2.0,
        [&] {
            phone.Ask();
            if (!phone.Await(++asked)) {
                throw std::runtime_error("an answer did not come");
            }
        },
        [&] {
            floor.Ask();
            floor.Exchange();
        });
    table.Print();
    std::fflush(stdout);
}

void ManyAtOnce(int port) {
    std::vector<std::unique_ptr<Phone>> phones;
    for (int i = 0; i < kPhones; ++i) {
        phones.push_back(std::make_unique<Phone>(port));
    }
    std::vector<std::thread> askers;
    const auto begin = Clock::now();
    for (const auto& phone : phones) {
        askers.emplace_back([&phone, begin] {
            for (int i = 0; i < kMessages; ++i) {
                std::this_thread::sleep_until(begin + i * kInterval);
                phone->Ask();
            }
        });
    }
    for (std::thread& asker : askers) {
        asker.join();
    }
    const std::chrono::duration<double> asking = Clock::now() - begin;
    int answers = 0;
    for (const auto& phone : phones) {
        phone->Await(kMessages);
        answers += phone->Answers();
    }
    std::printf("%d phones, %d messages each in %.1f s: %d of %d answers came\n", kPhones, kMessages, asking.count(),
                answers, kPhones * kMessages);
    if (answers != kPhones * kMessages) {
        throw std::runtime_error("answers were lost");
    }
}

}  // namespace

int main(int /*argc*/, char** argv) {
    e2e::enterWorld(argv);
    try {
        if (std::system(KZ_SCRIPTS "/camera-files") != 0) {
            return 1;
        }
        const int port = FreePort();
        const auto camera = roads::Process::Spawn({KZ_CAMERA_SIM});
        const auto daemon = roads::Process::Spawn({KZ_DAEMON});
        AwaitDaemon();
        const auto desk = roads::Process::Spawn({KZ_DESK, "--listen", std::to_string(port)});
        AwaitDesk(port);
        OneAtATime(port);
        ManyAtOnce(port);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "deskBench: %s\n", error.what());
        return 1;
    }
    return 0;
}
