#include "blePacketHeader.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "MemStream.h"
#include "messageCutter.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes Written(const BlePacketHeader& header) {
    Bytes packet(kBlePacketSize);
    MemoryStream stream(packet.data(), kBlePacketSize);
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
        packet.resize(kBlePacketSize);
        MemoryStream stream(packet.data(), kBlePacketSize);
        BlePacketHeader header;

        stream >> header;

        EXPECT_EQ(header.m_isStart, row.isStart);
        EXPECT_EQ(header.m_length, row.length);
        EXPECT_EQ(header.m_headerLength, row.headerLength);
        EXPECT_EQ(header.m_counter, 0);
        EXPECT_EQ(stream.getLength(), row.headerLength);
    }
}

// The bytes are written out here: every other test cuts its messages with the cutter.
TEST(MessageCutterTest, MessageOfAnyLengthIsCutByteForByte) {
    for (size_t length = 0; length < 9000; length += length < 700 ? 1 : 83) {
        Bytes message(length);
        std::iota(message.begin(), message.end(), static_cast<unsigned char>(1));
        const auto high = static_cast<unsigned char>(length >> 8);
        const auto low = static_cast<unsigned char>(length);
        Bytes expected = length <= 19     ? Bytes{low}
                         : length <= 8188 ? Bytes{static_cast<unsigned char>(0x20 + high), low}
                                          : Bytes{0x40, high, low};
        for (const unsigned char byte : message) {
            if (expected.size() % 20 == 0) {
                expected.push_back(static_cast<unsigned char>(0x80 + (expected.size() / 20 - 1) % 16));
            }
            expected.push_back(byte);
        }

        MessageCutter cutter(static_cast<unsigned>(length));
        Bytes cut;
        while (cutter.HasNext()) {
            Bytes packet(kBlePacketSize, 0xEE);
            const size_t size = cutter.WriteNext(message.data(), packet.data());
            cut.insert(cut.end(), packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size));
        }
        ASSERT_EQ(cut, expected) << length;
    }
}

}  // namespace
