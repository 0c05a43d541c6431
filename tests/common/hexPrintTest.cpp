// Hex dumps, line by line.
#include <gtest/gtest.h>

#include <numeric>

#include "logCapture.h"
#include "utils.h"

namespace {

using Texts = std::vector<std::string>;

class HexPrint : public testing::Test {
  protected:
    Texts dump(void (*print)(const char*, uint32_t, const void*, uint32_t), const std::string& label, uint32_t address,
               uint32_t length, uint8_t first = 0) {
        m_log.Clear();
        std::vector<uint8_t> data(length);
        std::iota(data.begin(), data.end(), first);
        print(label.c_str(), address, data.data(), length);
        return m_log.Texts();
    }
    // The numbers of the lines that a dump shows, a digit each.
    std::string linesOf(uint32_t length) {
        std::string digits;
        for (const std::string& line : dump(hexprint, "x", 0, length)) {
            digits += line.size() > 19 ? line.substr(17, 1) : "";
        }
        return digits;
    }
    fakes::LogCapture m_log{KZ_LOG_TRACE};
};

}  // namespace

TEST_F(HexPrint, LineShowsLabelAddressGroupsAndCharacters) {
    EXPECT_EQ(dump(hexprint, "label", 0x1000, 18, 0x70),
              (Texts{"\n", "label      00001000  70717273 74757677 78797a7b 7c7d7e7f  pqrstuvwxyz{|}~.\n",
                     "label      00001010  8081                                 ..              \n"}));
    EXPECT_EQ(dump(hexprint, "a label of length 20", 0x100E, 4, 0x1E),
              (Texts{"\n", "a label of length 2000001000                                 1e1f                ..\n",
                     "a label of length 2000001010  2021                                  !              \n"}));
}

TEST_F(HexPrint, LongDumpShowsItsFirst80AndLast32BytesUnlessTheWholeIsAskedFor) {
    EXPECT_EQ(linesOf(80) + " " + linesOf(112) + " " + linesOf(113), "01234 0123456 0123467");
    g_debug_level |= kDebugWholeHexDumps;
    EXPECT_EQ(linesOf(113), "01234567");
    g_debug_level = kDebugThresholdDump;
    EXPECT_EQ(dump(hexprint, "x", 0, 16), Texts{});
    EXPECT_EQ(dump(hexprint_noaddr2, "x", 0, 16), Texts{});
}

TEST_F(HexPrint, PlainFormsGroupFromTheStartOrTheEndAndEndAfter97Characters) {
    EXPECT_EQ(dump(hexprint_noaddr2, "CR RSP", 0, 18),
              (Texts{"CR RSP 00010203 04050607 08090a0b 0c0d0e0f\n", "CR RSP 1011\n"}));
    EXPECT_EQ(dump(hexprint_noaddr3, "CR RSP", 0, 5), Texts{"CR RSP 00010203 04\n"});
    EXPECT_EQ(dump(hexprint_noaddr, "CR RSP", 0, 6), Texts{"CR RSP0001 02030405\n"});
    EXPECT_EQ(dump(hexprint_noaddr, "CR RSP", 0, 3), Texts{"CR RSP 000102\n"});
    EXPECT_EQ(dump(hexprint_noaddr2, std::string(90, 'l'), 0, 16), Texts{std::string(90, 'l') + " 000102\n"});
}
