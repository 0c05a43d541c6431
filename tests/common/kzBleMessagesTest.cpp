// Msg and MsgElement: encoding, ownership, and decoding of bytes that cannot be trusted.
#include "kzBleMessages.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "fakeSystem.h"
#include "kzTlv.h"
#include "utils.h"

namespace {

using Bytes = std::vector<unsigned char>;

const Bytes kEvent = {0x00, 0x0E, 0x00, 0x16, 0x00, 0x00, 0x02, 0x45, 0x7B, 0x7D, 0x00, 0x00, 0x00, 0xEE};

// Decodes from an exact copy, so that a read past it is seen.
bool decode(Bytes bytes, Msg& message) {
    bytes.shrink_to_fit();
    MemoryStream stream(bytes.data(), static_cast<unsigned short>(bytes.size()));
    return message.decode(stream);
}

// Counts its destructions.
class CountedElement : public MsgElement {
  public:
    CountedElement(bool isStatic, int& destroyed) : MsgElement(TLV_CMD, isStatic), m_destroyed(destroyed) {}
    ~CountedElement() override { ++m_destroyed; }

  private:
    int& m_destroyed;
};

TEST(Msg, EncodesHeaderAndElementsFromTheStartOfTheStream) {
    unsigned char buffer[20] = {};
    MemoryStream stream(buffer, sizeof(buffer));
    stream.m_index = 7;
    Msg message(22);
    message.addElement(TLV_RSPARG, 2, "{}");
    message.addElement(TLV_END, 0, nullptr);

    stream << message;

    EXPECT_EQ(Bytes(buffer, buffer + stream.getLength()), kEvent);
    EXPECT_EQ(message.getSize(), 14);
}

TEST(Msg, DecodesWhatWasEncoded) {
    Msg message(0);
    message.addElement(TLV_CMD, 2, "XX");

    EXPECT_TRUE(decode(kEvent, message));

    EXPECT_EQ(message.getCategory(), 22);
    EXPECT_EQ(message.getSize(), 14);
    EXPECT_EQ(message.findElement(TLV_CMD), nullptr);
    const MsgElement* json = message.findElement(TLV_RSPARG);
    ASSERT_NE(json, nullptr);
    EXPECT_EQ(json->getDataLength(), 2);
    EXPECT_EQ(std::memcmp(json->getData(), "{}", 2), 0);
    EXPECT_FALSE(json->isStatic());
    const MsgElement* end = message.findElement(TLV_END);
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(end->getData(), nullptr);
}

TEST(Msg, EndsWithTheElementThatReachesItsLength) {
    for (unsigned char announced = 11; announced <= 14; ++announced) {
        Bytes bytes = kEvent;
        bytes[1] = announced;
        bytes.insert(bytes.end(), {0x00, 0x00, 0x00, TLV_CMD});
        MemoryStream stream(bytes.data(), static_cast<unsigned short>(bytes.size()));
        Msg message(0);

        stream >> message;

        EXPECT_EQ(stream.getLength(), kEvent.size());
        EXPECT_NE(message.findElement(TLV_END), nullptr);
        EXPECT_EQ(message.findElement(TLV_CMD), nullptr);
    }
}

TEST(Msg, IsRefusedAtEveryCutAndKeepsItsCategory) {
    for (size_t received = 0; received < kEvent.size(); ++received) {
        const fake::CleanLog clean(KZ_LOG_ERROR);
        Msg message(1);
        message.addElement(TLV_CMD, 2, "XX");

        EXPECT_FALSE(decode(Bytes(kEvent.begin(), kEvent.begin() + static_cast<ptrdiff_t>(received)), message));

        EXPECT_EQ(message.getCategory(), received < 4 ? 0 : 22) << received;
        EXPECT_EQ(message.getSize(), 4);
        EXPECT_EQ(fake::countLogged("[ERROR] TLV message"), 1u);
    }
}

TEST(Msg, LengthsThatDoNotHoldTogetherAreRefused) {
    const struct {
        size_t offset;
        unsigned char value;
    } cases[] = {
        {1, 3},     // total length below the header's
        {0, 0xFF},  // above what arrived
        {6, 3},     // the first element swallows one byte of the end marker
        {6, 7},     // the first element runs past the end
        {12, 1},    // so does the last
    };
    for (const auto& row : cases) {
        const fake::CleanLog clean(KZ_LOG_ERROR);
        Bytes bytes = kEvent;
        bytes[row.offset] = row.value;
        Msg message(0);

        EXPECT_FALSE(decode(bytes, message)) << row.offset;

        EXPECT_EQ(message.getSize(), 4);
        EXPECT_EQ(message.getCategory(), 22);
        EXPECT_EQ(fake::countLogged("[ERROR] TLV message of category 22 is refused: "), 1u);
    }
}

TEST(Msg, AnyBytesAreDecodedWholeOrRefused) {
    const fake::CleanLog clean(KZ_LOG_OFF);
    std::minstd_rand random(7);
    size_t decoded = 0;
    for (int round = 0; round < 20000; ++round) {
        Bytes bytes = kEvent;
        for (int change = 0; change < 2; ++change) {
            bytes[random() % bytes.size()] = static_cast<unsigned char>(random() % 18);
        }
        Msg message(0);

        const bool whole = decode(bytes, message);

        ASSERT_TRUE(whole ? message.getSize() >= (bytes[0] << 8 | bytes[1]) : message.getSize() == 4);
        decoded += whole ? 1 : 0;
    }
    EXPECT_GT(decoded, 100u);
}

TEST(Msg, OwnsItsElementsUnlessTheyAreStatic) {
    int destroyed = 0;
    CountedElement own(true, destroyed);
    {
        Msg message(1);
        message.addElement(&own);
        message.addElement(new CountedElement(false, destroyed));
        EXPECT_EQ(message.getSize(), 12);
        message.clear();
        EXPECT_EQ(destroyed, 1);
        EXPECT_EQ(message.getSize(), 4);
        EXPECT_EQ(message.findElement(TLV_CMD), nullptr);
        message.addElement(&own);
        message.addElement(new CountedElement(false, destroyed));
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(Msg, DumpListsItsElements) {
    const fake::CleanLog clean;
    Msg message(0);
    ASSERT_TRUE(decode(kEvent, message));

    message.dump("label");

    ASSERT_EQ(fake::systemLog().size(), 6u);
    EXPECT_EQ(fake::countLogged("-------- label ---------\n"), 1u);
    EXPECT_EQ(fake::countLogged("Category: 22 Length:14 num_elements:2\n"), 1u);
    EXPECT_EQ(fake::countLogged("Message Element->Category:RSPARG length:2\n"), 1u);
    EXPECT_EQ(fake::countLogged("7b 7d \n"), 1u);
    EXPECT_EQ(fake::countLogged("Message Element->Category:EE length:0\n"), 1u);
    EXPECT_EQ(fake::countLogged("None\n"), 1u);
}

// ---------------------------------------------------------------- MsgElement

TEST(MsgElement, HoldsACopyOfItsData) {
    char text[] = "abc";
    MsgElement element(TLV_CMDARG, 3, text, false);
    text[0] = 'x';
    EXPECT_EQ(std::memcmp(element.getData(), "abc", 3), 0);
    EXPECT_EQ(element.getSize(), 7u);

    element.setData(element.getData() + 1, 2);
    EXPECT_EQ(std::memcmp(element.getData(), "bc", 2), 0);

    element.setData("ignored", 0);
    EXPECT_EQ(element.getData(), nullptr);
    EXPECT_EQ(element.getSize(), 4u);

    EXPECT_EQ(MsgElement().getType(), TLV_VOID);
    EXPECT_FALSE(MsgElement().isStatic());
}

TEST(MsgElement, NumbersAreReadLeastSignificantByteFirst) {
    const unsigned char data[] = {1, 2, 3, 0xF4};
    unsigned char byte = 0;
    unsigned short half = 0;
    unsigned int word = 0;

    MsgElement(TLV_CMDARG, 1, data, false).getDataAs(byte);
    MsgElement(TLV_CMDARG, 2, data, false).getDataAs(half);
    MsgElement(TLV_CMDARG, 4, data, false).getDataAs(word);

    EXPECT_EQ(byte, 1);
    EXPECT_EQ(half, 0x0201);
    EXPECT_EQ(word, 0xF4030201u);
}

TEST(MsgElementDeathTest, NumberOfAnotherSizeIsACallingError) {
    const fake::PrivateFiles files;
    const MsgElement three(TLV_CMDARG, 3, "abc", false);
    unsigned short half = 0;

    EXPECT_DEATH(three.getDataAs(half),
                 "ASSERT:kzBleSdkD/lib/kzBleMessages/getDataAs:[0-9]+:getDataLength\\(\\) == sizeof\\(data\\)");
    EXPECT_DEATH(MsgElement().getDataAs(half), "getDataAs:[0-9]+:getData\\(\\) != NULL");
}

TEST(MsgElement, CutElementIsReportedAndChangesNothing) {
    Bytes bytes = {0x00, 0x00, 0x02, TLV_CMD, 'C', 'R'};
    for (unsigned short received = 0; received < 6; ++received) {
        const fake::CleanLog clean(KZ_LOG_ERROR);
        Bytes cut(bytes.begin(), bytes.begin() + received);
        MemoryStream stream(cut.data(), received);
        MsgElement element(TLV_DST, 1, "d", false);

        stream >> element;

        EXPECT_EQ(element.getType(), TLV_DST);
        EXPECT_EQ(stream.getLength(), 0);
        EXPECT_EQ(fake::systemLog().size(), 1u);
    }
    MemoryStream stream(bytes.data(), 6);
    MsgElement element;
    EXPECT_TRUE(element.decode(stream));
    EXPECT_EQ(element.getType(), TLV_CMD);
    EXPECT_EQ(stream.getRemainder(), 0);
}

}  // namespace
