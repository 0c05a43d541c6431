#include "firmwareImages.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "cameraCalls.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr int kLowestTooEmptyBattery = 9;  // percent of the camera's battery; with this or less nothing is updated

// Whether the camera is in a state to update accessories.
bool CameraPermitsUpdate() {
    kz_all_status_t status{};
    if (CallControl(KZCONTROL_GET_ALL_STATUS, nullptr, 0, &status, sizeof(status)) != 0) {
        LOG_ERROR("Error getting KZCONTROL_GET_ALL_STATUS");
        return false;
    }
    if (status.busy != 0) {
        LOG_ERROR("sytem busy, do not update accessory now");
        return false;
    }
    const int battery = static_cast<int8_t>(status.batteryPercent);
    if (battery <= kLowestTooEmptyBattery) {
        LOG_DEBUG("zorvik batt percentage low %d, do not update accessory now", battery);
        return false;
    }
    return true;
}

// Whether the image file is whole and its version suits the accessory. Leaves the file at its beginning.
bool ImageSuits(const AccessoryImageFile& found, const AccessoryVersion& accessory) {
    const std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[kMaxCheckedImageFile]);
    if (buffer == nullptr) {
        LOG_ERROR("%s: no mem avail", "LarchUpdateCheck");
        return false;
    }
    if (found.file == nullptr) {
        LOG_ERROR("%s: failed to open file", "LarchUpdateCheck");
        return false;
    }
    const size_t length = fread(buffer.get(), 1, kMaxCheckedImageFile, found.file.get());
    rewind(found.file.get());
    const std::optional<AccessoryImage> image = ParseAccessoryImage({buffer.get(), length});
    if (!image) {
        LOG_ERROR("Image %s is shorter than its header says, or longer than %d bytes", found.path.c_str(),
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
    switch (JudgeImageVersion(accessory, image->version, IsCardImage(found.path))) {
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

AccessoryImageFile FindUpdate(uint8_t deviceType) {
    LOG_DEBUG("Check for update files for devType = %d", deviceType);
    AccessoryImageFile found = OpenAccessoryImage(deviceType);
    if (!found.path.empty()) {
        LOG_DEBUG("Accessory update file found = %s", found.path.c_str());
    }
    return found;
}

// Stores the path of an image that there is.
bool StorePath(AccessoryImageFile found, std::string* path) {
    if (found.path.empty()) {
        return false;
    }
    *path = std::move(found.path);
    return true;
}

}  // namespace

bool GetLarchUpdate(unsigned char deviceType, std::string* path) {
    return StorePath(FindUpdate(deviceType), path);
}

bool LarchUpdateCheck(unsigned char deviceType, std::string* path, unsigned char major, unsigned char minor,
                      unsigned char patch) {
    return StorePath(OpenLarchUpdate(deviceType, {major, minor, patch}), path);
}

AccessoryImageFile OpenLarchUpdate(uint8_t deviceType, const AccessoryVersion& accessory) {
    if (!CameraPermitsUpdate()) {
        return {};
    }
    AccessoryImageFile found = FindUpdate(deviceType);
    if (found.path.empty()) {
        LOG_DEBUG("No update file - skip accessory update");
        return {};
    }
    LOG_DEBUG("Found file  %s\n", found.path.c_str());
    return ImageSuits(found, accessory) ? std::move(found) : AccessoryImageFile{};
}
