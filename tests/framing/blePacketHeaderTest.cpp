#include "blePacketHeader.h"

#include <gtest/gtest.h>

#include <vector>

#include "MemStream.h"

namespace {

using Bytes = std::vector<unsigned char>;

BlePacketHeader Continuation(uint8_t counter) {
    BlePacketHeader header;
    header.m_counter = counter;
    return header;
}

BlePacketHeader WithHeaderLength(int headerLength) {
    BlePacketHeader header(5);
    header.m_headerLength = headerLength;
    return header;
}

Bytes Written(const BlePacketHeader& header) {
    Bytes packet(kPacketSize);
    MemoryStream stream(packet.data(), static_cast<unsigned short>(packet.size()));
    stream << header;
    packet.resize(stream.getLength());
    return packet;
}

TEST(BlePacketHeaderTest, EachFormIsWrittenUpToItsLongestMessage) {
    const struct {
        BlePacketHeader header;
        Bytes expected;
    } rows[] = {
        {BlePacketHeader(0), {0x00}},
        {BlePacketHeader(5), {0x05}},
        {BlePacketHeader(19), {0x13}},
        {BlePacketHeader(20), {0x20, 0x14}},
        {BlePacketHeader(50), {0x20, 0x32}},
        {BlePacketHeader(8188), {0x3F, 0xFC}},
        {BlePacketHeader(8189), {0x40, 0x1F, 0xFD}},
        {BlePacketHeader(9002), {0x40, 0x23, 0x2A}},
        {BlePacketHeader(65535), {0x40, 0xFF, 0xFF}},
        {Continuation(0), {0x80}},
        {Continuation(15), {0x8F}},
        {Continuation(17), {0x81}},
        {WithHeaderLength(0), {}},
        {WithHeaderLength(4), {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Written(row.header), row.expected) << "length " << row.header.m_length;
    }
}

TEST(BlePacketHeaderTest, ReadingTakesTheFormsThatClientsSend) {
    const struct {
        Bytes bytes;
        bool isStart;
        uint32_t length;
        int headerLength;
        unsigned short read;
    } rows[] = {
        {{0x00, 0xFF}, true, 0, 1, 1},
        {{0x1F, 0xFF}, true, 31, 1, 1},
        {{0x21, 0x04}, true, 260, 2, 2},
        {{0x3F, 0xFF}, true, 8191, 2, 2},
        {{0x40, 0x23}, true, 0, 1, 1},  // the long form and the undefined one are
                                        // refused
        {{0x60, 0x23}, true, 0, 1, 1},
        {{0x80, 0xFF}, false, 0, 1, 1},
        {{0x9F, 0xFF}, false, 0, 1, 1},
        {{0xFF, 0xFF}, false, 0, 1, 1},
    };
    for (const auto& row : rows) {
        Bytes packet = row.bytes;
        packet.resize(kPacketSize);
        MemoryStream stream(packet.data(), kPacketSize);
        BlePacketHeader header;

        stream >> header;

        SCOPED_TRACE(testing::Message() << "first byte " << int(row.bytes[0]));
        EXPECT_EQ(header.m_isStart, row.isStart);
        EXPECT_EQ(header.m_length, row.length);
        EXPECT_EQ(header.m_headerLength, row.headerLength);
        EXPECT_EQ(header.m_counter, 0);
        EXPECT_EQ(stream.getLength(), row.read);
    }
}

}  // namespace
