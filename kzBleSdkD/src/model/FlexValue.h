// FlexValue: a short byte string that carries its own length and reads as an unsigned big-endian number or as raw
// bytes. Every setting, status and option value of the daemon is one.
//
// In wire form a value is a length byte n (0 to 255) and n bytes, a number's most significant byte first.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

class MemoryStream;
struct cJSON;

enum eValueWidth : unsigned {
    eValueWidthNone = 0,
    eValueWidth1Byte = 1,
    eValueWidth4Bytes = 2,
    eValueWidth8Bytes = 3,
    eValueWidthString = 4,
};

// Values of up to 4 bytes live inline, longer ones in an owned heap buffer. Not thread-safe.
class FlexValue {
  public:
    // An empty value, to be read into.
    FlexValue() : FlexValue(eValueWidthNone, 0) {}
    // A value of zero bytes: 1, 4 or 8 of them by the width, `length` of them for eValueWidthString (a negative length
    // counts as 0), none for eValueWidthNone and for an unknown width.
    FlexValue(eValueWidth width, int length);
    // Copies are deep and take the changed mark along; a value that was moved from is empty.
    FlexValue(const FlexValue& other);
    FlexValue(FlexValue&& other) noexcept { *this = std::move(other); }
    FlexValue& operator=(const FlexValue& other);
    FlexValue& operator=(FlexValue&& other) noexcept {
        if (this != &other) {
            std::memcpy(m_inline, other.m_inline, sizeof(m_inline));
            m_pString = std::move(other.m_pString);
            m_length = std::exchange(other.m_length, 0);
            m_changed = std::exchange(other.m_changed, false);
        }
        return *this;
    }
    virtual ~FlexValue() = default;

    // The value's bytes, GetDataLength() of them. Valid until the value is assigned, read into or destroyed.
    const uint8_t* GetDataPointer() const { return m_length <= kInlineSize ? m_inline : m_pString.get(); }
    void GetData(const uint8_t*& data, unsigned int& length) const;
    int GetDataLength() const { return m_length; }

    // Marks a value that a push of the control daemon carried and that clients were not notified of yet.
    bool HasChanged() const { return m_changed; }
    void SetChanged(bool changed) { m_changed = changed; }

    // The setters' result, always true, belongs to the public interface. Setting a value that is too short for the
    // number is a calling error (traced assertion).
    bool SetValue(const uint8_t* bytes);       // all GetDataLength() bytes, copied from `bytes`
    bool SetValue(uint8_t value);              // the first byte
    bool SetValue(unsigned int value);         // the first 4 bytes, big-endian
    bool SetValue(unsigned long value);        // the first 8 bytes, big-endian
    bool SetValueByWidth(unsigned int value);  // all bytes, big-endian; one that is too short takes the low bytes

    // The low 32 bits of the big-endian number. An empty value is a calling error (traced assertion).
    uint32_t GetUI32Value() const;
    // The first byte. An empty value is a calling error (traced assertion).
    uint8_t GetUI8Value() const;

    // Whether the stream's next byte, a length, is 1 or more and the rest of the stream holds that many bytes. Consumes
    // nothing; logs the reason when false.
    static bool ValidateInput(MemoryStream& stream);

    // Logs length and bytes at level 6.
    void Dump() const;

  private:
    static constexpr int kInlineSize = 4;
    friend MemoryStream& operator>>(MemoryStream& stream, FlexValue& result);

    uint8_t* Storage() { return m_length <= kInlineSize ? m_inline : m_pString.get(); }
    // Makes the value, which must be empty, `length` zero bytes long.
    void Allocate(int length);

    uint8_t m_inline[kInlineSize] = {};    // the bytes of a value of at most kInlineSize
    std::unique_ptr<uint8_t[]> m_pString;  // the m_length bytes of a longer value, else null
    int m_length = 0;
    bool m_changed = false;
};

// Reads a value in wire form into an empty value. Call ValidateInput first: a value that passes the end of the stream
// is a calling error, as is a `result` that is not empty (traced assertions).
MemoryStream& operator>>(MemoryStream& stream, FlexValue& result);

// Makes the value of a setting or status from its JSON number or string:
//
//   eValueWidth1Byte    low byte of the number, which is truncated toward zero and saturated to a signed 32-bit integer
//   eValueWidth4Bytes   low 32 bits of the number's exact integer
//   eValueWidth8Bytes   the exact integer
//   eValueWidthString   the string's characters, without terminator
//   any other           an empty value; logged
//
// The exact integer is what the digits before the point say, without sign, fraction and exponent ("-5" is 5, "12.9" is
// 12, "1e3" is 1); more than 64 bits saturate to 2^64 - 1. A double does not hold it, so `numberText` points at the
// number in the JSON text, where the first character that is no digit ends it (ObjectText in jsonText.h finds it).
// Without the text the item's double is used, which is right for integers up to 2^53. An item whose type does not suit
// the width counts as 0 or as the empty string; only true, in one byte, counts as 1.
FlexValue BuildFlexValue(const eValueWidth& width, const cJSON* item, const char* numberText = nullptr);
