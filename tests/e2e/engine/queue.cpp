#include "queue.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace e2e {
namespace {

constexpr std::chrono::seconds kRoomPatience{100};  // other worlds come and go in seconds

bool outOfRoom(int error) {
    return error == EMFILE || error == ENOSPC || error == ENOMEM;
}

[[noreturn]] void fail(const std::string& operation, const std::string& name) {
    throw std::runtime_error(operation + " " + name + ": " + std::strerror(errno));
}

}  // namespace

Queue::Queue(std::string name, mqd_t descriptor, bool owned)
    : m_name(std::move(name)), m_descriptor(descriptor), m_owned(owned) {}

Queue::Queue(Queue&& other) noexcept
    : m_name(std::move(other.m_name)), m_descriptor(std::exchange(other.m_descriptor, -1)), m_owned(other.m_owned) {}

Queue& Queue::operator=(Queue&& other) noexcept {
    if (this != &other) {
        release();
        m_name = std::move(other.m_name);
        m_descriptor = std::exchange(other.m_descriptor, -1);
        m_owned = other.m_owned;
    }
    return *this;
}

Queue::~Queue() {
    release();
}

void Queue::release() {
    if (m_descriptor < 0) {
        return;
    }
    mq_close(m_descriptor);
    if (m_owned) {
        mq_unlink(m_name.c_str());
    }
    m_descriptor = -1;
}

std::optional<Queue> Queue::tryCreate(const std::string& name, long depth, long messageSize) {
    mq_attr attributes = {};
    attributes.mq_maxmsg = depth;
    attributes.mq_msgsize = messageSize;
    const mqd_t descriptor = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0664, &attributes);
    if (descriptor >= 0) {
        return Queue(name, descriptor, true);
    }
    if (!outOfRoom(errno)) {
        fail("mq_open", name);
    }
    return std::nullopt;
}

Queue Queue::create(const std::string& name, long depth, long messageSize) {
    std::optional<Queue> queue;
    if (!waitUntil([&] { return (queue = tryCreate(name, depth, messageSize)).has_value(); }, kRoomPatience)) {
        fail("mq_open", name);
    }
    return std::move(*queue);
}

Queue Queue::openForSending(const std::string& name) {
    const mqd_t descriptor = mq_open(name.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0) {
        fail("mq_open", name);
    }
    return Queue(name, descriptor, false);
}

void Queue::send(const void* data, size_t length) {
    const timespec deadline = queueDeadline();
    const char* bytes = length != 0 ? static_cast<const char*>(data) : "";
    if (mq_timedsend(m_descriptor, bytes, length, 0, &deadline) != 0) {
        fail("mq_timedsend", m_name);
    }
}

std::optional<Bytes> Queue::receive(std::chrono::milliseconds patience) {
    mq_attr attributes = {};
    mq_getattr(m_descriptor, &attributes);
    Bytes message(static_cast<size_t>(attributes.mq_msgsize));
    const timespec deadline = queueDeadline(patience);
    const ssize_t length =
        mq_timedreceive(m_descriptor, reinterpret_cast<char*>(message.data()), message.size(), nullptr, &deadline);
    if (length < 0) {
        return std::nullopt;
    }
    message.resize(static_cast<size_t>(length));
    return message;
}

long Queue::waiting() const {
    mq_attr attributes = {};
    mq_getattr(m_descriptor, &attributes);
    return attributes.mq_curmsgs;
}

bool queueExists(const std::string& name) {
    const mqd_t descriptor = mq_open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    mq_close(descriptor);
    return true;
}

}  // namespace e2e
