// See cameraLink.h. The usual exchange is one sendmsg and one recvmsg; the socket's own time-outs are the deadline.
#include "cameraLink.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kzlink {
namespace {

using kzwire::kMaxPayload;
using kzwire::kResultFailure;

int64_t nowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

bool connectTo(Link& link, const kzwire::Endpoint& endpoint) {
    if (link.fd >= 0) {
        return true;
    }
    const char* path = endpoint.address();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(path);
    if (length >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, path, length);

    link.fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (link.fd < 0) {
        return false;
    }
    // The send time-out also bounds connect(), which waits while the service's backlog is full.
    const timeval deadline{kReplyDeadlineMs / 1000, (kReplyDeadlineMs % 1000) * 1000};
    const bool connected = setsockopt(link.fd, SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof deadline) == 0 &&
                           setsockopt(link.fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline) == 0 &&
                           connect(link.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    if (!connected) {
        disconnect(link);
    }
    return connected;
}

bool sendRequest(Link& link, const Request& request) {
    kzwire::RequestHeader header{++link.sequence, request.operation, request.target, request.callerId};
    iovec parts[] = {{&header, sizeof header}, request.first, request.second};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 3;
    return sendmsg(link.fd, &message, MSG_NOSIGNAL) >= 0;
}

// One record, waiting until `deadline`; its length, 0 when the service hung up, -1 on failure.
ssize_t receiveRecord(const Link& link, msghdr& message, int64_t deadline) {
    ssize_t received = recvmsg(link.fd, &message, 0);
    while (received < 0 && errno == EINTR) {  // a signal: wait for what is left of the time
        const int64_t left = deadline - nowMs();
        pollfd readable{link.fd, POLLIN, 0};
        if (left <= 0) {
            return -1;
        }
        const int ready = poll(&readable, 1, static_cast<int>(left));
        if (ready < 0) {
            continue;  // another signal
        }
        if (ready == 0) {
            return -1;
        }
        received = recvmsg(link.fd, &message, MSG_DONTWAIT);
    }
    return received;
}

}  // namespace

int exchange(Link& link, const kzwire::Endpoint& endpoint, const Request& request, ReplyBuffer& reply) {
    if (request.first.iov_len > kMaxPayload || request.second.iov_len > kMaxPayload - request.first.iov_len) {
        return kResultFailure;
    }
    if (!connectTo(link, endpoint)) {
        return kResultFailure;
    }
    const int64_t deadline = nowMs() + kReplyDeadlineMs;
    if (!sendRequest(link, request)) {
        disconnect(link);
        return kResultFailure;
    }

    // The reply is received beside the caller's buffer: a refused one must leave that buffer as it was.
    kzwire::ReplyHeader header{};
    unsigned char payload[kMaxPayload];
    iovec parts[] = {{&header, sizeof header}, {payload, sizeof payload}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const ssize_t received = receiveRecord(link, message, deadline);
    const bool whole = received >= static_cast<ssize_t>(sizeof header) && (message.msg_flags & MSG_TRUNC) == 0;
    if (!whole || header.sequence != link.sequence) {
        disconnect(link);
        errno = received == 0 ? ECONNRESET : errno;  // it hung up
        return kResultFailure;
    }
    if (header.result != 0 || reply.data == nullptr) {
        return header.result;
    }
    const auto length = static_cast<uint32_t>(received) - static_cast<uint32_t>(sizeof header);
    if (length > reply.size) {
        return kResultFailure;
    }
    std::memcpy(reply.data, payload, length);
    reply.length = length;
    return 0;
}

void disconnect(Link& link) {
    if (link.fd >= 0) {
        close(link.fd);
        link.fd = -1;
    }
}

}  // namespace kzlink
