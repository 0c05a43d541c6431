#include "protoFields.h"

#include "MemStream.h"

namespace {

// Protobuf wire types.
constexpr unsigned kWireVarint = 0;
constexpr unsigned kWireLengthDelimited = 2;
constexpr unsigned kTagTypeBits = 3;

constexpr unsigned kVarintBits = 7;
constexpr uint64_t kVarintMore = 0x80;

}  // namespace

void ProtoFieldWriter::Varint(uint64_t value) {
    for (; value >= kVarintMore; value >>= kVarintBits) {
        m_stream << static_cast<unsigned char>(value | kVarintMore);
    }
    m_stream << static_cast<unsigned char>(value);
}

void ProtoFieldWriter::Tag(int field, unsigned wireType) {
    Varint(static_cast<uint64_t>(field) << kTagTypeBits | wireType);
}

ProtoFieldWriter& ProtoFieldWriter::Int(int field, int32_t value) {
    Tag(field, kWireVarint);
    Varint(static_cast<uint64_t>(static_cast<int64_t>(value)));  // negative numbers are sign-extended to 64 bits
    return *this;
}

ProtoFieldWriter& ProtoFieldWriter::UInt(int field, uint32_t value) {
    Tag(field, kWireVarint);
    Varint(value);
    return *this;
}

ProtoFieldWriter& ProtoFieldWriter::Bool(int field, bool value) {
    return UInt(field, value ? 1 : 0);
}

ProtoFieldWriter& ProtoFieldWriter::Bytes(int field, const void* data, uint16_t length) {
    Tag(field, kWireLengthDelimited);
    Varint(length);
    m_stream.writeArray(data, length);
    return *this;
}
