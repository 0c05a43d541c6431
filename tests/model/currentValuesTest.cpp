// Current values: what a push stores, marks and returns, and what lookups see.
#include <numeric>

#include "modelFixture.h"

namespace {

using Model = SettingsStatusMapping;

class CurrentValues : public ModelTest {
  protected:
    std::string Setting(int id) const { return fakes::ToHex(BytesOf(*m_model.FindSettingValue(id))); }
    std::string Status(int id) const { return fakes::ToHex(BytesOf(*m_model.FindStatusValue(id))); }
};

}  // namespace

TEST_F(CurrentValues, EachValueIsStoredInItsWidthFromTheExactDigits) {
    constexpr uint64_t kAll = 0xFFFFFFFFFFFFFFFF;
    const std::tuple<int, size_t, std::map<std::string, uint64_t>> kWidths[] = {
        {8, 1, {{"1", 1}, {"-1", 255}, {"258", 2}, {"12.9", 12}, {"1e2", 100}, {"true", 1}}},
        {8, 1, {{"4294967295", 255}, {"-1e300", 0}, {"\"7\"", 0}, {"{\"2\":3}", 0}}},  // saturate, or are no numbers
        {13, 4, {{"1000", 1000}, {"4294967297", 1}, {"-5", 5}, {"1e3", 1}, {"-12E+2", 12}, {"\"9\"", 0}, {"null", 0}}},
        {13, 4, {{"12.9", 12}, {"12.99999999999999999999", 12}}},  // the double of the latter is 13
        {54, 8, {{"4294967296", 4294967296}, {"9007199254740993", 9007199254740993}, {"1e400", 1}, {"0.9e20", 0}}},
        {54, 8, {{"18446744073709551614", kAll - 1}, {"-18446744073709551614", kAll - 1}}},
        {54, 8, {{"18446744073709551616", kAll}, {"99999999999999999999999", kAll}}},
    };
    for (const auto& [id, length, numbers] : kWidths) {
        for (const auto& [json, number] : numbers) {
            EXPECT_EQ(Push(R"({"status":{")" + std::to_string(id) + "\":" + json + "}}"), Model::kStatusChanged);
            const Bytes stored = BytesOf(*m_model.FindStatusValue(id));
            EXPECT_EQ(stored.size(), length);
            EXPECT_EQ(std::accumulate(stored.begin(), stored.end(), uint64_t{0},
                                      [](uint64_t sum, uint8_t byte) { return sum << 8 | byte; }),
                      number)
                << json;
        }
    }
    Push(R"({"status":{"29":"\u00e4\n","30":"","40":5}})");
    EXPECT_EQ(Status(29) + "," + Status(30) + "," + Status(40), "c3 a4 0a,,");
    const JsonTree number(cJSON_Parse("18446744073709551615"));
    EXPECT_EQ(BytesOf(BuildFlexValue(eValueWidth8Bytes, number.get())), Bytes(8, 255)) << "the double stands in";
}

TEST_F(CurrentValues, ExactIntegersComeFromTheRightMemberOfTheText) {
    const std::string n = "9007199254740993";
    const std::string texts[] = {
        R"({"status":{"54":)" + n + "}}",
        R"({"a":{"status":{"54":1}},"b":"\"status\":{\"54\":2}","status":{"x":[{"54":3}],"30":"\\\"}","54":)" + n +
            "}}",
        "\xEF\xBB\xBF{\n\t\"settings\" : { \"30\" : 4294967297 } ,\"STATUS\" :\n{\"13\":1.5, \"54\"\t:\r" + n +
            " } } trailing",
        R"({"status":{"54":-)" + n + R"(},"status":{"54":1}})",  // the first of two counts
        R"({"status":{"54":1,"54":)" + n + ".9e-7}}",            // the last of two counts
        R"({"status":{"\u0035\u0034":)" + n + "}}",
        "{\"status\"\x01:\x02{\"13\":[[],{}],\x03\"54\":\x1F" + n + "}}",
    };
    for (const std::string& text : texts) {
        Push(R"({"status":{"54":0},"settings":{"30":0}})");
        Push(text);
        EXPECT_EQ(Status(54), "00 20 00 00 00 00 00 01") << text;
    }
    Push(texts[2]);
    EXPECT_EQ(Setting(30), "00 00 00 01");
}

TEST_F(CurrentValues, ResultMarksAndLogOfOddPushes) {
    const std::string tooBig = " is too big for notification table of size ";
    // Push, result, log, ids marked.
    const std::tuple<std::string, uint8_t, Texts, Ints, Ints> kRows[] = {
        {"{}", 1, {}, {}, {}},
        {"7", 1, {}, {}, {}},
        {"", 0, {"Input JSON is nullptr"}, {}, {}},
        {R"({"settings":{"2":1})", 0, {"Input JSON is nullptr"}, {}, {}},
        {R"({"status":{"8":)" + std::string(1100, '['), 0, {"Input JSON is nullptr"}, {}, {}},  // too deep to read
        {R"({"settings":[1,2],"status":"x"})", 0, {}, {}, {}},
        {R"({"settings":null,"status":[{"8":1}]})", 0, {}, {}, {}},
        {R"({"settings":{"30":1,"2":1},"status":{"8":1}})", 3, {}, {2, 30}, {8}},
        {R"({"status":{"118":1,"117":1}})", 2, {"Key 118" + tooBig + "118"}, {}, {117}},
        {R"({"status":{"-1":1}})", 0, {"Key -1" + tooBig + "118"}, {}, {}},
        {R"({"status":{"99999999999999999999999":1}})", 0, {"Key 2147483647" + tooBig + "118"}, {}, {}},
        {R"({"settings":{"-99999999999999999999999":1}})", 1, {"Key -2147483647" + tooBig + "182"}, {}, {}},
        {R"({"settings":{" \t9x":1,"+8":2,"2.7":3}})", 1, {}, {2, 8, 9}, {}},
        {R"({"settings":{"":1}})", 1, {"Unrecognized value type 0"}, {0}, {}},
    };
    for (const auto& [push, result, texts, settings, status] : kRows) {
        m_log.Clear();
        m_model.ResetSettingsHasChanged();
        m_model.ResetStatusHasChanged();

        EXPECT_EQ(Push(push), result) << push;

        EXPECT_EQ(m_log.Texts(), texts) << push;
        EXPECT_EQ(Ids(&Model::GetChangedSettingsIds), settings) << push;
        EXPECT_EQ(Ids(&Model::GetChangedStatusIds), status) << push;
        EXPECT_FALSE(m_capabilitiesChanged);
    }
    EXPECT_EQ(m_model.CurrentSettingsStatusFromJSON(nullptr, m_capabilitiesChanged), 0);
    Push(R"({"status":{"29":")" + std::string(70000, 'x') + R"(","8":)" + std::string(900, '[') +
         std::string(900, ']') + "}}");
    EXPECT_EQ(m_model.FindStatusValue(29)->GetDataLength(), 70000);
    EXPECT_EQ(Status(8), "00");
}

TEST_F(CurrentValues, MarksStayUntilResetAndReturnWithTheSameValue) {
    Push(R"({"settings":{"2":1},"status":{"8":1}})");
    m_model.ResetSettingsHasChanged();
    EXPECT_EQ(Ids(&Model::GetChangedSettingsIds), Ints{});
    EXPECT_EQ(Ids(&Model::GetChangedStatusIds), Ints{8});

    Push(R"({"settings":{"2":1}})");
    EXPECT_EQ(Ids(&Model::GetChangedSettingsIds), Ints{2});
}

TEST_F(CurrentValues, LookupOfAnIdWithoutValueMakesAnEmptyOneWithinTheTable) {
    Push(R"({"settings":{"30":7}})");
    std::map<int, FlexValue> result;
    std::map<int, FlexValue> all;

    m_model.GetTheseSettingsValues({30, 4, 250, -1}, result);
    m_model.GetTheseSettingsValues({}, all);

    EXPECT_EQ(BytesOf(result.at(30)), (Bytes{0, 0, 0, 7}));
    EXPECT_EQ(result.at(4).GetDataLength() + result.at(250).GetDataLength() + result.at(-1).GetDataLength(), 0);
    EXPECT_TRUE(all.size() == 2 && all.contains(4) && all.contains(30));
    EXPECT_EQ(m_model.GetStatusValue(500).GetDataLength(), 0);
    EXPECT_EQ(m_model.FindStatusValue(500), nullptr);
    EXPECT_EQ(Status(33), "ff") << "from the start";
}

TEST_F(CurrentValues, ChangesAreTracedAtLevelSix) {
    Push(R"({"settings":{"30":3000000000,"0":1},"status":{"29":""}})");
    const fakes::LogCapture log(KZ_LOG_TRACE);

    Ids(&Model::GetChangedSettingsIds);
    Ids(&Model::GetChangedStatusIds);
    Push(R"({"settings":{"2":1}})");

    EXPECT_EQ(log.Texts(),
              (Texts{"Setting changed --> 0 = 0", "Setting changed --> 30 = 3000000000", "Status changed --> 29 = 0",
                     "Updated json --> {\n\t\"settings\":\t{\n\t\t\"2\":\t1\n\t}\n}",
                     "Nothing in the push data affects current blacklists"}));
}
