#include "cameraLibraries.h"

#include <cstring>

#include "csi/csi.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzipc/kzipc.h"

using fakes::Answer;
using fakes::kNoNumber;
using fakes::Reply;

namespace {

constexpr uint32_t kCameraInfoSize = 434;
constexpr uint8_t kDefaultModel = 58;

}  // namespace

extern "C" {

int kzcontrol_interface_open(void) {
    return Answer("open", kNoNumber, {}, 0, nullptr);
}

int kzcontrol_interface_close(void) {
    return Answer("close", kNoNumber, {}, 0, nullptr);
}

int kzcontrol_send_command_param_response(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                          uint32_t responseSize) {
    uint32_t length = 0;
    return kzcontrol_send_command_param_response_ex(id, param, paramLength, response, responseSize, &length);
}

int kzcontrol_send_command_param_response_ex(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                             uint32_t responseSize, uint32_t* responseLength) {
    Reply reply{response, responseSize};
    const int result = Answer("command", id, {param, paramLength}, 0, &reply);
    if (responseLength != nullptr) {
        *responseLength = static_cast<uint32_t>(reply.length);
    }
    return response != nullptr && reply.length > responseSize ? -1 : result;
}

int kzcontrol_set_caller_id(uint8_t id) {
    return Answer("caller", id, {}, 0, nullptr);
}

int kzcontrol_get_camera_info(void* record) {
    Reply reply{record, kCameraInfoSize};
    return Answer("camera-info", kNoNumber, {}, -1, &reply);
}

int kzc_state_get_model_number(uint8_t* model) {
    *model = kDefaultModel;
    Reply reply{model, sizeof(*model)};
    return Answer("model-number", kNoNumber, {}, 0, &reply);
}

bool optionIdExists(uint32_t model, uint32_t settingId, uint32_t optionId) {
    const uint32_t argument[] = {model, optionId};
    return Answer("option", settingId, {argument, sizeof(argument)}, 1, nullptr) == 1;
}

int csi_get(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer) {
    Reply reply{buffer, bufferSize};
    const int result = Answer("csi_get", key, {}, -1, &reply);
    *length = static_cast<uint32_t>(reply.length);
    return reply.length > bufferSize ? -1 : result;
}

int csi_set(uint8_t key, const void* value, uint32_t length) {
    return Answer("csi_set", key, {value, length}, 0, nullptr);
}

int kzIpcInit(const char* name, void* /*channel*/) {
    return Answer("ipc-init", kNoNumber, {name, std::strlen(name)}, 0, nullptr);
}

int kzIpcSend(void* /*channel*/, const void* record, uint32_t length) {
    return Answer("ipc-send", kNoNumber, {record, length}, 0, nullptr);
}

int kzIpcDestroy(void* /*channel*/) {
    return Answer("ipc-destroy", kNoNumber, {}, 0, nullptr);
}

}  // extern "C"
