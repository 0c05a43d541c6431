#include "radioLink.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "skylark/radioWire.h"

namespace kzclient {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kWelcomeTimeout{5000};
constexpr milliseconds kInterruptPatience{500};  // a signal just before a wait is seen this late
constexpr std::chrono::seconds kSendPatience{10};

int connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        throw WrongUse("the radio's socket path is too long: " + path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd == -1) {
        throw Error(std::string("cannot make a socket: ") + std::strerror(errno));
    }
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1) {
        const std::string reason = std::strerror(errno);
        close(fd);
        throw NoRadio("no radio at " + path + ": " + reason + " (is the camera running?)");
    }
    return fd;
}

void sendRecord(int fd, const kzradio::Record& record) {
    if (::send(fd, &record, sizeof(record), MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof(record))) {
        return;
    }
    const int reason = errno;
    checkInterrupt();
    if (reason == EAGAIN) {
        throw TimedOut("the camera takes no more packets");
    }
    throw NoCamera(std::string("the connection to the camera is gone: ") + std::strerror(reason));
}

// False when nothing came until the deadline.
bool receiveRecord(int fd, kzradio::Record& record, steady_clock::time_point deadline) {
    while (true) {
        checkInterrupt();
        const auto left = std::max(std::chrono::ceil<milliseconds>(deadline - steady_clock::now()), milliseconds{0});
        pollfd waiting{fd, POLLIN, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(std::min(left, kInterruptPatience).count()));
        if (ready <= 0) {
            if (left.count() == 0) {
                return false;
            }
            continue;
        }
        const ssize_t got = recv(fd, &record, sizeof(record), 0);
        if (got == static_cast<ssize_t>(sizeof(record))) {
            return true;
        }
        throw NoCamera("the camera closed the connection");
    }
}

}  // namespace

Address parseAddress(const std::string& text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), [](char c) { return c != ':' && c != '-'; });
    Address address{};
    const bool valid = digits.size() == 2 * address.size() &&
                       std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
    if (!valid) {
        throw WrongUse("not a device address: \"" + text + "\"; one looks like 02:00:00:00:00:01");
    }
    for (size_t i = 0; i < address.size(); ++i) {
        address[i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    }
    return address;
}

std::string addressText(const Address& address) {
    std::string text;
    for (const uint8_t byte : address) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%s%02x", text.empty() ? "" : ":", byte);
        text += digits;
    }
    return text;
}

RadioLink::RadioLink(const std::string& socketPath, const Peer& peer)
    : m_socket(connectTo(socketPath.empty() ? kzradio::kRadioEndpoint.address() : socketPath)) {
    try {
        setSendPatience(kSendPatience);
        m_daemon.emplace();
        kzradio::Record hello{};
        hello.kind = kzradio::Kind::Hello;
        hello.length = kzradio::kAddressSize;
        hello.argument0 = peer.deviceType;
        hello.argument1 = peer.cameraIsCentral ? 1 : 0;
        std::copy(peer.address.begin(), peer.address.end(), hello.data);
        sendRecord(m_socket, hello);

        kzradio::Record welcome{};
        if (!receiveRecord(m_socket, welcome, steady_clock::now() + kWelcomeTimeout) ||
            welcome.kind != kzradio::Kind::Welcome) {
            throw RadioRefuses("the radio did not take the connection");
        }
        m_connectionId = welcome.argument0;
    } catch (...) {
        close(m_socket);
        throw;
    }
}

RadioLink::~RadioLink() {
    close(m_socket);
}

void RadioLink::send(uint8_t streamId, std::span<const uint8_t> packet) {
    kzradio::Record record{};
    if (packet.size() > sizeof(record.data)) {
        throw Error("a packet holds at most 20 bytes");
    }
    record.kind = kzradio::Kind::Packet;
    record.streamId = streamId;
    record.length = static_cast<uint8_t>(packet.size());
    std::copy(packet.begin(), packet.end(), record.data);
    passes({LinkEvent::Kind::Packet, true, streamId, packet});
    sendRecord(m_socket, record);
}

void RadioLink::writeDescriptor(uint8_t descriptorStream, uint8_t value) {
    kzradio::Record record{};
    record.kind = kzradio::Kind::Ccc;
    record.streamId = descriptorStream;
    record.length = value;
    passes({LinkEvent::Kind::Gate, true, descriptorStream, std::span(&value, 1)});
    sendRecord(m_socket, record);
}

void RadioLink::sendDebug(uint32_t command, uint32_t argument) {
    kzradio::Record record{};
    record.kind = kzradio::Kind::Debug;
    record.argument0 = command;
    record.argument1 = argument;
    sendRecord(m_socket, record);
}

void RadioLink::passes(const LinkEvent& event) const {
    for (const Trace& watcher : {std::cref(m_trace), std::cref(m_recorder)}) {
        if (watcher) {
            watcher(event);
        }
    }
}

void RadioLink::setSendPatience(std::chrono::seconds patience) {
    const timeval time{patience.count(), 0};
    setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
}

void RadioLink::disconnect() {
    shutdown(m_socket, SHUT_RDWR);
}

std::optional<Packet> RadioLink::receive(steady_clock::time_point deadline) {
    kzradio::Record record{};
    while (receiveRecord(m_socket, record, deadline)) {
        if (record.kind == kzradio::Kind::Packet) {
            const size_t length = std::min<size_t>(record.length, sizeof(record.data));
            Packet packet{record.streamId, {record.data, record.data + length}};
            passes({LinkEvent::Kind::Packet, false, packet.streamId, packet.bytes});
            return packet;
        }
    }
    return std::nullopt;
}

}  // namespace kzclient
