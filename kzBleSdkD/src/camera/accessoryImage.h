// Firmware images of accessories: where they lie, what they contain, whether one suits an accessory. Knows no client.
//
// Image file, all words 32-bit little-endian:
//   offset width field
//        0     4 CRC-32 of the image
//        4     4 version major (low byte)
//        8     4 version minor (low byte)
//       12     4 version patch (low byte)
//       16     4 image length
//       20    .. image; this is what is sent to the accessory
#pragma once

#include <time.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "fileHandle.h"

// Most bytes of an image file that are read to check it, header included.
constexpr uint32_t kMaxCheckedImageFile = 307200;

// An image on the card is the user's choice and may be older than what the accessory has. Those of the camera are used
// only when they are newer.
constexpr const char* kCardImageDirectory = "/tmp/fuse_d";
constexpr const char* kCameraImageDirectory = "/usr/local/zorvik/tftp";

struct AccessoryVersion {
    uint8_t major = 0;
    uint8_t minor = 0;
    uint8_t patch = 0;

    constexpr uint32_t AsNumber() const {
        return static_cast<uint32_t>(major << 16) + static_cast<uint32_t>(minor << 8) + patch;
    }
};

// A parsed image; `image` points into the bytes it was parsed from.
struct AccessoryImage {
    uint32_t storedCrc = 0;
    AccessoryVersion version;
    std::span<const uint8_t> image;
};

// Returns nothing when the bytes do not hold the header and the whole image that it announces. Bytes behind the image
// are ignored.
std::optional<AccessoryImage> ParseAccessoryImage(std::span<const uint8_t> file);

enum class ImageVerdict {
    kAccept,
    kSameVersion,  // the accessory has it
    kOlder,        // not newer than the accessory, and not from the card
};
ImageVerdict JudgeImageVersion(const AccessoryVersion& accessory, const AccessoryVersion& image, bool fromCard);

// Whether a path names an image on the card.
bool IsCardImage(const std::string& path);

// An image file, opened once: what is checked is what is sent, whatever its name leads to by then.
struct AccessoryImageFile {
    std::string path;     // empty when there is none
    FileHandle file;      // null when it cannot be read
    timespec modified{};  // last change of the file when it was opened
};

// The image file of a device type: the first in byte order of names, on the card before the camera, whose name begins
// with the type's prefix and contains ".bin". Only regular files count, and symbolic links to one that stay within the
// two directories.
AccessoryImageFile OpenAccessoryImage(uint8_t deviceType);
