// The protobuf queries of the cloud account and the cloud upload (CAH).
#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "cameraCalls.h"
#include "cameraStatus.h"
#include "featureStatus.h"
#include "littleEndian.h"
#include "protoFields.h"
#include "protobufAnswer.h"
#include "protobufQuery.h"
#include "utils.h"
#include "wsdkCommands/WSDK_RequestGetAssociationState.pb.h"
#include "wsdkCommands/WSDK_RequestGetCAHStatus.pb.h"
#include "wsdkCommands/WSDK_ResponseGetAssociationState.pb.h"
#include "wsdkCommands/WSDK_ResponseGetCAHSticky.pb.h"
#include "wsdkCommands/WSDK_ResponseGetClientId.pb.h"

using namespace wsdk_commands;

namespace {

constexpr const char* kLogTag = "bleQueryMessage.cpp";

constexpr RegisterKey kCahKeys[] = {
    {WSDK_REGISTER_CAH_STATUS_DEV_MGR, CSI_DEVICE_MGR_STATE},
    {WSDK_REGISTER_CAH_STATUS_WOM, CSI_WOM_STATE},
    {WSDK_REGISTER_CAH_STATUS_CAHA, CSI_CAHA_STATE},
    {WSDK_REGISTER_CAH_STATUS_FEATTURE_ENABLED, CSI_CAH_FEATURE_ENABLE},
    {WSDK_REGISTER_CAH_STATUS_ACTIVE, CSI_CAH_ACTIVE},
    {WSDK_REGISTER_CAH_STATUS_ASSOCIATED, CSI_CAH_ASSOCIATION_STATE},
    {WSDK_REGISTER_CAH_STATUS_AUTHORIZED, CSI_CAH_AUTH_STATE},
};

// ---------------------------------------------------------------- CSI words

// Reads the little-endian number under a key. Returns nothing when the service does not give it.
std::optional<uint32_t> ReadCsiWord(uint8_t key) {
    uint8_t bytes[4] = {};
    uint32_t length = 0;
    if (GetCsi(key, sizeof(bytes), &length, bytes) != CSI_OK) {
        return std::nullopt;
    }
    return ReadLittleEndian32(bytes);
}

// ---------------------------------------------------------------- CSI texts

// A text under a key, as bytes; the service does not terminate it.
struct CsiText {
    bool read = false;
    uint16_t length = 0;
    char data[kMaxCsiText + 1] = {};  // zero-filled, so terminated
};

void ReadCsiText(uint8_t key, CsiText& text) {
    uint32_t length = 0;
    text.read = GetCsi(key, kMaxCsiText, &length, text.data) == CSI_OK;
    text.length = text.read ? static_cast<uint16_t>(std::min<size_t>(length, kMaxCsiText)) : uint16_t{0};
    text.data[text.length] = '\0';
}

WSDK_EnumAssociationState AssociationState(const std::string& userId) {
    CsiText stored;
    ReadCsiText(CSI_CAH_ASSOCIATION_STATE, stored);
    if (!stored.read) {
        LOG_ERROR("Error reading CSI_CAH_ASSOCIATION_STATE");
        return WSDK_ASSOCIATION_STATE_NOT_ASSOCIATED;
    }
    LOG_INFO("current zorvikuser id = %s", stored.data);
    LOG_INFO("userID char[0] = %d", stored.data[0]);
    if (stored.data[0] == '\0') {
        return WSDK_ASSOCIATION_STATE_NOT_ASSOCIATED;
    }
    return std::string_view(stored.data) == userId ? WSDK_ASSOCIATION_STATE_ASSOCIATED
                                                   : WSDK_ASSOCIATION_STATE_ASSOCIATED_ANOTHER_USER;
}

void LogAssociation(WSDK_EnumAssociationState state) {
    switch (state) {
        case WSDK_ASSOCIATION_STATE_NOT_ASSOCIATED:
            LOG_INFO("WSDK_ASSOCIATION_STATE_NOT_ASSOCIATED");
            break;
        case WSDK_ASSOCIATION_STATE_ASSOCIATED:
            LOG_INFO("WSDK_ASSOCIATION_STATE_ASSOCIATED");
            break;
        case WSDK_ASSOCIATION_STATE_ASSOCIATED_ANOTHER_USER:
            LOG_INFO("WSDK_ASSOCIATION_STATE_ASSOCIATED_ANOTHER_USER");
            break;
    }
}

}  // namespace

// ---------------------------------------------------------------- the queries

int GetCahSticky(const ProtobufQuery& query) {
    const std::optional<uint32_t> sticky = ReadCsiWord(CSI_CAH_STICKY_ERR);
    const auto value = static_cast<int32_t>(sticky.value_or(0));
    LOG_INFO("CSI_CAH_STICKY_ERR = %d", value);
    ProtoFieldWriter(query.stream)
        .Int(WSDK_ResponseGetCAHSticky::kCahStickyFieldNumber, value)
        .Int(WSDK_ResponseGetCAHSticky::kResultFieldNumber, ResultOf(sticky.has_value()));
    return KZ_OK;
}

int GetCahStatus(const ProtobufQuery& query) {
    const auto request = ParseRequest<WSDK_RequestGetCAHStatus>(query.payload);
    ChangeInterest(query.client.m_interests, kCahKeys, Numbers(request.register_cah_status()),
                   Numbers(request.unregister_cah_status()));

    CahStatus status;
    status.deviceManager = ReadCsiWord(CSI_DEVICE_MGR_STATE).value_or(kCsiErrorWord);
    const std::optional<uint32_t> wom = ReadCsiWord(CSI_WOM_STATE);
    status.wom = wom.value_or(kCsiErrorWord);
    if (wom) {
        status.busy = StateByte(*wom, 0) != kWomNotTriggered;
        if (*status.busy) {
            LOG_INFO("CAH_WOM TRIGGERED");
        } else {
            LOG_INFO("CAH_WOM NOT TRIGGERED");
        }
    }
    status.caha = ReadCsiWord(CSI_CAHA_STATE).value_or(kCsiErrorWord);
    status.featureEnabled = ReadCsiWord(CSI_CAH_FEATURE_ENABLE).value_or(0) != 0;
    status.active = ReadCsiWord(CSI_CAH_ACTIVE).value_or(0) != 0;
    status.authState = ReadCsiWord(CSI_CAH_AUTH_STATE).value_or(0);
    status.autoClear = ReadCsiWord(CSI_CAH_AUTO_CLEAR).value_or(0) != 0;
    const CameraStatus::CahUploadProgress& progress = query.camera.GetCahUploadProgress();
    status.upload = CahUpload{static_cast<uint32_t>(progress.currentFile), static_cast<uint32_t>(progress.totalFiles),
                              static_cast<uint32_t>(progress.percentage)};

    const auto byte = [](const std::optional<uint32_t>& word, unsigned index) { return StateByte(*word, index); };
    LOG_INFO("dev %d:%d:%d:%d", byte(status.deviceManager, 0), byte(status.deviceManager, 1),
             byte(status.deviceManager, 2), byte(status.deviceManager, 3));
    LOG_INFO("wom %d:%d:%d:%d", byte(status.wom, 0), byte(status.wom, 1), byte(status.wom, 2), byte(status.wom, 3));
    LOG_INFO("dev %d:%d:%d:%d", byte(status.caha, 0), byte(status.caha, 1), byte(status.caha, 2), byte(status.caha, 3));
    LOG_INFO("feat enable: %d", *status.featureEnabled);
    LOG_INFO("cah active: %d", *status.active);
    LOG_INFO("cah current %lu", static_cast<unsigned long>(status.upload->currentFile));
    LOG_INFO("cah total files %lu", static_cast<unsigned long>(status.upload->totalFiles));
    LOG_INFO("cah percentage %lu", static_cast<unsigned long>(status.upload->percentage));
    query.stream << status;
    return KZ_OK;
}

int GetAssociationState(const ProtobufQuery& query) {
    const auto request = ParseRequest<WSDK_RequestGetAssociationState>(query.payload);
    LOG_INFO("WSDK_RequestGetAssociationState zorvik_user_id = %s", request.zorvik_user_id().c_str());
    const WSDK_EnumAssociationState state = AssociationState(request.zorvik_user_id());
    LogAssociation(state);
    ProtoFieldWriter(query.stream)
        .Int(WSDK_ResponseGetAssociationState::kAssociationStateFieldNumber, state)
        .Int(WSDK_ResponseGetAssociationState::kResultFieldNumber, RESULT_SUCCESS);
    return KZ_OK;
}

int GetClientId(const ProtobufQuery& query) {
    CsiText id;
    ReadCsiText(CSI_CLIENT_ID, id);
    if (!id.read) {
        LOG_ERROR("WSDK_ResponseGetClientId error");
    }
    const EnumResultGeneric result = ResultOf(id.read);
    LOG_INFO("responseClientIdMsg.clientId=%s", id.data);
    LOG_INFO("responseClientIdMsg.result=%d", result);
    ProtoFieldWriter(query.stream)
        .Bytes(WSDK_ResponseGetClientId::kClientIdFieldNumber, id.data, id.length)
        .Int(WSDK_ResponseGetClientId::kResultFieldNumber, result);
    return KZ_OK;
}
