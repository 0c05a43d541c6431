// The settings interface: plain settings, and the protobuf settings of feature 243.
#include "settingsMessage.h"

#include <errno.h>

#include <string>

#include "FlexValue.h"
#include "MemStream.h"
#include "bleResponses.h"
#include "bleSDK.h"
#include "cameraCalls.h"
#include "dispatchTable.h"
#include "peer.h"
#include "protobufAnswer.h"
#include "settingsStatusMapping.h"
#include "shellCommand.h"
#include "utils.h"
#include "wsdkCommands/WSDK_RequestSetAssociationState.pb.h"
#include "wsdkCommands/WSDK_RequestSetAuthCode.pb.h"
#include "wsdkCommands/WSDK_RequestSetCAHAutoClear.pb.h"
#include "wsdkCommands/WSDK_RequestSetCAHEnable.pb.h"
#include "wsdkCommands/WSDK_RequestSetCAHServer.pb.h"
#include "wsdkCommands/WSDK_RequestSetShutter.pb.h"

using namespace wsdk_commands;

namespace {

constexpr const char* kLogTag = "bleSettingsMessage.cpp";

constexpr uint8_t kFeatureSettings = 243;

// A setting that is neither logged nor checked: it is not in the catalogue, and it changes many times a second while a
// finger moves.
constexpr uint32_t kUncheckedSetting = 91;

using Payload = std::vector<uint8_t>;

// ---------------------------------------------------------------- protobuf actions

EnumResultGeneric SetShutter(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetShutter>(payload);
    const auto shutter = static_cast<uint32_t>(request.shutter());
    LOG_INFO("protobuf shutter=%d", static_cast<int>(shutter));
    SendCommand(KZCONTROL_COMMAND_SHUTTER, shutter);
    return RESULT_SUCCESS;
}

EnumResultGeneric SetUploadAutoClear(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetCAHAutoClear>(payload);
    const auto autoClear = static_cast<uint8_t>(request.cah_auto_clear());
    return ResultOf(SendCommand(KZCONTROL_SET_CAH_AUTO_CLEAR, autoClear) == KZ_OK);
}

EnumResultGeneric SetUploadServer(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetCAHServer>(payload);
    const auto server = static_cast<uint32_t>(request.cah_server());
    LOG_INFO("RequestSetCAHServer = %u", server);
    return ResultOf(SetCsi(CSI_CAH_SERVER, server) == CSI_OK);
}

EnumResultGeneric SetUploadEnable(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetCAHEnable>(payload);
    const uint32_t enable = request.cah_enable() ? 1 : 0;
    LOG_INFO("RequestSetCAHEnable = %u", enable);
    return ResultOf(SetCsi(CSI_CAH_ACTIVE, enable) == CSI_OK);
}

// Restarts the device manager. A failure is logged and has no other effect. Both command lines are fixed; nothing from
// a client is part of them.
void RestartDeviceManager() {
    if (RunShellCommand("killall -9 kzDeviceManager") == -1) {
        LOG_ERROR("killall: system errno %d \n", errno);
    }
    if (RunShellCommand("/usr/local/zorvik/bin/kzDeviceManager -p -l 0 &") == -1) {
        LOG_ERROR("start: system errno %d \n", errno);
    }
}

EnumResultGeneric SetAuthCode(const Payload& payload) {
    RestartDeviceManager();
    const auto request = ParseRequest<WSDK_RequestSetAuthCode>(payload);
    std::string code = request.auth_code();
    LOG_INFO("WSDK_RequestSetAuthCode auth_code = %s", code.c_str());
    if (code.size() > kMaxCsiText) {
        LOG_ERROR("AuthCode length exceeds limit, truncating!");
        code.resize(kMaxCsiText);
    }
    return ResultOf(SetCsiText(CSI_AUTH_CODE, code) == CSI_OK);
}

int StoreUserId(std::string userId) {
    LOG_INFO("setAssociationStateMsg.has_zorvik_user_id()");
    LOG_INFO("AssociationState ZorvikUserId = %s", userId.c_str());
    if (userId.size() > kMaxCsiText) {
        LOG_ERROR("Zorvik UserID length exceeds limit, truncating!");
        userId.resize(kMaxCsiText);
    }
    const int status = SetCsiText(CSI_CAH_ASSOCIATION_STATE, userId);
    LOG_INFO("csi_set status = %d", status);
    return status;
}

int ClearUserId() {
    const int status = SetCsi(CSI_CAH_ASSOCIATION_STATE, uint8_t{0});
    LOG_INFO("csi_set status = %d", status);
    return status;
}

EnumResultGeneric SetAssociationState(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetAssociationState>(payload);
    int status = CSI_OK;
    if (request.has_zorvik_user_id()) {
        status = StoreUserId(request.zorvik_user_id());
    }
    if (request.has_association_state()) {
        LOG_INFO("setAssociationStateMsg.has_association_state()");
        if (request.association_state() == WSDK_ASSOCIATION_STATE_NOT_ASSOCIATED) {
            status = ClearUserId();
        }
    }
    if (status != CSI_OK) {
        LOG_INFO("status = RESULT_UNKNOWN");
        return RESULT_UNKNOWN;
    }
    LOG_INFO("status = CSI_OK");
    return RESULT_SUCCESS;
}

struct ActionRow {
    uint8_t id;
    kzLogLevel nameLevel;
    const char* name;
    EnumResultGeneric (*handler)(const Payload& payload);
};

// clang-format off
constexpr ActionRow kRows[] = {
    {113, KZ_LOG_INFO, "Command: eBleCommandProtobufCmd", SetShutter},
    {119, KZ_LOG_DEBUG, "Setting: WSDK_SETTING_ID_REQUEST_SET_CAH_AUTO_CLEAR", SetUploadAutoClear},
    {124, KZ_LOG_DEBUG, "Setting: WSDK_SETTING_ID_REQUEST_SET_CAH_SERVER", SetUploadServer},
    {125, KZ_LOG_DEBUG, "Setting: WSDK_SETTING_ID_REQUEST_SET_CAH_ENABLE", SetUploadEnable},
    {126, KZ_LOG_DEBUG, "Command: eBleCommandRequestSetAuthCode", SetAuthCode},
    {127, KZ_LOG_DEBUG, "Setting: WSDK_SETTING_ID_REQUEST_SET_ASSOCIATION_STATE", SetAssociationState},
};
// clang-format on

constexpr DispatchTable kActions(kRows);

// ---------------------------------------------------------------- plain settings

// Whether the camera accepts the option for the setting now.
int CheckSetting(uint32_t settingId, uint32_t value) {
    SettingsStatusMapping* mapping = BleSDK::LoadedMapping();
    if (mapping == nullptr) {
        return KZ_ERR;
    }
    if (!mapping->IsCurrentlyValidSettingOptionId(settingId, value)) {
        LOG_INFO("Received invalid settingID %lu with value %lu", static_cast<unsigned long>(settingId),
                 static_cast<unsigned long>(value));
        return KZ_ERR_INVALID_PARAM;
    }
    return KZ_OK;
}

// Writes the answer to a plain setting; nothing when the buffer cannot hold it.
void WriteAnswer(uint32_t settingId, int code, uint8_t* response, uint16_t* responseLength) {
    constexpr uint16_t kAnswerSize = 2;
    if (*responseLength < kAnswerSize) {
        *responseLength = 0;
        return;
    }
    MemoryStream stream(response, *responseLength);
    stream << BleSettingsResponseMessage(settingId, static_cast<uint32_t>(BleSDK::SetKZErrNo(code)));
    *responseLength = stream.getLength();
}

}  // namespace

void BleSettingsMessage::Reset(int length) {
    m_settingId = 0;
    m_value = 0;
    m_featureId = 0;
    m_actionId = 0;
    m_payload.clear();
    SetLength(length);
}

int BleSettingsMessage::Deserialize() {
    if (m_stream.getRemainder() == 0) {
        return 1;
    }
    uint8_t id = 0;
    m_stream >> id;
    if (id != kFeatureSettings) {
        m_featureId = 0;
        m_settingId = id;
        if (!FlexValue::ValidateInput(m_stream)) {
            return 1;
        }
        FlexValue value;
        m_stream >> value;
        m_value = value.GetUI32Value();
        return 0;
    }
    LOG_INFO("Query Feature ID=%d", id);
    m_featureId = id;
    if (m_stream.getRemainder() == 0) {
        return 1;
    }
    m_stream >> m_actionId;
    m_payload.resize(m_stream.getRemainder());
    LOG_INFO("Query Protobuf ID=%d size=%d", m_actionId, static_cast<int>(m_payload.size()));
    m_stream.readArray(m_payload.data(), m_stream.getRemainder());
    LOG_INFO("pb={%02x %02x %02x %02x %02x}", PayloadByte(m_payload, 0), PayloadByte(m_payload, 1),
             PayloadByte(m_payload, 2), PayloadByte(m_payload, 3), PayloadByte(m_payload, 4));
    return 0;
}

int BleSettingsMessage::Execute(Peer* client, uint8_t* response, uint16_t* responseLength) {
    if (m_settingId != kUncheckedSetting) {
        LOG_DEBUG("Executing Setting: id:%d value:%d", static_cast<int>(m_settingId), static_cast<int>(m_value));
    }
    const int status = ReportAnalyticsSource(client->m_identity.m_deviceType);
    if (status != CSI_OK) {
        LOG_ERROR("csi_set CSI_ANALYTICS_SOURCE failed - status %d", status);
    }
    return m_featureId == kFeatureSettings ? ExecuteProtobuf(response, responseLength)
                                           : ExecuteSetting(response, responseLength);
}

int BleSettingsMessage::ExecuteSetting(uint8_t* response, uint16_t* responseLength) {
    int code = m_settingId == kUncheckedSetting ? KZ_OK : CheckSetting(m_settingId, m_value);
    if (code == KZ_OK) {
        code = SendSetting(m_settingId, m_value);
    }
    WriteAnswer(m_settingId, code, response, responseLength);
    return code;
}

int BleSettingsMessage::ExecuteProtobuf(uint8_t* response, uint16_t* responseLength) {
    const ActionRow* row = kActions.Find(m_actionId);
    if (row == nullptr) {
        LOG_ERROR("Unknown protobuf message type");
        *responseLength = 0;
        return KZ_ERR;
    }
    LOG_AT(row->nameLevel, "%s", row->name);
    const EnumResultGeneric result = row->handler(m_payload);
    return ProtobufAnswer(m_featureId, m_actionId, response, responseLength).SendResult(result);
}

int BleSettingsMessage::HandleError(int error, uint8_t* response, uint16_t* responseLength) {
    WriteAnswer(m_settingId, error, response, responseLength);
    return 0;
}

void BleSettingsMessage::Dump() const {
    LOG_TRACE("SettingId:%d value:%d", static_cast<int>(m_settingId), static_cast<int>(m_value));
    LOG_TRACE("FeatureId:%d actionId:%d payload:%d bytes", m_featureId, m_actionId, static_cast<int>(m_payload.size()));
}
