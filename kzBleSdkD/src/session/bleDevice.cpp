// The client record: identity, notification gates, stored responses, message processing, sensor streams. Interests and
// pushes are in bleDevicePush.cpp, file transfers in bleDeviceFileTransfer.cpp.
#include "bleDevice.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "csi/csiKeys.h"
#include "kzBleServer.h"
#include "kzmfWriter.h"
#include "skylark/bleMessage.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleDevice.cpp";

// Which answers each notification-enable descriptor gates.
struct DescriptorRow {
    uint8_t descriptorStream;
    uint8_t gateStream;
};
constexpr DescriptorRow kDescriptors[] = {
    {KZ_STR_ID_COMMAND_CCC, KZ_STR_ID_COMMAND},
    {KZ_STR_ID_SETTINGS_CCC, KZ_STR_ID_SETTINGS},
    {KZ_STR_ID_QUERY_CCC, KZ_STR_ID_QUERY},
    {KZ_STR_ID_SENSOR_CCC, KZ_STR_ID_SENSOR},
};
constexpr unsigned char kNotificationsEnabled = 1;  // the only descriptor value that opens a gate

// The gate stream of each stored response, in priority order.
constexpr uint8_t kGateStreams[BleNotificationClient::eStoredCount] = {
    KZ_STR_ID_COMMAND,   // command response
    KZ_STR_ID_QUERY,     // settings push
    KZ_STR_ID_QUERY,     // status push
    KZ_STR_ID_QUERY,     // capabilities push
    KZ_STR_ID_SETTINGS,  // settings response
    KZ_STR_ID_QUERY,     // query response
    KZ_STR_ID_SENSOR,    // sensor response
};

std::string IdText(const std::vector<int>& ids) {
    std::string text;
    for (const int id : ids) {
        text += std::to_string(id);
        text += ' ';
    }
    return text;
}

// The last owner of a stream buffer: the writer must not keep a stream whose buffer is gone.
void ReleaseStreamBuffer(unsigned char* buffer) {
    const std::unique_ptr<unsigned char[]> owned(buffer);
    MetadataStreamClose(buffer);
}

// What the four interfaces do not share: their log texts, and what an answer of no bytes means.
struct CommandInterface {
    static constexpr bool kOneOutstanding = true;
    static constexpr bool kMayHaveNoAnswer = true;
    static void LogOutstanding(uint32_t connectionId) {
        LOG_ERROR("We got a new command message on connection_id:%d before previous response could be sent!",
                  connectionId);
    }
    static void LogExecuted(int code, int) { LOG_INFO("command message executed and returned code: %d", code); }
    static void LogParseError() { LOG_ERROR("Parse error while parsing command packet"); }
    static void LogNeedsMore() { LOG_INFO("This message needs more data!"); }
    static void LogUnhandled(int result) { LOG_ERROR("Unhandled defragmentation error: %d", result); }
};

struct SettingsInterface {
    static constexpr bool kOneOutstanding = true;
    static constexpr bool kMayHaveNoAnswer = false;
    static void LogOutstanding(uint32_t connectionId) {
        LOG_ERROR("We got a new setting message on connection_id:%d before previous response could be sent!",
                  connectionId);
    }
    static void LogExecuted(int code, int) { LOG_INFO("Settings command executed and returned code: %d", code); }
    static void LogParseError() { LOG_ERROR("Parse error while parsing settings packet"); }
    static void LogNeedsMore() { LOG_INFO("This message needs more data!"); }
    static void LogUnhandled(int result) { LOG_ERROR("Unhandle defragmentation error: %d", result); }
};

struct QueryInterface {
    static constexpr bool kOneOutstanding = true;
    static constexpr bool kMayHaveNoAnswer = false;
    static void LogOutstanding(uint32_t connectionId) {
        LOG_ERROR("We got a new query message on connection_id:%d before previous response could be sent!",
                  connectionId);
    }
    static void LogExecuted(int code, int) { LOG_INFO("Query command executed and returned code: %d", code); }
    static void LogParseError() { LOG_ERROR("Parse error while parsing query packet"); }
    static void LogNeedsMore() { LOG_INFO("This query message needs more data!"); }
    static void LogUnhandled(int result) { LOG_ERROR("Unhandle defragmentation error: %d", result); }
};

struct SensorInterface {
    static constexpr bool kOneOutstanding = false;  // samples have no answer that could be overtaken
    static constexpr bool kMayHaveNoAnswer = true;
    static void LogOutstanding(uint32_t) {}
    static void LogExecuted(int code, int length) {
        LOG_INFO("metadata message executed and returned code: %d", code);
        LOG_INFO("Response Length %d", length);
    }
    static void LogParseError() { LOG_ERROR("Parse error while parsing metadata packet"); }
    static void LogNeedsMore() { LOG_INFO("This message needs more data!"); }
    static void LogUnhandled(int result) { LOG_ERROR("Unhandled defragmentation error: %d", result); }
};

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

template <typename Interface, typename Message>
bool ExecuteMessage(BleNotificationClient& client, Message& message, const Answer& answer) {
    unsigned short length = *answer.length;
    const int code = message.Execute(&client, answer.bytes, &length);
    Interface::LogExecuted(code, length);
    if (code != KZ_OK) {
        return AnswerError(message, code, answer);
    }
    if (Interface::kMayHaveNoAnswer && length == 0) {
        return false;
    }
    *answer.length = length;
    return true;
}

template <typename Interface, typename Message>
bool ProcessMessage(BleNotificationClient& client, Message& message, BleNotificationClient::StoredResponse& stored,
                    unsigned char* packet, const Answer& answer) {
    *answer.kzErrno = KZ_OK;
    if (Interface::kOneOutstanding && stored.m_length > 0) {
        Interface::LogOutstanding(client.m_connectionId);
        stored.Clear();
    }
    MemoryStream stream(packet, kBlePacketSize);
    BlePacketHeader header;
    stream >> header;
    const int result = message.ProcessPacket(packet, header, answer.bytes, *answer.length);
    switch (result) {
        case kMessageComplete:
            return ExecuteMessage<Interface>(client, message, answer);
        case kMessageFailed:
            Interface::LogParseError();
            return AnswerError(message, KZ_ERR_INVALID_PARAM, answer);
        case kMessageNeedsMore:
            Interface::LogNeedsMore();
            return false;
        default:
            Interface::LogUnhandled(result);
            return AnswerError(message, KZ_ERR_INVALID_PARAM, answer);
    }
}

}  // namespace

// ---------------------------------------------------------------- base

void NotificationClient::Pause(bool paused) {
    m_paused = paused;
    if (paused) {
        m_notifyPending = true;
    }
}

bool NotificationClient::Notify(eNotificationType_t, std::stringstream&) {
    m_notifyPending = false;
    return true;
}

// ---------------------------------------------------------------- life

BleNotificationClient::BleNotificationClient(unsigned int connectionId, unsigned char deviceId,
                                             unsigned char deviceType)
    : m_connectionId(connectionId),
      m_deviceId(deviceId),
      m_deviceType(deviceType),
      m_settingsMessage(0),
      m_queryMessage(0),
      m_commandMessage(0),
      m_metadataMessage(0) {
    for (size_t i = 0; i < m_storedResponses.size(); ++i) {
        m_storedResponses[i].m_streamId = kGateStreams[i];
    }
}

BleNotificationClient::BleNotificationClient(const BleNotificationClient& other)
    : BleNotificationClient(other.m_connectionId, other.m_deviceId, other.m_deviceType) {
    CopyKeptFields(other);
}

BleNotificationClient& BleNotificationClient::operator=(const BleNotificationClient& other) {
    if (this == &other) {
        return *this;
    }
    CopyKeptFields(other);
    m_inCount = 0;
    m_outCount = 0;
    m_pushCount = 0;
    m_accessoryUpdatePending = false;
    m_interestedCSIs.clear();
    // A message in progress belongs to one connection alone.
    m_settingsMessage = BleSettingsMessage(0);
    m_queryMessage = BleQueryMessage(0);
    m_commandMessage = BleCommandMessage(0);
    m_metadataMessage = BleMetadataMessage(0);
    for (StoredResponse& stored : m_storedResponses) {
        stored.Clear();
        stored.m_enabled = false;
    }
    m_owed = {};
    m_pushRemainder.clear();
    m_transferringSettingsJSON = false;
    m_transferringLarch = false;
    CloseFile();
    return *this;
}

BleNotificationClient::~BleNotificationClient() {
    if (m_file != nullptr) {
        LOG_ERROR("File still open when client destroyed.");
    }
}

void BleNotificationClient::CopyKeptFields(const BleNotificationClient& other) {
    m_connectionId = other.m_connectionId;
    m_deviceId = other.m_deviceId;
    m_deviceType = other.m_deviceType;
    m_blockSize = other.m_blockSize;
    m_bytesRemaining = other.m_bytesRemaining;
    m_capabilitiesInterest = other.m_capabilitiesInterest;
    m_settingsInterest = other.m_settingsInterest;
    m_statusInterest = other.m_statusInterest;
    m_lcdInterest = other.m_lcdInterest;
    m_ledInterest = other.m_ledInterest;
    m_metadataDeviceName = other.m_metadataDeviceName;
    m_metadataStreamCount = other.m_metadataStreamCount;
    m_metadataStreams = other.m_metadataStreams;
    m_metadataKeys = other.m_metadataKeys;
    for (size_t i = 0; i < m_storedResponses.size(); ++i) {
        m_storedResponses[i].m_streamId = other.m_storedResponses[i].m_streamId;
    }
}

// ---------------------------------------------------------------- gates and stored responses

void BleNotificationClient::StoredResponse::Store(const unsigned char* data, int length) {
    if (length > m_capacity) {
        m_data = std::make_unique_for_overwrite<unsigned char[]>(static_cast<size_t>(length));
        m_capacity = length;
    }
    if (length > 0) {
        std::memcpy(m_data.get(), data, static_cast<size_t>(length));
    }
    m_length = length;
}

void BleNotificationClient::StoredResponse::Clear() {
    m_data.reset();
    m_capacity = 0;
    m_length = 0;
}

bool BleNotificationClient::GetEnabledByStreamId(unsigned char streamId) const {
    for (const StoredResponse& stored : m_storedResponses) {
        if (stored.m_streamId == streamId) {
            return stored.m_enabled;
        }
    }
    return false;
}

void BleNotificationClient::SetCCCEnabled(unsigned char cccStreamId, unsigned char value) {
    LOG_INFO("CCC stream ID %d", cccStreamId);
    const auto row = std::find_if(std::begin(kDescriptors), std::end(kDescriptors),
                                  [cccStreamId](const DescriptorRow& r) { return r.descriptorStream == cccStreamId; });
    if (row == std::end(kDescriptors)) {
        LOG_DEBUG("Invalid CCC stream ID %d", cccStreamId);
        return;
    }
    const bool enable = value == kNotificationsEnabled;
    for (size_t i = 0; i < m_storedResponses.size(); ++i) {
        if (m_storedResponses[i].m_streamId != row->gateStream) {
            continue;
        }
        m_storedResponses[i].m_enabled = enable;
        if (enable) {
            LOG_INFO("StoredResponse[%d] Enabling streamId:%d for connection: %d", static_cast<int>(i), row->gateStream,
                     m_connectionId);
        } else {
            LOG_INFO("StoredResponse[%d] Disabling streamId:%d for connection:%d", static_cast<int>(i), row->gateStream,
                     m_connectionId);
        }
    }
}

void BleNotificationClient::SetSensorCCCEnabled() {
    for (StoredResponse& stored : m_storedResponses) {
        stored.m_enabled = true;
    }
}

void BleNotificationClient::StoreCommandResponse(const unsigned char* data, int size) {
    m_storedResponses[eStoredCommand].Store(data, size);
}

void BleNotificationClient::StoreSettingsResponse(const unsigned char* data, int size) {
    m_storedResponses[eStoredSettings].Store(data, size);
}

void BleNotificationClient::StoreQueryResponse(const unsigned char* data, int size) {
    m_storedResponses[eStoredQuery].Store(data, size);
}

void BleNotificationClient::StoreSensorResponse(const unsigned char* data, int size) {
    m_storedResponses[eStoredSensor].Store(data, size);
}

BleNotificationClient::StoredResponse* BleNotificationClient::GetHighestPriorityStoredResponse() {
    RefillStoredPushes();
    for (StoredResponse& stored : m_storedResponses) {
        if (stored.m_enabled && stored.m_length > 0) {
            return &stored;
        }
    }
    return nullptr;
}

// ---------------------------------------------------------------- message processing

bool BleNotificationClient::ProcessCommandMessage(unsigned char* packet, unsigned char* response,
                                                  unsigned short* responseLength, int* kzErrno) {
    return ProcessMessage<CommandInterface>(*this, m_commandMessage, m_storedResponses[eStoredCommand], packet,
                                            {response, responseLength, kzErrno});
}

bool BleNotificationClient::ProcessSettingMessage(unsigned char* packet, unsigned char* response,
                                                  unsigned short* responseLength, int* kzErrno) {
    return ProcessMessage<SettingsInterface>(*this, m_settingsMessage, m_storedResponses[eStoredSettings], packet,
                                             {response, responseLength, kzErrno});
}

bool BleNotificationClient::ProcessQueryMessage(unsigned char* packet, unsigned char* response,
                                                unsigned short* responseLength, int* kzErrno) {
    return ProcessMessage<QueryInterface>(*this, m_queryMessage, m_storedResponses[eStoredQuery], packet,
                                          {response, responseLength, kzErrno});
}

bool BleNotificationClient::ProcessMetadataMessage(unsigned char* packet, unsigned char* response,
                                                   unsigned short* responseLength, int* kzErrno) {
    return ProcessMessage<SensorInterface>(*this, m_metadataMessage, m_storedResponses[eStoredSensor], packet,
                                           {response, responseLength, kzErrno});
}

// ---------------------------------------------------------------- sensor streams

bool BleNotificationClient::StoreMetadataDeviceName(std::string name) {
    m_metadataDeviceName = std::move(name);
    return true;
}

void* BleNotificationClient::AddStreamBuffer(unsigned char index) {
    if (index >= m_metadataStreams.size()) {
        return nullptr;
    }
    m_metadataStreams[index] = {std::make_unique<unsigned char[]>(kMetadataStreamBufferSize).release(),
                                ReleaseStreamBuffer};
    return m_metadataStreams[index].get();
}

void BleNotificationClient::RemoveStreams() {
    LOG_INFO("Disconnect so remove %d streams", m_metadataStreamCount);
    for (size_t i = 0; i < m_metadataStreamCount && i < m_metadataStreams.size(); ++i) {
        if (MetadataStreamClose(m_metadataStreams[i].get()) == nullptr) {
            LOG_ERROR("Error RemoveStreams");
        }
        m_metadataStreams[i].reset();
    }
    KzBleServer* server = KzBleServer::GetInstance();
    if (server->GetCsiValue(CSI_WMS_STATE) == WMS_STATE_CONFIG) {
        const uint8_t cancel = WMS_REQUEST_UX_CANCEL;
        server->csi_set_no_rsp(CSI_WMS_REQUEST, &cancel, sizeof(cancel));
        LOG_ERROR("EXIT CONFIGURE MODE on BLE DISCONNECT");
    }
}

void BleNotificationClient::ResetAllMetadataStreams() {
    for (size_t i = 0; i < m_metadataStreamCount && i < m_metadataStreams.size(); ++i) {
        LOG_INFO("ResetAllMetadataStreams");
        MetadataStreamReset(m_metadataStreams[i].get());
    }
}

// ---------------------------------------------------------------- dump

void BleNotificationClient::Dump() const {
    if (kzUtilGetLogLevel() < KZ_LOG_INFO) {
        return;
    }
    LOG_INFO("========= DEVICE INFO =============");
    LOG_INFO("connection_id         :%d", m_connectionId);
    LOG_INFO("SDK in message count  :%d", m_inCount);
    LOG_INFO("SDK out message count :%d", m_outCount);
    LOG_INFO("SDK push message count:%d", m_pushCount);
    for (const StoredResponse& stored : m_storedResponses) {
        LOG_INFO("SDK Notify stream_id:%d enabled:%d", stored.m_streamId, stored.m_enabled);
        LOG_INFO("    Bytes of stored response:%d", stored.m_length);
    }
    if (m_statusInterest.empty()) {
        LOG_INFO("status interest       : NONE");
    } else {
        LOG_INFO("status interest       : %s", IdText(m_statusInterest).c_str());
    }
    if (m_settingsInterest.empty()) {
        LOG_INFO("settings interest     : NONE");
    } else {
        LOG_INFO("settings interest     : %s", IdText(m_settingsInterest).c_str());
    }
    if (m_capabilitiesInterest.empty()) {
        LOG_INFO("capabilities interest : NONE");
    } else {
        LOG_INFO("capabilities interest : %s", IdText(m_capabilitiesInterest).c_str());
    }
}
