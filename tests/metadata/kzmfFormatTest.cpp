// The two judges of foreign bytes: the validity check and the reader.
#include <cmath>

#include "kzmfReader.h"
#include "testStream.h"

namespace {

// Builds records from their parts.
std::string Record(const std::string& key, char type, int structureSize, int repeat, const std::string& data) {
    std::string record = key;
    record += type;
    record += static_cast<char>(structureSize);
    record += static_cast<char>(repeat >> 8);
    record += static_cast<char>(repeat);
    record += data;
    return record.append((4 - data.size() % 4) % 4, '\0');
}
std::string Container(const std::string& key, const std::string& records) {
    return Record(key, '\0', 1, static_cast<int>(records.size()), records);
}
std::string Nested(int depth) {
    std::string inner = Record("DATA", 'B', 1, 1, "x");
    for (int i = 0; i < depth; ++i) {
        inner = Container(i == depth - 1 ? "DEVC" : "NEST", inner);
    }
    return inner;
}
std::span<const uint8_t> Bytes(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}
bool IsValid(const std::string& buffer, bool recurse = true) {
    return MetadataIsValidKZMF(buffer.data(), static_cast<uint32_t>(buffer.size()), recurse);
}

struct ValidityCase {
    const char* name;
    std::string buffer;
    bool valid;
    bool validOutside;  // without a look into the containers
};
void PrintTo(const ValidityCase& row, std::ostream* out) {
    *out << row.name;
}
const std::string kStream = Container("STRM", Record("HRAT", 'S', 2, 1, std::string("\0H", 2)));
const ValidityCase kValidityCases[] = {
    {"Empty", "", true, true},
    {"ThreeBytes", "abc", true, true},
    {"FourBytes", "DEVC", false, false},
    {"HalfAHeader", "DEVC\0\1\0", false, false},
    {"EmptyDevice", Container("DEVC", ""), true, true},
    {"DeviceWithAStream", Container("DEVC", kStream), true, true},
    {"TwoDevices", Container("DEVC", kStream) + Container("DEVC", kStream), true, true},
    {"StreamAtTheTop", kStream, false, false},
    {"OtherRecordBehindTheDevice", Container("DEVC", kStream) + kStream, false, false},
    {"InvalidKeyInside", Container("DEVC", Record("HR-T", 'B', 1, 1, "x")), false, true},
    {"RecordPastTheEnd", Container("DEVC", kStream).substr(0, 20), false, false},
    {"LastPaddingMissing", Record("DEVC", 'B', 1, 5, "12345").substr(0, 13), false, false},
    {"InnerRecordPastItsContainer", Container("DEVC", Record("HRAT", 'B', 1, 9, "12345678")), false, true},
    {"BytesBehindTheInnerRecord", Container("DEVC", Record("HRAT", 'B', 1, 0, "") + "abcd"), false, true},
    {"LargestRecordInASmallBuffer", Record("DEVC", 'B', 255, 65535, "xxxxxxxx"), false, false},
    {"ContainerOfThreeBytes", Container("DEVC", "abc"), true, true},
    {"SixteenLevels", Nested(16), true, true},
    {"SeventeenLevels", Nested(17), false, true},
};

class KzmfValidity : public testing::TestWithParam<ValidityCase> {};

TEST_P(KzmfValidity, IsJudgedTheSameByTheCheckAndTheReader) {
    const KzmfDocument document = ReadKzmf(Bytes(GetParam().buffer));

    EXPECT_EQ(IsValid(GetParam().buffer), GetParam().valid);
    EXPECT_EQ(IsValid(GetParam().buffer, false), GetParam().validOutside);
    EXPECT_EQ(document.error.empty(), GetParam().valid) << document.error;
}

INSTANTIATE_TEST_SUITE_P(Table, KzmfValidity, testing::ValuesIn(kValidityCases),
                         [](const auto& row) { return row.param.name; });

TEST(KzmfValidity, BoundsTheDepthOfAHostileBuffer) {
    std::string deep;
    for (size_t remaining = 65535 / 8 * 8; remaining >= 8; remaining -= 8) {
        const size_t inner = remaining - 8;
        deep += std::string("DEVC\0\1", 6) + static_cast<char>(inner >> 8) + static_cast<char>(inner);
    }

    EXPECT_FALSE(IsValid(deep));
    EXPECT_EQ(ReadKzmf(Bytes(deep)).error, "containers are nested too deeply");
}

// ---------------------------------------------------------------- reader

TEST(KzmfReader, KeepsWhatItReadBeforeTheFault) {
    const std::string buffer = Container("DEVC", kStream + Record("HR-T", 'B', 1, 1, "x"));

    const KzmfDocument document = ReadKzmf(Bytes(buffer));

    EXPECT_EQ(document.error, "the key is not four valid characters");
    EXPECT_EQ(document.errorOffset, 28u);
    ASSERT_EQ(document.devices.size(), 1u);
    EXPECT_EQ(document.devices[0].children.at(0).Child("HRAT")->offset, 16u);
}

TEST(KzmfReader, DecodesWhatTheWriterStored) {
    const TestStream stream;
    const auto write = [&](const char* key, char type, auto value) {
        ASSERT_EQ(MetadataStreamWrite(stream.handle(), Key(key), static_cast<uint8_t>(type), sizeof(value), 1, &value,
                                      0, 0.0F),
                  kKzmfDone);
    };
    write("V001", 'b', int8_t{-5});
    write("V002", 'B', uint8_t{250});
    write("V003", 's', int16_t{-300});
    write("V004", 'S', uint16_t{65000});
    write("V005", 'l', int32_t{-70000});
    write("V006", 'L', uint32_t{4000000000});
    write("V007", 'j', int64_t{-5000000000});
    write("V008", 'J', uint64_t{18000000000000000000u});
    write("V009", 'f', 1.25F);
    write("V010", 'd', -0.1);
    write("V011", 'h', uint32_t{0xCAFE});
    stream.WriteText("V012", "words");
    stream.Write("V013", 'U', 3, 1, std::array<uint8_t, 3>{1, 2, 3});
    stream.WriteText("TYPE", "sL", kKzmfSticky);
    stream.Write("V014", '?', 7, 1, std::array<uint8_t, 7>{0xFF, 0xFF, 1, 0, 0, 0, 9});

    const std::vector<uint8_t> payload = TakePayload();
    const KzmfDocument document = ReadKzmf(payload);

    ASSERT_EQ(document.error, "");
    const KzmfRecord& strm = *document.devices.at(0).Child("STRM");
    const auto value = [&](const char* key, size_t field = 0) {
        return DecodeKzmfSamples(*strm.Child(key), KzmfTypeText(strm)).at(0).at(field);
    };
    EXPECT_EQ(value("V001"), KzmfValue(int64_t{-5}));
    EXPECT_EQ(value("V002"), KzmfValue(uint64_t{250}));
    EXPECT_EQ(value("V003"), KzmfValue(int64_t{-300}));
    EXPECT_EQ(value("V004"), KzmfValue(uint64_t{65000}));
    EXPECT_EQ(value("V005"), KzmfValue(int64_t{-70000}));
    EXPECT_EQ(value("V006"), KzmfValue(uint64_t{4000000000}));
    EXPECT_EQ(value("V007"), KzmfValue(int64_t{-5000000000}));
    EXPECT_EQ(value("V008"), KzmfValue(uint64_t{18000000000000000000u}));
    EXPECT_EQ(value("V009"), KzmfValue(1.25));
    EXPECT_EQ(value("V010"), KzmfValue(-0.1));
    EXPECT_EQ(value("V011"), KzmfValue(uint64_t{0xCAFE}));
    EXPECT_EQ(value("V012"), KzmfValue(std::string("words")));
    EXPECT_EQ(value("V013"), KzmfValue(std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(value("V014"), KzmfValue(int64_t{-1}));
    EXPECT_EQ(value("V014", 1), KzmfValue(uint64_t{1}));
    EXPECT_EQ(value("V014", 2), KzmfValue(std::vector<uint8_t>{9}));
    EXPECT_EQ(KzmfNumber(strm, "TSMP", 0), 18u);  // the text counts its characters
    EXPECT_EQ(KzmfNumber(strm, "NONE", 77), 77u);
}

}  // namespace
