#include "bleDevice.h"

#include <string>
#include <utility>

#include "MemStream.h"
#include "blePacketHeader.h"
#include "cameraStatus.h"
#include "csi/csiKeys.h"
#include "csiPort.h"
#include "firmwareImages.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleDevice.cpp";

std::string IdText(const std::vector<int>& ids) {
    std::string text;
    for (const int id : ids) {
        text += std::to_string(id);
        text += ' ';
    }
    return text;
}

// ---------------------------------------------------------------- the four interfaces

// What the interfaces do not share.
struct InterfaceRow {
    bool mayHaveNoAnswer;  // an answer of no bytes is not sent
    const char* parseError;
    const char* needsMore;
    void (*logOutstanding)(uint32_t connectionId);  // null: a packet does not drop a stored answer
    void (*logExecuted)(int code, int length);
};

constexpr InterfaceRow kCommandInterface = {
    true, "Parse error while parsing command packet", "This message needs more data!",
    [](uint32_t id) {
        LOG_ERROR("We got a new command message on connection_id:%d before previous response could be sent!", id);
    },
    [](int code, int) { LOG_INFO("command message executed and returned code: %d", code); }};

constexpr InterfaceRow kSettingsInterface = {
    false, "Parse error while parsing settings packet", "This message needs more data!",
    [](uint32_t id) {
        LOG_ERROR("We got a new setting message on connection_id:%d before previous response could be sent!", id);
    },
    [](int code, int) { LOG_INFO("Settings command executed and returned code: %d", code); }};

constexpr InterfaceRow kQueryInterface = {
    false, "Parse error while parsing query packet", "This query message needs more data!",
    [](uint32_t id) {
        LOG_ERROR("We got a new query message on connection_id:%d before previous response could be sent!", id);
    },
    [](int code, int) { LOG_INFO("Query command executed and returned code: %d", code); }};

constexpr InterfaceRow kSensorInterface = {true, "Parse error while parsing metadata packet",
                                           "This message needs more data!", nullptr, [](int code, int length) {
                                               LOG_INFO("metadata message executed and returned code: %d", code);
                                               LOG_INFO("Response Length %d", length);
                                           }};

// The caller's buffer and result variables of one Process*Message call.
struct Answer {
    unsigned char* bytes;
    unsigned short* length;
    int* kzErrno;
};

template <typename Message>
bool AnswerError(Message& message, int code, const Answer& answer) {
    *answer.kzErrno = code;
    message.HandleError(code, answer.bytes, answer.length);
    return true;
}

template <const InterfaceRow& kRow, typename Message>
bool ExecuteMessage(Peer& peer, Message& message, const Answer& answer) {
    unsigned short length = *answer.length;
    const int code = message.Execute(&peer, answer.bytes, &length);
    kRow.logExecuted(code, length);
    if (code != KZ_OK) {
        return AnswerError(message, code, answer);
    }
    if (kRow.mayHaveNoAnswer && length == 0) {
        return false;
    }
    *answer.length = length;
    return true;
}

template <const InterfaceRow& kRow, typename Message>
bool ProcessMessage(Peer& peer, Message& message, eStoredResponse storedAnswer, unsigned char* packet,
                    const Answer& answer) {
    *answer.kzErrno = KZ_OK;
    StoredResponse& stored = peer.m_answers.Entry(storedAnswer);
    if (kRow.logOutstanding != nullptr && stored.m_length > 0) {
        kRow.logOutstanding(peer.m_identity.m_connectionId);
        stored.Clear();
    }
    MemoryStream stream(packet, kBlePacketSize);
    BlePacketHeader header;
    stream >> header;
    switch (message.ProcessPacket(packet, header, answer.bytes, *answer.length)) {
        case kMessageComplete:
            return ExecuteMessage<kRow>(peer, message, answer);
        case kMessageNeedsMore:
            LOG_INFO("%s", kRow.needsMore);
            return false;
        default:
            LOG_ERROR("%s", kRow.parseError);
            return AnswerError(message, KZ_ERR_INVALID_PARAM, answer);
    }
}

}  // namespace

bool BleNotificationClient::ProcessCommandMessage(unsigned char* packet, unsigned char* response,
                                                  unsigned short* responseLength, int* kzErrno) {
    return ProcessMessage<kCommandInterface>(*this, m_commandMessage, eStoredCommand, packet,
                                             {response, responseLength, kzErrno});
}

bool BleNotificationClient::ProcessSettingMessage(unsigned char* packet, unsigned char* response,
                                                  unsigned short* responseLength, int* kzErrno) {
    return ProcessMessage<kSettingsInterface>(*this, m_settingsMessage, eStoredSettings, packet,
                                              {response, responseLength, kzErrno});
}

bool BleNotificationClient::ProcessQueryMessage(unsigned char* packet, unsigned char* response,
                                                unsigned short* responseLength, int* kzErrno) {
    return ProcessMessage<kQueryInterface>(*this, m_queryMessage, eStoredQuery, packet,
                                           {response, responseLength, kzErrno});
}

bool BleNotificationClient::ProcessMetadataMessage(unsigned char* packet, unsigned char* response,
                                                   unsigned short* responseLength, int* kzErrno) {
    return ProcessMessage<kSensorInterface>(*this, m_metadataMessage, eStoredSensor, packet,
                                            {response, responseLength, kzErrno});
}

// ---------------------------------------------------------------- life

BleNotificationClient::BleNotificationClient(unsigned int connectionId, unsigned char deviceId,
                                             unsigned char deviceType, const Services& services)
    : Peer(connectionId, deviceId, deviceType),
      m_queryMessage(0, services),
      m_commandMessage(0, services),
      m_metadataMessage(0, services),
      m_pushes(*this, services.camera),
      m_services(services) {}

BleNotificationClient::BleNotificationClient(const BleNotificationClient& other)
    : BleNotificationClient(other.m_identity.m_connectionId, other.m_identity.m_deviceId, other.m_identity.m_deviceType,
                            other.m_services) {
    CopyKeptFields(other);
}

BleNotificationClient& BleNotificationClient::operator=(const BleNotificationClient& other) {
    if (this == &other) {
        return *this;
    }
    m_answers.Reset();
    m_file.Reset();
    m_pushes.Reset();
    // A message in progress belongs to one connection alone.
    m_settingsMessage = BleSettingsMessage(0);
    m_queryMessage = BleQueryMessage(0, m_services);
    m_commandMessage = BleCommandMessage(0, m_services);
    m_metadataMessage = BleMetadataMessage(0, m_services);
    CopyKeptFields(other);
    return *this;
}

void BleNotificationClient::CopyKeptFields(const BleNotificationClient& other) {
    m_identity = Identity(other.m_identity.m_connectionId, other.m_identity.m_deviceId, other.m_identity.m_deviceType);
    m_file.m_blockSize = other.m_file.m_blockSize;
    m_file.m_bytesRemaining = other.m_file.m_bytesRemaining;
    m_interests = other.m_interests;
    m_interests.ForgetCsiKeys();
    m_streams = other.m_streams;
}

// ---------------------------------------------------------------- interests

bool BleNotificationClient::AddInterest(eNotificationType_t type, int id) {
    m_interests.Add(type, id);
    return true;
}

bool BleNotificationClient::AddInterest(eNotificationType_t type, std::vector<int> ids) {
    m_interests.Add(type, ids);
    return true;
}

bool BleNotificationClient::AddInterestAll(eNotificationType_t type) {
    m_interests.AddAll(type);
    return true;
}

bool BleNotificationClient::RemoveInterest(eNotificationType_t type, int id) {
    m_interests.Remove(type, id);
    return true;
}

bool BleNotificationClient::RemoveInterest(eNotificationType_t type, std::vector<int> ids) {
    m_interests.Remove(type, ids);
    return true;
}

bool BleNotificationClient::RemoveInterestAll(eNotificationType_t type) {
    m_interests.RemoveAll(type);
    return true;
}

// ---------------------------------------------------------------- other parts

bool BleNotificationClient::StoreMetadataDeviceName(std::string name) {
    m_streams.m_metadataDeviceName = std::move(name);
    return true;
}

void BleNotificationClient::RemoveStreams() {
    m_streams.RemoveStreams();
    // Who leaves in configure mode leaves the camera in it, unless it is told to end it.
    if (m_services.camera.GetCsiValue(CSI_WMS_STATE) == WMS_STATE_CONFIG) {
        const uint8_t cancel = WMS_REQUEST_UX_CANCEL;
        csi_set_no_rsp(CSI_WMS_REQUEST, &cancel, sizeof(cancel));
        LOG_ERROR("EXIT CONFIGURE MODE on BLE DISCONNECT");
    }
}

bool BleNotificationClient::SetTransferringLarch(bool on) {
    LOG_DEBUG("SetTransferringAccesoryDeviceOTA");
    if (!on) {
        return m_file.EndImage();
    }
    if (m_file.IsTransferringLarch()) {
        return false;
    }
    AccessoryImageFile image = OpenLarchUpdate(m_identity.m_deviceType, {});
    return !image.path.empty() && m_file.StartImage(std::move(image.file), image.modified);
}

void BleNotificationClient::Dump() const {
    if (kzUtilGetLogLevel() < KZ_LOG_INFO) {
        return;
    }
    LOG_INFO("========= DEVICE INFO =============");
    LOG_INFO("connection_id         :%d", m_identity.m_connectionId);
    LOG_INFO("SDK in message count  :%d", m_identity.m_inCount);
    LOG_INFO("SDK out message count :%d", m_identity.m_outCount);
    LOG_INFO("SDK push message count:%d", m_identity.m_pushCount);
    m_answers.Dump();
    const auto ids = [this](eNotificationType_t type) {
        const std::string text = IdText(m_interests.Of(type));
        return text.empty() ? std::string("NONE") : text;
    };
    LOG_INFO("status interest       : %s", ids(eNotifyStatus).c_str());
    LOG_INFO("settings interest     : %s", ids(eNotifySettings).c_str());
    LOG_INFO("capabilities interest : %s", ids(eNotifyCapabilities).c_str());
}
