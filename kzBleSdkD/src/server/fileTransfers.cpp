// File transfers: the one slot, starts and ends, and the pumps that put packets into the radio queue as far as ordinary
// traffic leaves room.
#include <algorithm>

#include "csi/csiKeys.h"
#include "kzBleServer.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

// The end record of a firmware transfer.
constexpr uint8_t kEndOfBlockImage = 1;
constexpr uint8_t kEndOfStreamedImage = 7;

// Puts a cut packet, at most 20 bytes, into the record.
void Fill(ble_message_t& record, const BleNotificationClient::StoredResponse& packet) {
    record.dataLength = static_cast<uint8_t>(packet.m_length);
    std::copy_n(packet.m_data.get(), packet.m_length, record.data);
}

}  // namespace

// ---------------------------------------------------------------- the slot

bool KzBleServer::IsFileTransferSlotAvailable() {
    if (m_fileTransferSlots != 0) {
        LOG_ERROR("No slots available current count = %d", m_fileTransferSlots);
        return false;
    }
    return true;
}

bool KzBleServer::ReleaseFileTransferSlot() {
    if (m_fileTransferSlots == 0) {
        LOG_ERROR("Attempt to Release file slot when none taken");
        return false;
    }
    --m_fileTransferSlots;
    return true;
}

bool KzBleServer::StartSettingsJSONFileTransfer(BleNotificationClient* client) {
    if (m_fileTransferSlots != 0) {
        LOG_ERROR("ERROR File limit StartJSONFileTransfer");
        return false;
    }
    if (!client->SetTransferringSettingsJSON(true)) {
        LOG_ERROR("Unable to start a settings file transfer");
        return false;
    }
    ++m_fileTransferSlots;
    LOG_INFO("Consuming a file transfer slot, count = %d", m_fileTransferSlots);
    return true;
}

bool KzBleServer::StartLarchFileTransfer(BleNotificationClient* client) {
    if (m_fileTransferSlots != 0) {
        LOG_ERROR("Error client limit - StartLarchFileTransfer");
        return false;
    }
    if (!client->SetTransferringLarch(true)) {
        LOG_ERROR("Unable to start a settings file transfer");
        return false;
    }
    ++m_fileTransferSlots;
    LOG_DEBUG("Consuming a file transfer slot, count = %d", m_fileTransferSlots);
    PublishAccessoryState(*client, 0, eAccessoryUpdateSending);
    return true;
}

bool KzBleServer::StopTransfer(BleNotificationClient* client) {
    // While another client's transfer holds the slot, it is not this client's to release.
    if (client->SetTransferringLarch(false) || m_fileTransferSlots == 0) {
        ReleaseFileTransferSlot();
    }
    return true;
}

void KzBleServer::PublishAccessoryState(const BleNotificationClient& client, uint8_t percent, eAccessoryUpdate phase) {
    const uint32_t state = AccessoryUpdateState(client.m_deviceType, percent, phase);
    csi_set_no_rsp(CSI_ACCESSORY_UPDATE, &state, sizeof(state));
}

// ---------------------------------------------------------------- settings.json

bool KzBleServer::CheckClientsForFileTransfer() {
    if (GetBleTxQueueAvailability() == 0) {
        return false;
    }
    bool more = false;
    const Lock lock(&m_clientMutex);
    for (const auto& client : m_clients) {
        if (!client->IsTransferringSettingsJSON()) {
            continue;
        }
        const QueueFill queue = TxQueueFill();
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

// Sends up to `budget` packets; whether more follow.
bool KzBleServer::PumpSettingsJSON(BleNotificationClient& client, long budget) {
    ble_message_t record = NewDataRecord(client.m_connectionId, KZ_STR_ID_COMMAND_RESPONSE);
    bool more = client.FileIsUnchanged();
    for (long i = 0; i < budget && more; ++i) {
        more = client.GetSettingsJSONResponse(m_filePacket);
        if (m_filePacket.m_length == 0) {
            break;
        }
        Fill(record, m_filePacket);
        if (!PostPacket(record)) {
            LOG_ERROR("Failed to send some data for file. Transfer aborted!");
            more = false;
        }
    }
    if (!more) {
        EndSettingsJSONTransfer(client);
    }
    return more;
}

void KzBleServer::EndSettingsJSONTransfer(BleNotificationClient& client) {
    client.SetTransferringSettingsJSON(false);
    LOG_INFO("SetTransferringSettingsJSON");
    ReleaseFileTransferSlot();
}

// ---------------------------------------------------------------- firmware images

bool KzBleServer::SendFileChunk(BleNotificationClient* client) {
    if (!client->IsTransferringLarch()) {
        LOG_DEBUG("ACCESSORY request chunk but not in OTA state");
        return false;
    }
    const long budget = ImageBudget(*client, TxQueueFill());
    const uint8_t percent = client->GetPercentDone();
    LOG_INFO("percent %d", percent);
    PublishAccessoryState(*client, percent, eAccessoryUpdateSending);

    ble_message_t record = NewDataRecord(client->m_connectionId, KZ_STR_ID_OTA_DATA);
    bool sent = false;
    bool more = client->FileIsUnchanged();
    for (long i = 0; i < budget && more; ++i) {
        LOG_INFO("count ii = %d", static_cast<int>(i));
        more = client->GetLarchResponse(m_filePacket);
        if (m_filePacket.m_length == 0) {
            continue;
        }
        Fill(record, m_filePacket);
        sent = PostPacket(record);
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

long KzBleServer::ImageBudget(const BleNotificationClient& client, const QueueFill& queue) {
    const int capacity = static_cast<int>(queue.capacity);
    const int used = static_cast<int>(queue.used);
    const int available = static_cast<int>(queue.Available());
    LOG_DEBUG("used %d = max %d - availableSlots %d", used, capacity, available);
    const bool inBlocks = client.m_deviceType == KZ_CALLER_MAPLE;
    long budget = TransferBudget(queue);
    if (queue.HasTransferRoom()) {
        LOG_DEBUG("Count %d max %d used %d", static_cast<int>(budget), capacity, used);
    }
    if (inBlocks) {
        budget = BlockImageBudget(queue, client.m_bytesRemaining);
        if (queue.HasTransferRoom()) {
            LOG_DEBUG("Count %d byteRemaining %d", static_cast<int>(budget), client.m_bytesRemaining);
        }
    } else if (client.m_deviceType == KZ_CALLER_ALDER) {
        budget = StreamedImageBudget(queue);
    }
    LOG_DEBUG("%d slots available for file transfer, using %d", available, static_cast<int>(budget));
    return budget;
}

void KzBleServer::FinishImageTransfer(BleNotificationClient& client) {
    StopTransfer(&client);
    LOG_ERROR("Send OTA base address message finished");
    ble_message_t record = NewDataRecord(client.m_connectionId, KZ_STR_ID_OTA_RESPONSE);
    record.dataLength = 1;
    record.data[0] = client.m_deviceType == KZ_CALLER_MAPLE ? kEndOfBlockImage : kEndOfStreamedImage;
    PostPacket(record);
    PublishAccessoryState(client, 0, eAccessoryUpdateFinished);
    m_waitingAccReconnect = true;
}
