// Hex dumps, line by line.
#include <gtest/gtest.h>

#include <numeric>

#include "fakeSystem.h"
#include "utils.h"

namespace {

std::vector<uint8_t> counting(size_t length, uint8_t first = 0) {
    std::vector<uint8_t> data(length);
    std::iota(data.begin(), data.end(), first);
    return data;
}

// The addresses of the lines of a dump.
std::vector<std::string> addresses() {
    std::vector<std::string> result;
    for (const std::string& line : fake::logTexts()) {
        if (line.size() > 19) {
            result.push_back(line.substr(11, 8));
        }
    }
    return result;
}

TEST(HexPrint, LineShowsLabelAddressGroupsAndCharacters) {
    const fake::CleanLog clean;
    const std::vector<uint8_t> data = counting(18, 0x70);

    hexprint("label", 0x1000, data.data(), 18);

    const std::vector<std::string> expected = {
        "\n",
        "label      00001000  70717273 74757677 78797a7b 7c7d7e7f  pqrstuvwxyz{|}~.\n",
        "label      00001010  8081                                 ..              \n",
    };
    EXPECT_EQ(fake::logTexts(), expected);
}

TEST(HexPrint, ColumnsBeforeAnUnalignedStartAreBlank) {
    const fake::CleanLog clean;
    const std::vector<uint8_t> data = counting(4, 0x41);

    hexprint("a label of length 20", 0x100E, data.data(), 4);

    const std::string label = "a label of length 20";
    const std::vector<std::string> expected = {
        "\n",
        label + "00001000  " + std::string(31, ' ') + "4142  " + std::string(14, ' ') + "AB\n",
        label + "00001010  4344" + std::string(31, ' ') + "  CD" + std::string(14, ' ') + "\n",
    };
    EXPECT_EQ(fake::logTexts(), expected);
}

TEST(HexPrint, LongDumpShowsItsFirst80AndLast32BytesAtMost) {
    const struct {
        uint32_t length;
        std::vector<std::string> tail;
    } cases[] = {
        {80, {}},
        {96, {"00000050"}},
        {112, {"00000050", "00000060"}},
        {113, {"00000060", "00000070"}},
        {200, {"000000b0", "000000c0"}},
    };
    for (const auto& row : cases) {
        const fake::CleanLog clean;
        std::vector<std::string> expected = {"00000000", "00000010", "00000020", "00000030", "00000040"};
        expected.insert(expected.end(), row.tail.begin(), row.tail.end());

        hexprint("x", 0, counting(row.length).data(), row.length);

        EXPECT_EQ(addresses(), expected) << row.length;
    }
}

TEST(HexPrint, WholeDumpsCanBeAskedFor) {
    const fake::CleanLog clean(6, 0x00285420 | kDebugWholeHexDumps);

    hexprint("x", 0, counting(200).data(), 200);

    EXPECT_EQ(addresses().size(), 13u);
}

TEST(HexPrint, PlainFormsGroupFromTheStartOrTheEnd) {
    const std::vector<uint8_t> data = counting(18);
    const struct {
        void (*print)(const char*, uint32_t, const void*, uint32_t);
        uint32_t length;
        std::vector<std::string> lines;
    } cases[] = {
        {hexprint_noaddr2, 18, {"CR RSP 00010203 04050607 08090a0b 0c0d0e0f\n", "CR RSP 1011\n"}},
        {hexprint_noaddr3, 5, {"CR RSP 00010203 04\n"}},
        {hexprint_noaddr, 6, {"CR RSP0001 02030405\n"}},
        {hexprint_noaddr, 8, {"CR RSP 00010203 04050607\n"}},
        {hexprint_noaddr, 3, {"CR RSP 000102\n"}},
        {hexprint_noaddr2, 0, {}},
    };
    for (const auto& row : cases) {
        const fake::CleanLog clean;
        row.print("CR RSP", 0, data.data(), row.length);
        EXPECT_EQ(fake::logTexts(), row.lines) << row.length;
    }
}

TEST(HexPrint, PlainLineEndsAfter97Characters) {
    const fake::CleanLog clean;

    hexprint_noaddr2(std::string(90, 'l').c_str(), 0, counting(16).data(), 16);

    EXPECT_EQ(fake::logTexts(), std::vector<std::string>{std::string(90, 'l') + " 000102\n"});
}

TEST(HexPrint, NothingIsPrintedBelowItsThreshold) {
    const fake::CleanLog clean(6, kDebugThresholdDump);
    const std::vector<uint8_t> data = counting(16);

    hexprint("x", 0, data.data(), 16);
    hexprint_noaddr("x", 0, data.data(), 16);
    hexprint_noaddr2("x", 0, data.data(), 16);

    EXPECT_TRUE(fake::systemLog().empty());
}

}  // namespace
