// ProtoFieldWriter: writes one flat protobuf message field by field onto a MemoryStream.
//
// The answers and notifications that carry state of the camera's services are written with it instead of with the
// generated classes. Their enumerations are closed: a generated setter asserts in debug builds on a value outside its
// enumeration, reflection moves such a value behind all other fields, and text that is not UTF-8 is complained about.
// What the services say goes out as it is, in every build type, and this path allocates nothing.
//
// Field numbers are those of the generated classes (k...FieldNumber). Fields written in ascending number give the bytes
// of the generated serialiser. The stream must have room: kMaxScalarField bytes a number, Bytes as said there.
#pragma once

#include <cstddef>
#include <cstdint>

class MemoryStream;

class ProtoFieldWriter {
  public:
    // A tag of at most 2 bytes (field numbers up to 2047) and a number of at most 10.
    static constexpr size_t kMaxScalarField = 12;

    explicit ProtoFieldWriter(MemoryStream& stream) : m_stream(stream) {}

    ProtoFieldWriter& Int(int field, int32_t value);  // int32 and enumerations
    ProtoFieldWriter& UInt(int field, uint32_t value);
    ProtoFieldWriter& Bool(int field, bool value);
    // string and bytes: a tag, a length of at most 3 bytes, the data as it is.
    ProtoFieldWriter& Bytes(int field, const void* data, uint16_t length);

  private:
    void Varint(uint64_t value);
    void Tag(int field, unsigned wireType);

    MemoryStream& m_stream;
};
