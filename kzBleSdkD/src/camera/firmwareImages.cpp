#include "firmwareImages.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "accessoryImage.h"
#include "cameraCalls.h"
#include "fileHandle.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

// Layout of the reply to KZCONTROL_GET_ALL_STATUS: its size, and the offsets of the fields that decide about an update.
constexpr size_t kStatusSize = 394;
constexpr size_t kStatusBatteryPercent = 198;  // signed
constexpr size_t kStatusSystemBusy = 209;
constexpr int kLowestTooEmptyBattery = 9;  // percent of the camera's battery; with this or less nothing is updated

// Whether the camera is in a state to update accessories.
bool CameraPermitsUpdate() {
    std::array<uint8_t, kStatusSize> status{};
    if (CallControl(KZCONTROL_GET_ALL_STATUS, nullptr, 0, status.data(), kStatusSize) != 0) {
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

// Whether the image file is whole and its version suits the accessory. The file is read for this check alone.
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

bool GetLarchUpdate(unsigned char deviceType, std::string* path) {
    LOG_DEBUG("Check for update files for devType = %d", deviceType);
    std::string found = FindAccessoryImage(deviceType);
    if (found.empty()) {
        return false;
    }
    LOG_DEBUG("Accessory update file found = %s", found.c_str());
    *path = std::move(found);
    return true;
}

bool LarchUpdateCheck(unsigned char deviceType, std::string* path, unsigned char major, unsigned char minor,
                      unsigned char patch) {
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
