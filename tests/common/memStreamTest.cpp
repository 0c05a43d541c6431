// The byte stream: layouts, positions, and the limit that nothing passes.
#include "MemStream.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "fakeSystem.h"
#include "utils.h"

namespace {

using Bytes = std::vector<unsigned char>;

class Stream : public testing::Test {
  protected:
    Bytes written(const MemoryStream& stream) const {
        return {stream.getBuffer(), stream.getBuffer() + stream.getLength()};
    }
    unsigned char m_buffer[20] = {};
    MemoryStream m_stream{m_buffer, sizeof(m_buffer)};
};

TEST_F(Stream, NumbersAreLittleEndianAtAnyPosition) {
    const unsigned char byte = 0x7F;
    const unsigned short half = 0x0102;
    const unsigned int word = 0x0A0B0C0D;
    const int negative = -2;

    m_stream << byte << half << word << negative;

    EXPECT_EQ(written(m_stream), (Bytes{0x7F, 0x02, 0x01, 0x0D, 0x0C, 0x0B, 0x0A, 0xFE, 0xFF, 0xFF, 0xFF}));
    m_stream.reset();
    unsigned char readByte = 0;
    unsigned short readHalf = 0;
    unsigned int readWord = 0;
    int readNegative = 0;
    m_stream >> readByte >> readHalf >> readWord >> readNegative;
    EXPECT_EQ(readByte, byte);
    EXPECT_EQ(readHalf, half);
    EXPECT_EQ(readWord, word);
    EXPECT_EQ(readNegative, negative);
}

TEST_F(Stream, LengthIsThePositionAndRemainderTheRoom) {
    m_stream.writeArray("abcde", 5);
    EXPECT_EQ(m_stream.getLength(), 5);
    EXPECT_EQ(m_stream.getRemainder(), 15);
    EXPECT_EQ(m_stream.getSourceLength(), 20);

    m_stream.m_index = 25;
    EXPECT_EQ(m_stream.getRemainder(), 0);

    m_stream.reset();
    EXPECT_EQ(m_stream.getLength(), 0);
    EXPECT_EQ(m_stream.getRemainder(), 20);

    unsigned char other[3];
    m_stream << 1;
    m_stream.attach(other, sizeof(other));
    EXPECT_EQ(m_stream.getLength(), 0);
    EXPECT_EQ(m_stream.getRemainder(), 3);
}

TEST_F(Stream, RemainderOfAnotherIsAppendedWithoutMovingIt) {
    unsigned char source[10];
    std::iota(std::begin(source), std::end(source), static_cast<unsigned char>(0));
    MemoryStream other(source, sizeof(source));
    other.m_index = 3;

    m_stream.writeRemainder(other);
    EXPECT_EQ(written(m_stream), (Bytes{3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(other.m_index, 3);

    other.m_index = 10;
    m_stream.writeRemainder(other);
    EXPECT_EQ(m_stream.getLength(), 7);
    EXPECT_EQ(other.m_index, 10);
}

TEST_F(Stream, CopiesWalkTheSameBufferApart) {
    MemoryStream copy = m_stream;

    copy.writeArray("xyz", 3);

    EXPECT_EQ(m_stream.getLength(), 0);
    EXPECT_EQ(m_buffer[2], 'z');
}

TEST_F(Stream, LastBytesFitExactly) {
    m_stream.m_index = 18;
    m_stream << static_cast<unsigned short>(1);
    EXPECT_EQ(m_stream.m_index, 20);
    m_stream.writeArray(nullptr, 0);
    m_stream.readArray(nullptr, 0);
    EXPECT_EQ(m_stream.m_index, 20);
}

using StreamDeathTest = Stream;

TEST_F(StreamDeathTest, EveryWritePastTheLimitAborts) {
    const fake::PrivateFiles files;
    constexpr const char* kText =
        "ASSERT:kzBleSdkD/lib/MemStream/writeArray:[0-9]+:\\(m_index \\+ len\\) <= m_sourceLen";
    m_stream.m_index = 19;
    MemoryStream two(m_buffer, 2);
    MemoryStream empty;

    EXPECT_DEATH(m_stream << static_cast<unsigned short>(1), kText);
    EXPECT_DEATH(m_stream << 1u, kText);
    EXPECT_DEATH(m_stream << 1, kText);
    EXPECT_DEATH(m_stream.writeArray("ab", 2), kText);
    EXPECT_DEATH(m_stream.writeArray(m_buffer, 65535), kText);
    EXPECT_DEATH(m_stream.writeRemainder(two), kText);
    EXPECT_DEATH(empty << static_cast<unsigned char>(1), kText);
}

TEST_F(StreamDeathTest, EveryReadPastTheLimitAborts) {
    const fake::PrivateFiles files;
    constexpr const char* kText = "ASSERT:kzBleSdkD/lib/MemStream/readArray:[0-9]+:m_index \\+ len <= m_sourceLen";
    m_stream.m_index = 19;
    MemoryStream empty;
    unsigned char byte = 0;
    unsigned short half = 0;
    unsigned int word = 0;
    int number = 0;
    char text[2];

    EXPECT_DEATH(m_stream >> half, kText);
    EXPECT_DEATH(m_stream >> word, kText);
    EXPECT_DEATH(m_stream >> number, kText);
    EXPECT_DEATH(m_stream.readArray(text, 2), kText);
    EXPECT_DEATH(empty >> byte, kText);
}

TEST_F(Stream, DumpShowsSixteenBytesALine) {
    const fake::CleanLog clean;
    m_stream.writeArray("\x01\xAB\x20", 3);

    m_stream.dump("name");
    MemoryStream().dump(nullptr);
    Bytes seventeen(17, 0x0F);
    MemoryStream(seventeen.data(), 17).dumpAll();

    ASSERT_EQ(fake::systemLog().size(), 5u);
    EXPECT_EQ(fake::countLogged("name: m_index:3 @MemStream.cpp:"), 1u);
    EXPECT_EQ(fake::countLogged("[TRACE] 01 ab 20 \n @MemStream.cpp:"), 1u);
    EXPECT_EQ(fake::countLogged("MemStream: m_index:0 @"), 1u);
    EXPECT_EQ(fake::countLogged("[TRACE] None\n @"), 1u);
    EXPECT_EQ(fake::countLogged("0f 0f \n0f \n @"), 1u);
}

TEST_F(Stream, DumpBelowItsLevelIsSilent) {
    const fake::CleanLog clean(KZ_LOG_INFO);

    m_stream.dump("name");
    m_stream.dumpAll();
    MemoryStream::dumpArray(nullptr, 0);

    EXPECT_TRUE(fake::systemLog().empty());
}

}  // namespace
