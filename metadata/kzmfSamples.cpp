// Samples are converted to big-endian where they will stay.
#include "kzmfSamples.h"

#include <bit>
#include <cstring>

namespace {

template <typename Value>
Value Reversed(Value value) {
    if constexpr (sizeof(Value) == 2) {
        return __builtin_bswap16(value);
    } else if constexpr (sizeof(Value) == 4) {
        return __builtin_bswap32(value);
    } else {
        return __builtin_bswap64(value);
    }
}

void CopyBytes(uint8_t* out, const uint8_t* data, uint32_t size) {
    if (size != 0) {
        std::memcpy(out, data, size);
    }
}

// Bytes behind the last whole unit are copied as they are.
template <typename Value>
void CopyReversed(uint8_t* out, const uint8_t* data, uint32_t size) {
    constexpr uint32_t kUnit = sizeof(Value);
    uint32_t at = 0;
    for (; size - at >= kUnit; at += kUnit) {
        Value value;
        std::memcpy(&value, data + at, kUnit);
        value = Reversed(value);
        std::memcpy(out + at, &value, kUnit);
    }
    if (at < size) [[unlikely]] {
        CopyBytes(out + at, data + at, size - at);
    }
}

void CopyToBigEndian(uint8_t* out, const uint8_t* data, uint32_t size, int swapUnit) {
    if constexpr (std::endian::native == std::endian::big) {
        swapUnit = 1;
    }
    switch (swapUnit) {
        case 2:
            return CopyReversed<uint16_t>(out, data, size);
        case 4:
            return CopyReversed<uint32_t>(out, data, size);
        case 8:
            return CopyReversed<uint64_t>(out, data, size);
        default:
            return CopyBytes(out, data, size);
    }
}

// One sample whose fields `typeText` names. The walk ends with the text, at the first character that is no type, or at
// the first field that does not fit the sample; what is left of the sample is copied as it is.
void CopyComplexSample(uint8_t* out, const uint8_t* data, uint32_t structureSize, const char* typeText) {
    uint32_t at = 0;
    for (const char* type = typeText; *type != '\0'; ++type) {
        const uint32_t character = static_cast<uint8_t>(*type);
        const int fieldSize = MetadataTypeSize(character);
        if (fieldSize < 0 || static_cast<uint32_t>(fieldSize) > structureSize - at) {
            break;
        }
        CopyToBigEndian(out + at, data + at, static_cast<uint32_t>(fieldSize), MetadataEndianSize(character));
        at += static_cast<uint32_t>(fieldSize);
    }
    CopyBytes(out + at, data + at, structureSize - at);
}

}  // namespace

void KzmfPutData(uint8_t* out, const KzmfSamples& samples, const char* typeText) {
    if ((samples.flags & kKzmfBigEndian) != 0) {
        CopyBytes(out, samples.data, samples.DataSize());
    } else if (samples.type == kTypeComplex) {
        for (uint32_t i = 0; i < samples.repeat; ++i) {
            const uint32_t at = i * samples.structureSize;
            CopyComplexSample(out + at, samples.data + at, samples.structureSize, typeText);
        }
    } else {
        CopyToBigEndian(out, samples.data, samples.DataSize(), MetadataEndianSize(samples.type));
    }
}
