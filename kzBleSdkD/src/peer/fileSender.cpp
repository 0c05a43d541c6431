// The file a client is receiving, cut into packets. When packets leave is the server's decision.
//
// settings.json.gz travels as one message of the command interface: header, command id, result, then the file. Firmware
// images travel as raw bytes from behind the image header.
#include <sys/stat.h>

#include <algorithm>
#include <string>

#include "MemStream.h"
#include "bleDevice.h"
#include "bleSDK.h"
#include "kzBleServer.h"
#include "skylark/bleMessage.h"
#include "transmitPlan.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleDevice.cpp";

constexpr unsigned char kSettingsJSONCommand = 0x3B;  // the command that asks for settings.json
constexpr unsigned char kResultOk = 0;
constexpr unsigned kSettingsJSONPrefix = 2;       // command id and result in front of the file
constexpr long kMaxSettingsJSONFileSize = 65532;  // with the prefix it fits the 16-bit length of the long header

// The size of a file; negative when it cannot be sought.
long SizeBySeeking(FILE* file) {
    return fseek(file, 0, SEEK_END) == 0 ? ftell(file) : -1;
}

// Whether packets follow the `bytesRead` bytes at `offset`, of `wanted` asked for.
bool MoreFollows(uint32_t fileSize, uint32_t offset, size_t wanted, size_t bytesRead) {
    return bytesRead == wanted && fileSize != offset && fileSize - offset != bytesRead;
}

}  // namespace

// ---------------------------------------------------------------- start and end

bool BleNotificationClient::SetTransferringSettingsJSON(bool on) {
    const bool gateOpen = GetEnabledByStreamId(KZ_STR_ID_COMMAND);
    if (!gateOpen) {
        LOG_ERROR("This stream ID cannot send responses, it is blocked");
    }
    if (on) {
        return gateOpen && !m_transferringSettingsJSON && OpenSettingsJSON();
    }
    if (!m_transferringSettingsJSON) {
        return false;
    }
    m_transferringSettingsJSON = false;
    CloseFile();
    return gateOpen;
}

bool BleNotificationClient::OpenSettingsJSON() {
    m_fileIndex = 0;
    const std::string path = BleSDK::GetInstance()->m_settingsPath + ".gz";
    LOG_INFO("Using settings json path [%s] for file transfer", path.c_str());
    FileHandle file = OpenRegularFile(path.c_str());
    if (file == nullptr) {
        LOG_ERROR("Cannot find settings.json.gz file");
        return false;
    }
    const long size = SizeBySeeking(file.get());
    if (size < 0) {
        LOG_ERROR("Unable to seek file");
        return false;
    }
    m_fileSize = static_cast<uint32_t>(size);
    if (size > kMaxSettingsJSONFileSize) {
        LOG_ERROR("File:%d too large to send with extended header, cannot send.", m_fileSize);
        return false;
    }
    if (fseek(file.get(), 0, SEEK_SET) != 0) {
        LOG_ERROR("Unable to seek file");
        return false;
    }
    LOG_ERROR("Settings.json.gz filesize: %d", m_fileSize);
    HoldFile(std::move(file));
    m_transferringSettingsJSON = true;
    return true;
}

bool BleNotificationClient::SetTransferringLarch(bool on) {
    LOG_DEBUG("SetTransferringAccesoryDeviceOTA");
    if (on) {
        return !m_transferringLarch && OpenFirmwareImage();
    }
    if (!m_transferringLarch) {
        return false;
    }
    m_transferringLarch = false;
    CloseFile();
    return true;
}

bool BleNotificationClient::OpenFirmwareImage() {
    m_fileIndex = 0;
    std::string path;
    if (!KzBleServer::GetInstance()->LarchUpdateCheck(m_deviceType, &path, 0, 0, 0)) {
        return false;
    }
    FileHandle file = OpenRegularFile(path.c_str());
    if (file == nullptr) {
        LOG_ERROR("Cannot find acc update file");
        return false;
    }
    const long size = SizeBySeeking(file.get());
    // The header was there when the image was checked; a file that lost it since is no image.
    if (size < static_cast<long>(kImageHeaderSize) || size > UINT32_MAX ||
        fseek(file.get(), kImageHeaderSize, SEEK_SET) != 0) {
        LOG_ERROR("Unable to seek file");
        return false;
    }
    m_fileSize = static_cast<uint32_t>(size);
    LOG_DEBUG("accessory update filesize: %d", m_fileSize);
    HoldFile(std::move(file));
    m_transferringLarch = true;
    return true;
}

void BleNotificationClient::HoldFile(FileHandle file) {
    struct stat status {};
    fstat(fileno(file.get()), &status);
    m_fileTime = status.st_mtim;
    m_file = std::move(file);
}

void BleNotificationClient::CloseFile() {
    m_file.reset();
    m_fileIndex = 0;
}

// ---------------------------------------------------------------- packets

// Whether the file is still the one whose size the transfer announced.
bool BleNotificationClient::FileIsUnchanged() const {
    if (m_file == nullptr) {
        return true;
    }
    struct stat status {};
    if (fstat(fileno(m_file.get()), &status) == 0 && status.st_size == static_cast<off_t>(m_fileSize) &&
        status.st_mtim.tv_sec == m_fileTime.tv_sec && status.st_mtim.tv_nsec == m_fileTime.tv_nsec) {
        return true;
    }
    LOG_ERROR("The file changed during its transfer, ending the transfer");
    return false;
}

bool BleNotificationClient::PrepareFilePacket(StoredResponse& out) const {
    out.m_length = 0;
    if (m_file == nullptr) {
        LOG_ERROR("Attempted to get data on NULL fd");
        return false;
    }
    return true;
}

bool BleNotificationClient::GetSettingsJSONResponse(StoredResponse& out) {
    if (!PrepareFilePacket(out)) {
        return false;
    }
    unsigned char packet[kBlePacketSize];
    MemoryStream stream(packet, sizeof(packet));
    BlePacketHeader header(m_fileSize + kSettingsJSONPrefix);
    if (m_fileIndex == 0) {
        stream << header << kSettingsJSONCommand << kResultOk;
        m_counter = 0;
    } else {
        header.m_isStart = false;
        header.m_counter = m_counter++;
        stream << header;
    }
    const size_t room = stream.getRemainder();
    LOG_DEBUG("Reading %d file bytes from offset %d", static_cast<int>(room), m_fileIndex);
    const size_t bytesRead = fread(packet + stream.getLength(), 1, room, m_file.get());
    const bool more = MoreFollows(m_fileSize, m_fileIndex, room, bytesRead);
    m_fileIndex += static_cast<uint32_t>(bytesRead);
    out.Store(packet, stream.getLength() + static_cast<int>(bytesRead));
    return more;
}

bool BleNotificationClient::GetLarchResponse(StoredResponse& out) {
    if (!PrepareFilePacket(out)) {
        return false;
    }
    unsigned char packet[kBlePacketSize]{};
    size_t wanted = kBlePacketSize;
    LOG_INFO("Reading %d file bytes from offset %d", static_cast<int>(wanted), m_fileIndex);
    if (m_deviceType == KZ_CALLER_MAPLE && m_bytesRemaining != 0) {
        wanted = std::min<size_t>(wanted, m_bytesRemaining);
    }
    const size_t bytesRead = fread(packet, 1, wanted, m_file.get());
    const bool more = MoreFollows(m_fileSize, m_fileIndex, wanted, bytesRead);
    if (!more) {
        LOG_DEBUG("moreData = false");
    }
    if (m_deviceType == KZ_CALLER_MAPLE) {
        m_bytesRemaining = static_cast<uint16_t>(m_bytesRemaining - bytesRead);
        LOG_DEBUG("Maple m_bytesRemaining = %d  bytesRead = %d offset= %d", m_bytesRemaining,
                  static_cast<int>(bytesRead), 0);
    }
    m_fileIndex += static_cast<uint32_t>(bytesRead);
    out.Store(packet, static_cast<int>(bytesRead));
    const unsigned char* b = packet;
    LOG_INFO("%02x:%02x:%02x:%02x %02x:%02x:%02x:%02x %02x:%02x:%02x:%02x %02x:%02x:%02x:%02x  %02x:%02x:%02x:%02x",
             b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15],
             b[16], b[17], b[18], b[19]);
    return more;
}

uint8_t BleNotificationClient::GetPercentDone() const {
    const uint8_t percent = PercentDone(m_fileIndex, m_fileSize);
    LOG_DEBUG("percent %u m_fileIndex %d m_fileSize %d", percent, m_fileIndex, m_fileSize - kImageHeaderSize);
    return percent;
}
