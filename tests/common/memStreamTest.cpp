// The byte stream: layouts, positions, and the limit that nothing passes.
#include "MemStream.h"

#include <gtest/gtest.h>

#include <vector>

#include "logCapture.h"
#include "privateTmp.h"
#include "utils.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;

class Stream : public testing::Test {
  protected:
    Bytes written() const { return {m_buffer, m_buffer + m_stream.getLength()}; }
    unsigned char m_buffer[20] = {};
    MemoryStream m_stream{m_buffer, sizeof(m_buffer)};
};

}  // namespace

TEST_F(Stream, NumbersAreLittleEndianAtAnyPosition) {
    m_stream << static_cast<unsigned char>(0x7F) << static_cast<unsigned short>(0x0102) << 0x0A0B0C0Du << -2;

    EXPECT_EQ(written(), (Bytes{0x7F, 0x02, 0x01, 0x0D, 0x0C, 0x0B, 0x0A, 0xFE, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(m_stream.getRemainder(), 9);
    m_stream.reset();
    unsigned char byte = 0;
    unsigned short half = 0;
    unsigned int word = 0;
    int negative = 0;
    m_stream >> byte >> half >> word >> negative;
    EXPECT_TRUE(byte == 0x7F && half == 0x0102 && word == 0x0A0B0C0D && negative == -2);
}

TEST_F(Stream, LengthIsThePositionAndRemainderTheRoomEvenBeyondTheEnd) {
    MemoryStream copy = m_stream;
    copy.writeArray("abcde", 5);
    EXPECT_TRUE(copy.getLength() == 5 && copy.getRemainder() == 15 && copy.getSourceLength() == 20);
    EXPECT_TRUE(m_stream.getLength() == 0 && m_buffer[4] == 'e') << "copies walk the same buffer apart";
    copy.m_index = 25;
    EXPECT_EQ(copy.getRemainder(), 0);
    copy.attach(m_buffer, 3);
    EXPECT_TRUE(copy.getLength() == 0 && copy.getRemainder() == 3);
}

TEST_F(Stream, RemainderOfAnotherIsAppendedWithoutMovingIt) {
    unsigned char source[] = {0, 1, 2, 3, 4, 5};
    MemoryStream other(source, sizeof(source));
    other.m_index = 3;

    m_stream.writeRemainder(other);

    EXPECT_EQ(written(), (Bytes{3, 4, 5}));
    EXPECT_EQ(other.m_index, 3);
}

TEST_F(Stream, LastBytesFitExactlyAndWhateverPassesTheLimitAborts) {
    fakes::EnterPrivateTmp();  // assertions are also appended to a file there
    constexpr const char* kWrite = "MemStream/writeArray:[0-9]+:\\(m_index \\+ len\\) <= m_sourceLen";
    constexpr const char* kRead = "MemStream/readArray:[0-9]+:m_index \\+ len <= m_sourceLen";
    m_stream.m_index = 19;
    MemoryStream two(m_buffer, 2);
    MemoryStream empty;
    unsigned short half = 0;
    int number = 0;

    EXPECT_DEATH(m_stream << half, kWrite);
    EXPECT_DEATH(m_stream << number, kWrite);
    EXPECT_DEATH(m_stream.writeArray(m_buffer, 65535), kWrite);
    EXPECT_DEATH(m_stream.writeRemainder(two), kWrite);
    EXPECT_DEATH(empty << static_cast<unsigned char>(1), kWrite);
    EXPECT_DEATH(m_stream >> half, kRead);
    EXPECT_DEATH(m_stream >> number, kRead);
    EXPECT_DEATH(m_stream.readArray(m_buffer, 2), kRead);

    m_stream << static_cast<unsigned char>(1);
    m_stream.writeArray(nullptr, 0);
    m_stream.readArray(nullptr, 0);
    EXPECT_EQ(m_stream.m_index, 20);
}

TEST_F(Stream, DumpShowsSixteenBytesALineAtItsLevel) {
    fakes::LogCapture log(KZ_LOG_TRACE);
    Bytes seventeen(17, 0x0F);
    m_stream.writeArray("\x01\xAB\x20", 3);
    m_stream.dump("name");
    MemoryStream().dump(nullptr);
    MemoryStream(seventeen.data(), 17).dumpAll();
    for (const char* text : {"name: m_index:3 @MemStream.cpp:", "[TRACE] 01 ab 20 \n @MemStream.cpp:",
                             "MemStream: m_index:0 @", "[TRACE] None\n @", "0f 0f \n0f \n @"}) {
        EXPECT_EQ(log.Count(text), 1u) << text;
    }
    log.Clear();
    g_logLevel = KZ_LOG_INFO;
    m_stream.dump("name");
    m_stream.dumpAll();
    EXPECT_EQ(log.Texts(), Texts{});
}
