// An independent reader of KZMF: turns bytes of any origin into a tree of records, and records into values. For tools
// and tests; it shares no code with the writer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

struct KzmfRecord {
    std::string key;             // four characters
    char type = '\0';            // 0 for a container
    uint32_t structureSize = 0;  // bytes per sample
    uint32_t repeat = 0;         // samples
    size_t offset = 0;           // of the record's first byte in the buffer
    std::vector<uint8_t> data;   // structureSize * repeat bytes, big-endian; empty for a container
    std::vector<KzmfRecord> children;

    bool IsContainer() const { return type == '\0'; }
    // The first child with this key, or null.
    const KzmfRecord* Child(std::string_view childKey) const;
};

struct KzmfDocument {
    std::vector<KzmfRecord> devices;  // as far as the buffer could be read
    std::string error;                // empty when the whole buffer is sound
    size_t errorOffset = 0;           // where reading stopped
};

// Reads a payload: "DEVC" containers to the buffer's end, containers in containers at most 16 deep.
KzmfDocument ReadKzmf(std::span<const uint8_t> buffer);

// One value of a sample: a number of the types whose meaning is known, text ('c', 'u'), or raw bytes.
using KzmfValue = std::variant<int64_t, uint64_t, double, std::string, std::vector<uint8_t>>;

// The samples of a record, each a list of values in order. `typeText` is the text of the stream's "TYPE" record, used
// for '?' alone. Text of structure size 1 is one sample. Bytes of a sample that make no whole value become one raw
// value.
std::vector<std::vector<KzmfValue>> DecodeKzmfSamples(const KzmfRecord& record, std::string_view typeText);

// The text of the stream's "TYPE" record, empty when it has none.
std::string KzmfTypeText(const KzmfRecord& stream);
// The first sample of `key` in `container` as a number; `fallback` when there is none.
uint64_t KzmfNumber(const KzmfRecord& container, std::string_view key, uint64_t fallback);
