// The other end of one client library: a service on a socket of its own, answering each request as a test says.
#pragma once

#include <sys/poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cameraWire.h"

// A request as it arrived, and what a test answers to it.
struct SeenRequest {
    kzwire::RequestHeader header{};
    std::string payload;
};
struct Answer {
    int32_t result = 0;
    std::string payload;
    int32_t sequenceOffset = 0;  // added to the sequence number the answer carries
    int delayMs = 0;
    bool hangUp = false;  // close the connection instead of answering
};

class FakeService {
  public:
    using Handler = std::function<Answer(const SeenRequest&)>;

    FakeService(const kzwire::Endpoint& endpoint, Handler handler) : m_handler(std::move(handler)) {
        m_path = "/tmp/kzFakeService." + std::to_string(getpid());
        setenv(endpoint.variable, m_path.c_str(), 1);
        unlink(m_path.c_str());
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, m_path.data(), m_path.size());
        m_listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        m_ready = bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                  listen(m_listener, 4) == 0;
        m_thread = std::thread([this] { serve(); });
    }
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;
    ~FakeService() {
        m_stop = true;
        m_thread.join();
        close(m_listener);
        unlink(m_path.c_str());
    }

    bool ready() const { return m_ready; }
    int connections() const { return m_connections; }
    std::vector<SeenRequest> seen() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_seen;
    }

  private:
    void serve() {
        while (!m_stop) {
            pollfd waiting{m_listener, POLLIN, 0};
            if (poll(&waiting, 1, 10) == 1) {
                const int connection = accept(m_listener, nullptr, nullptr);
                ++m_connections;
                serveConnection(connection);
                close(connection);
            }
        }
    }

    void serveConnection(int connection) {
        std::string record(sizeof(kzwire::RequestHeader) + kzwire::kMaxPayload, '\0');
        while (!m_stop) {
            pollfd waiting{connection, POLLIN, 0};
            if (poll(&waiting, 1, 10) != 1) {
                continue;
            }
            const ssize_t length = recv(connection, record.data(), record.size(), 0);
            if (length < static_cast<ssize_t>(sizeof(kzwire::RequestHeader))) {
                return;
            }
            SeenRequest request;
            std::memcpy(&request.header, record.data(), sizeof request.header);
            request.payload = record.substr(sizeof request.header, static_cast<size_t>(length) - sizeof request.header);
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_seen.push_back(request);
            }
            const Answer answer = m_handler(request);
            usleep(static_cast<useconds_t>(answer.delayMs) * 1000);
            if (answer.hangUp) {
                return;
            }
            kzwire::ReplyHeader header{request.header.sequence + static_cast<uint32_t>(answer.sequenceOffset),
                                       answer.result};
            std::string reply(reinterpret_cast<const char*>(&header), sizeof header);
            reply += answer.payload;
            send(connection, reply.data(), reply.size(), MSG_NOSIGNAL);
        }
    }

    Handler m_handler;
    std::string m_path;
    int m_listener = -1;
    bool m_ready = false;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_connections{0};
    mutable std::mutex m_mutex;
    std::vector<SeenRequest> m_seen;
    std::thread m_thread;
};
