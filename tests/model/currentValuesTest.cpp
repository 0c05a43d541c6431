// Current values: what a push stores, marks and returns, and what lookups see.
#include "modelFixture.h"

namespace {

class CurrentValues : public ModelTest {
  protected:
    Bytes Setting(int id) const { return BytesOf(*m_model.FindSettingValue(id)); }
    Bytes Status(int id) const { return BytesOf(*m_model.FindStatusValue(id)); }
    Ints ChangedSettings() const {
        Ints ids;
        m_model.GetChangedSettingsIds(ids);
        return ids;
    }
    Ints ChangedStatus() const {
        Ints ids;
        m_model.GetChangedStatusIds(ids);
        return ids;
    }
};

TEST_F(CurrentValues, PushStoresEachValueInItsWidthAndMarksIt) {
    EXPECT_EQ(Push(R"({"settings":{"30":1000,"2":1}})"), 1);
    EXPECT_EQ(Push(R"({"status":{"29":"abc","54":18446744073709551615,"117":1e3}})"), 2);
    EXPECT_EQ(Push(R"({"status":{"8":300},"settings":{" 7":-1}})"), 3);

    EXPECT_EQ(Setting(2), Bytes{1});
    EXPECT_EQ(Setting(30), (Bytes{0, 0, 3, 0xE8}));
    EXPECT_EQ(Setting(7), Bytes{255});
    EXPECT_EQ(Status(29), (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(Status(54), Bytes(8, 255));
    EXPECT_EQ(Status(117), (Bytes{0, 0, 0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(Status(8), Bytes{44});
    EXPECT_EQ(ChangedSettings(), (Ints{2, 7, 30}));
    EXPECT_EQ(ChangedStatus(), (Ints{8, 29, 54, 117}));
    EXPECT_FALSE(m_capabilitiesChanged);
}

// The exact digits are found whatever surrounds them.
TEST_F(CurrentValues, ExactIntegersComeFromTheRightMemberOfTheText) {
    const std::string n = "9007199254740993";
    const Bytes exact = {0, 0x20, 0, 0, 0, 0, 0, 1};
    const std::string texts[] = {
        R"({"status":{"54":)" + n + "}}",
        R"({"a":{"status":{"54":1}},"b":"\"status\":{\"54\":2}","status":{"x":[{"54":3}],"30":"\\\"}","54":)" + n +
            "}}",
        "\xEF\xBB\xBF{\n\t\"settings\" : { \"30\" : 4294967297 } ,\"STATUS\" :\n{\"13\":1.5, \"54\"\t:\r" + n +
            " } } trailing",
        R"({"status":{"54":-)" + n + R"(},"status":{"54":1}})",  // the first of two counts
        R"({"status":{"54":1,"54":)" + n + ".9e-7}}",            // the last of two counts
        R"({"status":{"\u0035\u0034":)" + n + "}}",
    };
    for (const std::string& text : texts) {
        Push(R"({"status":{"54":0},"settings":{"30":0}})");
        Push(text);
        EXPECT_EQ(Status(54), exact) << text;
    }
    EXPECT_EQ(Setting(30), (Bytes{0, 0, 0, 0}));
    Push(texts[2]);
    EXPECT_EQ(Setting(30), (Bytes{0, 0, 0, 1}));
}

TEST_F(CurrentValues, ResultAndStoreOfOddPushes) {
    const struct {
        std::string push;
        uint8_t result;
        std::vector<std::string> texts;
        Ints settings;
        Ints status;
    } kRows[] = {
        {"{}", 1, {}, {}, {}},
        {"[1]", 1, {}, {}, {}},
        {"7", 1, {}, {}, {}},
        {"", 0, {"Input JSON is nullptr"}, {}, {}},
        {R"({"settings":{"2":1})", 0, {"Input JSON is nullptr"}, {}, {}},
        {R"({"settings":{}})", 0, {}, {}, {}},
        {R"({"status":{}})", 0, {}, {}, {}},
        {R"({"settings":[1,2],"status":"x"})", 0, {}, {}, {}},
        {R"({"settings":null,"status":[{"8":1}]})", 0, {}, {}, {}},
        {R"({"settings":{"200":1,"2":1}})", 1, {"Key 200 is too big for notification table of size 182"}, {2}, {}},
        {R"({"settings":{"182":1}})", 1, {"Key 182 is too big for notification table of size 182"}, {}, {}},
        {R"({"status":{"118":1,"117":1}})", 2, {"Key 118 is too big for notification table of size 118"}, {}, {117}},
        {R"({"status":{"-1":1}})", 0, {"Key -1 is too big for notification table of size 118"}, {}, {}},
        {R"({"status":{"99999999999999999999999":1}})",
         0,
         {"Key 2147483647 is too big for notification table of size 118"},
         {},
         {}},
        {R"({"settings":{"-99999999999999999999999":1}})",
         1,
         {"Key -2147483647 is too big for notification table of size 182"},
         {},
         {}},
        {R"({"settings":{" \t9x":1,"+8":2,"2.7":3}})", 1, {}, {2, 8, 9}, {}},
        {R"({"settings":{"":1},"status":{"x":1}})",
         3,
         {"Unrecognized value type 0", "Unrecognized value type 0"},
         {0},
         {0}},
        {R"({"settings":{"2":"x","30":"y","3":null,"4":[1],"5":{"6":7}},"status":{"29":5,"30":null,"54":"z","40":[]}})",
         3,
         {},
         {2, 3, 4, 5, 30},
         {29, 30, 40, 54}},
    };
    for (const auto& row : kRows) {
        m_log.Clear();
        m_model.ResetSettingsHasChanged();
        m_model.ResetStatusHasChanged();

        EXPECT_EQ(Push(row.push), row.result) << row.push;

        EXPECT_EQ(m_log.Texts(), row.texts) << row.push;
        EXPECT_EQ(ChangedSettings(), row.settings) << row.push;
        EXPECT_EQ(ChangedStatus(), row.status) << row.push;
        EXPECT_FALSE(m_capabilitiesChanged);
    }
    EXPECT_EQ(m_model.CurrentSettingsStatusFromJSON(nullptr, m_capabilitiesChanged), 0);
    EXPECT_EQ(Status(29), Bytes{});
    EXPECT_EQ(Status(54), Bytes(8, 0));
    EXPECT_EQ(Setting(4), Bytes{0});
}

TEST_F(CurrentValues, DeepAndLongTextsAreTaken) {
    const std::string longText(70000, 'x');
    Push(R"({"status":{"29":")" + longText + R"(","8":)" + std::string(900, '[') + std::string(900, ']') +
         R"(,"54":1}})");
    EXPECT_EQ(Status(29).size(), longText.size());
    EXPECT_EQ(Status(8), Bytes{0});
    EXPECT_EQ(Status(54).back(), 1);

    EXPECT_EQ(Push(R"({"status":{"8":)" + std::string(1100, '[')), 0);  // deeper than the reader goes
}

TEST_F(CurrentValues, MarksStayUntilResetAndReturnWithTheSameValue) {
    Push(R"({"settings":{"2":1},"status":{"8":1}})");

    m_model.ResetSettingsHasChanged();
    EXPECT_EQ(ChangedSettings(), Ints{});
    EXPECT_EQ(ChangedStatus(), Ints{8});
    m_model.ResetStatusHasChanged();
    EXPECT_EQ(ChangedStatus(), Ints{});

    Push(R"({"settings":{"2":1}})");
    Ints ids = {90, 1};
    m_model.GetChangedSettingsIds(ids);
    EXPECT_EQ(ids, (Ints{1, 2, 90}));  // appended and sorted
}

TEST_F(CurrentValues, Status33Is255FromTheStartAndAgainWhenSet) {
    EXPECT_EQ(Status(33), Bytes{255});
    EXPECT_EQ(ChangedStatus(), Ints{});
    Push(R"({"status":{"33":4}})");
    EXPECT_EQ(Status(33), Bytes{4});

    m_model.SetStatusValue(33, ByteValue(255));
    EXPECT_EQ(Status(33), Bytes{255});
    EXPECT_EQ(ChangedStatus(), Ints{});
    m_model.SetStatusValue(118, ByteValue(1));
    m_model.SetStatusValue(-1, ByteValue(1));
    EXPECT_EQ(m_model.FindStatusValue(118), nullptr);
}

TEST_F(CurrentValues, LookupOfAnIdWithoutValueMakesAnEmptyOne) {
    Push(R"({"settings":{"30":7}})");
    m_model.ResetSettingsHasChanged();
    std::map<int, FlexValue> result;
    result[30] = ByteValue(3);

    EXPECT_TRUE(m_model.GetTheseSettingsValues({30, 4, 250, -1}, result));

    ASSERT_EQ(result.size(), 4u);
    EXPECT_EQ(BytesOf(result[30]), (Bytes{0, 0, 0, 7}));
    EXPECT_EQ(result[4].GetDataLength() + result[250].GetDataLength() + result[-1].GetDataLength(), 0);
    EXPECT_EQ(ChangedSettings(), Ints{});
    std::map<int, FlexValue> all;
    EXPECT_TRUE(m_model.GetTheseSettingsValues({}, all));
    EXPECT_EQ(all.size(), 2u);  // 4 and 30: ids beyond the table are not kept
    EXPECT_TRUE(all.contains(4) && all.contains(30));

    std::map<int, FlexValue> status;
    EXPECT_TRUE(m_model.GetTheseStatusValues({117}, status));
    status.clear();
    EXPECT_TRUE(m_model.GetTheseStatusValues({}, status));
    EXPECT_EQ(status.size(), 2u);  // 33 and 117
}

TEST_F(CurrentValues, SingleLookupsMakeOrLeaveValuesAsAsked) {
    EXPECT_EQ(m_model.FindSettingValue(5), nullptr);
    EXPECT_EQ(m_model.FindSettingValue(-1), nullptr);
    EXPECT_EQ(m_model.FindSettingValue(182), nullptr);
    EXPECT_EQ(m_model.GetSettingValue(5).GetDataLength(), 0);
    EXPECT_NE(m_model.FindSettingValue(5), nullptr);
    EXPECT_EQ(m_model.GetStatusValue(500).GetDataLength(), 0);
    EXPECT_EQ(m_model.FindStatusValue(500), nullptr);
}

TEST_F(CurrentValues, ChangesAreTracedAtLevelSix) {
    ParseSettings(SettingJson(5, {1}));
    ParseFilters(R"({"activated_by":[{"status_id":8,"values":[1]}],"blacklist":[{"setting_id":5,"opt_ids":[1]}]})");
    Push(R"({"settings":{"30":3000000000,"0":1},"status":{"29":"","8":1}})");
    Push(R"({"status":{"8":0}})");
    m_log.Clear();
    g_logLevel = 6;

    ChangedSettings();
    ChangedStatus();
    ChangedCapabilities();
    Push(R"({"settings":{"2":1}})");
    g_logLevel = 2;

    EXPECT_EQ(m_log.Texts(), (std::vector<std::string>{
                                 "Setting changed --> 0 = 0",
                                 "Setting changed --> 30 = 3000000000",
                                 "Status changed --> 8 = 0",
                                 "Status changed --> 29 = 0",
                                 "Setting capability changed -->:",
                                 "Updated json --> {\n\t\"settings\":\t{\n\t\t\"2\":\t1\n\t}\n}",
                                 "Nothing in the push data affects current blacklists",
                             }));
}

}  // namespace
