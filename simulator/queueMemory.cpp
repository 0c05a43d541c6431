#include "queueMemory.h"

#include <fcntl.h>
#include <mqueue.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "skylark/bleMessage.h"

namespace kzsim {
namespace {

constexpr long kMessageSize = 1500;

// The queues of a camera with its daemon, at their usual depths.
constexpr struct {
    long depth;
    long size;
} kQueues[] = {
    {100, kBleRecordSize},  // "/Mq_to_BleSdk"
    {100, kBleRecordSize},  // "/Mq_to_Skylark"
    {40, kMessageSize},     // "/to_kznet"
    {10, kMessageSize},     // "/to_kzBleD"
    {40, kMessageSize},     // "/to_blesdk"
};

// The kernel charges, beside a message's bytes, its head and a tree node for its priority (mq_overview(7)).
constexpr uint64_t kChargedAMessage = 48 + 48;

std::string probeName(size_t number) {
    return "/kzroom" + std::to_string(getpid()) + '.' + std::to_string(number);
}

}  // namespace

std::optional<uint64_t> QueueMemory::camerasThatFit() const {
    return limit.has_value() ? std::optional(*limit / camera) : std::nullopt;
}

QueueMemory queueMemory() {
    QueueMemory memory{std::nullopt, 0};
    for (const auto& queue : kQueues) {
        memory.camera += static_cast<uint64_t>(queue.depth) * (static_cast<uint64_t>(queue.size) + kChargedAMessage);
    }
    rlimit limit{};
    if (getrlimit(RLIMIT_MSGQUEUE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
        memory.limit = limit.rlim_cur;
    }
    return memory;
}

bool roomForCamera() {
    bool room = true;
    for (size_t i = 0; i < std::size(kQueues); ++i) {
        mq_attr attributes{};
        attributes.mq_maxmsg = kQueues[i].depth;
        attributes.mq_msgsize = kQueues[i].size;
        const mqd_t queue = mq_open(probeName(i).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600, &attributes);
        if (queue >= 0) {
            mq_close(queue);
        } else {
            room = room && errno != EMFILE;
        }
    }
    for (size_t i = 0; i < std::size(kQueues); ++i) {
        mq_unlink(probeName(i).c_str());
    }
    return room;
}

std::string queueMemoryIsUsedUp() {
    const QueueMemory memory = queueMemory();
    std::string text = "the message-queue memory of this user is used up (RLIMIT_MSGQUEUE";
    if (const auto fit = memory.camerasThatFit()) {
        text += ", " + std::to_string(*memory.limit) + " bytes: " + std::to_string(*fit) + " cameras of " +
                std::to_string(memory.camera) + " bytes fit";
    }
    return text + "); end another camera or test run, or have root raise the limit (ulimit -q)";
}

}  // namespace kzsim
