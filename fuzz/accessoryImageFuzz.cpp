// Firmware image files of any content: the header's length may claim anything.
//
// The file lies in a buffer of exactly its size. What is accepted must lie within it.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "accessoryImage.h"
#include "utils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<uint8_t[]> file(new uint8_t[size]);
    std::copy_n(data, size, file.get());

    const std::optional<AccessoryImage> image = ParseAccessoryImage({file.get(), size});

    if (image) {
        Utils::crc32(image->image.data(), static_cast<uint32_t>(image->image.size()));
        if (image->image.data() < file.get() || image->image.data() + image->image.size() > file.get() + size ||
            image->version.AsNumber() > 0xFFFFFF) {
            abort();
        }
        JudgeImageVersion({1, 2, 3}, image->version, size % 2 == 0);
    }
    return 0;
}
