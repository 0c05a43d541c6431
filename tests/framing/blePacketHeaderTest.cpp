#include "blePacketHeader.h"

#include <gtest/gtest.h>

#include <vector>

#include "MemStream.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes Written(const BlePacketHeader& header) {
    Bytes packet(kPacketSize);
    MemoryStream stream(packet.data(), kPacketSize);
    stream << header;
    packet.resize(stream.getLength());
    return packet;
}

TEST(BlePacketHeaderTest, EachFormIsWrittenUpToItsLongestMessage) {
    EXPECT_EQ(Written(BlePacketHeader(0)), Bytes({0x00}));
    EXPECT_EQ(Written(BlePacketHeader(19)), Bytes({0x13}));
    EXPECT_EQ(Written(BlePacketHeader(20)), Bytes({0x20, 0x14}));
    EXPECT_EQ(Written(BlePacketHeader(8188)), Bytes({0x3F, 0xFC}));
    EXPECT_EQ(Written(BlePacketHeader(8189)), Bytes({0x40, 0x1F, 0xFD}));
    EXPECT_EQ(Written(BlePacketHeader(65535)), Bytes({0x40, 0xFF, 0xFF}));

    BlePacketHeader header;
    EXPECT_EQ(Written(header), Bytes({0x80}));
    header.m_counter = 17;
    EXPECT_EQ(Written(header), Bytes({0x81})) << "the counter wraps";
    header.m_isStart = true;
    header.m_headerLength = 4;
    EXPECT_EQ(Written(header), Bytes()) << "no such form";
}

TEST(BlePacketHeaderTest, ReadingTakesTheFormsThatClientsSend) {
    const struct {
        Bytes bytes;
        bool isStart;
        uint32_t length;
        int headerLength;  // as many are read
    } rows[] = {
        {{0x00, 0xFF}, true, 0, 1},    {{0x1F, 0xFF}, true, 31, 1}, {{0x21, 0x04}, true, 260, 2},
        {{0x3F, 0xFF}, true, 8191, 2}, {{0x40, 0x23}, true, 0, 1},  // the long form and the undefined one are refused
        {{0x60, 0x23}, true, 0, 1},    {{0x80, 0xFF}, false, 0, 1}, {{0xFF, 0xFF}, false, 0, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "first byte " << int(row.bytes[0]));
        Bytes packet = row.bytes;
        packet.resize(kPacketSize);
        MemoryStream stream(packet.data(), kPacketSize);
        BlePacketHeader header;

        stream >> header;

        EXPECT_EQ(header.m_isStart, row.isStart);
        EXPECT_EQ(header.m_length, row.length);
        EXPECT_EQ(header.m_headerLength, row.headerLength);
        EXPECT_EQ(header.m_counter, 0);
        EXPECT_EQ(stream.getLength(), row.headerLength);
    }
}

}  // namespace
