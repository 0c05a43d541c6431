// TLV messages in a byte buffer: what is written, found, refused and reported.
#include "kzTlv.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "fakeSystem.h"
#include "utils.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Builds a message element by element.
class Builder {
  public:
    explicit Builder(uint8_t category) { sntlv_msg_init(m_buffer.data(), capacity(), category); }
    Builder& add(uint8_t type, const std::string& data = "") {
        EXPECT_NE(sntlv_add_bin(m_buffer.data(), capacity(), type, static_cast<uint32_t>(data.size()), data.data()), 0);
        return *this;
    }
    Bytes bytes() const { return {m_buffer.begin(), m_buffer.begin() + sntlv_msg_len(m_buffer.data())}; }

  private:
    uint32_t capacity() const { return static_cast<uint32_t>(m_buffer.size()); }
    Bytes m_buffer = Bytes(2000);
};

Builder addressed(uint8_t category) {
    return Builder(category).add(TLV_CMD, "CR").add(TLV_SRC, "/to_blesdk").add(TLV_DST, "/to_kznet");
}

Bytes command() {
    return addressed(16).add(TLV_CMDARG, "x").add(TLV_END).bytes();
}

TEST(Tlv, MessageGrowsElementByElement) {
    Bytes buffer(20, 0xFF);

    EXPECT_EQ(sntlv_msg_init(buffer.data(), 20, 16), 4);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 4), (Bytes{0x00, 0x04, 0x00, 0x10}));
    EXPECT_EQ(sntlv_add_bin(buffer.data(), 20, TLV_CMD, 2, "CR"), 6);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 10),
              (Bytes{0x00, 0x0A, 0x00, 0x10, 0x00, 0x00, 0x02, 0x41, 0x43, 0x52}));
    EXPECT_EQ(sntlv_add_dat(buffer.data(), 20, TLV_CMDARG, 3, 0x0A0B0C0D), 7);
    EXPECT_EQ(Bytes(buffer.begin() + 10, buffer.begin() + 17), (Bytes{0x00, 0x00, 0x03, 0x42, 0x0D, 0x0C, 0x0B}));
    EXPECT_EQ(sntlv_msg_len(buffer.data()), 17);
}

TEST(Tlv, ElementThatDoesNotFitChangesNothing) {
    Bytes buffer(12, 0xFF);
    sntlv_msg_init(buffer.data(), 12, 16);
    const Bytes before = buffer;

    EXPECT_EQ(sntlv_add_bin(buffer.data(), 12, TLV_CMD, 5, "12345"), 0);
    EXPECT_EQ(sntlv_add_bin(buffer.data(), 12, TLV_CMD, 0xFFFFFFFF, "1"), 0);
    EXPECT_EQ(sntlv_add_dat(buffer.data(), 12, TLV_CMD, 5, 1), 0);
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(sntlv_add_bin(buffer.data(), 12, TLV_CMD, 4, "1234"), 8);
    EXPECT_EQ(sntlv_msg_init(buffer.data(), 3, 16), 0);
}

TEST(Tlv, MessageNeverOutgrowsItsLengthField) {
    Bytes buffer(70000);
    sntlv_msg_init(buffer.data(), 70000, 16);

    EXPECT_EQ(sntlv_add_bin(buffer.data(), 70000, TLV_CMDARG, 65528, buffer.data()), 0);
    EXPECT_EQ(sntlv_add_bin(buffer.data(), 70000, TLV_CMDARG, 65527, buffer.data() + 8), 65531);
    EXPECT_EQ(sntlv_msg_len(buffer.data()), 65535);
}

TEST(Tlv, DataIsCopiedOnlyIntoALargerBuffer) {
    const Bytes message = Builder(16).add(TLV_CMDARG, "abcd").add(TLV_RSPARG).bytes();
    char out[6] = "-----";

    EXPECT_EQ(sntlv_find(out, 4, TLV_CMDARG, message.data()), 0);
    EXPECT_EQ(sntlv_find(out, 6, TLV_CMD, message.data()), 0);
    EXPECT_EQ(sntlv_find(out, 6, TLV_RSPARG, message.data()), 0);
    EXPECT_STREQ(out, "-----");
    EXPECT_EQ(sntlv_find(out, 5, TLV_CMDARG, message.data()), 4);
    EXPECT_STREQ(out, "abcd-");
}

TEST(Tlv, FirstElementOfATypeIsFoundInsideTheMessageAlone) {
    Bytes message = Builder(16).add(TLV_CMD, "CR").add(TLV_CMD, "XY").add(TLV_END).bytes();
    EXPECT_EQ(tlv_find(message.data(), TLV_CMD), message.data() + 4);
    EXPECT_EQ(tlv_find(message.data(), TLV_END), message.data() + 16);

    message[1] = 16;  // the end marker now lies behind the message
    EXPECT_EQ(tlv_find(message.data(), TLV_END), nullptr);
    message[1] = 15;  // the second element is cut
    EXPECT_EQ(tlv_find(message.data(), TLV_END), nullptr);
    EXPECT_EQ(tlv_find(message.data(), TLV_CMD), message.data() + 4);
    message[1] = 0;
    EXPECT_EQ(tlv_find(message.data(), TLV_CMD), nullptr);
}

TEST(Tlv, ElementsAreBlankedAndRemovedInPlace) {
    Bytes message = Builder(16).add(TLV_CMD, "CR").add(TLV_END).bytes();
    const auto size = static_cast<uint32_t>(message.size());

    sntlv_void(message.data(), TLV_CMD);
    EXPECT_EQ(Bytes(message.begin() + 4, message.begin() + 10), (Bytes{0, 0, 2, TLV_VOID, 0, 0}));
    EXPECT_EQ(sntlv_remove(message.data(), size, TLV_END), -4);
    EXPECT_EQ(sntlv_msg_len(message.data()), 10);
    EXPECT_EQ(sntlv_remove(message.data(), size, TLV_VOID), -6);
    EXPECT_EQ(sntlv_msg_len(message.data()), 4);
}

TEST(TlvDeathTest, CallingErrorsAbort) {
    Bytes message = Builder(16).add(TLV_CMD, "CR").bytes();
    message.resize(100);
    unsigned char* buffer = message.data();

    EXPECT_DEATH(sntlv_add_bin(buffer, 100, TLV_SRC, 0, ""),
                 "ASSERT:libkzCommon/src/kzTlv/sntlv_add_bin:[0-9]+:\\(atype != TLV_SRC\\) \\|\\| \\(alen > 0\\)");
    EXPECT_DEATH(sntlv_add_bin(buffer, 100, TLV_DST, 0, ""), "\\(atype != TLV_DST\\) \\|\\| \\(alen > 0\\)");
    EXPECT_DEATH(sntlv_void(buffer, TLV_END), "ASSERT:libkzCommon/src/kzTlv/sntlv_void:[0-9]+:tlv != NULL");
    EXPECT_DEATH(sntlv_remove(buffer, 100, TLV_END), "ASSERT:libkzCommon/src/kzTlv/sntlv_remove:[0-9]+:tlvend != NULL");
}

// ---------------------------------------------------------------- validation

// What tlv_validate says about a message, with its one text; "" for none.
void expectVerdict(const Bytes& message, int result, const std::string& text) {
    const fake::CleanLog clean;
    SCOPED_TRACE(text);
    EXPECT_EQ(tlv_validate(message.data()), result);
    EXPECT_EQ(fake::logTexts(), text.empty() ? std::vector<std::string>{} : std::vector<std::string>{text});
}

TEST(TlvValidate, EveryVerdictHasItsText) {
    const std::string argument(1480, 'a');
    // Data, lengths and source in one: the shortest message that passes the first two steps.
    expectVerdict(Builder(16).add(TLV_CMDARG, "123456").add(TLV_END).bytes(), -3, "TLV_ERROR: MSG needs a CMD\n");
    expectVerdict(Builder(16).add(TLV_CMDARG, "12345").add(TLV_END).bytes(), -1,
                  "TLV_ERROR: MSG len is too short (17 < 18)\n");
    expectVerdict(Builder(16).add(TLV_CMDARG, argument + "12345678").add(TLV_END).bytes(), -3,
                  "TLV_ERROR: MSG needs a CMD\n");
    expectVerdict(Builder(16).add(TLV_CMDARG, argument + "123456789").add(TLV_END).bytes(), -1,
                  "TLV_ERROR: MSG len is too long (1501 > 1500)\n");
    expectVerdict(Builder(16).add(TLV_CMD, "CR").add(TLV_END).add(TLV_CMDARG, "xy").bytes(), -1,
                  "TLV_ERROR: MSG is missing ending TLV: 0xEE\n");
    expectVerdict(Builder(16).add(TLV_CMD, "CR").add(TLV_SRC, "/s").add(TLV_END).bytes(), -3,
                  "TLV_ERROR: :CR MSG needs a DST\n");
    expectVerdict(Builder(16).add(TLV_CMD, "CR").add(TLV_DST, "/d").add(TLV_END).bytes(), -3,
                  "TLV_ERROR: :CR MSG needs a SRC\n");
    expectVerdict(addressed(16).add(TLV_END).add(TLV_END).bytes(), -1,
                  "TLV_ERROR: :CR MSG has too many ending TLV: 0xEE\n");
    expectVerdict(addressed(16).add(TLV_CMDARG, "\xEE").bytes(), -1,
                  "TLV_ERROR: :CR MSG has too many ending TLV: 0xEE\n");
    expectVerdict(addressed(240).add(TLV_CMDARG, "x").add(TLV_END).bytes(), -2,
                  "TLV_ERROR: :CR MSG needs a known CATagory. CAT=0xf0\n");
    expectVerdict(addressed(239).add(TLV_END).bytes(), -3, "TLV_ERROR: MSG :CR RSP needs a CMDARG\n");
    expectVerdict(addressed(17).add(TLV_CMDARG).add(TLV_END).bytes(), 0,
                  "TLV_WARNING: MSG :CR RSP needs a RSPARG fr_blesdk /to_kznet\n");
    expectVerdict(addressed(17).add(TLV_CMDARG).add(TLV_RSPARG).add(TLV_END).bytes(), 0, "");
    expectVerdict(addressed(16).add(TLV_END).bytes(), -3, "TLV_ERROR: MSG :CR CMD needs a CMDARG\n");
    expectVerdict(command(), 0, "");
}

TEST(TlvValidate, ElementThatRunsPastTheEndIsAWrongInternalLength) {
    Bytes message = command();
    const auto length = std::to_string(message.size() - 4);
    const auto expectMismatch = [&](size_t sum) {
        expectVerdict(
            message, -1,
            "TLV_ERROR: MSG length (" + std::to_string(sum) + ") does not match internal length (" + length + "0.\n");
    };
    message[message.size() - 2] = 1;  // data behind the end marker
    expectMismatch(message.size() - 4 + 1);
    message = command();
    message[5] = 0xFF;
    expectMismatch(0xFF02 + 4);
}

TEST(TlvValidate, NoTextReadsPastItsElement) {
    // The command ends with the message's last byte but four, without a zero byte behind it inside its element.
    Bytes message =
        Builder(16).add(TLV_DST, "/d").add(TLV_SRC, "/s").add(TLV_CMD, std::string(1400, 'c')).add(TLV_END).bytes();
    message.shrink_to_fit();

    expectVerdict(message, -3, "TLV_ERROR: MSG :" + std::string(1400, 'c') + " CMD needs a CMDARG\n");
    expectVerdict(Builder(17)
                      .add(TLV_CMD, std::string("C\0R", 3))
                      .add(TLV_CMDARG)
                      .add(TLV_SRC, "/s")
                      .add(TLV_DST, "/d")
                      .add(TLV_END)
                      .bytes(),
                  0, "TLV_WARNING: MSG :C RSP needs a RSPARG fr /d\n");
}

TEST(TlvValidate, TextsNeedALevelAbove15) {
    const fake::CleanLog clean(KZ_LOG_OFF, kDebugThresholdTlv);

    EXPECT_EQ(tlv_validate(addressed(16).add(TLV_END).bytes().data()), -3);

    EXPECT_TRUE(fake::systemLog().empty());
}

TEST(TlvValidate, MessageThatArrivedIsRefusedAtEveryCut) {
    const Bytes whole = command();
    for (size_t received = 0; received < whole.size(); ++received) {
        const fake::CleanLog clean(KZ_LOG_ERROR);
        const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(received));

        EXPECT_EQ(tlv_validate_received(cut.data(), static_cast<uint32_t>(received)), -1);
        EXPECT_EQ(fake::countLogged("[ERROR] TLV message"), 1u) << received;
    }
    EXPECT_EQ(tlv_validate_received(whole.data(), static_cast<uint32_t>(whole.size())), 0);
}

TEST(Tlv, TypesHaveTheNamesOfDumps) {
    EXPECT_STREQ(tlv_type_name(TLV_CMDARG), "CMDARG");
    EXPECT_STREQ(tlv_type_name(TLV_ASOURCE), "ASOURCE");
    EXPECT_STREQ(tlv_type_name(TLV_END), "EE");
    EXPECT_STREQ(tlv_type_name(0), "UNKNOWN");
}

}  // namespace
