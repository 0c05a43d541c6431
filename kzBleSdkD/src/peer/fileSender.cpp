#include "fileSender.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

#include "answers.h"
#include "bleSDK.h"
#include "identity.h"
#include "skylark/bleMessage.h"
#include "transmitPlan.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleDevice.cpp";

constexpr unsigned char kSettingsJSONCommand = 0x3B;  // the command that asks for settings.json
constexpr unsigned char kResultOk = 0;
constexpr unsigned kSettingsJSONPrefix = 2;       // command id and result in front of the file
constexpr long kMaxSettingsJSONFileSize = 65532;  // with the prefix it fits the 16-bit length of the long header

// Returns the size of a file; negative when its end cannot be sought.
long SizeBySeeking(FILE* file) {
    return fseek(file, 0, SEEK_END) == 0 ? ftell(file) : -1;
}

// Whether more packets follow when `wanted` bytes were asked for at `offset` and `bytesRead` of them came. Fewer bytes
// than wanted are the last ones.
bool MoreFollows(uint32_t fileSize, uint32_t offset, size_t wanted, size_t bytesRead) {
    return bytesRead == wanted && fileSize != offset && fileSize - offset != bytesRead;
}

}  // namespace

// ---------------------------------------------------------------- start and end

FileSender::~FileSender() {
    if (m_file != nullptr) {
        LOG_ERROR("File still open when client destroyed.");
    }
}

bool FileSender::SetTransferringSettingsJSON(bool on) {
    const bool gateOpen = m_answers.GetEnabledByStreamId(KZ_STR_ID_COMMAND);
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

bool FileSender::OpenSettingsJSON() {
    m_fileIndex = 0;
    const std::string path = BleSDK::GetInstance()->m_settingsPath + ".gz";
    LOG_INFO("Using settings json path [%s] for file transfer", path.c_str());
    const size_t slash = path.rfind('/');
    FileHandle file = slash != std::string::npos ? OpenBeneath(path.substr(0, slash + 1), path.substr(slash + 1))
                                                 : OpenBeneath(".", path);
    if (file == nullptr) {
        LOG_ERROR("Cannot find settings.json.gz file");
        return false;
    }
    const long size = SizeBySeeking(file.get());
    if (size < 0) {
        LOG_ERROR("Unable to seek file");
        return false;
    }
    if (size > kMaxSettingsJSONFileSize) {
        LOG_ERROR("File:%d too large to send with extended header, cannot send.", static_cast<int>(size));
        return false;
    }
    if (fseek(file.get(), 0, SEEK_SET) != 0) {
        LOG_ERROR("Unable to seek file");
        return false;
    }
    HoldFile(std::move(file), static_cast<uint32_t>(size));
    m_cutter = MessageCutter(m_fileSize + kSettingsJSONPrefix);
    LOG_ERROR("Settings.json.gz filesize: %d", m_fileSize);
    m_transferringSettingsJSON = true;
    return true;
}

bool FileSender::StartImage(FileHandle file, const timespec& modified) {
    m_fileIndex = 0;
    if (file == nullptr) {
        LOG_ERROR("Cannot find acc update file");
        return false;
    }
    const long size = SizeBySeeking(file.get());
    // A file without a whole header is no image. The header was there when the image was checked, but the file may have
    // changed since.
    if (size < static_cast<long>(kImageHeaderSize) || size > UINT32_MAX ||
        fseek(file.get(), kImageHeaderSize, SEEK_SET) != 0) {
        LOG_ERROR("Unable to seek file");
        return false;
    }
    HoldFile(std::move(file), static_cast<uint32_t>(size));
    m_fileTime = modified;  // a change since then may have come after the check
    LOG_DEBUG("accessory update filesize: %d", m_fileSize);
    m_transferringLarch = true;
    return true;
}

bool FileSender::EndImage() {
    if (!m_transferringLarch) {
        return false;
    }
    m_transferringLarch = false;
    CloseFile();
    return true;
}

void FileSender::Reset() {
    m_transferringSettingsJSON = false;
    m_transferringLarch = false;
    CloseFile();
}

void FileSender::HoldFile(FileHandle file, uint32_t size) {
    struct stat status {};
    fstat(fileno(file.get()), &status);
    m_fileTime = status.st_mtim;
    m_fileSize = size;
    m_file = std::move(file);
}

void FileSender::CloseFile() {
    m_file.reset();
    m_fileIndex = 0;
}

// ---------------------------------------------------------------- packets

bool FileSender::FileIsUnchanged() const {
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

bool FileSender::PrepareFilePacket(StoredResponse& out) const {
    out.m_length = 0;
    if (m_file == nullptr) {
        LOG_ERROR("Attempted to get data on NULL fd");
        return false;
    }
    return true;
}

bool FileSender::GetSettingsJSONResponse(StoredResponse& out) {
    if (!PrepareFilePacket(out)) {
        return false;
    }
    if (!m_cutter.HasNext()) {
        return false;
    }
    unsigned char packet[kBlePacketSize];
    const bool first = m_cutter.Offset() == 0;
    unsigned size = m_cutter.BeginNext(packet).headerSize;
    if (first) {
        packet[size++] = kSettingsJSONCommand;
        packet[size++] = kResultOk;
    }
    const size_t room = sizeof(packet) - size;
    LOG_DEBUG("Reading %d file bytes from offset %d", static_cast<int>(room), m_fileIndex);
    const size_t bytesRead = fread(packet + size, 1, room, m_file.get());
    const bool more = MoreFollows(m_fileSize, m_fileIndex, room, bytesRead);
    m_fileIndex += static_cast<uint32_t>(bytesRead);
    out.Store(packet, static_cast<int>(size + bytesRead));
    return more;
}

bool FileSender::GetLarchResponse(StoredResponse& out) {
    if (!PrepareFilePacket(out)) {
        return false;
    }
    unsigned char packet[kBlePacketSize]{};
    size_t wanted = kBlePacketSize;
    LOG_INFO("Reading %d file bytes from offset %d", static_cast<int>(wanted), m_fileIndex);
    if (m_identity.m_deviceType == KZ_CALLER_MAPLE && m_bytesRemaining != 0) {
        wanted = std::min<size_t>(wanted, m_bytesRemaining);
    }
    const size_t bytesRead = fread(packet, 1, wanted, m_file.get());
    const bool more = MoreFollows(m_fileSize, m_fileIndex, wanted, bytesRead);
    if (!more) {
        LOG_DEBUG("moreData = false");
    }
    if (m_identity.m_deviceType == KZ_CALLER_MAPLE) {
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

uint8_t FileSender::GetPercentDone() const {
    const uint8_t percent = PercentDone(m_fileIndex, m_fileSize);
    LOG_DEBUG("percent %u m_fileIndex %d m_fileSize %d", percent, m_fileIndex, m_fileSize - kImageHeaderSize);
    return percent;
}
