#include "accessoryImage.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "littleEndian.h"
#include "skylark/bleMessage.h"
#include "transmitPlan.h"

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kRemotePrefix = "KZ_REMOTE_FW";
constexpr std::string_view kShutterRemotePrefix = "KZ_SHUTTER_REMOTE_FW";
constexpr std::string_view kImageSuffix = ".bin";

constexpr const char* kDirectories[] = {kCardImageDirectory, kCameraImageDirectory};

std::string_view ImagePrefix(uint8_t deviceType) {
    return deviceType == KZ_CALLER_ALDER ? kRemotePrefix : kShutterRemotePrefix;
}

bool IsImageName(std::string_view name, std::string_view prefix) {
    return name.starts_with(prefix) && name.find(kImageSuffix) != std::string_view::npos;
}

// The names of a directory's images in byte order; empty when it cannot be read.
std::vector<std::string> ImageNames(const char* directory, std::string_view prefix) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        std::string name = entry->path().filename().string();
        if (IsImageName(name, prefix)) {
            names.push_back(std::move(name));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool IsWithin(const fs::path& path, const char* directory) {
    std::error_code error;
    const fs::path root = fs::canonical(directory, error);
    return !error && std::mismatch(root.begin(), root.end(), path.begin(), path.end()).first == root.end();
}

// Whether the path names a regular file, or a link to one, within the two directories. A link could otherwise name any
// file of the camera, and its content would leave over the radio.
bool IsReadableImage(const std::string& path) {
    std::error_code error;
    const fs::path target = fs::canonical(path, error);
    return !error && fs::is_regular_file(target, error) &&
           std::any_of(std::begin(kDirectories), std::end(kDirectories),
                       [&target](const char* directory) { return IsWithin(target, directory); });
}

}  // namespace

std::optional<AccessoryImage> ParseAccessoryImage(std::span<const uint8_t> file) {
    if (file.size() < kImageHeaderSize) {
        return std::nullopt;
    }
    const uint32_t length = ReadLittleEndian32(file.data() + 16);
    if (length > file.size() - kImageHeaderSize) {
        return std::nullopt;
    }
    AccessoryImage image;
    image.storedCrc = ReadLittleEndian32(file.data());
    image.version = {file[4], file[8], file[12]};
    image.image = file.subspan(kImageHeaderSize, length);
    return image;
}

ImageVerdict JudgeImageVersion(const AccessoryVersion& accessory, const AccessoryVersion& image, bool fromCard) {
    if (image.AsNumber() == accessory.AsNumber()) {
        return ImageVerdict::kSameVersion;
    }
    return fromCard || image.AsNumber() > accessory.AsNumber() ? ImageVerdict::kAccept : ImageVerdict::kOlder;
}

bool IsCardImage(const std::string& path) {
    return path.starts_with(std::string(kCardImageDirectory) + '/');
}

std::string FindAccessoryImage(uint8_t deviceType) {
    for (const char* directory : kDirectories) {
        for (const std::string& name : ImageNames(directory, ImagePrefix(deviceType))) {
            std::string path = std::string(directory) + '/' + name;
            if (IsReadableImage(path)) {
                return path;
            }
        }
    }
    return {};
}
