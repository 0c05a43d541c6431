// Command 60: what the camera is.
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "cameraCalls.h"
#include "cameraStatus.h"
#include "commandAnswers.h"
#include "commandTable.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "peer.h"
#include "skylark/bleMessage.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleCommandMessage.cpp";

// A text of the record ends with a zero byte; one that does not ends with its field.
template <size_t Size>
std::string_view FieldText(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

// Models that answer with the second form of the information.
bool HasSecondForm(uint32_t modelNumber) {
    return modelNumber == 22 || modelNumber == 51;
}

}  // namespace

// Refuses the command while the camera is still waking up, because it does not know its own data yet.
int RefuseWhileResuming(CommandCall& call) {
    if (call.services.camera.IsSuspended()) {
        LOG_ERROR("Camera Info command while still resuming, return error, mobile should retry");
        return KZ_ERR_ACCESS_DENIED;
    }
    return KZ_OK;
}

int GetCameraInfo(CommandCall& call) {
    if (call.client.m_identity.m_deviceType == KZ_CALLER_UNKNOWN) {
        call.client.m_identity.m_deviceType = KZ_CALLER_BLE_RC;
    }
    kz_camera_info_t info = {};
    const int code = ReadCameraInfo(&info);
    if (code != KZ_OK) {
        return code;
    }
    call.answer.m_params.reserve(12);
    AnswerNumber(call, info.modelNumber);
    AnswerText(call, FieldText(info.modelName));
    AnswerText(call, FieldText(info.boardType));
    AnswerText(call, FieldText(info.firmwareVersion));
    AnswerText(call, FieldText(info.serialNumber));
    AnswerText(call, FieldText(info.apSsid));
    AnswerText(call, FieldText(info.apMac));
    AnswerByte(call, info.extraByte1);
    AnswerByte(call, HasSecondForm(info.modelNumber) ? 2 : 1);
    AnswerByte(call, call.services.camera.IsForcedUpdate() ? 1 : 0);
    AnswerText(call, FieldText(info.extraText));
    AnswerByte(call, info.extraByte2);

    LOG_INFO("model number  = %u", unsigned{info.modelNumber});
    LOG_INFO("model name    =[%s]", std::string(FieldText(info.modelName)).c_str());
    LOG_INFO("board type    =[%s]", std::string(FieldText(info.boardType)).c_str());
    LOG_INFO("fw version    =[%s]", std::string(FieldText(info.firmwareVersion)).c_str());
    LOG_INFO("serial number =[%s]", std::string(FieldText(info.serialNumber)).c_str());
    LOG_INFO("ap ssid       =[%s]", std::string(FieldText(info.apSsid)).c_str());
    LOG_INFO("ap mac        =[%s]", std::string(FieldText(info.apMac)).c_str());
    return KZ_OK;
}
