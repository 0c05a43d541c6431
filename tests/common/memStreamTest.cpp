// The byte stream: layouts, positions, and the limit that nothing passes.
#include "MemStream.h"

#include <gtest/gtest.h>

#include <vector>

#include "logCapture.h"
#include "privateTmp.h"
#include "utils.h"

namespace {

using Bytes = std::vector<unsigned char>;

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

TEST_F(Stream, CopiesWalkTheSameBufferApartAndTheRemainderOfAnotherIsAppended) {
    MemoryStream copy = m_stream;
    copy.writeArray("abcde", 5);
    copy.m_index = 25;
    EXPECT_EQ(copy.getRemainder(), 0) << "beyond the end";
    copy.attach(m_buffer, 5);
    copy.m_index = 3;

    m_stream.writeRemainder(copy);

    EXPECT_EQ(written(), (Bytes{'d', 'e'}));
    EXPECT_EQ(copy.m_index, 3);
}

TEST_F(Stream, LastBytesFitExactlyAndWhateverPassesTheLimitAborts) {
    fakes::EnterPrivateTmp();  // assertions are also appended to a file there
    m_stream.m_index = 19;
    const MemoryStream two(m_buffer, 2);
    unsigned short half = 0;

    EXPECT_DEATH(m_stream.writeRemainder(two), "MemStream/writeArray:[0-9]+:\\(m_index \\+ len\\) <= m_sourceLen");
    EXPECT_DEATH(m_stream >> half, "MemStream/readArray:[0-9]+:m_index \\+ len <= m_sourceLen");

    m_stream << static_cast<unsigned char>(1);
    m_stream.writeArray(nullptr, 0);
    m_stream.readArray(nullptr, 0);
    EXPECT_EQ(m_stream.m_index, 20);
}

TEST_F(Stream, DumpShowsSixteenBytesALine) {
    const fakes::LogCapture log(KZ_LOG_TRACE);
    m_stream.writeArray("\x01\xAB\x20++++++++++++++", 17);
    m_stream.dump("name");
    MemoryStream().dump(nullptr);
    EXPECT_EQ(log.Texts(),
              (std::vector<std::string>{"name: m_index:17", "01 ab 20 2b 2b 2b 2b 2b 2b 2b 2b 2b 2b 2b 2b 2b \n2b \n",
                                        "MemStream: m_index:0", "None\n"}));
}
