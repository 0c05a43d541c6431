// Stand-in of libkzCtrlD.so, libcsi.so and libkzipc.so: see paths.h. Allocates nothing.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "csi/csi.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzipc/kzipc.h"
#include "paths.h"

namespace {

constexpr uint32_t kCameraInfoSize = 434;
constexpr uint8_t kDefaultModel = 58;
constexpr size_t kLongestLine = 1 << 16;

struct Argument {
    const void* data = nullptr;
    size_t length = 0;
};

struct Reply {
    void* buffer = nullptr;
    size_t capacity = 0;
    size_t length = 0;
};

void writeDown(const char* call, const Argument& argument) {
    static thread_local char s_line[kLongestLine];
    auto length = static_cast<size_t>(std::snprintf(s_line, sizeof(s_line), "%s", call));
    const auto* bytes = static_cast<const uint8_t*>(argument.data);
    for (size_t i = 0; i < argument.length && length + 5 < sizeof(s_line); ++i) {
        length += static_cast<size_t>(std::snprintf(s_line + length, 5, i == 0 ? ": %02x" : " %02x", bytes[i]));
    }
    s_line[length++] = '\n';
    const int file = open(fakes::kCameraCalls, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (write(file, s_line, length) < 0) {
        std::perror(fakes::kCameraCalls);
    }
    close(file);
}

constexpr useconds_t kDeadline = 1'100'000;

const char* serviceOf(const char* call) {
    return std::strncmp(call, "csi", 3) == 0 ? "csi" : std::strncmp(call, "ipc", 3) == 0 ? "ipc" : "control";
}

int openReply(const char* call) {
    char path[128];
    std::snprintf(path, sizeof(path), "%s%s", fakes::kCameraReplies, call);
    return open(path, O_RDONLY | O_CLOEXEC);
}

int failed(int error) {
    errno = error;
    return -1;
}

// The result that the test has put there for the call, or else `standard`.
int answer(const char* call, const Argument& argument = {}, int standard = 0, Reply* reply = nullptr) {
    writeDown(call, argument);
    const int ofService = openReply(serviceOf(call));
    const int file = ofService >= 0 ? ofService : openReply(call);
    int32_t result = standard;
    if (read(file, &result, sizeof(result)) == sizeof(result) && reply != nullptr) {
        const ssize_t length = read(file, reply->buffer, reply->capacity);
        reply->length = length > 0 ? static_cast<size_t>(length) : 0;
    }
    close(file);
    if (result == fakes::kHangs) {
        usleep(kDeadline);
        return failed(EAGAIN);
    }
    if (result == fakes::kGone) {
        return failed(ECONNREFUSED);
    }
    errno = 0;
    return result;
}

int answer(const char* call, uint32_t number, const Argument& argument = {}, int standard = 0, Reply* reply = nullptr) {
    char numbered[64];
    std::snprintf(numbered, sizeof(numbered), "%s %u", call, number);
    return answer(numbered, argument, standard, reply);
}

}  // namespace

int kzcontrol_interface_open(void) {
    return answer("open");
}

int kzcontrol_interface_close(void) {
    return answer("close");
}

int kzcontrol_send_command_param_response(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                          uint32_t responseSize) {
    uint32_t length = 0;
    return kzcontrol_send_command_param_response_ex(id, param, paramLength, response, responseSize, &length);
}

int kzcontrol_send_command_param_response_ex(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                             uint32_t responseSize, uint32_t* responseLength) {
    Reply reply{response, responseSize};
    const int result = answer("command", id, {param, paramLength}, 0, &reply);
    if (responseLength != nullptr) {
        *responseLength = static_cast<uint32_t>(reply.length);
    }
    return result;
}

int kzcontrol_set_caller_id(uint8_t id) {
    char call[64];
    std::snprintf(call, sizeof(call), "caller %u", id);
    writeDown(call, {});
    return 0;
}

int kzcontrol_get_camera_info(void* record) {
    Reply reply{record, kCameraInfoSize};
    return answer("camera-info", {}, -1, &reply);
}

int kzc_state_get_model_number(uint8_t* model) {
    *model = kDefaultModel;
    return answer("model-number");
}

bool optionIdExists(uint32_t /*model*/, uint32_t settingId, uint32_t optionId) {
    return answer("option", settingId, {&optionId, sizeof(optionId)}, 1) == 1;
}

int csi_get(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer) {
    Reply reply{buffer, bufferSize};
    const int result = answer("csi_get", key, {}, -1, &reply);
    *length = static_cast<uint32_t>(reply.length);
    return result;
}

int csi_set(uint8_t key, const void* value, uint32_t length) {
    return answer("csi_set", key, {value, length});
}

int kzIpcInit(const char* name, void* /*channel*/) {
    return answer("ipc-init", {name, std::strlen(name)});
}

int kzIpcSend(void* /*channel*/, const void* record, uint32_t length) {
    return answer("ipc-send", {record, length});
}

int kzIpcDestroy(void* /*channel*/) {
    return answer("ipc-destroy");
}
