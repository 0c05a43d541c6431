// FlexValue and the making of values from JSON.
#include "FlexValue.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "MemStream.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "FlexValue.cpp";
constexpr const char* kAssertPath = "kzBleSdkD/src/FlexValue";

int LengthOfWidth(eValueWidth width, int stringLength) {
    switch (width) {
        case eValueWidth1Byte:
            return 1;
        case eValueWidth4Bytes:
            return 4;
        case eValueWidth8Bytes:
            return 8;
        case eValueWidthString:
            return stringLength > 0 ? stringLength : 0;
        case eValueWidthNone:
            break;
    }
    return 0;
}

template <typename Number>
void WriteBigEndian(uint8_t* to, Number value) {
    for (size_t i = 0; i < sizeof(value); ++i) {
        to[i] = static_cast<uint8_t>(value >> (8 * (sizeof(value) - 1 - i)));
    }
}

constexpr uint64_t kLargestInteger = std::numeric_limits<uint64_t>::max();

uint64_t IntegerOfText(const char* text) {
    if (*text == '-') {
        ++text;
    }
    uint64_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        const uint64_t digit = static_cast<uint64_t>(*text - '0');
        if (value > (kLargestInteger - digit) / 10) {
            return kLargestInteger;
        }
        value = value * 10 + digit;
    }
    return value;
}

uint64_t IntegerOfDouble(double number) {
    constexpr double kBeyond64Bits = 18446744073709551616.0;
    const double magnitude = std::fabs(number);
    return magnitude < kBeyond64Bits ? static_cast<uint64_t>(magnitude) : kLargestInteger;
}

uint64_t ExactInteger(const cJSON* item, const char* numberText) {
    if (!cJSON_IsNumber(item)) {
        return 0;
    }
    return numberText != nullptr ? IntegerOfText(numberText) : IntegerOfDouble(item->valuedouble);
}

FlexValue BuildString(const cJSON* item) {
    const char* text = cJSON_IsString(item) && item->valuestring != nullptr ? item->valuestring : "";
    FlexValue result(eValueWidthString, static_cast<int>(std::strlen(text)));
    result.SetValue(reinterpret_cast<const uint8_t*>(text));
    return result;
}

}  // namespace

FlexValue::FlexValue(eValueWidth width, int length) {
    Allocate(LengthOfWidth(width, length));
}

FlexValue::FlexValue(const FlexValue& other) : m_changed(other.m_changed) {
    Allocate(other.m_length);
    SetValue(other.GetDataPointer());
}

FlexValue& FlexValue::operator=(const FlexValue& other) {
    if (this == &other) {
        return *this;
    }
    // A buffer of the same length is filled again. The values of one id keep their width, so that copying them over and
    // over allocates nothing.
    if (m_length != other.m_length) {
        m_pString.reset();
        m_length = 0;
        Allocate(other.m_length);
    }
    m_changed = other.m_changed;
    SetValue(other.GetDataPointer());
    return *this;
}

void FlexValue::Allocate(int length) {
    if (length > kInlineSize) {
        m_pString = std::make_unique<uint8_t[]>(static_cast<size_t>(length));
    } else {
        std::memset(m_inline, 0, sizeof(m_inline));
    }
    m_length = length;
}

void FlexValue::GetData(const uint8_t*& data, unsigned int& length) const {
    data = GetDataPointer();
    length = static_cast<unsigned int>(m_length);
}

bool FlexValue::SetValue(const uint8_t* bytes) {
    if (m_length > 0) {  // memcpy must not be called with a null pointer, which is what an empty value may be set from
        std::memcpy(Storage(), bytes, static_cast<size_t>(m_length));
    }
    return true;
}

bool FlexValue::SetValue(uint8_t value) {
    Storage()[0] = value;
    return true;
}

bool FlexValue::SetValue(unsigned int value) {
    KZ_ASSERT_TRACED(m_length >= 4, kAssertPath, "m_length >= 4");
    WriteBigEndian(Storage(), value);
    return true;
}

bool FlexValue::SetValue(unsigned long value) {
    KZ_ASSERT_TRACED(m_length >= 8, kAssertPath, "m_length >= 8");
    WriteBigEndian(Storage(), static_cast<uint64_t>(value));
    return true;
}

bool FlexValue::SetValueByWidth(unsigned int value) {
    KZ_ASSERT_TRACED(m_length > 0, kAssertPath, "m_length > 0");
    uint8_t* bytes = Storage();
    for (int i = m_length - 1; i >= 0; --i) {
        bytes[i] = static_cast<uint8_t>(value);
        value >>= 8;
    }
    return true;
}

uint32_t FlexValue::GetUI32Value() const {
    KZ_ASSERT_TRACED(m_length > 0, kAssertPath, "m_length > 0");
    const uint8_t* bytes = GetDataPointer();
    uint32_t number = 0;
    for (int i = 0; i < m_length; ++i) {
        number = number << 8 | bytes[i];
    }
    return number;
}

uint8_t FlexValue::GetUI8Value() const {
    KZ_ASSERT_TRACED(m_length >= 1, kAssertPath, "m_length >= 1");
    return GetDataPointer()[0];
}

bool FlexValue::ValidateInput(MemoryStream& stream) {
    if (stream.getRemainder() == 0) {
        LOG_ERROR("Invalid stream, no byte left for a parameter length");
        return false;
    }
    const int requestedLength = stream.getBuffer()[stream.getLength()];
    const int remaining = stream.getRemainder() - 1;
    LOG_TRACE("validating requested_len (%d), remaining (%d)\n", requestedLength, remaining);
    if (requestedLength == 0) {
        LOG_ERROR("Invalid parameter length 0");
        return false;
    }
    if (requestedLength > remaining) {
        LOG_ERROR("Invalid stream length (%d) given stream only has %d bytes available", requestedLength, remaining);
        return false;
    }
    return true;
}

void FlexValue::Dump() const {
    if (kzUtilGetLogLevel() < KZ_LOG_TRACE) {
        return;
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    const uint8_t* bytes = GetDataPointer();
    std::string hex;
    hex.reserve(static_cast<size_t>(m_length) * 3);
    for (int i = 0; i < m_length; ++i) {
        hex += kDigits[bytes[i] >> 4];
        hex += kDigits[bytes[i] & 15];
        hex += ' ';
    }
    LOG_TRACE("m_length:%d hex_data:[%s]", m_length, hex.c_str());
}

MemoryStream& operator>>(MemoryStream& stream, FlexValue& result) {
    KZ_ASSERT_TRACED(result.m_length == 0, kAssertPath, "result.m_length == 0");
    KZ_ASSERT_TRACED(result.m_pString == nullptr, kAssertPath, "result.m_pString == NULL");
    uint8_t length = 0;
    stream >> length;
    result.Allocate(length);
    stream.readArray(result.Storage(), length);
    return stream;
}

FlexValue BuildFlexValue(const eValueWidth& width, const cJSON* item, const char* numberText) {
    switch (width) {
        case eValueWidth1Byte: {
            FlexValue result(width, 0);
            result.SetValue(static_cast<uint8_t>(item->valueint));
            return result;
        }
        case eValueWidth4Bytes: {
            FlexValue result(width, 0);
            result.SetValue(static_cast<unsigned int>(ExactInteger(item, numberText)));
            return result;
        }
        case eValueWidth8Bytes: {
            FlexValue result(width, 0);
            result.SetValue(static_cast<unsigned long>(ExactInteger(item, numberText)));
            return result;
        }
        case eValueWidthString:
            return BuildString(item);
        case eValueWidthNone:
            break;
    }
    LOG_ERROR("Unrecognized value type %d", static_cast<int>(width));
    return FlexValue(eValueWidthNone, 0);
}
