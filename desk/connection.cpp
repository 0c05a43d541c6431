#include "connection.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kzdesk {
namespace {

constexpr int kTurnMs = 100;  // how soon it is seen that the desk ends, or that others wait

using Name = int (*)(int, sockaddr*, socklen_t*);

void describe(Name name, socket_t socket, std::string& ip, int& port) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    char host[NI_MAXHOST];
    char service[NI_MAXSERV];
    if (name(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
        getnameinfo(reinterpret_cast<sockaddr*>(&address), length, host, sizeof host, service, sizeof service,
                    NI_NUMERICHOST | NI_NUMERICSERV) == 0) {
        ip = host;
        port = std::atoi(service);
    }
}

}  // namespace

template <typename IsLate>
short Connection::await(short events, IsLate isLate) const {
    while (true) {
        pollfd ready{m_socket, events, 0};
        const int count = poll(&ready, 1, kTurnMs);
        if (count > 0) {
            return ready.revents;
        }
        if ((count < 0 && errno != EINTR) || m_serving.isEnding || isLate()) {
            return 0;
        }
    }
}

bool Connection::is_readable() const {
    return m_at < m_end || await(POLLIN, [] { return true; }) != 0;
}

ssize_t Connection::read(char* bytes, size_t size) {
    if (m_at == m_end) {
        const auto isLate = [this] {
            const auto patience = m_serving.waiting > 0 ? kCrowdedPatience : kRequestPatience;
            return m_serving.isEnding || Clock::now() - m_began > patience;
        };
        // A client that sends a byte now and then is always readable in time.
        if (isLate() || await(POLLIN, isLate) == 0) {
            return -1;
        }
        const ssize_t got = recv(m_socket, m_buffer.data(), m_buffer.size(), 0);
        if (got <= 0) {
            return got;
        }
        m_at = 0;
        m_end = static_cast<size_t>(got);
    }
    const size_t taken = std::min(size, m_end - m_at);
    std::memcpy(bytes, m_buffer.data() + m_at, taken);
    m_at += taken;
    return static_cast<ssize_t>(taken);
}

bool Connection::is_writable() const {
    const auto since = Clock::now();
    const short came = await(POLLOUT, [since] { return Clock::now() - since > kReaderPatience; });
    pollfd end{m_socket, POLLRDHUP, 0};
    if (poll(&end, 1, 0) > 0 && !m_finishedSending) {
        m_finishedSending = Clock::now();
    }
    const bool mayRead = !m_finishedSending || Clock::now() - *m_finishedSending < kLastPatience;
    return (came & POLLOUT) != 0 && (came & (POLLERR | POLLHUP)) == 0 && mayRead;
}

ssize_t Connection::write(const char* bytes, size_t size) {
    const auto since = Clock::now();
    while (true) {
        const ssize_t sent = send(m_socket, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0 || (errno != EAGAIN && errno != EINTR)) {
            return sent;
        }
        if (await(POLLOUT, [since] { return Clock::now() - since > kReaderPatience; }) == 0) {
            return -1;
        }
    }
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const {
    describe(getpeername, m_socket, ip, port);
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const {
    describe(getsockname, m_socket, ip, port);
}

}  // namespace kzdesk
