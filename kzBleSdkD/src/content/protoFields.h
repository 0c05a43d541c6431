// ProtoFieldWriter: writes one flat protobuf message field by field onto a MemoryStream.
//
// The answers and notifications that carry state of the camera's services are written with it instead of with the
// generated classes, because what the services say must go out as it is. The generated enumerations are closed: a
// setter asserts in debug builds on a number outside its enumeration, and reflection moves such a number behind all
// other fields. The runtime also logs a complaint about text that is not UTF-8. And nothing is allocated here.
//
// Field numbers are those of the generated classes (k...FieldNumber). Written in ascending order of their numbers,
// fields give the bytes that the generated serialiser gives. The stream must have room: kMaxScalarField bytes for a
// number; for Bytes see there.
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
    // string and bytes. Takes a tag of at most 2 bytes, a length of at most 3 and the data.
    ProtoFieldWriter& Bytes(int field, const void* data, uint16_t length);

  private:
    void Varint(uint64_t value);
    void Tag(int field, unsigned wireType);

    MemoryStream& m_stream;
};
