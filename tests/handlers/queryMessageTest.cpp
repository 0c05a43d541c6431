// Plain queries: the bytes that answer them and the interests they change.
#include "queryFixture.h"

namespace {

const std::string kAllSettings = "02 01 09 05 01 04 1e 04 00 00 03 e8";
const std::string kAllStatus = "08 01 01 0d 04 00 01 11 70 1d 03 63 61 6d 21 01 ff";
const std::string kAllCapabilities = "02 01 01 02 01 09 05 01 03 1e 04 00 00 03 e8 3b 01 00";

// clang-format off
const Exchange kReads[] = {
    {"Get settings values. Count 2", "12 05 02", "", "12 00 02 01 09 05 01 04"},  // ascending
    {"Executing Query Category:2 type:1", "12", "", "12 00 " + kAllSettings},
    {"Got 1 values back", "12 3b", "", "12 00 3b 00"},                            // without a value
    {"Possible request for setting with invalid id", "12 02 02", "", "12 02 02 01 09"},
    {"Skipping invalid id:66 passed by user", "12 02 42", "", "12 00 02 01 09"},
    {"", "12 4d b5", "", "12 00"},                                                // all unknown: not all
    {"", "22 02 05", "", "22 00 02 04 54 4f 44 4f 05 04 54 4f 44 4f"},
    {"", "22", "", "22 00"},
    {"", "32 05 02", "", "32 00 02 01 01 02 01 09 05 01 03"},                     // 4 is forbidden
    {"", "32", "", "32 00 " + kAllCapabilities},
    {"", "42 05", "", "42 00 05 01 03 54 4f 44 4f"},
    {"", "13", "", "13 00 " + kAllStatus},
    {"", "13 c8", "", "13 00"},
    {"Unsupported query category:4", "14 02", "", "14 02"},
    {"Invalid category:2 and type:9", "92 02", "", "92 02"},
    {"Invalid category:3 and type:2", "23 08", "", "23 02"},
    {"", "", "", "00 02"},
    {"", "f5", "", "f5 02"},
};

// By query: what a client that had settings 2 and 5, their capabilities, and status 8 and 13 has then.
const std::pair<Exchange, std::string> kInterests[] = {
    {{"Registering interest in all settings as no ids specified in command", "52", "", "52 00 " + kAllSettings},
     "2 5 30 59 | 2 5 | 8 13"},
    {{"Settings Register When Value Changes", "52 3b 02", "", "52 00 02 01 09 3b 00"}, "2 5 59 | 2 5 | 8 13"},
    {{"", "52 42", "", "52 00"}, "2 5 | 2 5 | 8 13"},
    {{"", "62", "", "62 00 " + kAllCapabilities}, "2 5 | 2 5 30 59 | 8 13"},
    {{"", "62 1e", "", "62 00 1e 04 00 00 03 e8"}, "2 5 | 2 5 30 | 8 13"},
    {{"", "72", "", "72 00"}, " | 2 5 | 8 13"},
    {{"", "72 05", "", "72 00"}, "2 | 2 5 | 8 13"},
    {{"", "72 42", "", "72 00"}, "2 5 | 2 5 | 8 13"},
    {{"", "82", "", "82 00"}, "2 5 |  | 8 13"},
    {{"Adding interest in all as no id's specified", "53", "", "53 00 " + kAllStatus}, "2 5 | 2 5 | 8 13 29 33 96 97"},
    {{"Registering interest in 1 ids", "53 1d", "", "53 00 1d 03 63 61 6d"}, "2 5 | 2 5 | 8 13 29"},
    {{"Status Register When Value Changes", "53 fa", "", "53 00"}, "2 5 | 2 5 | 8 13"},
    {{"", "73", "", "73 00"}, "2 5 | 2 5 | "},
    {{"", "73 08", "", "73 00"}, "2 5 | 2 5 | 13"},
};
// clang-format on

std::string Listed(const Ints& ids) {
    std::string text;
    for (const int id : ids) {
        text += (text.empty() ? "" : " ") + std::to_string(id);
    }
    return text;
}

}  // namespace

TEST_F(QueryTest, IsAnsweredFromTheModelWithoutTheCamera) {
    PlayAll(kReads);
    BleSDK::Destroy();
    EXPECT_EQ(Answer("12 02"), "12 01") << "no model";
}

TEST_F(QueryTest, RegistrationsChangeWhatTheClientIsToldOf) {
    for (const auto& [row, interests] : kInterests) {
        for (const auto& [type, ids] :
             {std::pair{kSettings, Ints{2, 5}}, {kCapabilities, {2, 5}}, {kStatus, {8, 13}}}) {
            m_client.RemoveInterestAll(type);
            m_client.AddInterest(type, ids);
        }
        Play(row);
        EXPECT_EQ(
            Listed(Interest(kSettings)) + " | " + Listed(Interest(kCapabilities)) + " | " + Listed(Interest(kStatus)),
            interests)
            << row.request;
    }
}

TEST_F(QueryTest, MoreIdsThanTheTableHasAreAParseErrorUnlessTheyAreUnknown) {
    const Bytes most = Bytes{0x12} + Bytes(182, 2);

    EXPECT_EQ(ToHex(Run(most)), "12 02 02 01 09");
    EXPECT_EQ(ToHex(Run(most + Bytes{66, 66})), "12 02 02 01 09");
    EXPECT_EQ(ToHex(Run(most + Bytes{2})), "12 02");
    EXPECT_EQ(ToHex(Run(Bytes{0x13} + Bytes(119, 8))), "13 02");
}

TEST_F(QueryTest, ATextLongerThanItsLengthByteIsCut) {
    PushValues(R"({"status": {"29": ")" + std::string(300, 'x') + R"("}})");

    EXPECT_EQ(Run({0x13, 29}), (Bytes{0x13, 0, 29, 255}) + Bytes(255, 'x'));
}

TEST_F(QueryTest, AnAnswerThatDoesNotFitHoldsWholeEntriesAndSaysFailureAndSmallerGroupsTellEverything) {
    std::map<int, Ints> settings;
    for (int id = 1; id < 182; ++id) {
        settings[id] = Ints(256, id);
    }
    LoadSettings(settings);
    PushValues(R"({"status": {"8": 0}})");
    for (const auto& [query, entrySize] : {std::pair{0x32, 3u}, {0x42, 7u}}) {
        const fakes::LogCapture log(KZ_LOG_ERROR);
        const Bytes answer = Run({static_cast<uint8_t>(query)});
        const size_t settingSize = 256 * entrySize;

        EXPECT_EQ(m_code, KZ_OK);
        EXPECT_EQ(answer.size(), 2 + (kWholeCapacity - 2) / settingSize * settingSize);
        EXPECT_EQ(answer[1], 1);
        EXPECT_EQ(log.Lines().size(), 1u);
    }
    for (uint8_t id = 1; id < 182; ++id) {
        const Bytes answer = Run({0x42, id});
        EXPECT_EQ(answer[1], 0);
        EXPECT_EQ(answer.size(), 2u + 256 * (kzSettingWidth(58, id) == eValueWidth4Bytes ? 10 : 7)) << int{id};
    }
}
