#include "ownQueue.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "messageBuffer.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr mode_t kQueueMode = 0664;

}  // namespace

bool OwnQueue::Open() {
    mq_attr attributes{};
    attributes.mq_maxmsg = m_depth;
    attributes.mq_msgsize = kEventMessageSize;
    m_handle = QueueHandle(mq_open(m_name, O_RDONLY | O_CREAT | O_EXCL | O_NONBLOCK, kQueueMode, &attributes));
    if (!IsOpen()) {
        LOG_ERROR("mq_open() failed for '%s': %s\n", m_name, strerror(errno));
    }
    return IsOpen();
}

void OwnQueue::Close() {
    if (IsOpen()) {
        m_handle.Close();
        mq_unlink(m_name);
    }
}
