#include "blePacketHeader.h"

#include "MemStream.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "blePacketHeader.cpp";

constexpr unsigned char kContinuationFlag = 0x80;
constexpr unsigned char kLengthTypeMask = 0x60;
constexpr unsigned char kSimpleStart = 0x00;
constexpr unsigned char kExtendedStart = 0x20;
constexpr unsigned char kLongStart = 0x40;
constexpr unsigned char kLengthMask = 0x1F;

constexpr unsigned char LowByte(uint32_t value) {
    return static_cast<unsigned char>(value & 0xFF);
}

}  // namespace

unsigned WriteHeader(const BlePacketHeader& header, unsigned char* bytes) {
    if (!header.m_isStart) {
        bytes[0] = ContinuationHeader(header.m_counter);
        return 1;
    }
    const unsigned char high = LowByte(header.m_length >> 8);
    const unsigned char low = LowByte(header.m_length);
    switch (header.m_headerLength) {
        case 1:
            bytes[0] = low;
            return 1;
        case 2:
            bytes[0] = static_cast<unsigned char>(kExtendedStart | high);
            bytes[1] = low;
            return 2;
        case 3:
            bytes[0] = kLongStart;
            bytes[1] = high;
            bytes[2] = low;
            return 3;
        default:
            LOG_ERROR("Unhandled header length");
            return 0;
    }
}

MemoryStream& operator<<(MemoryStream& stream, const BlePacketHeader& header) {
    unsigned char bytes[kMaxHeaderSize];
    stream.writeArray(bytes, static_cast<unsigned short>(WriteHeader(header, bytes)));
    return stream;
}

MemoryStream& operator>>(MemoryStream& stream, BlePacketHeader& header) {
    unsigned char first = 0;
    stream >> first;
    if ((first & kContinuationFlag) != 0) {
        return stream;
    }
    header.m_isStart = true;
    switch (first & kLengthTypeMask) {
        case kSimpleStart:
            LOG_INFO("Header has simple length");
            header.m_length = first & kLengthMask;
            break;
        case kExtendedStart: {
            LOG_INFO("Header has extendel length");
            unsigned char second = 0;
            stream >> second;
            header.m_length = (static_cast<uint32_t>(first & kLengthMask) << 8) | second;
            header.m_headerLength = 2;
            break;
        }
        default:
            LOG_ERROR("Error in format of SDK message, unsupported RLE type. FirstByte is:0x%02x", first);
            break;
    }
    return stream;
}
