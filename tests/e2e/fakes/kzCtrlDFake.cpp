// Stand-in of libkzCtrlD.so: see fakeCamera.h.
#include "fakeCamera.h"
#include "kzCtrlD/kzCtrlD.h"

using fakes::answer;
using fakes::Function;

namespace {

constexpr uint32_t kCameraInfoSize = 434;
constexpr uint8_t kDefaultModel = 58;

}  // namespace

int kzcontrol_interface_open(void) {
    return answer(Function::ControlOpen, 0, nullptr, 0, 0);
}

int kzcontrol_interface_close(void) {
    return answer(Function::ControlClose, 0, nullptr, 0, 0);
}

int kzcontrol_send_command_param_response(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                          uint32_t responseSize) {
    return answer(Function::Command, id, param, paramLength, 0, response, responseSize);
}

int kzcontrol_send_command_param_response_ex(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                             uint32_t responseSize, uint32_t* responseLength) {
    if (responseLength != nullptr) {
        *responseLength = 0;
    }
    return answer(Function::Command, id, param, paramLength, 0, response, responseSize, responseLength);
}

int kzcontrol_set_caller_id(uint8_t id) {
    return answer(Function::CallerId, id, nullptr, 0, 0);
}

int kzcontrol_get_camera_info(void* record) {
    return answer(Function::CameraInfo, 0, nullptr, 0, -1, record, kCameraInfoSize);
}

int kzc_state_get_model_number(uint8_t* model) {
    *model = kDefaultModel;
    return answer(Function::ModelNumber, 0, nullptr, 0, 0, model, 1);
}

bool optionIdExists(uint32_t model, uint32_t settingId, uint32_t optionId) {
    const uint32_t argument[] = {model, optionId};
    return answer(Function::OptionExists, settingId, argument, sizeof(argument), 1) == 1;
}
