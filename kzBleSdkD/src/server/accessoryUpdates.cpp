#include "accessoryUpdates.h"

#include <algorithm>
#include <iterator>

#include "accessoryState.h"
#include "cameraStatus.h"
#include "clientTable.h"
#include "csi/csiKeys.h"
#include "fileTransfers.h"
#include "radioPort.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr uint8_t kRebootDelayTicks = 3;

// Reboot requests: stream and the one data byte.
constexpr uint8_t kRebootStreamedAccessory = 2;
constexpr uint8_t kRebootBlockAccessory = 1;

// First data byte of an accessory's message on stream 27, and the status byte of the second kind.
constexpr uint8_t kRequestImage = 1;
constexpr uint8_t kRequestBlock = 2;
constexpr uint8_t kBlockReceived = 0;
constexpr uint8_t kBlockError = 1;

// The reply to a remote that asks for its image.
constexpr uint8_t kStreamedImageReply[] = {1, 2, 0x3A, 0x03};

// A byte of a record's data; 0 beyond their end.
uint8_t DataByte(const ble_message_t& record, unsigned index) {
    return index < std::min<unsigned>(record.dataLength, kBlePacketSize) ? record.data[index] : 0;
}

}  // namespace

// ---------------------------------------------------------------- the tick

bool AccessoryUpdates::CheckClientsForLarchOTA() {
    const ClientLock lock(m_clients.Mutex());
    for (const auto& client : m_clients.Clients()) {
        if (client->m_file.IsTransferringLarch()) {
            const bool sent = client->m_identity.m_deviceType == KZ_CALLER_ALDER
                                  ? m_transfers.SendFileChunk(client.get())
                                  : m_transfers.ResumeFileChunk(client.get());
            if (sent) {
                return true;
            }
        } else if (client->m_identity.m_accessoryUpdatePending && AdvancePendingUpdate(*client)) {
            return true;
        }
    }
    return false;
}

// Counts a tick of a pending update; true when the accessory was asked to reboot.
bool AccessoryUpdates::AdvancePendingUpdate(BleNotificationClient& client) {
    if (m_camera.GetCsiValue(CSI_CAMERA_BUSY) != 0) {
        LOG_DEBUG("sytem recording, cancel accessory update");
        client.m_identity.m_accessoryUpdatePending = false;
        m_rebootDelay = 0;
        return false;
    }
    ++m_rebootDelay;
    if (m_rebootDelay % kRebootDelayTicks != 0) {
        LOG_DEBUG("delay reboot %d", m_rebootDelay);
        return false;
    }
    m_rebootDelay = 0;
    return RequestAccessoryReboot(client);
}

bool AccessoryUpdates::RequestAccessoryReboot(BleNotificationClient& client) {
    ble_message_t record = NewDataRecord(client.m_identity.m_connectionId, KZ_STR_ID_REBOOT_OTA);
    record.dataLength = 1;
    if (client.m_identity.m_deviceType == KZ_CALLER_ALDER) {
        record.data[0] = kRebootStreamedAccessory;
    } else if (client.m_identity.m_deviceType == KZ_CALLER_MAPLE) {
        record.streamId = KZ_STR_ID_SENSOR_RESPONSE;
        record.data[0] = kRebootBlockAccessory;
    } else {
        return false;
    }
    LOG_DEBUG("sending OTA REBOOT REQUEST");
    if (m_radio.TryPacket(record) == RadioPort::SendResult::kNoRoom) {
        return false;  // the update stays pending, so that the request is made again
    }
    if (client.m_identity.m_deviceType == KZ_CALLER_MAPLE) {
        client.m_identity.m_accessoryUpdatePending = false;
    }
    return true;
}

// ---------------------------------------------------------------- the accessory's messages

void AccessoryUpdates::HandleAccessoryUpdateMessage(BleNotificationClient& client, ble_message_t& record) {
    LOG_DEBUG("KZ_STR_ID_START_OTA devType=%d cmd = %d", client.m_identity.m_deviceType, DataByte(record, 0));
    if (client.m_identity.m_deviceType == KZ_CALLER_BLE_RC) {
        LOG_DEBUG("LARCH sending update request after failed update");
        client.m_identity.m_deviceType = KZ_CALLER_ALDER;
    }
    if (client.m_identity.m_deviceType == KZ_CALLER_ALDER) {
        HandleStreamedImageRequest(client, record);
    } else if (client.m_identity.m_deviceType == KZ_CALLER_MAPLE) {
        HandleBlockMessage(client, record);
    }
}

void AccessoryUpdates::HandleStreamedImageRequest(BleNotificationClient& client, ble_message_t& record) {
    LOG_DEBUG("START_OTA %02x:%02x:%02x:%02x", DataByte(record, 0), DataByte(record, 1), DataByte(record, 2),
              DataByte(record, 3));
    record.streamId = KZ_STR_ID_OTA_RESPONSE;
    record.dataLength = sizeof(kStreamedImageReply);
    std::copy(std::begin(kStreamedImageReply), std::end(kStreamedImageReply), record.data);
    m_transfers.PostReply(record);
    m_transfers.StartLarchFileTransfer(&client);
}

void AccessoryUpdates::HandleBlockMessage(BleNotificationClient& client, const ble_message_t& record) {
    const uint8_t request = DataByte(record, 0);
    if (request == kRequestImage) {
        HandleImageRequest(client, record);
    } else if (request == kRequestBlock && DataByte(record, 1) == kBlockReceived) {
        HandleBlockRequest(client);
    } else if (request == kRequestBlock && DataByte(record, 1) == kBlockError) {
        HandleImageError(client);
    }
}

void AccessoryUpdates::HandleImageRequest(BleNotificationClient& client, const ble_message_t& record) {
    if (!client.m_file.IsTransferringLarch()) {
        client.m_file.m_bytesRemaining = 0;  // of an earlier transfer; here the accessory asks for each block
        m_transfers.StartLarchFileTransfer(&client);
    }
    if (record.dataLength > 2) {
        const auto blockSize = static_cast<uint16_t>(DataByte(record, 1) << 8 | DataByte(record, 2));
        LOG_DEBUG("BLOCK SIZE BYTES = %d", blockSize);
        if (blockSize != 0) {
            client.m_file.m_blockSize = blockSize;
            client.m_file.m_bytesRemaining = blockSize;
        }
    }
    m_transfers.SendFileChunk(&client);
}

void AccessoryUpdates::HandleBlockRequest(BleNotificationClient& client) {
    if (client.m_file.IsTransferringLarch()) {
        LOG_DEBUG("Next block");
        client.m_file.m_bytesRemaining = client.m_file.m_blockSize;
    }
    m_transfers.SendFileChunk(&client);
}

// Ends the transfer of the accessory that reports an error. Without a transfer of its own the report changes nothing:
// the slot may be another client's.
void AccessoryUpdates::HandleImageError(BleNotificationClient& client) {
    LOG_ERROR("Error with transfer to Accessory");
    if (!client.m_file.IsTransferringLarch()) {
        return;
    }
    m_transfers.StopTransfer(&client);
    EndAccessoryUpdate(client.m_identity.m_deviceType, eAccessoryUpdateFailed);
}
