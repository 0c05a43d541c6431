#include "csiInbox.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string>
#include <string_view>

#include "accessoryBuffers.h"
#include "accessoryState.h"
#include "cameraStatus.h"
#include "changeFanOut.h"
#include "clientTable.h"
#include "csi/csiKeys.h"
#include "kzMbox.h"
#include "kzTlv.h"
#include "messageBuffer.h"
#include "pushRegistration.h"
#include "tlvText.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr int kReceiveSeconds = 1;

// Camera models that do not report new media.
constexpr uint8_t kModelsWithoutNewMedia[] = {22, 23};

void LogUnexpectedCommand(std::string_view command) {
    LOG_ERROR("Unexpected Response type on CSI notification [%s]", std::string(command).c_str());
}

// The subscription's answer holds "CR" and a result byte. Only that byte refuses it.
bool RefusesSubscription(const unsigned char* message) {
    const std::string_view command = TextOf(tlv_find(message, TLV_CMD));
    if (command != "CR") {
        LOG_ERROR("Unexpected Response type on CSI subscribe response [%s]", std::string(command).c_str());
        return false;
    }
    const unsigned char* result = tlv_find(message, TLV_RSPARG);
    if (result == nullptr || tlv_length(result) == 0) {
        LOG_ERROR("Failed to find TLV_CMDARG in message from kzNet");
    } else if (tlv_data(result)[0] != 0) {
        LOG_ERROR("CSI Subscribe/unsubscribe failed");
        return true;
    } else {
        LOG_INFO("Got success response to CSI subscribe/unsubscribe");
    }
    return false;
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

void CsiInbox::KeepSubscribed() {
    if (m_csiSubscribed && (!m_kzNetMq.IsOpen() || IsRemoved(m_kzNetMq))) {
        LOG_WARN("The network daemon's queue is another one, subscribing again");
        m_csiSubscribed = false;
    }
    if (!m_csiSubscribed) {
        // Opened first: should the message reach a queue that comes after this one, it is only sent twice.
        m_kzNetMq = QueueHandle(mq_open(kMqKzNet, O_WRONLY | O_NONBLOCK));
        m_csiSubscribed = subscribeCSIbleSdk() == 0;
    }
}

bool CsiInbox::HandleCSINotification() {
    unsigned char buffer[kEventMessageSize + kCsiAnswerRoom];
    const int received = kz_mq_timedreceive(m_csiMq.Handle(), buffer, kEventMessageSize, nullptr, &kReceiveSeconds);
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

bool CsiInbox::HandleCsiMessage(std::span<unsigned char> buffer, uint32_t received) {
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
            if (RefusesSubscription(message)) {
                m_csiSubscribed = false;
            }
            return false;
        default:
            return true;
    }
}

// ---------------------------------------------------------------- state events

bool CsiInbox::HandleStateMessage(unsigned char* message, uint32_t size) {
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
    const bool several = TextOf(command) == "CU";
    if (!several && TextOf(command) != "CN") {
        LogUnexpectedCommand(TextOf(command));
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
    AcknowledgeNotification(message, size);
    return true;
}

// ---------------------------------------------------------------- accessory buffers

bool CsiInbox::HandleBufferMessage(const unsigned char* message) {
    const std::string_view command = TextOf(tlv_find(message, TLV_CMD));
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
    const unsigned limit = (led ? AccessoryBuffers::kLedBufferSize : AccessoryBuffers::kLcdBufferSize) - 1;
    if (length > limit) {
        LOG_ERROR("Accessory buffer of %u bytes is longer than %u", length, limit);
        return false;
    }
    const ClientLock lock(m_parts.clients.Mutex());
    if (led) {
        m_parts.buffers.StoreLedBuffer({tlv_data(argument), length});
    } else {
        m_parts.buffers.StoreLcdBuffer({tlv_data(argument), length});
    }
    return true;
}

// ---------------------------------------------------------------- changed keys

bool CsiInbox::NotifyClientsOfCSIChanges(const csiStruct* record) {
    const ClientLock lock(m_parts.clients.Mutex());
    m_parts.camera.Store(*record);
    const CsiKeyRow* row = kCsiKeyTable.Find(record->key);
    if (row == nullptr) {
        return m_parts.fanOut.NotifyOfCsiChange(std::nullopt);
    }
    if (!Act(row->action, *record) || row->field == kNotNotified) {
        return false;
    }
    return m_parts.fanOut.NotifyOfCsiChange(row->field != kNoField ? std::optional(row->field) : std::nullopt);
}

bool CsiInbox::Act(CsiAction action, const csiStruct& record) {
    CameraStatus& camera = m_parts.camera;
    switch (action) {
        case CsiAction::kNone:
            return true;
        case CsiAction::kUploadProgress:
            return TakeUploadProgress(record);
        case CsiAction::kSdCard:
            camera.TakeSdCard();
            camera.SetCsiStStatus();
            return camera.GetCsiValue(CSI_WMS_STATE) != WMS_STATE_IDLE;
        case CsiAction::kBusy:
            camera.SetCsiStStatus();
            return true;
        case CsiAction::kPaused:
            camera.TakePaused();
            camera.SetCsiStStatus();
            return true;
        case CsiAction::kBattery:
            LOG_INFO("CSI_BATERY_LEVEL Notification");
            camera.SetCsiStStatus();
            return true;
        case CsiAction::kExternalPower:
            LOG_INFO("ST CSI_BATTERY_EXTERNAL_POWER Noftification");
            camera.EndStatusSetUp();
            camera.SetCsiStStatus();
            return true;
        case CsiAction::kModelNumber:
            camera.TakeModelNumber();
            LOG_INFO("ST CSI_MODEL_NUMBER = %d ", camera.GetModelNumber());
            return true;
        case CsiAction::kSystemState:
            EndResume();
            return true;
        case CsiAction::kNewMedia:
            TakeNewMedia();
            return true;
    }
    return true;
}

bool CsiInbox::TakeUploadProgress(const csiStruct& record) {
    LOG_DEBUG("CSI_CAH_UPLOAD_PROGRESS");
    if (!m_parts.camera.StoreCAHUploadProgress(&record)) {
        LOG_DEBUG("Error parsing CSI_CAH_UPLOAD_PROGRESS");
        return false;
    }
    return true;
}

// Does what had to wait while the camera was suspended.
void CsiInbox::EndResume() {
    CameraStatus& camera = m_parts.camera;
    if (camera.GetCsiValue(CSI_SYSTEM_STATE) != SYS_RESUMED) {
        return;
    }
    if (camera.GetWaitingAccReconnect()) {
        PostAccessoryUpdateIdle();
        camera.SetWaitingAccReconnect(false);
    }
    if (!m_parts.clients.Clients().empty()) {
        LOG_INFO("SYS_RESUME_SAFE and ble device connected so RegisterForKzControlNotifications");
        m_parts.registration.RegisterForKzControlNotifications();
    }
}

void CsiInbox::TakeNewMedia() {
    CameraStatus& camera = m_parts.camera;
    if (std::count(std::begin(kModelsWithoutNewMedia), std::end(kModelsWithoutNewMedia), camera.GetModelNumber()) > 0) {
        return;
    }
    camera.TakeNewMedia();
    camera.SetCsiStStatus();
    const uint32_t notPaused = 0;
    if (csi_set_no_rsp(CSI_ST_PAUSED, &notPaused, sizeof(notPaused)) != 0) {
        LOG_INFO("CSI_ST_PAUSED set to %d failed", notPaused);
    }
}
