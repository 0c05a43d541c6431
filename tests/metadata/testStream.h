// A stream with a buffer of its own, what a test stores in it, and records as readable text.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <numeric>
#include <span>
#include <string>
#include <vector>

#include "kzmfStream.h"
#include "kzmfWriter.h"

inline std::string Hex(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += {"0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 15]};
    }
    return text;
}

// Every byte of a sequence of records: key, type, structure size, repeat, and the data with its padding, as in
// "HRAT:S2x1:00480000"; a container's data as records, as in "STRM:1x12{HRAT:S2x1:00480000}". Bytes that are no whole
// record follow a '!'.
inline std::string Records(std::span<const uint8_t> bytes) {
    std::string text;
    while (bytes.size() >= 8) {
        const int repeat = bytes[6] << 8 | bytes[7];
        const size_t size = static_cast<size_t>(bytes[5] * repeat + 3) / 4 * 4;
        if (size > bytes.size() - 8) {
            break;
        }
        const bool container = bytes[4] == 0;
        text += (text.empty() ? "" : " ") + std::string(bytes.begin(), bytes.begin() + 4) + ":";
        text += (container ? "" : std::string(1, static_cast<char>(bytes[4]))) + std::to_string(bytes[5]) + "x";
        const auto data = bytes.subspan(8, size);
        text += std::to_string(repeat) + (container ? "{" + Records(data) + "}" : ":" + Hex(data));
        bytes = bytes.subspan(8 + size);
    }
    return text + (bytes.empty() ? "" : "!" + Hex(bytes));
}

// The number of a key given at run time.
inline uint32_t Key(const std::string& text) {
    return KzmfReadKey(reinterpret_cast<const uint8_t*>(text.data()));
}

// One store: as many samples of `size` bytes as `data` holds.
struct Store {
    const char* key;
    char type;
    uint32_t size;
    std::vector<uint8_t> data;
    uint32_t flags = 0;
    float timeOffset = 0.0F;
};
// One 16-bit sample, in the machine's byte order.
inline Store Sample(const char* key, uint16_t value, uint32_t flags = 0, float timeOffset = 0.0F) {
    return {key, 'S', 2, {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)}, flags, timeOffset};
}
inline Store Text(const char* key, const std::string& text, uint32_t flags = 0) {
    return {key, 'c', 1, {text.begin(), text.end()}, flags};
}
// 1, 2, 3, ...
inline std::vector<uint8_t> Counting(size_t size) {
    std::vector<uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

// Open from construction to destruction.
class TestStream {
  public:
    explicit TestStream(uint32_t deviceId = 1025, const char* name = "HRM", uint32_t bufferSize = 3000)
        : m_buffer(std::make_unique<uint8_t[]>(bufferSize)) {
        EXPECT_EQ(MetadataStreamOpen(deviceId, name, m_buffer.get(), bufferSize), m_buffer.get());
    }
    ~TestStream() { EXPECT_EQ(MetadataStreamClose(m_buffer.get()), m_buffer.get()); }
    TestStream(const TestStream&) = delete;
    TestStream& operator=(const TestStream&) = delete;

    void* handle() const { return m_buffer.get(); }
    const kzmfStream& record() const { return *reinterpret_cast<const kzmfStream*>(m_buffer.get()); }
    uint32_t Write(const Store& store) const {
        return MetadataStreamWrite(handle(), Key(store.key), static_cast<uint8_t>(store.type), store.size,
                                   static_cast<uint32_t>(store.data.size()) / store.size, store.data.data(),
                                   store.flags, store.timeOffset);
    }
    std::string Payload() const { return Records({record().payload.data, record().payload.used}); }
    std::string Sticky() const { return Records({record().sticky.data, record().sticky.used}); }

  private:
    std::unique_ptr<uint8_t[]> m_buffer;
};

// The payload of all streams now; their payload areas are empty afterwards.
inline std::vector<uint8_t> TakePayload(uint32_t bufferSize = 65536) {
    std::vector<uint8_t> buffer(bufferSize);
    uint32_t size = 0;
    EXPECT_EQ(MetadataGetPayload(buffer.data(), bufferSize, nullptr, &size), kKzmfDone);
    buffer.resize(size);
    return buffer;
}
