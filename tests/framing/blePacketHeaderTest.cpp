#include "blePacketHeader.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "MemStream.h"
#include "messageCutter.h"

namespace {

using Bytes = std::vector<unsigned char>;

TEST(BlePacketHeaderTest, IsWrittenAsAStartOrAContinuation) {
    BlePacketHeader continuation;
    continuation.m_counter = 17;  // wraps
    Bytes packet(4, 0xEE);
    MemoryStream stream(packet.data(), 4);
    stream << BlePacketHeader(300) << continuation;
    EXPECT_EQ(packet, (Bytes{0x21, 0x2C, 0x81, 0xEE}));
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
    for (size_t length = 0; length <= 65535; length += length < 700 || (length > 8100 && length < 8200) ? 1 : 47) {
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
