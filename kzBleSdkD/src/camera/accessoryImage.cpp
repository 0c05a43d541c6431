#include "accessoryImage.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
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

constexpr int kMaxLinks = 8;  // of one image, from one directory to the other

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

// A file beneath one of the two directories.
struct Place {
    std::string directory;
    std::string name;
};

// Where a path lies. It has no ".." in it.
std::optional<Place> PlaceOf(const fs::path& path) {
    for (const char* directory : kDirectories) {
        std::error_code error;
        for (const fs::path& root : {fs::path(directory), fs::canonical(directory, error)}) {
            if (!root.empty() &&
                std::mismatch(root.begin(), root.end(), path.begin(), path.end()).first == root.end()) {
                return Place{directory, path.lexically_relative(root).string()};
            }
        }
    }
    return std::nullopt;
}

// Opens an image. A link could name any file of the camera, and its content would leave over the radio: so each file is
// opened beneath its directory. A link that leaves its directory is read here and followed if it leads to the other
// one, which is then what confines it.
FileHandle OpenImage(Place place) {
    for (int links = 0; links < kMaxLinks; ++links) {
        FileHandle file = OpenBeneath(place.directory, place.name);
        if (file != nullptr || (errno != EXDEV && errno != ELOOP)) {
            return file;
        }
        std::error_code error;
        const fs::path link = fs::path(place.directory) / place.name;
        const fs::path target = fs::read_symlink(link, error);
        const auto next = error ? std::nullopt : PlaceOf((link.parent_path() / target).lexically_normal());
        if (!next) {
            break;
        }
        place = *next;
    }
    errno = EXDEV;
    return nullptr;
}

// Whether a file that could not be opened is an image all the same.
bool IsUnreadable(int error) {
    return error == EACCES || error == EMFILE || error == ENFILE;
}

timespec ModificationTime(const FileHandle& file) {
    struct stat status {};
    if (file != nullptr) {
        fstat(fileno(file.get()), &status);
    }
    return status.st_mtim;
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

AccessoryImageFile OpenAccessoryImage(uint8_t deviceType) {
    for (const char* directory : kDirectories) {
        for (const std::string& name : ImageNames(directory, ImagePrefix(deviceType))) {
            FileHandle file = OpenImage({directory, name});
            if (file != nullptr || IsUnreadable(errno)) {
                const timespec modified = ModificationTime(file);
                return {std::string(directory) + '/' + name, std::move(file), modified};
            }
        }
    }
    return {};
}
