// libkzCtrlD.so over the simulator's control socket. Every operation but set_caller_id and close is one exchange.
#include "kzCtrlD/kzCtrlD.h"

#include "cameraLink.h"

namespace {

using kzlink::ReplyBuffer;
using kzlink::Request;
using kzwire::Operation;

kzlink::Link g_link;
uint8_t g_callerId = 0;

int ask(Operation operation, ReplyBuffer& reply) {
    Request request;
    request.operation = operation;
    request.callerId = g_callerId;
    return kzlink::exchange(g_link, kzwire::kControlEndpoint, request, reply);
}

// Asks for a record of exactly `size` bytes.
int askRecord(Operation operation, void* record, uint32_t size) {
    ReplyBuffer reply{record, size};
    if (record == nullptr) {
        return kzwire::kResultFailure;
    }
    const int result = ask(operation, reply);
    return result == 0 && reply.length != size ? kzwire::kResultFailure : result;
}

int sendCommand(uint32_t id, const void* param, uint32_t paramLength, ReplyBuffer& reply) {
    if (param == nullptr && paramLength != 0) {
        return kzwire::kResultFailure;
    }
    Request request;
    request.operation = Operation::ControlCommand;
    request.target = id;
    request.callerId = g_callerId;
    request.first = {const_cast<void*>(param), paramLength};
    return kzlink::exchange(g_link, kzwire::kControlEndpoint, request, reply);
}

}  // namespace

int kzcontrol_interface_open(void) {
    ReplyBuffer none;
    return ask(Operation::ControlOpen, none);
}

int kzcontrol_interface_close(void) {
    kzlink::disconnect(g_link);
    g_callerId = 0;
    return 0;
}

int kzcontrol_send_command_param_response(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                          uint32_t responseSize) {
    ReplyBuffer reply{response, responseSize};
    return sendCommand(id, param, paramLength, reply);
}

int kzcontrol_send_command_param_response_ex(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                             uint32_t responseSize, uint32_t* responseLength) {
    ReplyBuffer reply{response, responseSize};
    const int result = sendCommand(id, param, paramLength, reply);
    if (responseLength != nullptr) {
        *responseLength = reply.length;
    }
    return result;
}

int kzcontrol_set_caller_id(uint8_t id) {
    g_callerId = id;
    return 0;
}

int kzcontrol_get_camera_info(void* record) {
    return askRecord(Operation::ControlCameraInfo, record, kzwire::kCameraInfoSize);
}

int kzc_state_get_model_number(uint8_t* model) {
    return askRecord(Operation::ControlModelNumber, model, sizeof *model);
}

bool optionIdExists(uint32_t model, uint32_t settingId, uint32_t optionId) {
    kzwire::OptionQuery query{model, settingId, optionId};
    uint8_t accepted = 0;
    ReplyBuffer reply{&accepted, sizeof accepted};
    Request request;
    request.operation = Operation::ControlOptionExists;
    request.callerId = g_callerId;
    request.first = {&query, sizeof query};
    return kzlink::exchange(g_link, kzwire::kControlEndpoint, request, reply) == 0 && accepted != 0;
}
