#include "localSocket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>

namespace kzsim {
namespace {

constexpr int kBacklog = 64;

bool makeAddress(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

int makeSocket() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

Descriptor listenAt(const std::string& path) {
    sockaddr_un address;
    if (!makeAddress(path, address)) {
        throw std::runtime_error("the socket path is too long: " + path);
    }
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    unlink(path.c_str());
    Descriptor listener(makeSocket());
    if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener.get(), kBacklog) != 0) {
        throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
    }
    return listener;
}

}  // namespace

Descriptor::~Descriptor() {
    if (m_fd >= 0) {
        close(m_fd);
    }
}

bool someoneListensAt(const std::string& path) {
    sockaddr_un address;
    const Descriptor probe(makeSocket());
    return makeAddress(path, address) &&
           (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN);
}

Listener::Listener(EventLoop& loop, std::string path, std::function<void(Descriptor)> accepted)
    : m_loop(loop), m_path(std::move(path)), m_socket(listenAt(m_path)) {
    m_loop.watch(m_socket.get(), POLLIN, [this, accepted = std::move(accepted)](short) {
        Descriptor connection(accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (connection.get() >= 0) {
            accepted(std::move(connection));
        }
    });
}

Listener::~Listener() {
    m_loop.forget(m_socket.get());
    unlink(m_path.c_str());
}

Received receiveRecord(int fd, size_t limit, Bytes& record) {
    record.resize(limit);
    iovec part{record.data(), record.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t length = recvmsg(fd, &message, 0);
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
        return Received::Nothing;
    }
    if (length <= 0 || (message.msg_flags & MSG_TRUNC) != 0) {
        return Received::End;
    }
    record.resize(static_cast<size_t>(length));
    return Received::Record;
}

bool sendRecord(int fd, ByteView record, bool* full) {
    const bool sent = send(fd, record.data(), record.size(), MSG_NOSIGNAL) >= 0;
    if (full != nullptr) {
        *full = !sent && errno == EAGAIN;
    }
    return sent;
}

RecordServer::RecordServer(EventLoop& loop, const std::string& path, size_t recordLimit, Handler handler)
    : m_loop(loop),
      m_recordLimit(recordLimit),
      m_handler(std::move(handler)),
      m_listener(loop, path, [this](Descriptor connection) { accepted(std::move(connection)); }) {}

RecordServer::~RecordServer() {
    for (const auto& [fd, connection] : m_connections) {
        m_loop.forget(fd);
    }
}

void RecordServer::accepted(Descriptor connection) {
    const int fd = connection.get();
    m_connections[fd] = std::move(connection);
    m_loop.watch(fd, m_reading ? POLLIN : 0, [this, fd](short) { readable(fd); });
}

void RecordServer::setReading(bool reading) {
    m_reading = reading;
    for (const auto& [fd, connection] : m_connections) {
        m_loop.setEvents(fd, m_reading ? POLLIN : 0);
    }
}

void RecordServer::readable(int fd) {
    Bytes record;
    const Received received = receiveRecord(fd, m_recordLimit, record);
    if (received == Received::Nothing) {
        return;
    }
    if (received == Received::End || !sendRecord(fd, m_handler(record))) {
        m_loop.forget(fd);
        m_connections.erase(fd);
    }
}

}  // namespace kzsim
