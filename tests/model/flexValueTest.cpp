// FlexValue: storage, numbers and wire form.
#include "FlexValue.h"

#include <utility>

#include "MemStream.h"
#include "modelFixture.h"
#include "privateTmp.h"

namespace {

FlexValue StringOf(const std::string& text) {
    FlexValue value(eValueWidthString, static_cast<int>(text.size()));
    value.SetValue(reinterpret_cast<const uint8_t*>(text.data()));
    return value;
}

}  // namespace

TEST(FlexValue, NumbersAreStoredMostSignificantByteFirst) {
    FlexValue twelve = StringOf("ABCDEFGHIJKL");
    twelve.SetValue(0x0102030405060708ul);
    twelve.SetValue(0xAABBCCDDu);
    twelve.SetValue(static_cast<uint8_t>(0xFE));
    EXPECT_EQ(fakes::ToHex(BytesOf(twelve)), "fe bb cc dd 05 06 07 08 49 4a 4b 4c");
    EXPECT_EQ(twelve.GetUI8Value(), 0xFE);
    EXPECT_EQ(twelve.GetUI32Value(), 0x494A4B4Cu) << "the last four bytes";
    EXPECT_EQ(StringOf("\x01\x02").GetUI32Value(), 258u);
    FlexValue six = StringOf("xxxxxx");
    FlexValue two = StringOf("xx");
    six.SetValueByWidth(0x11223344);
    two.SetValueByWidth(0x11223344);
    EXPECT_EQ(fakes::ToHex(BytesOf(six)) + "," + fakes::ToHex(BytesOf(two)), "00 00 11 22 33 44,33 44");
}

// Every pair of an old and a new value, across the limit between inline and heap storage.
TEST(FlexValue, CopiesAreDeepAndMovesLeaveAnEmptyValue) {
    const std::string texts[] = {"", "abc", "abcd", "efghij", "klmnop", "a longer text"};
    for (const std::string& from : texts) {
        for (const std::string& onto : texts) {
            FlexValue source = StringOf(from);
            source.SetChanged(true);
            FlexValue copy(source);
            FlexValue assigned = StringOf(onto);
            assigned = source;
            const FlexValue& self = assigned;
            assigned = self;
            source = StringOf(std::string(from.size(), '#'));
            FlexValue moved = StringOf(onto);
            moved = std::move(copy);
            const FlexValue constructed(std::move(assigned));

            EXPECT_EQ(BytesOf(moved), fakes::BytesOf(from));
            EXPECT_EQ(BytesOf(constructed), fakes::BytesOf(from));
            EXPECT_TRUE(moved.HasChanged() && constructed.HasChanged());
            EXPECT_EQ(copy.GetDataLength() + assigned.GetDataLength(), 0);  // NOLINT: what a move leaves is defined
        }
    }
}

TEST(FlexValue, AWireParameterIsALengthAndItsBytesCheckedBeforeItIsRead) {
    const std::tuple<Bytes, bool, std::string> kRows[] = {
        {{1, 5}, true, "validating requested_len (1), remaining (1)\n"},
        {{4, 1, 2, 3, 4, 0x77}, true, "validating requested_len (4), remaining (5)\n"},
        {Bytes(256, 255), true, "validating requested_len (255), remaining (255)\n"},
        {{0, 5}, false, "Invalid parameter length 0"},
        {{3, 1, 2}, false, "Invalid stream length (3) given stream only has 2 bytes available"},
        {{}, false, "Invalid stream, no byte left for a parameter length"},
    };
    for (auto [wire, valid, text] : kRows) {
        const fakes::LogCapture log(KZ_LOG_TRACE);
        MemoryStream stream(wire.data(), static_cast<unsigned short>(wire.size()));
        FlexValue value;
        EXPECT_EQ(FlexValue::ValidateInput(stream), valid);
        EXPECT_TRUE(log.Has(text)) << text;
        if (valid) {
            stream >> value;
            EXPECT_EQ(BytesOf(value), Bytes(wire.begin() + 1, wire.begin() + 1 + wire[0]));
        }
    }
    fakes::EnterPrivateTmp();  // assertions are also appended to a file there
    EXPECT_DEATH(StringOf("abc").SetValue(1u), "kzBleSdkD/src/FlexValue/SetValue:[0-9]+:m_length >= 4");
    EXPECT_DEATH(FlexValue().GetUI32Value(), "GetUI32Value:[0-9]+:m_length > 0");
    EXPECT_DEATH(FlexValue().GetUI8Value(), "GetUI8Value:[0-9]+:m_length >= 1");
}
