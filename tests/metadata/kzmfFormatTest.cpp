// The two judges of foreign bytes: the validity check and the reader.
#include "kzmfReader.h"
#include "testStream.h"

namespace {

// A record from its parts.
std::string Record(const std::string& key, char type, int structureSize, int repeat, const std::string& data) {
    std::string record = key + type;
    for (const int byte : {structureSize, repeat >> 8, repeat}) {
        record += static_cast<char>(byte);
    }
    return (record + data).append((4 - data.size() % 4) % 4, '\0');
}
std::string Container(const std::string& key, const std::string& records) {
    return Record(key, '\0', 1, static_cast<int>(records.size()), records);
}
std::string Nested(int depth) {
    return depth == 0 ? "" : Container("DEVC", Nested(depth - 1));
}

const std::string kStream = Container("STRM", Record("HRAT", 'S', 2, 1, std::string("\0H", 2)));
const std::string kSound = Container("DEVC", kStream);

TEST(KzmfValidity, IsJudgedTheSameByTheCheckAndTheReader) {
    const struct {
        const char* what;
        std::string buffer;
        bool valid;
        bool validOutside;  // without a look into the containers
    } rows[] = {
        {"empty", "", true, true},
        {"three bytes", "abc", true, true},
        {"half a header", "DEVC\1\1\1", false, false},
        {"two devices", kSound + kSound, true, true},
        {"stream at the top", kStream, false, false},
        {"other record behind the device", kSound + kStream, false, false},
        {"invalid key inside", Container("DEVC", Record("HR-T", 'B', 1, 1, "x")), false, true},
        {"record past the end", kSound.substr(0, 20), false, false},
        {"last padding missing", Record("DEVC", 'B', 1, 5, "12345").substr(0, 13), false, false},
        {"inner record past its container", Container("DEVC", Record("HRAT", 'B', 1, 9, "12345678")), false, true},
        {"bytes behind the inner record", Container("DEVC", Record("HRAT", 'B', 1, 0, "") + "abcd"), false, true},
        {"largest record in a small buffer", Record("DEVC", 'B', 255, 65535, "xxxxxxxx"), false, false},
        {"container of three bytes", Container("DEVC", "abc"), true, true},
        {"seventeen levels, the last of them empty", Nested(17), true, true},
        {"eighteen levels", Nested(18), false, true},
    };
    for (const auto& [what, buffer, valid, validOutside] : rows) {
        const auto size = static_cast<uint32_t>(buffer.size());
        EXPECT_EQ(MetadataIsValidKZMF(buffer.data(), size, true), valid) << what;
        EXPECT_EQ(MetadataIsValidKZMF(buffer.data(), size, false), validOutside) << what;
        EXPECT_EQ(ReadKzmf({reinterpret_cast<const uint8_t*>(buffer.data()), size}).error.empty(), valid) << what;
    }
}

TEST(KzmfReader, DecodesWhatTheWriterStored) {
    const std::tuple<char, std::vector<uint8_t>, std::vector<KzmfValue>> kRows[] = {
        {'b', {0xFB}, {int64_t{-5}}},
        {'S', {0xE8, 0xFD}, {uint64_t{65000}}},
        {'L', {0, 0x28, 0x6B, 0xEE}, {uint64_t{4000000000}}},
        {'j', {0, 0x0E, 0xFA, 0xD5, 0xFE, 0xFF, 0xFF, 0xFF}, {int64_t{-5000000000}}},
        {'f', {0, 0, 0xA0, 0x3F}, {1.25}},
        {'d', {0, 0, 0, 0, 0, 0, 0xF0, 0xBF}, {-1.0}},
        {'c', {'w', 'o', 0, 'r'}, {std::string("wo")}},
        {'U', {1, 2, 3}, {std::vector<uint8_t>{1, 2, 3}}},
        {'?', {0xFF, 0xFF, 1, 0, 0, 0, 9}, {int64_t{-1}, uint64_t{1}, std::vector<uint8_t>{9}}},
    };
    for (const auto& [type, stored, values] : kRows) {
        const TestStream stream;
        stream.Write(Text("TYPE", "sL", kKzmfSticky));
        stream.Write({"DATA", type, static_cast<uint32_t>(stored.size()), stored});

        const KzmfDocument document = ReadKzmf(TakePayload());

        const KzmfRecord& strm = *document.devices.at(0).Child("STRM");
        EXPECT_EQ(DecodeKzmfSamples(*strm.Child("DATA"), KzmfTypeText(strm)).at(0), values) << type;
    }
}

}  // namespace
