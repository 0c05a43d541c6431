// A stream with a buffer of its own for the writer's tests, and bytes as readable text.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kzmfStream.h"
#include "kzmfWriter.h"

// "48 52 41 54"
inline std::string Hex(std::span<const uint8_t> bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += text.empty() ? "" : " ";
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

// The number of a key given at run time.
inline uint32_t Key(const std::string& text) {
    return KzmfReadKey(reinterpret_cast<const uint8_t*>(text.data()));
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

    uint32_t Write(const char* key, char type, uint32_t structureSize, uint32_t repeat, std::span<const uint8_t> data,
                   uint32_t flags = 0, float timeOffset = 0.0F) const {
        return MetadataStreamWrite(handle(), Key(key), static_cast<uint8_t>(type), structureSize, repeat, data.data(),
                                   flags, timeOffset);
    }
    // One 16-bit sample in the machine's byte order.
    uint32_t WriteS(const char* key, uint16_t value, uint32_t flags = 0, float timeOffset = 0.0F) const {
        return MetadataStreamWrite(handle(), Key(key), 'S', 2, 1, &value, flags, timeOffset);
    }
    uint32_t WriteL(const char* key, uint32_t value, uint32_t flags = 0) const {
        return MetadataStreamWrite(handle(), Key(key), 'L', 4, 1, &value, flags, 0.0F);
    }
    uint32_t WriteText(const char* key, const std::string& text, uint32_t flags = 0) const {
        return MetadataStreamWrite(handle(), Key(key), 'c', 1, static_cast<uint32_t>(text.size()), text.data(), flags,
                                   0.0F);
    }

    std::string Payload() const { return Hex({record().payload.data, record().payload.used}); }
    std::string Sticky() const { return Hex({record().sticky.data, record().sticky.used}); }

  private:
    std::unique_ptr<uint8_t[]> m_buffer;
};

// The payload of all streams now; their payload areas are empty afterwards.
inline std::vector<uint8_t> TakePayload(uint32_t bufferSize = 65536) {
    std::vector<uint8_t> buffer(bufferSize);
    void* payload = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(MetadataGetPayload(buffer.data(), bufferSize, &payload, &size), kKzmfDone);
    buffer.resize(size);
    return buffer;
}
