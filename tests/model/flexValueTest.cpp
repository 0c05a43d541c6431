// FlexValue: storage, numbers, wire form, and values made from JSON.
#include "FlexValue.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "MemStream.h"
#include "fakeSystem.h"
#include "jsonText.h"
#include "utils.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes BytesOf(const FlexValue& value) {
    const uint8_t* data = nullptr;
    unsigned int length = 0;
    value.GetData(data, length);
    EXPECT_EQ(data, value.GetDataPointer());
    return {data, data + length};
}

FlexValue StringOf(const std::string& text) {
    FlexValue value(eValueWidthString, static_cast<int>(text.size()));
    value.SetValue(reinterpret_cast<const uint8_t*>(text.data()));
    return value;
}

TEST(FlexValue, WidthGivesAZeroFilledLength) {
    const struct {
        eValueWidth width;
        int length;
        size_t expected;
    } kRows[] = {
        {eValueWidthNone, 7, 0},
        {eValueWidth1Byte, 9, 1},
        {eValueWidth4Bytes, 0, 4},
        {eValueWidth8Bytes, 0, 8},
        {eValueWidthString, 0, 0},
        {eValueWidthString, 3, 3},
        {eValueWidthString, 4, 4},
        {eValueWidthString, 5, 5},
        {eValueWidthString, 300, 300},
        {eValueWidthString, -1, 0},
        {static_cast<eValueWidth>(5), 7, 0},
    };
    for (const auto& row : kRows) {
        const FlexValue value(row.width, row.length);
        EXPECT_EQ(BytesOf(value), Bytes(row.expected)) << row.width << " " << row.length;
        EXPECT_FALSE(value.HasChanged());
    }
}

TEST(FlexValue, NumbersAreStoredMostSignificantByteFirst) {
    FlexValue one(eValueWidth1Byte, 0);
    FlexValue four(eValueWidth4Bytes, 0);
    FlexValue eight(eValueWidth8Bytes, 0);
    FlexValue twelve(eValueWidthString, 12);

    EXPECT_TRUE(one.SetValue(static_cast<uint8_t>(0xFE)));
    EXPECT_TRUE(four.SetValue(0x01020304u));
    EXPECT_TRUE(eight.SetValue(0x0102030405060708ul));
    EXPECT_TRUE(twelve.SetValue(0x0102030405060708ul));
    EXPECT_TRUE(twelve.SetValue(0xAABBCCDDu));  // leaves the bytes behind the fourth

    EXPECT_EQ(BytesOf(one), Bytes{0xFE});
    EXPECT_EQ(BytesOf(four), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(BytesOf(eight), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(BytesOf(twelve), (Bytes{0xAA, 0xBB, 0xCC, 0xDD, 5, 6, 7, 8, 0, 0, 0, 0}));
    EXPECT_EQ(eight.GetUI32Value(), 0x05060708u);
    EXPECT_EQ(eight.GetUI8Value(), 1);
    EXPECT_EQ(StringOf(std::string("\x01\x02", 2)).GetUI32Value(), 258u);
}

TEST(FlexValue, SettingByWidthFillsTheWholeLength) {
    const struct {
        int length;
        Bytes expected;
    } kRows[] = {
        {1, {0x44}},
        {2, {0x33, 0x44}},
        {4, {0x11, 0x22, 0x33, 0x44}},
        {6, {0, 0, 0x11, 0x22, 0x33, 0x44}},
    };
    for (const auto& row : kRows) {
        FlexValue value = StringOf(std::string(static_cast<size_t>(row.length), 'x'));
        EXPECT_TRUE(value.SetValueByWidth(0x11223344));
        EXPECT_EQ(BytesOf(value), row.expected);
    }
}

// Every pair of an old and a new value, across the limit between inline and heap storage.
TEST(FlexValue, CopiesAreDeepAndMovesLeaveAnEmptyValue) {
    const std::string texts[] = {"", "abc", "abcd", "efghij", "klmnop", "a longer text"};
    for (const std::string& from : texts) {
        for (const std::string& onto : texts) {
            FlexValue source = StringOf(from);
            source.SetChanged(true);
            const Bytes bytes = BytesOf(source);

            FlexValue copy(source);
            FlexValue assigned = StringOf(onto);
            assigned = source;
            const FlexValue& self = assigned;
            assigned = self;
            if (!from.empty()) {
                source.SetValue(static_cast<uint8_t>('#'));
            }
            FlexValue moved = StringOf(onto);
            moved = std::move(copy);
            const FlexValue constructed(std::move(assigned));

            EXPECT_EQ(BytesOf(moved), bytes);
            EXPECT_EQ(BytesOf(constructed), bytes);
            EXPECT_TRUE(moved.HasChanged() && constructed.HasChanged());
            EXPECT_EQ(copy.GetDataLength() + assigned.GetDataLength(), 0);  // NOLINT: what a move leaves is defined
        }
    }
}

TEST(FlexValue, MisuseIsAnAssertionThatNamesItsCondition) {
    const fake::CleanLog log;
    const fake::PrivateFiles files;
    FlexValue empty;
    FlexValue three(eValueWidthString, 3);
    FlexValue seven(eValueWidthString, 7);

    EXPECT_DEATH(three.SetValue(1u), "kzBleSdkD/src/FlexValue/SetValue:[0-9]+:m_length >= 4");
    EXPECT_DEATH(seven.SetValue(1ul), "SetValue:[0-9]+:m_length >= 8");
    EXPECT_DEATH(empty.SetValueByWidth(1), "SetValueByWidth:[0-9]+:m_length > 0");
    EXPECT_DEATH(empty.GetUI32Value(), "GetUI32Value:[0-9]+:m_length > 0");
    EXPECT_DEATH(empty.GetUI8Value(), "GetUI8Value:[0-9]+:m_length >= 1");
    unsigned char wire[] = {1, 1};
    MemoryStream stream(wire, sizeof(wire));
    EXPECT_DEATH(stream >> three, "operator>>:[0-9]+:result.m_length == 0");
}

// ---------------------------------------------------------------- wire form

TEST(FlexValue, WireFormIsALengthAndItsBytes) {
    const Bytes kRows[] = {{0}, {1, 9}, {2, 0x01, 0xF4}, {4, 1, 2, 3, 4}, {5, 1, 2, 3, 4, 5}, Bytes(256, 255)};
    for (const Bytes& row : kRows) {
        Bytes wire = row;
        wire.push_back(0x77);  // the next parameter
        MemoryStream stream(wire.data(), static_cast<unsigned short>(wire.size()));
        FlexValue value;

        stream >> value;

        EXPECT_EQ(BytesOf(value), Bytes(row.begin() + 1, row.end()));
        EXPECT_EQ(stream.getRemainder(), 1);
    }
}

TEST(FlexValue, ValidateInputComparesTheLengthWithTheRestAndConsumesNothing) {
    const struct {
        Bytes wire;
        bool valid;
        std::string text;
    } kRows[] = {
        {{1, 5}, true, "validating requested_len (1), remaining (1)\n"},
        {{1, 5, 6}, true, "validating requested_len (1), remaining (2)\n"},
        {{0, 5}, false, "[ERROR] Invalid parameter length 0"},
        {{3, 1, 2}, false, "[ERROR] Invalid stream length (3) given stream only has 2 bytes available"},
        {{255}, false, "[ERROR] Invalid stream length (255) given stream only has 0 bytes available"},
        {{}, false, ""},
    };
    for (const auto& row : kRows) {
        const fake::CleanLog log;
        Bytes wire = row.wire;
        wire.insert(wire.begin(), 0xEE);  // already consumed
        MemoryStream stream(wire.data(), static_cast<unsigned short>(wire.size()));
        unsigned char consumed = 0;
        stream >> consumed;

        EXPECT_EQ(FlexValue::ValidateInput(stream), row.valid);

        EXPECT_EQ(stream.getLength(), 1);
        EXPECT_GE(fake::countLogged(row.text), 1u) << row.text;
    }
}

TEST(FlexValue, DumpShowsEveryByte) {
    const fake::CleanLog log;
    StringOf("\x0A\x01").Dump();
    EXPECT_EQ(fake::countLogged("m_length:2 hex_data:[0a 01 ]"), 1u);
    g_logLevel = KZ_LOG_INFO;
    StringOf("\x0A\x01").Dump();
    EXPECT_EQ(fake::systemLog().size(), 1u);
}

// ---------------------------------------------------------------- from JSON

constexpr uint8_t F = 0xFF;

// The text of each row is a whole JSON document; numbers are looked up in it as a push does.
TEST(BuildFlexValue, MakesEachWidthFromTheExactDigits) {
    const struct {
        eValueWidth width;
        std::string json;
        Bytes expected;
    } kRows[] = {
        {eValueWidth1Byte, "1", {1}},
        {eValueWidth1Byte, "-1", {F}},
        {eValueWidth1Byte, "258", {2}},
        {eValueWidth1Byte, "12.9", {12}},
        {eValueWidth1Byte, "1e2", {100}},
        {eValueWidth1Byte, "4294967295", {F}},  // saturates to 7FFFFFFF
        {eValueWidth1Byte, "-1e300", {0}},      // saturates to 80000000
        {eValueWidth1Byte, "\"7\"", {0}},
        {eValueWidth1Byte, "true", {1}},
        {eValueWidth1Byte, "{\"2\":3}", {0}},
        {eValueWidth4Bytes, "1000", {0, 0, 3, 0xE8}},
        {eValueWidth4Bytes, "4294967295", {F, F, F, F}},
        {eValueWidth4Bytes, "4294967297", {0, 0, 0, 1}},
        {eValueWidth4Bytes, "9007199254740993", {0, 0, 0, 1}},
        {eValueWidth4Bytes, "-5", {0, 0, 0, 5}},
        {eValueWidth4Bytes, "12.9", {0, 0, 0, 12}},
        {eValueWidth4Bytes, "12.99999999999999999999", {0, 0, 0, 12}},  // the double is 13
        {eValueWidth4Bytes, "1e3", {0, 0, 0, 1}},
        {eValueWidth4Bytes, "-12E+2", {0, 0, 0, 12}},
        {eValueWidth4Bytes, "\"1000\"", {0, 0, 0, 0}},
        {eValueWidth4Bytes, "null", {0, 0, 0, 0}},
        {eValueWidth8Bytes, "4294967296", {0, 0, 0, 1, 0, 0, 0, 0}},
        {eValueWidth8Bytes, "9007199254740993", {0, 0x20, 0, 0, 0, 0, 0, 1}},
        {eValueWidth8Bytes, "18446744073709551615", {F, F, F, F, F, F, F, F}},
        {eValueWidth8Bytes, "18446744073709551614", {F, F, F, F, F, F, F, 0xFE}},
        {eValueWidth8Bytes, "-18446744073709551614", {F, F, F, F, F, F, F, 0xFE}},
        {eValueWidth8Bytes, "18446744073709551616", {F, F, F, F, F, F, F, F}},  // saturates
        {eValueWidth8Bytes, "99999999999999999999999", {F, F, F, F, F, F, F, F}},
        {eValueWidth8Bytes, "000000000000000000000000000012", {0, 0, 0, 0, 0, 0, 0, 12}},
        {eValueWidth8Bytes, "0.18446744073709551615e20", {0, 0, 0, 0, 0, 0, 0, 0}},
        {eValueWidthString, "\"abc\"", {'a', 'b', 'c'}},
        {eValueWidthString, "\"\"", {}},
        {eValueWidthString, "\"\\u00e4\\n\"", {0xC3, 0xA4, '\n'}},
        {eValueWidthString, "5", {}},
        {eValueWidthString, "null", {}},
        {eValueWidthString, "\"" + std::string(300, 'x') + "\"", Bytes(300, 'x')},
        {eValueWidthNone, "1", {}},
        {static_cast<eValueWidth>(9), "1", {}},
    };
    for (const auto& row : kRows) {
        const fake::CleanLog log(KZ_LOG_ERROR);
        const JsonTree item(cJSON_Parse(row.json.c_str()));
        ASSERT_NE(item, nullptr) << row.json;

        EXPECT_EQ(BytesOf(BuildFlexValue(row.width, item.get(), row.json.c_str())), row.expected)
            << row.width << " " << row.json;

        const bool known = row.width >= eValueWidth1Byte && row.width <= eValueWidthString;
        EXPECT_EQ(fake::countLogged("Unrecognized value type " + std::to_string(row.width)), known ? 0u : 1u);
    }
}

TEST(BuildFlexValue, WithoutTheTextTheDoubleStandsIn) {
    const struct {
        std::string json;
        Bytes expected;
    } kRows[] = {
        {"18446744073709551615", {F, F, F, F, F, F, F, F}},
        {"9007199254740992", {0, 0x20, 0, 0, 0, 0, 0, 0}},
        {"-5", {0, 0, 0, 0, 0, 0, 0, 5}},
        {"12.9", {0, 0, 0, 0, 0, 0, 0, 12}},
        {"1e400", {F, F, F, F, F, F, F, F}},
    };
    for (const auto& row : kRows) {
        const JsonTree item(cJSON_Parse(row.json.c_str()));
        EXPECT_EQ(BytesOf(BuildFlexValue(eValueWidth8Bytes, item.get())), row.expected) << row.json;
    }
}

}  // namespace
