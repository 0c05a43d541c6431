// The KZMF format: a self-describing stream of key-length-value records. Here stands what the writer and the validity
// check share.
//
// Record, multi-byte fields big-endian:
//   0  4  key: four characters, each A-Z, a-z, 0-9 or blank, first character first
//   4  1  type character; 0 means a container of further records
//   5  1  structure size: bytes per sample
//   6  2  repeat: number of samples
//   8  structure size * repeat bytes of data, then zero bytes up to the next multiple of 4
// A container longer than 65535 bytes has structure size 4 and repeat length / 4; a shorter one structure size 1.
//
// In a payload every top-level record is a "DEVC" container; it holds "DVID", "DVNM" and one "STRM" container a stream.
//
// Plain functions over caller-owned bytes; nothing here keeps state or allocates.
#pragma once

#include <array>
#include <cstdint>

constexpr uint32_t kKzmfHeaderSize = 8;
constexpr uint32_t kKzmfLongestPlainContainer = 65535;
constexpr uint32_t kKzmfLongestContainer = 4 * 65535;
// How deep containers may be nested. Deeper ones are refused, because the walk over them is recursive and its stack
// must stay bounded.
constexpr uint32_t kKzmfMaxDepth = 16;

// A key as a number: its first character is the low byte.
constexpr uint32_t KzmfKey(const char (&text)[5]) {
    return static_cast<uint32_t>(static_cast<uint8_t>(text[0])) |
           static_cast<uint32_t>(static_cast<uint8_t>(text[1])) << 8 |
           static_cast<uint32_t>(static_cast<uint8_t>(text[2])) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(text[3])) << 24;
}

constexpr uint32_t kKeyDevice = KzmfKey("DEVC");
constexpr uint32_t kKeyDeviceId = KzmfKey("DVID");
constexpr uint32_t kKeyDeviceName = KzmfKey("DVNM");
constexpr uint32_t kKeyStream = KzmfKey("STRM");
constexpr uint32_t kKeyTotalSamples = KzmfKey("TSMP");
constexpr uint32_t kKeyEmptyPayloads = KzmfKey("EMPT");
constexpr uint32_t kKeyTimeOffset = KzmfKey("TIMO");
constexpr uint32_t kKeyTypeText = KzmfKey("TYPE");
constexpr uint32_t kKeyPreformatted = KzmfKey("PFRM");

constexpr uint32_t kTypeContainer = 0;
constexpr uint32_t kTypeComplex = '?';

constexpr uint32_t KzmfRoundUp4(uint32_t size) {
    return (size + 3u) & ~3u;
}

inline uint32_t KzmfReadBE16(const uint8_t* bytes) {
    return static_cast<uint32_t>(bytes[0]) << 8 | bytes[1];
}
inline uint32_t KzmfReadBE32(const uint8_t* bytes) {
    return KzmfReadBE16(bytes) << 16 | KzmfReadBE16(bytes + 2);
}
inline void KzmfWriteBE16(uint8_t* bytes, uint32_t value) {
    bytes[0] = static_cast<uint8_t>(value >> 8);
    bytes[1] = static_cast<uint8_t>(value);
}
inline void KzmfWriteBE32(uint8_t* bytes, uint32_t value) {
    KzmfWriteBE16(bytes, value >> 16);
    KzmfWriteBE16(bytes + 2, value);
}
inline uint32_t KzmfReadKey(const uint8_t* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}
inline void KzmfWriteKey(uint8_t* bytes, uint32_t key) {
    bytes[0] = static_cast<uint8_t>(key);
    bytes[1] = static_cast<uint8_t>(key >> 8);
    bytes[2] = static_cast<uint8_t>(key >> 16);
    bytes[3] = static_cast<uint8_t>(key >> 24);
}
// The first 8 bytes of a record; structure size at most 255, repeat at most 65535.
inline void KzmfWriteHeader(uint8_t* bytes, uint32_t key, uint32_t type, uint32_t structureSize, uint32_t repeat) {
    KzmfWriteKey(bytes, key);
    bytes[4] = static_cast<uint8_t>(type);
    bytes[5] = static_cast<uint8_t>(structureSize);
    KzmfWriteBE16(bytes + 6, repeat);
}

// Fields of a record whose 8 header bytes are there; at most 255 * 65535 data bytes, so nothing wraps.
inline uint32_t KzmfRecordType(const uint8_t* record) {
    return record[4];
}
inline uint32_t KzmfRecordStructureSize(const uint8_t* record) {
    return record[5];
}
inline uint32_t KzmfRecordRepeat(const uint8_t* record) {
    return KzmfReadBE16(record + 6);
}
inline uint32_t KzmfRecordDataSize(const uint8_t* record) {
    return KzmfRecordStructureSize(record) * KzmfRecordRepeat(record);
}
// Header, data and padding.
inline uint32_t KzmfRecordSize(const uint8_t* record) {
    return kKzmfHeaderSize + KzmfRoundUp4(KzmfRecordDataSize(record));
}

inline constexpr auto kKzmfIsKeyCharacter = [] {
    std::array<bool, 256> valid{};
    for (unsigned c = 0; c < valid.size(); ++c) {
        valid[c] = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == ' ';
    }
    return valid;
}();
inline bool KzmfIsValidKey(uint32_t key) {
    return kKzmfIsKeyCharacter[key & 0xFF] && kKzmfIsKeyCharacter[key >> 8 & 0xFF] &&
           kKzmfIsKeyCharacter[key >> 16 & 0xFF] && kKzmfIsKeyCharacter[key >> 24];
}

// Bytes of one value of `type`; -1 for types that do not exist, and for '?', whose size its "TYPE" text gives.
int MetadataTypeSize(uint32_t type);
// Bytes of the unit in which values of `type` are swapped to big-endian; 1 for those that are never swapped; -1 where
// MetadataTypeSize gives -1.
int MetadataEndianSize(uint32_t type);

// Whether `buffer` is a whole sequence of records. Of the buffers shorter than a header only those of 0 to 3
// bytes are valid. At `level` 0
// each key must be "DEVC"; with `recurse` each container's data must be valid one level down, at most kKzmfMaxDepth
// levels. Any content is safe. MetadataIsValidKZMF checks at level 0.
bool IsValidKZMF(const void* buffer, uint32_t size, bool recurse, uint32_t level);
bool MetadataIsValidKZMF(const void* buffer, uint32_t size, bool recurse);
