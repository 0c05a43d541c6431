#include "ownQueue.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace kzcheck {
namespace {

constexpr long kMessageSize = 1500;
constexpr long kEventQueueDepth = 10;
constexpr long kCsiQueueDepth = 40;

}  // namespace

OwnQueue::OwnQueue(const char* name) : m_name(name) {
    mq_attr attributes{};
    attributes.mq_maxmsg = std::strcmp(name, kCsiQueue) == 0 ? kCsiQueueDepth : kEventQueueDepth;
    attributes.mq_msgsize = kMessageSize;
    const mode_t mask = umask(0);
    m_descriptor = mq_open(name, O_RDWR | O_CREAT | O_EXCL | O_NONBLOCK, 0664, &attributes);
    const int error = errno;
    umask(mask);
    if (m_descriptor < 0) {
        throw std::system_error(error, std::generic_category(), name);
    }
}

OwnQueue::~OwnQueue() {
    if (m_name != nullptr) {
        mq_close(m_descriptor);
        mq_unlink(m_name);
    }
}

std::optional<std::vector<uint8_t>> OwnQueue::receive(int milliseconds) const {
    pollfd readable{m_descriptor, POLLIN, 0};
    std::vector<uint8_t> message(kMessageSize);
    if (poll(&readable, 1, milliseconds) != 1) {
        return std::nullopt;
    }
    const ssize_t length = mq_receive(m_descriptor, reinterpret_cast<char*>(message.data()), message.size(), nullptr);
    if (length < 0) {
        return std::nullopt;
    }
    message.resize(static_cast<size_t>(length));
    return message;
}

void OwnQueue::occupy() const {
    while (mq_send(m_descriptor, "", 1, 0) == 0) {
    }
}

}  // namespace kzcheck
