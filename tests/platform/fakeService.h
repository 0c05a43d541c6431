// The other end of one client library: a service on a socket of its own that gives its answers in order, and success
// when it has no more.
#pragma once

#include <sys/poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cameraWire.h"

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
        m_stop = true;
        m_thread.join();
        close(m_listener);
        unlink(m_path.c_str());
    }

    std::atomic<int> connections{0};
    std::vector<SeenRequest> seen() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_seen;
    }

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
        const Answer answer = note(request);
        usleep(static_cast<useconds_t>(answer.delayMs) * 1000);
        const kzwire::ReplyHeader header{request.header.sequence - (answer.toAnother ? 1 : 0), answer.result};
        const std::string reply = std::string(reinterpret_cast<const char*>(&header), sizeof header) + answer.payload;
        return !answer.hangUp && send(connection, reply.data(), reply.size(), MSG_NOSIGNAL) > 0;
    }
    Answer note(const SeenRequest& request) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_seen.push_back(request);
        return m_seen.size() <= m_answers.size() ? m_answers[m_seen.size() - 1] : Answer();
    }

    std::string m_path;
    std::vector<Answer> m_answers;
    std::vector<SeenRequest> m_seen;
    std::mutex m_mutex;
    std::atomic<bool> m_stop{false};
    int m_listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    std::thread m_thread;
};
