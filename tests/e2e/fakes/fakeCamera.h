// The memory that a test and the stand-ins of the camera's three client libraries share: every call the daemon makes is
// written down here in order, and the test puts the results and replies here that the calls shall have.
//
// The stand-ins live in the daemon's process; the file is made by the test before the daemon starts. One mutex guards
// all of it. Without the file every call fails, as the real libraries do without a camera.
#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <cstddef>
#include <cstdint>

namespace fakes {

constexpr const char* kSharedPath = "/tmp/kzFakeCamera";

enum class Function : uint32_t {
    ControlOpen,
    ControlClose,
    Command,   // id: command; bytes: argument
    CallerId,  // id: caller
    CameraInfo,
    ModelNumber,
    OptionExists,  // id: setting; bytes: model and option, 4 each
    CsiGet,        // id: key; bytes: capacity, 4
    CsiSet,        // id: key; bytes: value
    IpcInit,       // bytes: channel name
    IpcSend,       // bytes: record
    IpcDestroy,
};

struct CallHeader {
    Function function;
    uint32_t id;
    uint32_t length;  // bytes that follow
};

struct Reply {
    Function function;
    uint32_t id;
    int32_t result;
    uint32_t length;
    bool hold;  // the call waits until the test releases it
    uint8_t bytes[4096];
};

constexpr size_t kMaxReplies = 64;
constexpr size_t kCallLogSize = 4u << 20;

struct SharedState {
    pthread_mutex_t mutex;  // between processes
    bool recording;         // off: calls are answered but not written down
    uint32_t callLogLength;
    uint32_t replyCount;
    Reply replies[kMaxReplies];
    sem_t reached;   // a held call has been made
    sem_t released;  // and may go on
    uint8_t callLog[kCallLogSize];
};

// What a stand-in answers: the result, and the reply's bytes copied to `buffer`. A call without a reply of its own gets
// `defaultResult` and leaves the buffer alone. With `exactLength` null a reply longer than the capacity fails.
int answer(Function function, uint32_t id, const void* argument, uint32_t argumentLength, int defaultResult,
           void* buffer = nullptr, uint32_t capacity = 0, uint32_t* replyLength = nullptr);

}  // namespace fakes
