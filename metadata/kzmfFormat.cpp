#include "kzmfFormat.h"

#include <array>
#include <iterator>

namespace {

struct TypeRow {
    char type;
    int8_t size;      // bytes of one value
    int8_t swapUnit;  // bytes swapped together; 1 leaves a value as it is
};

constexpr TypeRow kTypes[] = {
    {'b', 1, 1}, {'B', 1, 1},  {'c', 1, 1},  {'u', 1, 1}, {'s', 2, 2}, {'S', 2, 2}, {'l', 4, 4}, {'L', 4, 4},
    {'h', 4, 4}, {'H', 4, 4},  {'f', 4, 4},  {'F', 4, 4}, {'q', 4, 4}, {'Q', 8, 8}, {'j', 8, 8}, {'J', 8, 8},
    {'d', 8, 8}, {'G', 16, 1}, {'U', 16, 1}, {'1', 1, 1}, {'2', 2, 1}, {'3', 3, 1}, {'4', 4, 1}, {'8', 8, 1},
};

// The table above, indexed by the type character, because it is looked up for every sample. Characters that are no type
// have zeroes.
struct TypeSizes {
    int8_t size;
    int8_t swapUnit;
};
constexpr auto kSizesOfType = [] {
    std::array<TypeSizes, 256> sizes{};
    for (const TypeRow& row : kTypes) {
        sizes[static_cast<uint8_t>(row.type)] = {row.size, row.swapUnit};
    }
    return sizes;
}();

bool IsType(uint32_t type) {
    return type < kSizesOfType.size() && kSizesOfType[type].size != 0;
}

}  // namespace

int MetadataTypeSize(uint32_t type) {
    return IsType(type) ? kSizesOfType[type].size : -1;
}

int MetadataEndianSize(uint32_t type) {
    return IsType(type) ? kSizesOfType[type].swapUnit : -1;
}

bool IsValidKZMF(const void* buffer, uint32_t size, bool recurse, uint32_t level) {
    if (size < kKzmfHeaderSize) {
        return size < 4;
    }
    if (level > kKzmfMaxDepth || buffer == nullptr) {
        return false;
    }
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    uint32_t offset = 0;
    while (size - offset >= kKzmfHeaderSize) {
        const uint8_t* record = bytes + offset;
        const uint32_t key = KzmfReadKey(record);
        if ((level == 0 && key != kKeyDevice) || !KzmfIsValidKey(key)) {
            return false;
        }
        const uint32_t recordSize = KzmfRecordSize(record);
        if (recordSize > size - offset) {
            return false;
        }
        if (recurse && KzmfRecordType(record) == kTypeContainer &&
            !IsValidKZMF(record + kKzmfHeaderSize, KzmfRecordDataSize(record), recurse, level + 1)) {
            return false;
        }
        offset += recordSize;
    }
    return offset == size;
}

bool MetadataIsValidKZMF(const void* buffer, uint32_t size, bool recurse) {
    return IsValidKZMF(buffer, size, recurse, 0);
}
