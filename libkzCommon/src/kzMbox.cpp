// Mailboxes over POSIX message queues.
#include "kzMbox.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstring>

#include "utils.h"

int g_timedreceive = 10;

namespace {

constexpr const char* kLogTag = "kzMbox.cpp";
constexpr const char* kPath = "libkzCommon/src/kzMbox";

constexpr mode_t kQueueMode = 0664;
constexpr int kReceiveTries = 5;
constexpr useconds_t kReceivePause = 10'000;
constexpr int kSharedTries = 6;
constexpr useconds_t kSharedPause = 100'000;  // after the first try, twice that after the second, and so on

constexpr mqd_t kNoQueue = -1;

void describe(const char* name, long depth, long messageSize, kzMbox* mbox) {
    mbox->mqd = kNoQueue;
    mbox->attr = {};
    mbox->attr.mq_maxmsg = depth;
    mbox->attr.mq_msgsize = messageSize;
    mbox->name = name;
}

void logOpenFailure(const char* name) {
    LOG_ERROR("target Mbox=\"%s\" errno=\"%s\"", name, strerror(errno));
}

void logFull(const kzMbox& mbox) {
    LOG_ERROR("No Longer an ASSERT: Mailbox Full: mbox=\"%s\" >= %ld messages", mbox.name, mbox.attr.mq_maxmsg);
}

bool hasRoom(kzMbox* mbox) {
    mq_getattr(mbox->mqd, &mbox->attr);
    return mbox->attr.mq_curmsgs < mbox->attr.mq_maxmsg;
}

// Waits until the queue is readable. Returns false, with errno ETIMEDOUT, when it is not within `seconds`.
bool waitReadable(mqd_t mqd, int seconds) {
    int ready = 0;
    if (mqd >= 0 && mqd < FD_SETSIZE) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(mqd, &readable);
        timeval timeout = {};
        timeout.tv_sec = seconds;
        ready = select(mqd + 1, &readable, nullptr, nullptr, &timeout);
    }
    if (ready != 1) {
        LOG_INFO("Warning: %d seconds timeout expired", seconds);
        errno = ETIMEDOUT;
        return false;
    }
    return true;
}

int sendWithoutWaiting(const void* buffer, uint32_t length, kzMbox* mbox) {
    if (!hasRoom(mbox)) {
        logFull(*mbox);
        return KZ_SEND_FULL;
    }
    if (mq_send(mbox->mqd, static_cast<const char*>(buffer), length, 0) == 0) {
        return KZ_SEND_OK;
    }
    if (errno == EAGAIN) {  // somebody else took the last place
        logFull(*mbox);
        return KZ_SEND_FULL;
    }
    logOpenFailure(mbox->name);
    return KZ_SEND_GONE;
}

}  // namespace

void kzMbox_init(const char* name, long depth, kzMbox* mbox) {
    describe(name, depth, KZMSG_MAX, mbox);
}

int kzMbox_txopen(const char* name, kzMbox* mbox) {
    kzMbox_init(name, kMboxTransmitDepth, mbox);
    mbox->mqd = mq_open(name, O_WRONLY);
    if (mbox->mqd < 0) {
        logOpenFailure(name);
        return -1;
    }
    return 0;
}

int kzMbox_send(const void* buffer, uint32_t length, kzMbox* mbox) {
    KZ_ASSERT(length <= KZMSG_MAX, kPath, "len <= KZMSG_MAX");
    if (!hasRoom(mbox)) {
        logFull(*mbox);
        return 0;
    }
    return mq_send(mbox->mqd, static_cast<const char*>(buffer), length, 0);
}

int kzMbox_try_send(const char* name, const void* buffer, uint32_t length) {
    if (name == nullptr || length > KZMSG_MAX) {
        LOG_ERROR("cannot send %u bytes to Mbox=\"%s\"", length, name != nullptr ? name : "");
        return KZ_SEND_INVALID;
    }
    kzMbox mbox;
    kzMbox_init(name, kMboxTransmitDepth, &mbox);
    mbox.mqd = mq_open(name, O_WRONLY | O_NONBLOCK);
    if (mbox.mqd < 0) {
        logOpenFailure(name);
        return KZ_SEND_GONE;
    }
    const int result = sendWithoutWaiting(buffer, length, &mbox);
    kzMbox_close(&mbox);
    return result;
}

int kzMbox_close(kzMbox* mbox) {
    return mq_close(mbox->mqd);
}

int kzMbox_rxopen(const char* name, long depth, kzMbox* mbox) {
    return kzMbox_rxopen_ext(name, depth, KZMSG_MAX, mbox);
}

int kzMbox_rxopen_ext(const char* name, long depth, long messageSize, kzMbox* mbox) {
    describe(name, depth, messageSize, mbox);
    for (int retry = 0; retry < kReceiveTries; ++retry) {
        mbox->mqd = mq_open(name, O_RDONLY | O_CREAT, kQueueMode, &mbox->attr);
        if (mbox->mqd >= 0) {
            return 0;
        }
        const int error = errno;
        LOG_INFO("Warning: target Mbox=\"%s\" errno=\"%d\"  retry(%d)", name, error, retry);
        usleep(kReceivePause);
        errno = error;
    }
    logOpenFailure(name);
    return -1;
}

int kzMbox_rxopen_shared(const char* name, long depth, kzMbox* mbox) {
    return kzMbox_rxopen_shared_ext(name, depth, KZMSG_MAX, mbox);
}

int kzMbox_rxopen_shared_ext(const char* name, long depth, long messageSize, kzMbox* mbox) {
    describe(name, depth, messageSize, mbox);
    for (int attempt = 1; attempt <= kSharedTries; ++attempt) {
        mbox->mqd = mq_open(name, O_RDONLY | O_CREAT | O_EXCL, kQueueMode, &mbox->attr);
        if (mbox->mqd >= 0) {
            return 0;
        }
        if (attempt < kSharedTries) {
            LOG_INFO("Warning: Shared Mbox in use (retry) =\"%s\" errno=\"%s\"  retry(%d)", name, strerror(errno),
                     attempt);
            usleep(kSharedPause * static_cast<useconds_t>(attempt));
        }
    }
    const int error = errno;
    LOG_ERROR("Shared Mbox will not open =\"%s\" errno=%d\"%s\"", name, error, strerror(error));
    return -1;
}

int kzMbox_create(const char* name, long depth) {
    return kzMbox_create_ext(name, depth, KZMSG_MAX);
}

int kzMbox_create_ext(const char* name, long depth, long messageSize) {
    kzMbox mbox;
    if (kzMbox_rxopen_ext(name, depth, messageSize, &mbox) != 0) {
        return -1;
    }
    kzMbox_close(&mbox);
    return 0;
}

int kzMbox_unlink(const char* name) {
    if (mq_unlink(name) != 0) {
        LOG_ERROR("Mbox unlink fail=\"%s\" errno=\"%s\"", name, strerror(errno));
        return -1;
    }
    return 0;
}

int kz_mq_timedreceive(mqd_t mqd, void* buffer, uint32_t size, unsigned int* priority, const int* timeoutSeconds) {
    if (!waitReadable(mqd, *timeoutSeconds)) {
        return -1;
    }
    return static_cast<int>(mq_receive(mqd, static_cast<char*>(buffer), size, priority));
}

int snkzMbox_receive(void* buffer, uint32_t size, kzMbox* mbox) {
    const ssize_t length = mq_receive(mbox->mqd, static_cast<char*>(buffer), size, nullptr);
    KZ_ASSERT(length >= 0, kPath, "(len = mq_receive(kzattr->mqd, buf, size, NULL)) >= 0");
    return static_cast<int>(length);
}

int snkzMbox_timedreceive(void* buffer, uint32_t size, kzMbox* mbox) {
    return waitReadable(mbox->mqd, g_timedreceive) ? snkzMbox_receive(buffer, size, mbox) : -1;
}
