// Msg and MsgElement: encoding, ownership, and decoding of bytes that cannot be trusted.
#include "kzBleMessages.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "kzTlv.h"
#include "logCapture.h"
#include "privateTmp.h"
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

std::string dataOf(const MsgElement* element) {
    return {reinterpret_cast<const char*>(element->getData()), static_cast<size_t>(element->getDataLength())};
}

}  // namespace

TEST(Msg, IsEncodedFromTheStartOfTheStreamAndDecodedUpToTheElementThatReachesItsLength) {
    Bytes buffer(20);
    MemoryStream stream(buffer.data(), 20);
    stream.m_index = 7;
    Msg message(22);
    message.addElement(TLV_RSPARG, 2, "{}");
    message.addElement(TLV_END, 0, nullptr);
    stream << message;
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + stream.getLength()), kEvent);

    buffer[17] = TLV_CMD;  // an element behind the message
    for (unsigned char announced = 11; announced <= 14; ++announced) {
        buffer[1] = announced;
        Msg decoded(0);
        decoded.addElement(TLV_CMD, 2, "XX");
        stream.reset();
        stream >> decoded;
        EXPECT_EQ(stream.getLength(), kEvent.size());
        EXPECT_EQ(decoded.getCategory(), 22);
        EXPECT_EQ(decoded.findElement(TLV_CMD), nullptr);
        EXPECT_EQ(dataOf(decoded.findElement(TLV_RSPARG)), "{}");
        EXPECT_EQ(decoded.findElement(TLV_END)->getData(), nullptr);
    }
}

TEST(Msg, IsRefusedAtEveryCutAndWhenItsLengthsDoNotHoldTogether) {
    std::vector<Bytes> refused;
    for (size_t received = 0; received < kEvent.size(); ++received) {
        refused.emplace_back(kEvent.begin(), kEvent.begin() + static_cast<ptrdiff_t>(received));
    }
    // Total length below the header's, above what arrived; the first element swallows a byte of the end marker or runs
    // past the end; so does the last.
    for (const auto& [offset, value] : {std::pair<size_t, unsigned char>{1, 3}, {0, 255}, {6, 3}, {6, 7}, {12, 1}}) {
        refused.push_back(kEvent);
        refused.back()[offset] = value;
    }
    for (const Bytes& bytes : refused) {
        fakes::LogCapture log(KZ_LOG_ERROR);
        Msg message(1);
        message.addElement(TLV_CMD, 2, "XX");

        EXPECT_FALSE(decode(bytes, message)) << testing::PrintToString(bytes);

        EXPECT_EQ(message.getCategory(), bytes.size() < 4 ? 0 : 22) << "is kept";
        EXPECT_EQ(message.getSize(), 4);
        EXPECT_EQ(log.Count("[ERROR] TLV message"), 1u);
    }
}

TEST(Msg, AnyBytesAreDecodedWholeOrRefused) {
    fakes::LogCapture log(KZ_LOG_OFF);
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

TEST(Msg, DumpListsItsElementsAndOwnsThoseThatAreNotStatic) {
    fakes::LogCapture log(KZ_LOG_TRACE);
    MsgElement own(TLV_RSPARG, true);  // static: not the message's to delete
    own.setData("{}", 2);
    Msg message(22);
    message.addElement(&own);
    message.addElement(new MsgElement(TLV_END, false));

    message.dump("label");

    for (const char* text : {"-------- label ---------\n", "Category: 22 Length:14 num_elements:2\n",
                             "Message Element->Category:RSPARG length:2\n", "7b 7d \n",
                             "Message Element->Category:EE length:0\n", "None\n"}) {
        EXPECT_EQ(log.Count(text), 1u) << text;
    }
}

// ---------------------------------------------------------------- MsgElement

TEST(MsgElement, HoldsACopyOfItsDataEvenOfItsOwn) {
    std::string text = "abc";
    MsgElement element(TLV_CMDARG, 3, text.data(), false);
    text = "xyz";
    EXPECT_EQ(dataOf(&element), "abc");
    element.setData(element.getData() + 1, 2);
    EXPECT_EQ(dataOf(&element), "bc");
    element.setData("ignored", 0);
    EXPECT_TRUE(element.getData() == nullptr && element.getSize() == 4);
}

TEST(MsgElement, NumbersAreReadLeastSignificantByteFirstAndOfTheirSizeAlone) {
    fakes::EnterPrivateTmp();  // assertions are also appended to a file there
    const unsigned char data[] = {1, 2, 3, 0xF4};
    unsigned char byte = 0;
    unsigned short half = 0;
    unsigned int word = 0;

    MsgElement(TLV_CMDARG, 1, data, false).getDataAs(byte);
    MsgElement(TLV_CMDARG, 2, data, false).getDataAs(half);
    MsgElement(TLV_CMDARG, 4, data, false).getDataAs(word);

    EXPECT_TRUE(byte == 1 && half == 0x0201 && word == 0xF4030201);
    EXPECT_DEATH(MsgElement(TLV_CMDARG, 3, data, false).getDataAs(half),
                 "ASSERT:kzBleSdkD/lib/kzBleMessages/getDataAs:[0-9]+:getDataLength\\(\\) == sizeof\\(data\\)");
    EXPECT_DEATH(MsgElement().getDataAs(half), "getDataAs:[0-9]+:getData\\(\\) != NULL");
}

TEST(MsgElement, CutElementIsReportedAndChangesNothing) {
    Bytes bytes = {0x00, 0x00, 0x02, TLV_CMD, 'C', 'R'};
    for (unsigned short received = 0; received < 6; ++received) {
        fakes::LogCapture log(KZ_LOG_ERROR);
        Bytes cut(bytes.begin(), bytes.begin() + received);
        MemoryStream stream(cut.data(), received);
        MsgElement element(TLV_DST, 1, "d", false);

        stream >> element;

        EXPECT_TRUE(element.getType() == TLV_DST && stream.getLength() == 0) << received;
        EXPECT_EQ(log.Texts().size(), 1u);
    }
}
