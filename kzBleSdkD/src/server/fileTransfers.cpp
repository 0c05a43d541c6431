#include "fileTransfers.h"

#include <algorithm>

#include "accessoryState.h"
#include "cameraStatus.h"
#include "clientTable.h"
#include "radioPort.h"
#include "transferSlot.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

// The end record of a firmware transfer.
constexpr uint8_t kEndOfBlockImage = 1;
constexpr uint8_t kEndOfStreamedImage = 7;

// Puts a cut packet, at most 20 bytes, into the record.
void Fill(ble_message_t& record, const StoredResponse& packet) {
    record.dataLength = static_cast<uint8_t>(packet.m_length);
    std::copy_n(packet.m_data.get(), packet.m_length, record.data);
}

}  // namespace

// ---------------------------------------------------------------- starts and ends

bool FileTransfers::StartLarchFileTransfer(BleNotificationClient* client) {
    if (m_slot.IsTaken()) {
        LOG_ERROR("Error client limit - StartLarchFileTransfer");
        return false;
    }
    if (!client->SetTransferringLarch(true)) {
        LOG_ERROR("Unable to start a settings file transfer");
        return false;
    }
    m_slot.Take();
    LOG_DEBUG("Consuming a file transfer slot, count = %d", m_slot.SlotsInUse());
    PostAccessoryUpdate(client->m_identity.m_deviceType, 0, eAccessoryUpdateSending);
    return true;
}

bool FileTransfers::StopTransfer(BleNotificationClient* client) {
    if (client->SetTransferringLarch(false)) {
        m_slot.ReleaseFileTransferSlot();
    } else if (!m_slot.IsTaken()) {
        TransferSlot::LogNoneTaken();
    }
    return true;
}

void FileTransfers::StopSettingsJSON(BleNotificationClient& client) {
    client.m_file.SetTransferringSettingsJSON(false);
    m_slot.ReleaseFileTransferSlot();
}

// ---------------------------------------------------------------- settings.json

bool FileTransfers::CheckClientsForFileTransfer() {
    if (m_radio.GetBleTxQueueAvailability() == 0) {
        return false;
    }
    bool more = false;
    const ClientLock lock(m_clients.Mutex());
    for (const auto& client : m_clients.Clients()) {
        if (!client->m_file.IsTransferringSettingsJSON()) {
            continue;
        }
        const QueueFill queue = m_radio.TxQueueFill();
        if (queue.Available() <= 0) {
            continue;
        }
        const long budget = TransferBudget(queue);
        LOG_INFO("%d slots available for file transfer, using %d", static_cast<int>(queue.Available()),
                 static_cast<int>(budget));
        if (budget > 0) {
            more = PumpSettingsJSON(*client, budget);
        }
    }
    return more;
}

// Sends up to `budget` packets. Returns whether more follow.
bool FileTransfers::PumpSettingsJSON(BleNotificationClient& client, long budget) {
    ble_message_t record = NewDataRecord(client.m_identity.m_connectionId, KZ_STR_ID_COMMAND_RESPONSE);
    bool more = client.m_file.FileIsUnchanged();
    for (long i = 0; i < budget && more; ++i) {
        more = client.m_file.GetSettingsJSONResponse(m_packet);
        if (m_packet.m_length == 0) {
            break;
        }
        Fill(record, m_packet);
        if (!m_radio.PostPacket(record)) {
            LOG_ERROR("Failed to send some data for file. Transfer aborted!");
            more = false;
        }
    }
    if (!more) {
        client.m_file.SetTransferringSettingsJSON(false);
        LOG_INFO("SetTransferringSettingsJSON");
        m_slot.ReleaseFileTransferSlot();
    }
    return more;
}

// ---------------------------------------------------------------- firmware images

bool FileTransfers::SendFileChunk(BleNotificationClient* client) {
    if (!client->m_file.IsTransferringLarch()) {
        LOG_DEBUG("ACCESSORY request chunk but not in OTA state");
        return false;
    }
    const long budget = ImageBudget(*client, m_radio.TxQueueFill());
    const uint8_t percent = client->m_file.GetPercentDone();
    LOG_INFO("percent %d", percent);
    PostAccessoryUpdate(client->m_identity.m_deviceType, percent, eAccessoryUpdateSending);

    ble_message_t record = NewDataRecord(client->m_identity.m_connectionId, KZ_STR_ID_OTA_DATA);
    bool sent = false;
    bool more = client->m_file.FileIsUnchanged();
    for (long i = 0; i < budget && more; ++i) {
        LOG_INFO("count ii = %d", static_cast<int>(i));
        more = client->m_file.GetLarchResponse(m_packet);
        if (m_packet.m_length == 0) {
            continue;
        }
        Fill(record, m_packet);
        sent = m_radio.PostPacket(record);
        if (!sent) {
            LOG_ERROR("Failed to send some data for file. Transfer aborted!");
            more = false;
        }
    }
    if (!more) {
        FinishImageTransfer(*client);
    }
    return sent;
}

long FileTransfers::ImageBudget(const BleNotificationClient& client, const QueueFill& queue) {
    const int capacity = static_cast<int>(queue.capacity);
    const int used = static_cast<int>(queue.used);
    const int available = static_cast<int>(queue.Available());
    LOG_DEBUG("used %d = max %d - availableSlots %d", used, capacity, available);
    const bool inBlocks = client.m_identity.m_deviceType == KZ_CALLER_MAPLE;
    long budget = TransferBudget(queue);
    if (queue.HasTransferRoom()) {
        LOG_DEBUG("Count %d max %d used %d", static_cast<int>(budget), capacity, used);
    }
    if (inBlocks) {
        budget = BlockImageBudget(queue, client.m_file.m_bytesRemaining);
        if (queue.HasTransferRoom()) {
            LOG_DEBUG("Count %d byteRemaining %d", static_cast<int>(budget), client.m_file.m_bytesRemaining);
        }
    } else if (client.m_identity.m_deviceType == KZ_CALLER_ALDER) {
        budget = StreamedImageBudget(queue);
    }
    LOG_DEBUG("%d slots available for file transfer, using %d", available, static_cast<int>(budget));
    return budget;
}

void FileTransfers::FinishImageTransfer(BleNotificationClient& client) {
    StopTransfer(&client);
    LOG_ERROR("Send OTA base address message finished");
    ble_message_t record = NewDataRecord(client.m_identity.m_connectionId, KZ_STR_ID_OTA_RESPONSE);
    record.dataLength = 1;
    record.data[0] = client.m_identity.m_deviceType == KZ_CALLER_MAPLE ? kEndOfBlockImage : kEndOfStreamedImage;
    m_radio.PostPacket(record);
    PostAccessoryUpdate(client.m_identity.m_deviceType, 0, eAccessoryUpdateFinished);
    m_camera.SetWaitingAccReconnect(true);
}
