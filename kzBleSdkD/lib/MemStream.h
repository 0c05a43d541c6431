// MemoryStream: the one reader and writer of bytes of every serialiser. It walks a buffer that somebody else owns, with
// a position and a hard limit; it never allocates and never grows.
//
// 16- and 32-bit values are little-endian at any position. Going past the limit is a calling error and aborts the
// process (traced assertion): nothing is copied, the position stays. Whoever takes a length out of received data
// therefore compares it with getRemainder() first. Not thread-safe; the buffer must outlive the stream and every copy
// of it.
#pragma once

#include <cstring>

#include "littleEndian.h"

class MemoryStream {
  public:
    // An empty stream: no buffer, no room.
    MemoryStream() = default;
    // A stream over `length` bytes of `buffer`, at position 0.
    MemoryStream(unsigned char* buffer, unsigned short length) : m_buffer(buffer), m_sourceLen(length) {}
    // A copy walks the same buffer with a position of its own.
    MemoryStream(const MemoryStream&) = default;
    MemoryStream& operator=(const MemoryStream&) = default;
    virtual ~MemoryStream() = default;

    // Dumps the whole bound area at level 6.
    virtual void dumpAll() const;

    // Binds the stream to another buffer, at position 0.
    void attach(unsigned char* buffer, unsigned short length) {
        m_index = 0;
        m_buffer = buffer;
        m_sourceLen = length;
    }
    void reset() { m_index = 0; }

    unsigned char* getBuffer() const { return m_buffer; }
    // Bytes read or written so far, not the capacity.
    unsigned short getLength() const { return m_index; }
    // Bytes left before the limit; 0 when m_index was moved beyond it.
    unsigned short getRemainder() const {
        return static_cast<unsigned short>(m_index < m_sourceLen ? m_sourceLen - m_index : 0);
    }
    // The limit: how many bytes of the buffer the stream may touch.
    unsigned short getSourceLength() const { return m_sourceLen; }

    void writeArray(const void* data, unsigned short len) {
        if (m_index + len > m_sourceLen) [[unlikely]] {
            writeFailed();
        }
        if (len != 0) {
            std::memcpy(m_buffer + m_index, data, len);
            m_index = static_cast<unsigned short>(m_index + len);
        }
    }
    // Appends what `other` holds between its position and its limit; the position of `other` stays. The two may walk
    // the same buffer.
    void writeRemainder(const MemoryStream& other);
    void readArray(void* out, unsigned short len) {
        if (m_index + len > m_sourceLen) [[unlikely]] {
            readFailed();
        }
        if (len != 0) {
            std::memcpy(out, m_buffer + m_index, len);
            m_index = static_cast<unsigned short>(m_index + len);
        }
    }

    // Logs `name` ("MemStream" when null) with the position, then dumps the bytes read or written so far; level 6.
    void dump(const char* name) const;
    // Logs `len` bytes in hexadecimal at level 6, 16 a line; "None\n" for a null pointer.
    static void dumpArray(const unsigned char* data, unsigned short len);

    // Position of the next read or write. No operation moves it beyond m_sourceLen.
    unsigned short m_index = 0;

  private:
    [[noreturn]] static void writeFailed();
    [[noreturn]] static void readFailed();

    unsigned char* m_buffer = nullptr;

  public:
    // Bytes of the buffer that the stream may touch.
    unsigned short m_sourceLen = 0;
};

inline MemoryStream& operator<<(MemoryStream& stream, unsigned char const& value) {
    stream.writeArray(&value, sizeof(value));
    return stream;
}

inline MemoryStream& operator<<(MemoryStream& stream, unsigned short const& value) {
    const unsigned char bytes[] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)};
    stream.writeArray(bytes, sizeof(bytes));
    return stream;
}

inline MemoryStream& operator<<(MemoryStream& stream, unsigned int const& value) {
    const unsigned char bytes[] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
                                   static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    stream.writeArray(bytes, sizeof(bytes));
    return stream;
}

inline MemoryStream& operator<<(MemoryStream& stream, int const& value) {
    return stream << static_cast<unsigned int>(value);
}

inline MemoryStream& operator>>(MemoryStream& stream, unsigned char& value) {
    stream.readArray(&value, sizeof(value));
    return stream;
}

inline MemoryStream& operator>>(MemoryStream& stream, unsigned short& value) {
    unsigned char bytes[2];
    stream.readArray(bytes, sizeof(bytes));
    value = ReadLittleEndian16(bytes);
    return stream;
}

inline MemoryStream& operator>>(MemoryStream& stream, unsigned int& value) {
    unsigned char bytes[4];
    stream.readArray(bytes, sizeof(bytes));
    value = ReadLittleEndian32(bytes);
    return stream;
}

inline MemoryStream& operator>>(MemoryStream& stream, int& value) {
    unsigned int bits = 0;
    stream >> bits;
    value = static_cast<int>(bits);
    return stream;
}
