// The samples of one store, and how they become the bytes of a record. For the writer's own sources.
#pragma once

#include <cstdint>

#include "kzmfFormat.h"
#include "kzmfWriter.h"

constexpr uint32_t kKzmfLargestStructure = 255;
constexpr uint32_t kKzmfLargestRepeat = 65535;

// The samples of one store: `repeat` samples of `structureSize` bytes each. `flags` are those of the store.
struct KzmfSamples {
    uint32_t key;
    uint32_t type;
    uint32_t structureSize;
    uint32_t repeat;
    const uint8_t* data;
    uint32_t flags;

    uint32_t DataSize() const { return structureSize * repeat; }
    uint32_t Length() const { return kKzmfHeaderSize + DataSize(); }  // of their record, without padding
    bool IsSticky() const { return (flags & kKzmfSticky) != 0; }
};

// Writes the data of a record, big-endian and without padding. `typeText` names the fields of samples of type '?'.
void KzmfPutData(uint8_t* out, const KzmfSamples& samples, const char* typeText);
// Writes zeroes from the end of `size` bytes of data up to the next multiple of 4. Inline, because every store ends
// with it, and a call would cost some percent of the store.
inline void KzmfPad(uint8_t* data, uint32_t size) {
    switch (size % 4) {
        case 1:
            data[size + 2] = 0;
            [[fallthrough]];
        case 2:
            data[size + 1] = 0;
            [[fallthrough]];
        case 3:
            data[size] = 0;
            [[fallthrough]];
        default:
            break;
    }
}
// Writes a whole record: header, data and padding.
inline void KzmfPutRecord(uint8_t* place, const KzmfSamples& samples, const char* typeText) {
    KzmfWriteHeader(place, samples.key, samples.type, samples.structureSize, samples.repeat);
    KzmfPutData(place + kKzmfHeaderSize, samples, typeText);
    KzmfPad(place + kKzmfHeaderSize, samples.DataSize());
}
