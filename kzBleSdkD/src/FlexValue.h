// FlexValue: a short byte string that carries its own length and reads as an unsigned big-endian number or as raw bytes.
// Every setting, status and option value of the daemon is one.
#pragma once

#include <cstdint>

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
    // Zero-filled. `length` counts only for eValueWidthString; an unknown width makes an empty value.
    FlexValue(eValueWidth width, int length);
    FlexValue(const FlexValue& other);
    FlexValue(FlexValue&& other) noexcept;
    FlexValue& operator=(const FlexValue& other);
    FlexValue& operator=(FlexValue&& other) noexcept;
    virtual ~FlexValue();

    const uint8_t* GetDataPointer() const { return m_length <= kInlineSize ? m_inline : m_pString; }
    void GetData(const uint8_t*& data, unsigned int& length) const;
    int GetDataLength() const { return m_length; }

    bool HasChanged() const { return m_changed; }
    void SetChanged(bool changed) { m_changed = changed; }

    // Setters return true. A value too short for the setter is a calling error (traced assertion).
    bool SetValue(const uint8_t* bytes);  // copies the value's whole length
    bool SetValue(uint8_t value);         // first byte
    bool SetValue(unsigned int value);    // first 4 bytes, big-endian
    bool SetValue(unsigned long value);   // first 8 bytes, big-endian
    bool SetValueByWidth(unsigned int value);  // over the whole length, big-endian

    // The low 32 bits of the big-endian number. An empty value is a calling error.
    uint32_t GetUI32Value() const;
    // The first byte. An empty value is a calling error.
    uint8_t GetUI8Value() const;

    // Whether the stream's next byte, a length, is 1 or more and the rest of the stream holds that many bytes. Consumes
    // nothing; logs the reason when false.
    static bool ValidateInput(MemoryStream& stream);

    void Dump() const;

  private:
    static constexpr int kInlineSize = 4;
    friend MemoryStream& operator>>(MemoryStream& stream, FlexValue& result);

    uint8_t* Storage() { return m_length <= kInlineSize ? m_inline : m_pString; }
    void Allocate(int length);

    uint8_t m_inline[kInlineSize];
    uint8_t* m_pString;
    int m_length;
    bool m_changed;
};

// Reads a value in wire form, a length byte and that many bytes, into an empty value. Call ValidateInput first.
MemoryStream& operator>>(MemoryStream& stream, FlexValue& result);

// Makes a value of `width` from a JSON number or string of a push. `exact` numbers: see settingsCurrentValues.cpp, which
// takes the digits of 64-bit integers from the text, since a double cannot hold them.
FlexValue BuildFlexValue(const eValueWidth& width, const cJSON* item);
