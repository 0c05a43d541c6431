// TLV messages in a byte buffer: what is written, found, refused and reported.
#include "kzTlv.h"

#include <gtest/gtest.h>

#include "logCapture.h"
#include "utils.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;
using Elements = std::vector<std::pair<uint8_t, std::string>>;

Bytes message(uint8_t category, const Elements& elements) {
    Bytes buffer(2000);
    sntlv_msg_init(buffer.data(), 2000, category);
    for (const auto& [type, data] : elements) {
        EXPECT_NE(sntlv_add_bin(buffer.data(), 2000, type, static_cast<uint32_t>(data.size()), data.data()), 0);
    }
    buffer.resize(sntlv_msg_len(buffer.data()));
    buffer.shrink_to_fit();
    return buffer;
}

// A message from /to_blesdk to /to_kznet with further elements.
Bytes addressed(uint8_t category, const Elements& further) {
    Elements elements = {{TLV_CMD, "CR"}, {TLV_SRC, "/to_blesdk"}, {TLV_DST, "/to_kznet"}};
    elements.insert(elements.end(), further.begin(), further.end());
    return message(category, elements);
}

const std::pair<uint8_t, std::string> kEnd = {TLV_END, ""};

}  // namespace

TEST(Tlv, MessageGrowsElementByElementAndOneThatDoesNotFitChangesNothing) {
    Bytes buffer(17, 0xFF);
    unsigned char* at = buffer.data();

    EXPECT_EQ(sntlv_msg_init(at, 3, 16), 0);
    EXPECT_EQ(sntlv_msg_init(at, 17, 16), 4);
    EXPECT_EQ(sntlv_add_bin(at, 17, TLV_CMD, 2, "CR"), 6);
    EXPECT_EQ(sntlv_add_bin(at, 17, TLV_CMD, 4, "1234"), 0);
    EXPECT_EQ(sntlv_add_bin(at, 17, TLV_CMD, 0xFFFFFFFF, "1"), 0);
    EXPECT_EQ(sntlv_add_dat(at, 17, TLV_CMD, 5, 1), 0);
    EXPECT_EQ(sntlv_add_dat(at, 17, TLV_CMDARG, 3, 0x0A0B0C0D), 7);

    EXPECT_EQ(buffer, (Bytes{0, 17, 0, 16, 0, 0, 2, TLV_CMD, 'C', 'R', 0, 0, 3, TLV_CMDARG, 0x0D, 0x0C, 0x0B}));

    Bytes large(70000);
    sntlv_msg_init(large.data(), 70000, 16);
    EXPECT_EQ(sntlv_add_bin(large.data(), 70000, TLV_CMDARG, 65528, large.data()), 0) << "more than a length can say";
    EXPECT_EQ(sntlv_add_bin(large.data(), 70000, TLV_CMDARG, 65527, large.data() + 8), 65531);
    EXPECT_EQ(sntlv_msg_len(large.data()), 65535);
}

TEST(Tlv, FirstElementOfATypeIsFoundInsideTheMessageAloneAndCopiedOnlyIntoALargerBuffer) {
    Bytes bytes = message(16, {{TLV_CMD, "CR"}, {TLV_CMDARG, "X"}, {TLV_CMD, "YZ"}, kEnd});
    char out[4] = "---";
    EXPECT_EQ(sntlv_find(out, 2, TLV_CMD, bytes.data()), 0);
    EXPECT_EQ(sntlv_find(out, 4, TLV_DST, bytes.data()), 0);
    EXPECT_EQ(sntlv_find(out, 4, TLV_END, bytes.data()), 0);
    EXPECT_STREQ(out, "---");
    EXPECT_EQ(sntlv_find(out, 3, TLV_CMD, bytes.data()), 2);
    EXPECT_STREQ(out, "CR-");
    EXPECT_EQ(sntlv_find(out, 2, TLV_CMDARG, bytes.data()), 1);

    // Type, length of the message, offset of the element: a message ends with an element or cuts it.
    const std::tuple<uint8_t, uint8_t, int> kRows[] = {{TLV_END, 25, 21},    {TLV_END, 24, 0},    {TLV_END, 21, 0},
                                                       {TLV_CMDARG, 15, 10}, {TLV_CMDARG, 14, 0}, {TLV_CMD, 10, 4},
                                                       {TLV_CMD, 9, 0},      {TLV_CMD, 0, 0}};
    for (const auto& [type, length, offset] : kRows) {
        bytes[1] = length;
        EXPECT_EQ(tlv_find(bytes.data(), type), offset == 0 ? nullptr : bytes.data() + offset) << int{length};
    }
}

TEST(Tlv, ElementsAreBlankedAndRemovedInPlaceAndCallingErrorsAbort) {
    Bytes bytes = message(16, {{TLV_CMD, "CR"}, kEnd});
    sntlv_void(bytes.data(), TLV_CMD);
    EXPECT_EQ(Bytes(bytes.begin() + 4, bytes.begin() + 10), (Bytes{0, 0, 2, TLV_VOID, 0, 0}));
    EXPECT_EQ(sntlv_remove(bytes.data(), 14, TLV_END), -4);
    EXPECT_EQ(sntlv_remove(bytes.data(), 14, TLV_VOID), -6);
    EXPECT_EQ(sntlv_msg_len(bytes.data()), 4);
    EXPECT_DEATH(sntlv_add_bin(bytes.data(), 14, TLV_SRC, 0, ""), "sntlv_add_bin:[0-9]+:\\(atype != TLV_SRC\\)");
    EXPECT_DEATH(sntlv_add_bin(bytes.data(), 14, TLV_DST, 0, ""), "\\(atype != TLV_DST\\) \\|\\| \\(alen > 0\\)");
    EXPECT_DEATH(sntlv_void(bytes.data(), TLV_SRC), "ASSERT:libkzCommon/src/kzTlv/sntlv_void:[0-9]+:tlv != NULL");
    EXPECT_DEATH(sntlv_remove(bytes.data(), 14, TLV_SRC), "kzTlv/sntlv_remove:[0-9]+:tlvend != NULL");
}

TEST(Tlv, EveryVerdictOfTheValidationHasItsText) {
    Bytes swallowing = addressed(16, {{TLV_CMDARG, "x"}, kEnd});
    swallowing[5] = 0xFF;
    const std::string nearlyLongest(1488, 'a');
    const std::string letters(1400, 'c');
    const std::tuple<Bytes, int, std::string> kRows[] = {
        {message(16, {{TLV_CMDARG, "123456"}, kEnd}), -3, "TLV_ERROR: MSG needs a CMD\n"},
        {message(16, {{TLV_CMDARG, "12345"}, kEnd}), -1, "TLV_ERROR: MSG len is too short (17 < 18)\n"},
        {message(16, {{TLV_CMDARG, nearlyLongest}, kEnd}), -3, "TLV_ERROR: MSG needs a CMD\n"},
        {message(16, {{TLV_CMDARG, nearlyLongest + "b"}, kEnd}), -1, "TLV_ERROR: MSG len is too long (1501 > 1500)\n"},
        {message(16, {{TLV_CMD, "CR"}, kEnd, {TLV_CMDARG, "xy"}}), -1, "TLV_ERROR: MSG is missing ending TLV: 0xEE\n"},
        {message(16, {{TLV_CMD, "CR"}, {TLV_SRC, "/s"}, kEnd}), -3, "TLV_ERROR: :CR MSG needs a DST\n"},
        {message(16, {{TLV_CMD, "CR"}, {TLV_DST, "/d"}, kEnd}), -3, "TLV_ERROR: :CR MSG needs a SRC\n"},
        {addressed(16, {kEnd, kEnd}), -1, "TLV_ERROR: :CR MSG has too many ending TLV: 0xEE\n"},
        {addressed(240, {{TLV_CMDARG, "x"}, kEnd}), -2, "TLV_ERROR: :CR MSG needs a known CATagory. CAT=0xf0\n"},
        {addressed(239, {kEnd}), -3, "TLV_ERROR: MSG :CR RSP needs a CMDARG\n"},
        {addressed(17, {{TLV_CMDARG, ""}, kEnd}), 0, "TLV_WARNING: MSG :CR RSP needs a RSPARG fr_blesdk /to_kznet\n"},
        {addressed(17, {{TLV_CMDARG, ""}, {TLV_RSPARG, ""}, kEnd}), 0, ""},
        {addressed(16, {kEnd}), -3, "TLV_ERROR: MSG :CR CMD needs a CMDARG\n"},
        {addressed(16, {{TLV_CMDARG, "x"}, kEnd}), 0, ""},
        {swallowing, -1, "TLV_ERROR: MSG length (65286) does not match internal length (420.\n"},
        // Texts end with their element.
        {message(16, {{TLV_DST, "/d"}, {TLV_SRC, "/s"}, {TLV_CMD, letters}, kEnd}), -3,
         "TLV_ERROR: MSG :" + letters + " CMD needs a CMDARG\n"},
    };
    for (const auto& [bytes, result, text] : kRows) {
        fakes::LogCapture log(KZ_LOG_TRACE);
        const auto size = static_cast<uint32_t>(bytes.size());
        EXPECT_EQ(tlv_validate_received(bytes.data(), size), result) << text;
        EXPECT_EQ(log.Texts(), text.empty() ? Texts{} : Texts{text});
        EXPECT_EQ(tlv_validate_received(bytes.data(), size - 1), -1);
        EXPECT_EQ(tlv_validate_received(bytes.data(), 3), -1);
        EXPECT_EQ(log.Count("[ERROR] TLV message"), 2u);
        log.Clear();
        g_debug_level = kDebugThresholdTlv;
        tlv_validate(bytes.data());
        EXPECT_EQ(log.Texts(), Texts{}) << "texts need a level above 15";
    }
}

TEST(Tlv, TypesHaveNames) {
    std::string names;
    for (int type = 0; type < 256; ++type) {
        const std::string name = tlv_type_name(static_cast<uint8_t>(type));
        names += name != "UNKNOWN" ? std::to_string(type) + "=" + name + " " : "";
    }
    EXPECT_EQ(names, "65=CMD 66=CMDARG 67=DST 68=SRC 69=RSPARG 87=ASOURCE 88=VOID 236=RSP 238=EE ");
}
