// Firmware image files of any content: the header's length may claim anything, what is accepted lies within the file.
#include "accessoryImage.h"
#include "fuzz.h"
#include "utils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> file = Input(data, size).Bytes(size);

    if (const std::optional<AccessoryImage> image = ParseAccessoryImage(file)) {
        Utils::crc32(image->image.data(), static_cast<uint32_t>(image->image.size()));
        Require(image->image.data() >= file.data() && image->image.data() + image->image.size() <= file.data() + size);
        Require(image->version.AsNumber() <= 0xFFFFFF);
        JudgeImageVersion({1, 2, 3}, image->version, size % 2 == 0);
    }
    return 0;
}
