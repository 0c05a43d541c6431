#include "metadataMessage.h"

#include <algorithm>

#include "MemStream.h"
#include "bleSDK.h"
#include "dispatchTable.h"
#include "kzmfWriter.h"
#include "peer.h"
#include "sensorHandOver.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleMetadataMessage.cpp";

constexpr int kParsed = 0;
constexpr int kParseError = 1;

// Message lengths, command byte included.
constexpr unsigned kSampleLengthLimit = 38;  // a sample message is shorter
constexpr unsigned kSampleHeaderLength = 2;
constexpr unsigned kDeviceLengthLimit = 20;  // one packet
constexpr unsigned kDeviceShortestLength = 5;
constexpr unsigned kKeyLength = 11;
constexpr unsigned kAnswerLength = 2;

constexpr uint32_t kMetadataDeviceIdBase = 1024;  // below are the camera's own devices

// Interest parameters.
constexpr uint8_t kInterestOn = 1;
constexpr uint8_t kInterestOff = 2;

bool ChangeInterest(Peer& client, NotificationClient::eNotificationType_t type, uint32_t parameter) {
    const int id = static_cast<int>(client.m_identity.m_connectionId);
    switch (parameter) {
        case kInterestOn:
            client.m_interests.Add(type, id);
            return true;
        case kInterestOff:
            client.m_interests.Remove(type, id);
            return true;
        default:
            return false;
    }
}

uint32_t FourCharacterKey(const char (&fourCC)[4]) {
    uint32_t key = 0;
    for (int i = 3; i >= 0; --i) {
        key = key << 8 | static_cast<uint8_t>(fourCC[i]);
    }
    return key;
}

// A handle as a number for the log.
int HandleNumber(const void* handle) {
    return static_cast<int>(reinterpret_cast<uintptr_t>(handle));
}

}  // namespace

// ---------------------------------------------------------------- response

void BleMetadataResponse::Dump() const {
    LOG_TRACE("CommandId:%d", m_commandId);
    LOG_TRACE("Status:%d", m_status);
}

MemoryStream& operator<<(MemoryStream& stream, const BleMetadataResponse& response) {
    return stream << response.m_commandId << response.m_status;
}

// ---------------------------------------------------------------- commands

struct BleMetadataMessage::CommandRow {
    uint8_t id;
    int (BleMetadataMessage::*deserialize)();
    int (BleMetadataMessage::*execute)(Peer&);
};

const BleMetadataMessage::CommandRow* BleMetadataMessage::FindCommand(uint8_t commandId) {
    using Message = BleMetadataMessage;
    static constexpr DispatchTable kCommands({
        CommandRow{eBleMetadataWrite, &Message::DeserializeSample, &Message::WriteSample},
        CommandRow{eBleMetadataRegisterDevice, &Message::DeserializeDevice, &Message::RegisterDevice},
        CommandRow{eBleMetadataRegister4CC, &Message::DeserializeKey, &Message::RegisterKey},
        CommandRow{eBleMultekDisip, &Message::DeserializeParameter, &Message::SetDisplayInterest},
        CommandRow{eBleLedRegister, &Message::DeserializeParameter, &Message::SetLedInterest},
    });
    return kCommands.Find(commandId);
}

// ---------------------------------------------------------------- parsing

void BleMetadataMessage::Reset(int length) {
    m_commandId = 0;
    m_params.clear();
    m_keyIndex = 0;
    m_sample.fill(0);
    m_sampleSize = 0;
    m_streamCount = 0;
    m_name.fill('\0');
    m_key = {};
    SetLength(length);
}

int BleMetadataMessage::Deserialize() {
    if (m_stream.getRemainder() < 1) {
        return kParseError;
    }
    m_stream >> m_commandId;
    const CommandRow* command = FindCommand(m_commandId);
    return command != nullptr ? (this->*command->deserialize)() : kParsed;  // Execute rejects the others
}

int BleMetadataMessage::DeserializeSample() {
    const unsigned length = m_stream.getSourceLength();
    if (length >= kSampleLengthLimit) {
        LOG_ERROR("Max size of metadata exceeded");
        return kParseError;
    }
    if (length < kSampleHeaderLength) {
        return kParseError;
    }
    m_stream >> m_keyIndex;
    m_sampleSize = m_stream.getRemainder();
    m_stream.readArray(m_sample.data(), static_cast<unsigned short>(m_sampleSize));
    LOG_INFO("4CC ID: %d\n", m_keyIndex);
    return kParsed;
}

int BleMetadataMessage::DeserializeDevice() {
    const unsigned length = m_stream.getSourceLength();
    if (length >= kDeviceLengthLimit) {
        LOG_ERROR("Register name is max 1 packet");
        return kParseError;
    }
    if (length < kDeviceShortestLength) {
        LOG_ERROR("Name too short");
        return kParseError;
    }
    m_stream >> m_streamCount;
    m_stream.readArray(m_name.data(), m_stream.getRemainder());
    LOG_INFO("tbytes = %d name = %s\n", static_cast<int>(length), m_name.data());
    LOG_INFO("string device name = %s\n", m_name.data());
    return kParsed;
}

int BleMetadataMessage::DeserializeKey() {
    if (m_stream.getSourceLength() != kKeyLength) {
        LOG_ERROR("Register 4CC parser error");
        return kParseError;
    }
    m_stream.readArray(m_key.fourCC.data(), static_cast<unsigned short>(m_key.fourCC.size()));
    m_stream >> m_key.keyIndex >> m_key.streamIndex >> m_key.type >> m_key.structureSize >> m_key.repeat >> m_key.flags;
    LOG_INFO("4CC=%c%c%c%c ID=%d strm=%d tp=%d sz=%d ct=%d fg=%d", m_key.fourCC[0], m_key.fourCC[1], m_key.fourCC[2],
             m_key.fourCC[3], m_key.keyIndex, m_key.streamIndex, m_key.type, m_key.structureSize, m_key.repeat,
             m_key.flags);
    return kParsed;
}

int BleMetadataMessage::DeserializeParameter() {
    if (m_stream.getRemainder() < 1) {
        return kParseError;
    }
    uint8_t parameter = 0;
    m_stream >> parameter;
    m_params.emplace_back(eValueWidth1Byte, 1).SetValue(parameter);
    return kParsed;
}

// ---------------------------------------------------------------- execution

int BleMetadataMessage::Execute(Peer* client, unsigned char* response, unsigned short* responseLength) {
    const CommandRow* command = FindCommand(m_commandId);
    int code = eUnknownCommand;
    if (command != nullptr) {
        code = (this->*command->execute)(*client);
    } else {
        LOG_ERROR("Unrecognized/unhandled metadata cmd from ble. command_id:%d", m_commandId);
    }
    if (m_commandId == eBleMetadataWrite && code == eOk) {
        *responseLength = 0;
    } else {
        HandleError(eOk, response, responseLength);  // for another code the caller writes the answer again
    }
    return code;
}

int BleMetadataMessage::HandleError(int error, unsigned char* response, unsigned short* responseLength) {
    if (*responseLength < kAnswerLength) {
        *responseLength = 0;
        return 0;
    }
    MemoryStream stream(response, *responseLength);
    stream << BleMetadataResponse(m_commandId, static_cast<uint8_t>(BleSDK::SetKZErrNo(error)));
    *responseLength = stream.getLength();
    return 0;
}

int BleMetadataMessage::RegisterDevice(Peer& client) {
    if (client.m_streams.m_metadataStreamCount != 0) {
        LOG_ERROR("This device already registered %d streams", client.m_streams.m_metadataStreamCount);
        return eAlreadyRegistered;
    }
    if (m_streamCount == 0) {
        LOG_ERROR("Need at least one stream");
        return eNoStreamRequested;
    }
    if (m_streamCount > SensorStreams::kMaxMetadataStreams) {
        LOG_ERROR("Too many streams");
        return eTooManyStreams;
    }
    client.m_streams.m_metadataStreamCount = m_streamCount;
    client.m_streams.m_metadataDeviceName = m_name.data();
    LOG_INFO("Metadata Register no. streams = %d", m_streamCount);
    return OpenStreams(client);
}

int BleMetadataMessage::OpenStreams(Peer& client) const {
    const char* name = m_name.data();
    for (uint8_t i = 0; i < m_streamCount; ++i) {
        void* buffer = client.m_streams.AddStreamBuffer(i);
        const void* handle = MetadataStreamOpen(client.m_identity.m_deviceId + kMetadataDeviceIdBase, name, buffer,
                                                SensorStreams::kMetadataStreamBufferSize);
        LOG_INFO("STREAM OPEN deviceId=%d len=%d name=%s bufferHdl=%d bufferSize=%d", client.m_identity.m_deviceId,
                 static_cast<int>(client.m_streams.m_metadataDeviceName.size()), name, HandleNumber(buffer),
                 static_cast<int>(SensorStreams::kMetadataStreamBufferSize));
        if (handle == nullptr) {
            LOG_ERROR("Error Openening metadata stream");
            client.m_streams.DropStreamBuffer(i);  // it is no stream, so it must not be found as a handle
            return eStreamNotOpened;
        }
    }
    LOG_INFO("MetadataStreamOpen %s\n", name);
    return eOk;
}

int BleMetadataMessage::RegisterKey(Peer& client) {
    if (m_key.keyIndex >= client.m_streams.m_metadataKeys.size()) {
        LOG_ERROR("Register 4CC failed, greater than no of 4CC for device");
        return eKeyIndexTooHigh;
    }
    if (m_key.streamIndex >= client.m_streams.m_metadataStreamCount) {
        LOG_ERROR("Register 4CC failed, greater than no of streams for device");
        return eKeyStreamTooHigh;
    }
    SensorStreams::MetadataKey& key = client.m_streams.m_metadataKeys[m_key.keyIndex];
    if (key.structureSize != 0) {
        LOG_ERROR("Register 4CC failed, this 4CC already present");
        return eKeyInUse;
    }
    std::copy(m_key.fourCC.begin(), m_key.fourCC.end(), key.fourCC);
    key.keyIndex = m_key.keyIndex;
    key.streamIndex = m_key.streamIndex;
    key.type = m_key.type;
    key.structureSize = m_key.structureSize;
    key.repeat = m_key.repeat;
    key.flags = m_key.flags;
    LOG_INFO("Register 4CC DeviceID: %d", client.m_identity.m_deviceId);
    LOG_INFO("Index=%d", m_key.keyIndex);
    LOG_INFO("4CC=<%c%c%c%c>", m_key.fourCC[0], m_key.fourCC[1], m_key.fourCC[2], m_key.fourCC[3]);
    return eOk;
}

int BleMetadataMessage::WriteSample(Peer& client) {
    static const SensorStreams::MetadataKey kFreeKey;
    const auto& key =
        m_keyIndex < client.m_streams.m_metadataKeys.size() ? client.m_streams.m_metadataKeys[m_keyIndex] : kFreeKey;
    if (key.structureSize == 0) {
        LOG_ERROR("Error - Metadata 4CC lookup");
        return eUnknownKey;
    }
    if (key.streamIndex >= client.m_streams.m_metadataStreamCount) {
        LOG_ERROR("stream handle invalid\n");
        return eBadStreamIndex;
    }
    void* handle = client.m_streams.MetadataStream(key.streamIndex);
    if (handle == nullptr) {
        LOG_ERROR("Error - Metadata stream write");
        return eNoStreamHandle;
    }
    const uint32_t needed = key.structureSize * key.repeat;  // cannot overflow: each came in one byte
    if (m_sampleSize < needed) {
        LOG_ERROR("Metadata sample of %u bytes is too short, its key takes %u", m_sampleSize, needed);
        return KZ_ERR_INVALID_PARAM;
    }
    LOG_INFO("Metadata  hdl=%d tp=%c sz=%d ct=%d, d= %c:%c:%c:%c:%c:%c", HandleNumber(handle),
             static_cast<int>(key.type), static_cast<int>(key.structureSize), static_cast<int>(key.repeat), m_sample[0],
             m_sample[1], m_sample[2], m_sample[3], m_sample[4], m_sample[5]);
    const uint32_t result = MetadataStreamWrite(handle, FourCharacterKey(key.fourCC), key.type, key.structureSize,
                                                key.repeat, m_sample.data(), key.flags, 0.0F);
    ReportLoss(key.streamIndex, result != kKzmfDone);
    services().sensorHandOver.HandOverIfNearLimit();
    return eOk;
}

void BleMetadataMessage::ReportLoss(size_t streamIndex, bool lost) {
    if (lost && !m_lossReported[streamIndex]) {
        LOG_WARN("Metadata stream %d is full, its samples are lost until there is room", static_cast<int>(streamIndex));
    }
    m_lossReported[streamIndex] = lost;
}

int BleMetadataMessage::SetDisplayInterest(Peer& client) {
    LOG_DEBUG("Command: eBleMultekDisip");
    const uint32_t parameter = m_params.front().GetUI8Value();
    if (!ChangeInterest(client, NotificationClient::eNotifyLcd, parameter)) {
        LOG_ERROR("Invalid Multek Display parameter %d", static_cast<int>(parameter));
        return eBadDisplayParameter;
    }
    return eOk;
}

int BleMetadataMessage::SetLedInterest(Peer& client) {
    LOG_DEBUG("Command: eBleLedRegister");
    const uint32_t parameter = m_params.front().GetUI8Value();
    if (!ChangeInterest(client, NotificationClient::eNotifyLed, parameter)) {
        LOG_ERROR("Invalid Birch Register parameter %d", static_cast<int>(parameter));
        return eBadLedParameter;
    }
    return eOk;
}

// ---------------------------------------------------------------- diagnostics

void BleMetadataMessage::Dump() const {
    LOG_TRACE("command_id: %d", m_commandId);
    LOG_TRACE("param count:%d", static_cast<int>(m_params.size()));
    for (const FlexValue& param : m_params) {
        param.Dump();
    }
}

void BleMetadataMessage::WriteSession() const {
    LOG_INFO("Write Session");
}
