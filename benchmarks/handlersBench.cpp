// What a protobuf command costs beside the work that no implementation can avoid: the parse of its request and the
// serialisation of its answer.
#include <cstdlib>

#include "bleDevice.h"
#include "csi/csi.h"
#include "generic/ResponseGeneric.pb.h"
#include "kzCtrlD/kzCtrlD.h"
#include "roadTable.h"
#include "skylark/bleMessage.h"
#include "utils.h"
#include "wsdkCommands/WSDK_RequestSetInContextualMenu.pb.h"

// A camera that accepts everything at once.
int kzcontrol_send_command_param_response(uint32_t /*id*/, const void* param, uint32_t /*paramLength*/,
                                          void* /*response*/, uint32_t /*responseSize*/) {
    KeepAlive(param);
    return 0;
}
int csi_set(uint8_t /*key*/, const void* value, uint32_t /*length*/) {
    KeepAlive(value);
    return CSI_OK;
}

namespace {

constexpr int kPerRound = 20000;

unsigned char s_request[] = {241, 106, 8, 1};
unsigned char s_response[8188];

// From the joined message to the bytes of its answer.
void RunCommand(BleCommandMessage& message, BleNotificationClient& client) {
    message.Reset(sizeof(s_request));
    message.m_stream.attach(s_request, sizeof(s_request));
    uint16_t length = sizeof(s_response);
    if (message.Deserialize() != 0 || message.Execute(&client, s_response, &length) != KZ_OK || length != 4) {
        std::abort();
    }
    KeepAlive(s_response);
}

void ParseAndSerialise() {
    wsdk_commands::WSDK_RequestSetInContextualMenu request;
    if (!request.ParseFromArray(s_request + 2, 2)) {
        std::abort();
    }
    KeepAlive(request);
    generic::ResponseGeneric answer;
    answer.set_result(RESULT_SUCCESS);
    if (!answer.SerializeToArray(s_response + 2, static_cast<int>(answer.ByteSizeLong()))) {
        std::abort();
    }
    KeepAlive(s_response);
}

}  // namespace

int main() {
    g_logLevel = KZ_LOG_ERROR;
    BleNotificationClient client(7, 1, KZ_CALLER_BLE_RC);
    BleCommandMessage message;
    RoadTable table;
    table.Measure(
        "protobuf command, one field, ResponseGeneric", kPerRound, 4.0, [&] { RunCommand(message, client); },
        ParseAndSerialise);
    table.Print();
    return 0;
}
