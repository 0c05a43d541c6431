// Messages of the CSI service and the network daemon: state events, accessory buffers, the answer to the subscription.
#include <errno.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string_view>

#include "cameraState.h"
#include "csi/csiKeys.h"
#include "kzBleServer.h"
#include "kzMbox.h"
#include "kzMsg.h"
#include "kzTlv.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr int kReceiveSeconds = 1;
constexpr uint8_t kAcknowledged = 0;
constexpr size_t kMaxQueueName = 255;
constexpr uint32_t kNoPush = 0;

// Camera models that do not report new media.
constexpr uint8_t kModelsWithoutNewMedia[] = {22, 23};

std::string_view Text(const unsigned char* element) {
    return element != nullptr ? std::string_view(reinterpret_cast<const char*>(tlv_data(element)), tlv_length(element))
                              : std::string_view();
}

void LogUnexpectedCommand(std::string_view command) {
    LOG_ERROR("Unexpected Response type on CSI notification [%s]", std::string(command).c_str());
}

// Whether acknowledgements may go to a queue of this name: a slash and one component.
bool IsQueueName(std::string_view name) {
    return name.size() > 1 && name.size() <= kMaxQueueName && name.front() == '/' &&
           name.find('/', 1) == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

// The subscription's answer holds "CR" and a result byte.
void CheckSubscriptionAnswer(const unsigned char* message) {
    const std::string_view command = Text(tlv_find(message, TLV_CMD));
    if (command != "CR") {
        LOG_ERROR("Unexpected Response type on CSI subscribe response [%s]", std::string(command).c_str());
        return;
    }
    const unsigned char* result = tlv_find(message, TLV_RSPARG);
    if (result == nullptr || tlv_length(result) == 0) {
        LOG_ERROR("Failed to find TLV_CMDARG in message from kzNet");
    } else if (tlv_data(result)[0] != 0) {
        LOG_ERROR("CSI Subscribe/unsubscribe failed");
    } else {
        LOG_INFO("Got success response to CSI subscribe/unsubscribe");
    }
}

// Turns a state event into its acknowledgement and sends it to the event's sender.
void Acknowledge(unsigned char* message, uint32_t size) {
    unsigned char* source = tlv_find(message, TLV_SRC);
    unsigned char* destination = tlv_find(message, TLV_DST);
    const std::string replyTo(Text(source));
    if (tlv_find(message, TLV_END) != nullptr) {
        sntlv_remove(message, size, TLV_END);
    }
    message[3] = static_cast<unsigned char>(message[3] + 1);
    if (source != nullptr) {
        source[3] = TLV_DST;
    }
    if (destination != nullptr) {
        destination[3] = TLV_SRC;
    }
    sntlv_add_bin(message, size, TLV_RSPARG, sizeof(kAcknowledged), &kAcknowledged);
    sntlv_add_bin(message, size, TLV_END, 0, nullptr);
    if (tlv_validate(message) != 0) {
        LOG_ERROR("tlv_validate failed");
        hexprint_noaddr2("CR RSP", 0, message, sntlv_msg_len(message));
        return;
    }
    if (!IsQueueName(replyTo)) {
        LOG_ERROR("CSI notification names no queue for its acknowledgement");
        return;
    }
    kzMbox_try_send(replyTo.c_str(), message, sntlv_msg_len(message));
}

// The record at the start of `length` bytes; null, after a log line, when they do not hold it whole.
const csiStruct* WholeRecord(const unsigned char* data, size_t length) {
    if (length < kCsiHeaderSize) {
        LOG_ERROR("CSI record of %d bytes has no header", static_cast<int>(length));
        return nullptr;
    }
    const auto* record = reinterpret_cast<const csiStruct*>(data);
    if (record->length > length - kCsiHeaderSize) {
        LOG_ERROR("CSI record of key %d announces %u bytes, %d arrived", record->key, record->length,
                  static_cast<int>(length - kCsiHeaderSize));
        return nullptr;
    }
    return record;
}

}  // namespace

// ---------------------------------------------------------------- receiving

bool KzBleServer::HandleCSINotification() {
    unsigned char buffer[kEventMessageSize + kCsiAnswerRoom];
    const int received = kz_mq_timedreceive(m_csiMq, buffer, kEventMessageSize, nullptr, &kReceiveSeconds);
    if (received < 0) {
        if (errno == ETIMEDOUT) {
            LOG_ERROR("Error receiving CSI ETIMEDOUT on daemon message queue");
        } else {
            LOG_ERROR("Error receiving CSI on daemon message queue");
        }
        return false;
    }
    LOG_INFO("received %d bytes at server\n", received);
    return HandleCsiMessage(buffer, static_cast<uint32_t>(received));
}

bool KzBleServer::HandleCsiMessage(std::span<unsigned char> buffer, uint32_t received) {
    unsigned char* message = buffer.data();
    if (received < kTlvMessageHeaderSize || sntlv_msg_len(message) > received ||
        sntlv_msg_len(message) < kTlvMessageHeaderSize) {
        LOG_ERROR("CSI message of %u bytes does not hold the length it announces", received);
        return false;
    }
    switch (message[3]) {
        case CAT_RTOS_CMD:
            LOG_INFO("Processing a message in the catagory: CAT_RTOS_CMD");
            return HandleBufferMessage(message);
        case CAT_KZNET_CMD:
            LOG_INFO("Processing CAT_KZNET_CMD state event from CSI");
            return HandleStateMessage(message, static_cast<uint32_t>(buffer.size()));
        case CAT_KZNET_RSP:
            CheckSubscriptionAnswer(message);
            return false;
        default:
            return true;
    }
}

// ---------------------------------------------------------------- state events

bool KzBleServer::HandleStateMessage(unsigned char* message, uint32_t size) {
    const unsigned char* command = tlv_find(message, TLV_CMD);
    if (command == nullptr) {
        LOG_ERROR("Failed to find TLV_CMD in message from kzNet");
        return false;
    }
    const unsigned char* argument = tlv_find(message, TLV_CMDARG);
    if (argument == nullptr) {
        LOG_ERROR("Failed to find TLV_CMDARG in message from kzNet");
        return false;
    }
    const bool several = Text(command) == "CU";
    if (!several && Text(command) != "CN") {
        LogUnexpectedCommand(Text(command));
        return false;
    }
    const unsigned char* data = tlv_data(argument);
    size_t length = tlv_length(argument);
    do {
        const csiStruct* record = WholeRecord(data, length);
        if (record == nullptr) {
            break;
        }
        NotifyClientsOfCSIChanges(record);
        const size_t recordSize = kCsiHeaderSize + record->length;
        data += recordSize;
        length -= recordSize;
    } while (several && length > 0);
    Acknowledge(message, size);
    return true;
}

// ---------------------------------------------------------------- accessory buffers

bool KzBleServer::HandleBufferMessage(const unsigned char* message) {
    const std::string_view command = Text(tlv_find(message, TLV_CMD));
    const bool led = command == "AL";
    if (!led && command != "LB") {
        LogUnexpectedCommand(command);
        return false;
    }
    const unsigned char* argument = tlv_find(message, TLV_CMDARG);
    if (argument == nullptr) {
        LOG_ERROR("Failed to find TLV_CMDARG in message from kzNet");
        return false;
    }
    const unsigned short length = tlv_length(argument);
    if (length <= TLV_ELEM_HDR_SIZE) {
        LOG_ERROR("CAT RTOS TLV arg length <= TLV_ELEM_HDR_SIZE");
        return false;
    }
    const unsigned limit = (led ? kLedBufferSize : kMessageBufferSize) - 1;
    if (length > limit) {
        LOG_ERROR("Accessory buffer of %u bytes is longer than %u", length, limit);
        return false;
    }
    const Lock lock(&m_clientMutex);
    if (led) {
        StoreLedBuffer(tlv_data(argument), length);
    } else {
        StoreLcdBuffer(tlv_data(argument), length);
    }
    return true;
}

// The first byte of both buffers is left for the marker of the push.
void KzBleServer::StoreLedBuffer(const unsigned char* data, unsigned short length) {
    LOG_INFO("BIRCH ACCESSORY LED BUFFER");
    std::memset(m_ledBuffer.get(), 0, kLedBufferSize);
    std::memcpy(m_ledBuffer.get() + 1, data, length);
    m_ledLength = static_cast<uint16_t>(length + 1);
    for (const auto& client : m_clients) {
        if (client->IsTransferringLarch() || sendLEDBuffer(client.get(), m_ledBuffer.get(), m_ledLength)) {
            return;
        }
    }
}

void KzBleServer::StoreLcdBuffer(const unsigned char* data, unsigned short length) {
    LOG_INFO("LB command");
    std::memset(m_lcdBuffer.get(), 0, kMessageBufferSize);
    std::memcpy(m_lcdBuffer.get() + 1, data, length);
    m_lcdLength = static_cast<uint16_t>(length + 1);
    for (const auto& client : m_clients) {
        if (sendLCDBuffer(client.get(), m_lcdBuffer.get(), m_lcdLength)) {
            return;
        }
    }
}

// ---------------------------------------------------------------- CSI keys

// What a key's new value does, under the lock and with the value in its cache slot. The action says whether clients are
// to be told. Any key without a row is told without a push id.
struct KzBleServer::CsiKeyRow {
    uint8_t key;
    uint32_t pushId;  // field number for the clients; kNoPush: they are not told
    bool (KzBleServer::*act)(const csiStruct& record);
};

const KzBleServer::CsiKeyRow KzBleServer::kCsiKeys[] = {
    {CSI_CAMERA_BUSY, kNoPush, &KzBleServer::ActOnBusy},
    {CSI_LIVE_STREAM_ENCODE, 1, nullptr},
    {CSI_LIVE_STREAM_ERROR, 1, nullptr},
    {CSI_MODEL_NUMBER, kNoPush, &KzBleServer::ActOnModelNumber},
    {CSI_LIVE_STREAM_BITRATE, 1, nullptr},
    {CSI_ST_PAUSED, kNoPush, &KzBleServer::ActOnPaused},
    {CSI_OTA_ERROR, kNoPush, nullptr},
    {CSI_OTA_PERCENTAGE, 2, nullptr},
    {CSI_OTA_STATE, 1, nullptr},
    {CSI_BATTERY_LEVEL, kNoPush, &KzBleServer::ActOnBattery},
    {CSI_BATTERY_EXTERNAL_POWER, kNoPush, &KzBleServer::ActOnExternalPower},
    {CSI_SD_CARD_STATE, 1, &KzBleServer::ActOnSdCard},
    {CSI_WMS_STATE, 1, nullptr},
    {CSI_CAH_UPLOAD_PROGRESS, 19, &KzBleServer::ActOnUploadProgress},
    {CSI_DEVICE_MGR_STATE, 1, nullptr},
    {CSI_WOM_STATE, 5, nullptr},
    {CSI_CAHA_STATE, 9, nullptr},
    {CSI_CAH_FEATURE_ENABLE, 14, nullptr},
    {CSI_CAH_ACTIVE, 13, nullptr},
    {CSI_CAH_AUTH_STATE, 15, nullptr},
    {CSI_SYSTEM_STATE, kNoPush, &KzBleServer::ActOnSystemState},
    {CSI_NEW_MEDIA, kNoPush, &KzBleServer::ActOnNewMedia},
    {CSI_CAH_AUTO_CLEAR, 20, nullptr},
};

bool KzBleServer::NotifyClientsOfCSIChanges(const csiStruct* record) {
    const Lock lock(&m_clientMutex);
    const uint8_t key = record->key;
    m_lastCsiKey = key;
    if (key != CSI_CAH_UPLOAD_PROGRESS) {
        if (record->length <= sizeof(m_csiCache[key])) {
            std::memcpy(&m_csiCache[key], record->value, record->length);
        } else {
            LOG_ERROR("size error on csi %d", key);
        }
    }
    m_changedIds.clear();
    const auto* row = std::find_if(std::begin(kCsiKeys), std::end(kCsiKeys),
                                   [key](const CsiKeyRow& candidate) { return candidate.key == key; });
    if (row != std::end(kCsiKeys)) {
        const bool tell = row->act == nullptr || (this->*row->act)(*record);
        if (!tell || row->pushId == kNoPush) {
            return false;
        }
        m_changedIds.push_back(static_cast<int>(row->pushId));
    }
    return FanOutCsiChange();
}

bool KzBleServer::ActOnBusy(const csiStruct&) {
    SetCsiStStatus();
    return false;
}

bool KzBleServer::ActOnModelNumber(const csiStruct&) {
    m_modelNumber = static_cast<uint8_t>(m_csiCache[CSI_MODEL_NUMBER]);
    LOG_INFO("ST CSI_MODEL_NUMBER = %d ", m_modelNumber);
    return false;
}

bool KzBleServer::ActOnPaused(const csiStruct&) {
    m_stInputs.paused = static_cast<uint8_t>(m_csiCache[CSI_ST_PAUSED]);
    SetCsiStStatus();
    return false;
}

bool KzBleServer::ActOnBattery(const csiStruct&) {
    LOG_INFO("CSI_BATERY_LEVEL Notification");
    SetCsiStStatus();
    return false;
}

bool KzBleServer::ActOnExternalPower(const csiStruct&) {
    LOG_INFO("ST CSI_BATTERY_EXTERNAL_POWER Noftification");
    m_stNotificationReady = true;
    SetCsiStStatus();
    return false;
}

bool KzBleServer::ActOnSdCard(const csiStruct&) {
    constexpr uint32_t kFirstUnusable = 2;
    m_stInputs.sdCardGood = m_csiCache[CSI_SD_CARD_STATE] < kFirstUnusable ? 1 : 0;
    SetCsiStStatus();
    return m_csiCache[CSI_WMS_STATE] != 0;
}

bool KzBleServer::ActOnUploadProgress(const csiStruct& record) {
    LOG_DEBUG("CSI_CAH_UPLOAD_PROGRESS");
    if (!StoreCAHUploadProgress(&record)) {
        LOG_DEBUG("Error parsing CSI_CAH_UPLOAD_PROGRESS");
        return false;
    }
    return true;
}

bool KzBleServer::ActOnSystemState(const csiStruct&) {
    if (m_csiCache[CSI_SYSTEM_STATE] != SYS_RESUMED) {
        return false;
    }
    if (m_waitingAccReconnect) {
        csi_set_no_rsp(CSI_ACCESSORY_UPDATE, &kAccessoryUpdateIdle, sizeof(kAccessoryUpdateIdle));
        m_waitingAccReconnect = false;
    }
    if (!m_clients.empty()) {
        LOG_INFO("SYS_RESUME_SAFE and ble device connected so RegisterForKzControlNotifications");
        RegisterForKzControlNotifications();
    }
    return false;
}

bool KzBleServer::ActOnNewMedia(const csiStruct&) {
    if (std::count(std::begin(kModelsWithoutNewMedia), std::end(kModelsWithoutNewMedia), m_modelNumber) > 0) {
        return false;
    }
    m_stInputs.newMedia = static_cast<uint8_t>(m_csiCache[CSI_NEW_MEDIA]);
    SetCsiStStatus();
    const uint32_t notPaused = 0;
    if (csi_set_no_rsp(CSI_ST_PAUSED, &notPaused, sizeof(notPaused)) != 0) {
        LOG_INFO("CSI_ST_PAUSED set to %d failed", notPaused);
    }
    return false;
}

bool KzBleServer::StoreCAHUploadProgress(const csiStruct* record) {
    std::string_view text(reinterpret_cast<const char*>(record->value), record->length);
    for (int32_t* number : {&m_cahProgress.currentFile, &m_cahProgress.totalFiles, &m_cahProgress.percentage}) {
        const size_t colon = text.find(':');
        std::string_view part = text.substr(0, colon);
        part.remove_prefix(std::min(part.find_first_not_of(' '), part.size()));
        if (std::from_chars(part.data(), part.data() + part.size(), *number).ec != std::errc()) {
            return false;
        }
        text = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
    }
    return true;
}

// ---------------------------------------------------------------- setting a key

int KzBleServer::csi_set_no_rsp(uint8_t key, const void* value, uint32_t length) {
    uint8_t record[KZMSG_MAX];
    if (length > sizeof(record) - kCsiHeaderSize) {
        LOG_ERROR("CSI value of %u bytes is too long for a message", length);
        return -1;
    }
    const csiStruct header{key, length};
    std::memcpy(record, &header, kCsiHeaderSize);
    if (length > 0) {
        std::memcpy(record + kCsiHeaderSize, value, length);
    }
    kzmsg message;
    kzmsg_build(&message, "CI", record, static_cast<uint32_t>(kCsiHeaderSize + length), CAT_KZNET_CMD);
    return kzmsg_try_send(&message, kMqKzNet, kMqKzNet, nullptr, 0) == KZ_SEND_OK ? 0 : -1;
}
