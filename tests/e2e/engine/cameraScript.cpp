#include "cameraScript.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "deadline.h"

namespace e2e {
namespace {

using fakes::Function;

class Guard {
  public:
    explicit Guard(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
    ~Guard() { pthread_mutex_unlock(&m_mutex); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

  private:
    pthread_mutex_t& m_mutex;
};

std::string withBytes(const std::string& call, const uint8_t* data, uint32_t length) {
    return length == 0 ? call : call + ": " + toHex(data, length);
}

std::string describe(const fakes::CallHeader& call, const uint8_t* data) {
    const std::string id = std::to_string(call.id);
    switch (call.function) {
        case Function::ControlOpen:
            return "open";
        case Function::ControlClose:
            return "close";
        case Function::Command:
            return withBytes("command " + id, data, call.length);
        case Function::CallerId:
            return "caller " + id;
        case Function::CameraInfo:
            return "camera-info";
        case Function::ModelNumber:
            return "model-number";
        case Function::OptionExists:
            return "option " + id + ": " + std::to_string(readLittle32(data + 4));
        case Function::CsiGet:
            return "csi_get " + id;
        case Function::CsiSet:
            return withBytes("csi_set " + id, data, call.length);
        case Function::IpcInit:
            return "ipc-init " + std::string(data, data + call.length);
        case Function::IpcSend:
            return withBytes("ipc-send", data, call.length);
        case Function::IpcDestroy:
            return "ipc-destroy";
    }
    return "unknown call";
}

}  // namespace

CameraScript::CameraScript() {
    const int fd = open(fakes::kSharedPath, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0 || ftruncate(fd, sizeof(fakes::SharedState)) != 0) {
        throw std::runtime_error(std::string("cannot make ") + fakes::kSharedPath + ": " + std::strerror(errno));
    }
    void* memory = mmap(nullptr, sizeof(fakes::SharedState), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (memory == MAP_FAILED) {
        throw std::runtime_error("cannot map the shared camera");
    }
    m_state = static_cast<fakes::SharedState*>(memory);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(&m_state->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    sem_init(&m_state->reached, 1, 0);
    sem_init(&m_state->released, 1, 0);
    m_state->recording = true;
}

CameraScript::~CameraScript() {
    munmap(m_state, sizeof(fakes::SharedState));
    unlink(fakes::kSharedPath);
}

void CameraScript::reply(Function function, uint32_t id, int result, const Bytes& bytes) {
    if (bytes.size() > sizeof(fakes::Reply::bytes)) {
        throw std::invalid_argument("reply too long");
    }
    const Guard guard(m_state->mutex);
    fakes::Reply* reply = m_state->replies;
    fakes::Reply* const end = m_state->replies + m_state->replyCount;
    while (reply != end && (reply->function != function || reply->id != id)) {
        ++reply;
    }
    if (reply == end) {
        if (m_state->replyCount == fakes::kMaxReplies) {
            throw std::invalid_argument("too many replies");
        }
        ++m_state->replyCount;
    }
    reply->function = function;
    reply->id = id;
    reply->result = result;
    reply->length = static_cast<uint32_t>(bytes.size());
    reply->hold = false;
    std::copy(bytes.begin(), bytes.end(), reply->bytes);
}

void CameraScript::hold(uint32_t command) {
    reply(Function::Command, command, 0);
    const Guard guard(m_state->mutex);
    for (uint32_t i = 0; i < m_state->replyCount; ++i) {
        fakes::Reply& entry = m_state->replies[i];
        entry.hold = entry.hold || (entry.function == Function::Command && entry.id == command);
    }
}

bool CameraScript::waitHeld() {
    const timespec deadline = queueDeadline();
    return sem_timedwait(&m_state->reached, &deadline) == 0;
}

void CameraScript::release(uint32_t command) {
    reply(Function::Command, command, 0);
    sem_post(&m_state->released);
}

std::vector<std::string> CameraScript::takeCallsWithCallers() {
    const Guard guard(m_state->mutex);
    std::vector<std::string> calls;
    for (uint32_t offset = 0; offset < m_state->callLogLength;) {
        fakes::CallHeader call;
        std::memcpy(&call, m_state->callLog + offset, sizeof(call));
        offset += static_cast<uint32_t>(sizeof(call));
        calls.push_back(describe(call, m_state->callLog + offset));
        offset += call.length;
    }
    m_state->callLogLength = 0;
    return calls;
}

std::vector<std::string> CameraScript::takeCalls() {
    std::vector<std::string> calls = takeCallsWithCallers();
    std::erase_if(calls, [](const std::string& call) { return call.starts_with("caller "); });
    return calls;
}

void CameraScript::setRecording(bool on) {
    const Guard guard(m_state->mutex);
    m_state->recording = on;
}

}  // namespace e2e
