// Msg and MsgElement: encoding, and decoding of bytes that cannot be trusted.
#include "kzBleMessages.h"

#include <gtest/gtest.h>

#include "kzTlv.h"
#include "logCapture.h"
#include "privateTmp.h"
#include "utils.h"

namespace {

using Bytes = std::vector<unsigned char>;

const Bytes kEvent = {0x00, 0x0E, 0x00, 0x16, 0x00, 0x00, 0x02, 0x45, 0x7B, 0x7D, 0x00, 0x00, 0x00, 0xEE};

}  // namespace

TEST(Msg, IsEncodedFromTheStartOfTheStreamAndDecodedUpToTheElementThatReachesItsLength) {
    Bytes buffer(20);
    MemoryStream stream(buffer.data(), 20);
    stream.m_index = 7;
    MsgElement own(TLV_RSPARG, 2, "{}", true);  // static: the message must not delete it
    Msg message(22);
    message.addElement(&own);
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
        EXPECT_EQ(decoded.findElement(TLV_RSPARG)->getDataLength(), 2);
        EXPECT_EQ(std::memcmp(decoded.findElement(TLV_RSPARG)->getData(), "{}", 2), 0);
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
    for (Bytes& bytes : refused) {
        const fakes::LogCapture log(KZ_LOG_ERROR);
        bytes.shrink_to_fit();  // so that a read past it is seen
        MemoryStream stream(bytes.data(), static_cast<unsigned short>(bytes.size()));
        Msg message(1);
        message.addElement(TLV_CMD, 2, "XX");
        EXPECT_FALSE(message.decode(stream)) << testing::PrintToString(bytes);
        EXPECT_EQ(message.getCategory(), bytes.size() < 4 ? 0 : 22) << "is kept";
        EXPECT_EQ(message.getSize(), 4);
        EXPECT_EQ(log.Count("[ERROR] TLV message"), 1u);
    }
}

TEST(MsgElement, HoldsACopyOfItsDataEvenOfItsOwnAndReadsNumbersLeastSignificantByteFirst) {
    std::string text = "\x02\x03\xF4\x05";
    MsgElement element(TLV_CMDARG, 4, text.data(), false);
    unsigned int word = 0;
    unsigned short half = 0;
    text = "xyz";
    element.getDataAs(word);
    EXPECT_EQ(word, 0x05F40302u);
    element.setData(element.getData() + 1, 2);
    element.getDataAs(half);
    EXPECT_EQ(half, 0xF403);
    fakes::EnterPrivateTmp();  // assertions are also appended to a file there
    EXPECT_DEATH(element.getDataAs(word), "kzBleMessages/getDataAs:[0-9]+:getDataLength\\(\\) == sizeof\\(data\\)");
    element.setData("ignored", 0);
    EXPECT_DEATH(element.getDataAs(word), "getDataAs:[0-9]+:getData\\(\\) != NULL");
    EXPECT_TRUE(element.getData() == nullptr && element.getSize() == 4 && MsgElement().getSize() == 4);
}
