#include "messageQueue.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "queueMemory.h"
#include "report.h"

namespace kzsim {
namespace {

constexpr auto kPatience = std::chrono::seconds(60);
constexpr auto kRetry = std::chrono::milliseconds(50);

std::string whyNotCreated(const std::string& name, long depth, int error) {
    std::string text = "cannot create the queue " + name + ": " + std::strerror(error);
    if (error == EINVAL) {
        text += " (is /proc/sys/fs/mqueue/msg_max below " + std::to_string(depth) + "?)";
    } else if (error == EMFILE) {
        text += ": " + queueMemoryIsUsedUp();
    }
    return text;
}

// The kernel counts the bytes of all queues of a user. While others hold them, say other simulators in worlds of their
// own, this waits for them.
mqd_t openWhenThereIsRoom(const std::string& name, int flags, mq_attr attributes) {
    const auto patience = std::chrono::steady_clock::now() + kPatience;
    mqd_t queue = mq_open(name.c_str(), flags, 0664, &attributes);
    if (queue < 0 && errno == EMFILE) {
        warn("camera", "waiting up to %ld s for room for the queue %s: %s", static_cast<long>(kPatience.count()),
             name.c_str(), queueMemoryIsUsedUp().c_str());
        errno = EMFILE;
    }
    while (queue < 0 && errno == EMFILE && std::chrono::steady_clock::now() < patience) {
        std::this_thread::sleep_for(kRetry);
        queue = mq_open(name.c_str(), flags, 0664, &attributes);
    }
    return queue;
}

}  // namespace

MessageQueue MessageQueue::create(const std::string& name, long depth, long size, int access) {
    mq_attr attributes{};
    attributes.mq_maxmsg = depth;
    attributes.mq_msgsize = size;
    mq_unlink(name.c_str());
    const mode_t mask = umask(0);  // the daemon may run as another user of the group
    const mqd_t queue = openWhenThereIsRoom(name, access | O_CREAT | O_EXCL | O_NONBLOCK | O_CLOEXEC, attributes);
    const int error = errno;
    umask(mask);
    if (queue < 0) {
        throw std::runtime_error(whyNotCreated(name, depth, error));
    }
    return MessageQueue(queue, name, true);
}

std::optional<MessageQueue> MessageQueue::openForSending(const std::string& name) {
    const mqd_t queue = mq_open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (queue < 0) {
        return std::nullopt;
    }
    return MessageQueue(queue, name, false);
}

MessageQueue::MessageQueue(mqd_t queue, std::string name, bool created)
    : m_queue(queue), m_name(std::move(name)), m_created(created) {
    mq_attr attributes{};
    mq_getattr(m_queue, &attributes);
    m_messageSize = static_cast<size_t>(attributes.mq_msgsize);
}

MessageQueue& MessageQueue::operator=(MessageQueue&& other) noexcept {
    std::swap(m_queue, other.m_queue);
    std::swap(m_name, other.m_name);
    std::swap(m_created, other.m_created);
    std::swap(m_messageSize, other.m_messageSize);
    return *this;
}

MessageQueue::~MessageQueue() {
    if (m_queue < 0) {
        return;
    }
    mq_close(m_queue);
    if (m_created) {
        mq_unlink(m_name.c_str());
    }
}

long MessageQueue::waiting() const {
    mq_attr attributes{};
    return mq_getattr(m_queue, &attributes) == 0 ? attributes.mq_curmsgs : 0;
}

MessageQueue::Sent MessageQueue::send(ByteView message) {
    if (mq_send(m_queue, reinterpret_cast<const char*>(message.data()), message.size(), 0) == 0) {
        return Sent::Yes;
    }
    return errno == EAGAIN ? Sent::Full : Sent::Failed;
}

std::optional<Bytes> MessageQueue::receive() {
    Bytes message(m_messageSize);
    const ssize_t length = mq_receive(m_queue, reinterpret_cast<char*>(message.data()), message.size(), nullptr);
    if (length < 0) {
        return std::nullopt;
    }
    message.resize(static_cast<size_t>(length));
    return message;
}

}  // namespace kzsim
