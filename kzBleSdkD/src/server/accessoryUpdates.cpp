// Accessory firmware updates: whether an image suits an accessory, the request to reboot into update mode, and the
// accessory's requests on stream 27.
#include <algorithm>
#include <array>
#include <memory>
#include <new>

#include "accessoryImage.h"
#include "csi/csi.h"
#include "csi/csiKeys.h"
#include "fileHandle.h"
#include "kzBleServer.h"
#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlD.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

// The control daemon's status, as far as updates look at it.
constexpr size_t kStatusSize = 394;
constexpr size_t kStatusBatteryPercent = 198;  // signed
constexpr size_t kStatusSystemBusy = 209;
constexpr int kLowestTooEmptyBattery = 9;  // percent of the camera's battery; up to here nothing is updated

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

// A byte of a data record; 0 behind its data.
uint8_t DataByte(const ble_message_t& record, unsigned index) {
    return index < std::min<unsigned>(record.dataLength, kBlePacketSize) ? record.data[index] : 0;
}

// Whether the camera is in a state to update accessories.
bool CameraPermitsUpdate() {
    std::array<uint8_t, kStatusSize> status{};
    if (kzcontrol_send_command_param_response(KZCONTROL_GET_ALL_STATUS, nullptr, 0, status.data(), kStatusSize) != 0) {
        LOG_ERROR("Error getting KZCONTROL_GET_ALL_STATUS");
        return false;
    }
    if (status[kStatusSystemBusy] != 0) {
        LOG_ERROR("sytem busy, do not update accessory now");
        return false;
    }
    const int battery = static_cast<int8_t>(status[kStatusBatteryPercent]);
    if (battery <= kLowestTooEmptyBattery) {
        LOG_DEBUG("zorvik batt percentage low %d, do not update accessory now", battery);
        return false;
    }
    return true;
}

// Checks an image file against the accessory's version. The file is read for the check alone and not kept.
bool ImageSuits(const std::string& path, const AccessoryVersion& accessory) {
    const std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[kMaxCheckedImageFile]);
    if (buffer == nullptr) {
        LOG_ERROR("%s: no mem avail", "LarchUpdateCheck");
        return false;
    }
    const FileHandle file = OpenRegularFile(path.c_str());
    if (file == nullptr) {
        LOG_ERROR("%s: failed to open file", "LarchUpdateCheck");
        return false;
    }
    const size_t length = fread(buffer.get(), 1, kMaxCheckedImageFile, file.get());
    const std::optional<AccessoryImage> image = ParseAccessoryImage({buffer.get(), length});
    if (!image) {
        LOG_ERROR("Image %s is shorter than its header says, or longer than %d bytes", path.c_str(),
                  static_cast<int>(kMaxCheckedImageFile));
        return false;
    }
    const uint32_t crc = Utils::crc32(image->image.data(), static_cast<uint32_t>(image->image.size()));
    LOG_DEBUG("calc crc = 0x%x\n", crc);
    LOG_DEBUG("crc read = 0x%x\n", image->storedCrc);
    if (crc != image->storedCrc) {
        LOG_ERROR("crc mismatch");
        return false;
    }
    LOG_DEBUG("accessory version = %d %d %d", accessory.major, accessory.minor, accessory.patch);
    LOG_DEBUG("file verion = %d %d %d", image->version.major, image->version.minor, image->version.patch);
    switch (JudgeImageVersion(accessory, image->version, IsCardImage(path))) {
        case ImageVerdict::kSameVersion:
            LOG_ERROR("Versions match, do not preform accessory Update");
            return false;
        case ImageVerdict::kOlder:
            LOG_DEBUG("Accessory version is newer then internal versioni, do not update");
            return false;
        case ImageVerdict::kAccept:
            return true;
    }
    return false;
}

}  // namespace

// ---------------------------------------------------------------- images

bool KzBleServer::GetLarchUpdate(unsigned char deviceType, std::string* path) {
    LOG_DEBUG("Check for update files for devType = %d", deviceType);
    std::string found = FindAccessoryImage(deviceType);
    if (found.empty()) {
        return false;
    }
    LOG_DEBUG("Accessory update file found = %s", found.c_str());
    *path = std::move(found);
    return true;
}

bool KzBleServer::LarchUpdateCheck(unsigned char deviceType, std::string* path, unsigned char major,
                                   unsigned char minor, unsigned char patch) {
    if (!CameraPermitsUpdate()) {
        return false;
    }
    std::string found;
    if (!GetLarchUpdate(deviceType, &found)) {
        LOG_DEBUG("No update file - skip accessory update");
        return false;
    }
    LOG_DEBUG("Found file  %s\n", found.c_str());
    if (!ImageSuits(found, {major, minor, patch})) {
        return false;
    }
    *path = std::move(found);
    return true;
}

// ---------------------------------------------------------------- the tick

bool KzBleServer::CheckClientsForLarchOTA() {
    const Lock lock(&m_clientMutex);
    for (const auto& client : m_clients) {
        if (client->IsTransferringLarch()) {
            if (client->m_deviceType == KZ_CALLER_ALDER && SendFileChunk(client.get())) {
                return true;
            }
        } else if (client->m_accessoryUpdatePending && AdvancePendingUpdate(*client)) {
            return true;
        }
    }
    return false;
}

// Counts a tick of a pending update; true when the accessory was asked to reboot.
bool KzBleServer::AdvancePendingUpdate(BleNotificationClient& client) {
    if (m_csiCache[CSI_CAMERA_BUSY] != 0) {
        LOG_DEBUG("sytem recording, cancel accessory update");
        client.m_accessoryUpdatePending = false;
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

bool KzBleServer::RequestAccessoryReboot(BleNotificationClient& client) {
    ble_message_t record = NewDataRecord(client.m_connectionId, KZ_STR_ID_REBOOT_OTA);
    record.dataLength = 1;
    if (client.m_deviceType == KZ_CALLER_ALDER) {
        record.data[0] = kRebootStreamedAccessory;
    } else if (client.m_deviceType == KZ_CALLER_MAPLE) {
        record.streamId = KZ_STR_ID_SENSOR_RESPONSE;
        record.data[0] = kRebootBlockAccessory;
        client.m_accessoryUpdatePending = false;
    } else {
        return false;
    }
    LOG_DEBUG("sending OTA REBOOT REQUEST");
    PostPacket(record);
    return true;
}

// ---------------------------------------------------------------- the accessory's messages

void KzBleServer::HandleAccessoryUpdateMessage(BleNotificationClient& client, ble_message_t& record) {
    LOG_DEBUG("KZ_STR_ID_START_OTA devType=%d cmd = %d", client.m_deviceType, DataByte(record, 0));
    if (client.m_deviceType == KZ_CALLER_BLE_RC) {
        LOG_DEBUG("LARCH sending update request after failed update");
        client.m_deviceType = KZ_CALLER_ALDER;
    }
    if (client.m_deviceType == KZ_CALLER_ALDER) {
        HandleStreamedImageRequest(client, record);
    } else if (client.m_deviceType == KZ_CALLER_MAPLE) {
        HandleBlockMessage(client, record);
    }
}

void KzBleServer::HandleStreamedImageRequest(BleNotificationClient& client, ble_message_t& record) {
    LOG_DEBUG("START_OTA %02x:%02x:%02x:%02x", DataByte(record, 0), DataByte(record, 1), DataByte(record, 2),
              DataByte(record, 3));
    record.streamId = KZ_STR_ID_OTA_RESPONSE;
    record.dataLength = sizeof(kStreamedImageReply);
    std::copy(std::begin(kStreamedImageReply), std::end(kStreamedImageReply), record.data);
    PostPacket(record);
    StartLarchFileTransfer(&client);
}

void KzBleServer::HandleBlockMessage(BleNotificationClient& client, const ble_message_t& record) {
    const uint8_t request = DataByte(record, 0);
    if (request == kRequestImage) {
        HandleImageRequest(client, record);
    } else if (request == kRequestBlock && DataByte(record, 1) == kBlockReceived) {
        HandleBlockRequest(client);
    } else if (request == kRequestBlock && DataByte(record, 1) == kBlockError) {
        HandleImageError(client);
    }
}

void KzBleServer::HandleImageRequest(BleNotificationClient& client, const ble_message_t& record) {
    if (!client.IsTransferringLarch()) {
        client.m_bytesRemaining = 0;  // of an earlier transfer; the accessory asks for its blocks
        StartLarchFileTransfer(&client);
    }
    if (record.dataLength > 2) {
        const auto blockSize = static_cast<uint16_t>(DataByte(record, 1) << 8 | DataByte(record, 2));
        LOG_DEBUG("BLOCK SIZE BYTES = %d", blockSize);
        if (blockSize != 0) {
            client.m_blockSize = blockSize;
            client.m_bytesRemaining = blockSize;
        }
    }
    SendFileChunk(&client);
}

void KzBleServer::HandleBlockRequest(BleNotificationClient& client) {
    if (client.IsTransferringLarch()) {
        LOG_DEBUG("Next block");
        client.m_bytesRemaining = client.m_blockSize;
    }
    SendFileChunk(&client);
}

// An accessory can only fail a transfer of its own.
void KzBleServer::HandleImageError(BleNotificationClient& client) {
    LOG_ERROR("Error with transfer to Accessory");
    if (!client.IsTransferringLarch()) {
        return;
    }
    StopTransfer(&client);
    const uint32_t failed = AccessoryUpdateState(client.m_deviceType, 0, eAccessoryUpdateFailed);
    csi_set(CSI_ACCESSORY_UPDATE, &failed, sizeof(failed));
    csi_set(CSI_ACCESSORY_UPDATE, &kAccessoryUpdateIdle, sizeof(kAccessoryUpdateIdle));
}
