#include "queue.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace e2e {
namespace {

constexpr std::chrono::seconds kRoomPatience{200};  // other worlds come and go in seconds

void check(bool done, const char* operation, const std::string& name) {
    if (!done) {
        throw std::runtime_error(std::string(operation) + " " + name + ": " + std::strerror(errno));
    }
}

}  // namespace

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    return true;
}

timespec queueDeadline(std::chrono::milliseconds patience) {
    const auto end = std::chrono::system_clock::now().time_since_epoch() + patience;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(end);
    return {seconds.count(), std::chrono::nanoseconds(end - seconds).count()};
}

Queue::Open::Open(std::string itsName, int flags, mq_attr* attributes)
    : name(std::move(itsName)),
      descriptor(mq_open(name.c_str(), flags | O_CLOEXEC, 0664, attributes)),
      created(descriptor >= 0 && attributes != nullptr) {}

Queue::Open::~Open() {
    if (descriptor >= 0) {
        mq_close(descriptor);
    }
    if (created) {
        mq_unlink(name.c_str());
    }
}

Queue Queue::create(const std::string& name, long depth, long messageSize) {
    mq_attr attributes = {};
    attributes.mq_maxmsg = depth;
    attributes.mq_msgsize = messageSize;
    std::unique_ptr<Open> open;
    const bool settled = waitUntil(
        [&] {
            open = std::make_unique<Open>(name, O_RDWR | O_CREAT | O_EXCL, &attributes);
            return open->created || (errno != EMFILE && errno != ENOSPC && errno != ENOMEM);
        },
        kRoomPatience);
    check(settled && open->created, "mq_open", name);
    return Queue(std::move(open));
}

Queue Queue::openForSending(const std::string& name) {
    Queue queue(std::make_unique<Open>(name, O_WRONLY, nullptr));
    check(queue.descriptor() >= 0, "mq_open", name);
    return queue;
}

void Queue::send(const void* data, size_t length) {
    const timespec deadline = queueDeadline();
    const char* bytes = length != 0 ? static_cast<const char*>(data) : "";
    check(mq_timedsend(descriptor(), bytes, length, 0, &deadline) == 0, "mq_timedsend", m_open->name);
}

std::optional<Bytes> Queue::receive(std::chrono::milliseconds patience) {
    Bytes message(static_cast<size_t>(attributes().mq_msgsize));
    const timespec deadline = queueDeadline(patience);
    const ssize_t length =
        mq_timedreceive(descriptor(), reinterpret_cast<char*>(message.data()), message.size(), nullptr, &deadline);
    if (length < 0) {
        return std::nullopt;
    }
    message.resize(static_cast<size_t>(length));
    return message;
}

mq_attr Queue::attributes() const {
    mq_attr attributes = {};
    mq_getattr(descriptor(), &attributes);
    return attributes;
}

bool queueExists(const std::string& name) {
    const mqd_t descriptor = mq_open(name.c_str(), O_RDONLY | O_CLOEXEC);
    return descriptor >= 0 && mq_close(descriptor) == 0;
}

}  // namespace e2e
