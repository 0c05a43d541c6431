// The daemon's side of the shared memory; linked into each of the three stand-in libraries.
#include "fakeCamera.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

namespace fakes {
namespace {

constexpr int kNoCamera = -1;

SharedState* attach() {
    const int fd = open(kSharedPath, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    void* memory = mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    return memory == MAP_FAILED ? nullptr : static_cast<SharedState*>(memory);
}

SharedState* sharedState() {
    static SharedState* const state = attach();
    return state;
}

class Guard {
  public:
    explicit Guard(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
    ~Guard() { pthread_mutex_unlock(&m_mutex); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

  private:
    pthread_mutex_t& m_mutex;
};

void record(SharedState& state, Function function, uint32_t id, const void* argument, uint32_t argumentLength) {
    const CallHeader header{function, id, argumentLength};
    if (!state.recording || state.callLogLength + sizeof(header) + argumentLength > kCallLogSize) {
        return;
    }
    std::memcpy(state.callLog + state.callLogLength, &header, sizeof(header));
    state.callLogLength += static_cast<uint32_t>(sizeof(header));
    if (argumentLength != 0) {
        std::memcpy(state.callLog + state.callLogLength, argument, argumentLength);
        state.callLogLength += argumentLength;
    }
}

const Reply* findReply(const SharedState& state, Function function, uint32_t id) {
    for (uint32_t i = 0; i < state.replyCount; ++i) {
        if (state.replies[i].function == function && state.replies[i].id == id) {
            return &state.replies[i];
        }
    }
    return nullptr;
}

}  // namespace

int answer(Function function, uint32_t id, const void* argument, uint32_t argumentLength, int defaultResult,
           void* buffer, uint32_t capacity, uint32_t* replyLength) {
    SharedState* state = sharedState();
    if (state == nullptr) {
        return kNoCamera;
    }
    bool hold = false;
    {
        const Guard guard(state->mutex);
        record(*state, function, id, argument, argumentLength);
        const Reply* reply = findReply(*state, function, id);
        hold = reply != nullptr && reply->hold;
    }
    if (hold) {
        sem_post(&state->reached);
        while (sem_wait(&state->released) != 0) {
        }
    }
    const Guard guard(state->mutex);
    const Reply* reply = findReply(*state, function, id);
    if (reply == nullptr) {
        return defaultResult;
    }
    if (buffer != nullptr && reply->length > capacity) {
        return kNoCamera;
    }
    if (buffer != nullptr && reply->length != 0) {
        std::memcpy(buffer, reply->bytes, reply->length);
    }
    if (replyLength != nullptr) {
        *replyLength = reply->length;
    }
    return reply->result;
}

}  // namespace fakes
