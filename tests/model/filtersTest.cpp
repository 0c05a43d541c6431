// Filters: when they are on, what they forbid, and which broken ones are left out.
#include "modelFixture.h"

namespace {

using IdNums = SettingsStatusMapping::IdNums;
using Texts = std::vector<std::string>;

class Filters : public ModelTest {
  protected:
    Filters() {
        ParseSettings(SettingJson(2, {1, 4, 6}) + "," + SettingJson(5, {0, 1, 2}) + "," + SettingJson(9, {3}));
    }
};

std::string FilterJson(const std::string& criteria, const std::string& blacklist) {
    return R"({"activated_by":[)" + criteria + R"(],"blacklist":[)" + blacklist + "]}";
}

const std::string kSetting2Is1Or4 = R"({"setting_id":2,"ids":[4,1]})";
const std::string kStatus8Is0 = R"({"status_id":8,"values":[0]})";
const std::string kForbid5 = R"({"setting_id":5,"opt_ids":[2,1]})";

TEST_F(Filters, FilterIsOnWhenEveryCriterionHoldsForOneOfItsNumbers) {
    ParseFilters(FilterJson(kSetting2Is1Or4 + "," + kStatus8Is0, kForbid5));
    const Ints kAll = {0, 1, 2};
    const Ints kLess = {0};
    const struct {
        std::string push;
        Ints expected;
    } kRows[] = {
        {R"({"settings":{"2":1}})", kAll},  // status 8 has no value yet
        {R"({"status":{"8":1}})", kAll},    {R"({"status":{"8":0}})", kLess},
        {R"({"settings":{"2":6}})", kAll},  {R"({"settings":{"2":4}})", kLess},
        {R"({"settings":{"2":1}})", kLess}, {R"({"settings":{"2":6},"status":{"8":3}})", kAll},
        {R"({"status":{"8":0}})", kAll},    {R"({"settings":{"2":257}})", kLess},  // one byte: 1
    };
    for (const auto& row : kRows) {
        Push(row.push);
        EXPECT_EQ(Capabilities(), (std::map<int, Ints>{{2, {1, 4, 6}}, {5, row.expected}, {9, {3}}})) << row.push;
    }
}

TEST_F(Filters, CapabilitiesAppearWithTheFirstPushOfATrigger) {
    ParseFilters(FilterJson(kStatus8Is0, kForbid5));

    Push(R"({"settings":{"2":1,"5":1},"status":{"9":0}})");
    EXPECT_TRUE(Capabilities().empty());
    EXPECT_FALSE(m_capabilitiesChanged);

    Push(R"({"status":{"8":7}})");
    EXPECT_EQ(Capabilities().size(), 3u);
    EXPECT_TRUE(m_capabilitiesChanged);
    EXPECT_EQ(ChangedCapabilities(), (Ints{2, 5, 9}));
}

TEST_F(Filters, MarksAreThoseOfTheLastComputation) {
    ParseFilters(FilterJson(kStatus8Is0, kForbid5) + "," +
                 FilterJson(kSetting2Is1Or4, R"({"setting_id":9,"opt_ids":[3]})"));
    Push(R"({"settings":{"2":6},"status":{"8":1}})");

    Push(R"({"status":{"8":0}})");
    EXPECT_TRUE(m_capabilitiesChanged);
    EXPECT_EQ(ChangedCapabilities(), Ints{5});

    Push(R"({"settings":{"5":0}})");  // no trigger: nothing is computed
    EXPECT_FALSE(m_capabilitiesChanged);
    EXPECT_EQ(ChangedCapabilities(), Ints{5});

    Push(R"({"settings":{"2":1}})");
    EXPECT_TRUE(m_capabilitiesChanged);
    EXPECT_EQ(ChangedCapabilities(), Ints{9});

    Push(R"({"settings":{"2":4},"status":{"8":0}})");  // other values, same filters
    EXPECT_FALSE(m_capabilitiesChanged);
    EXPECT_EQ(ChangedCapabilities(), Ints{});

    Push(R"({"settings":{"2":6},"status":{"8":1}})");
    EXPECT_EQ(ChangedCapabilities(), (Ints{5, 9}));
}

TEST_F(Filters, StatusSetByTheServerCountsFromTheNextPushOn) {
    ParseFilters(FilterJson(R"({"status_id":33,"values":[255]})", kForbid5) + "," +
                 FilterJson(kStatus8Is0, R"({"setting_id":9,"opt_ids":[3]})"));
    Push(R"({"status":{"8":1}})");
    EXPECT_EQ(Capabilities().at(5), Ints{0});  // 255 since construction

    m_model.SetStatusValue(33, ByteValue(1));
    EXPECT_EQ(Capabilities().at(5), Ints{0});

    Push(R"({"status":{"8":1}})");
    EXPECT_EQ(Capabilities().at(5), (Ints{0, 1, 2}));
}

TEST_F(Filters, NumbersOfACriterionStandUnderTheKeyThatItsFirstKeyAsksFor) {
    const struct {
        std::string criterion;
        Texts reasons;
    } kRows[] = {
        {R"({"ids":[3],"setting_id":5})", {}},
        {R"({"status_id":5,"values":["7",true]})", {}},
        {R"({"ids":[3],"status_id":5})", {}},
        {R"({"status_id":5,"setting_id":5,"values":[3]})", {}},
        {R"({"status_id":5,"ids":[3]})", {"values"}},
        {R"({"values":[3],"status_id":5})", {"ids"}},
        {R"({"setting_id":5,"values":[3]})", {"ids"}},
        {R"({"setting_id":5,"ids":3})", {"ids"}},
        {R"({"setting_id":5,"ids":[]})", {"none"}},
        {R"({"ids":[3]})", {""}},
        {"7", {""}},
    };
    for (const auto& row : kRows) {
        m_log.Clear();
        SettingsStatusMapping::FilterItem filter;
        const JsonTree item(cJSON_Parse(FilterJson(row.criterion, kForbid5).c_str()));
        const std::string printed = PrintJson(item->child->child);

        EXPECT_EQ(filter.FromJSON(item.get(), {"setting_id", "status_id"}), row.reasons.empty()) << row.criterion;

        Texts expected;
        for (const std::string& reason : row.reasons) {
            if (reason == "none") {
                expected.emplace_back("Unable to find any numbers for numberTag: ids in file");
            } else if (!reason.empty()) {
                expected.push_back("Unable to find array tag " + reason + " in item " + printed);
            }
            expected.emplace_back("Unable to parse any criteria from this filter.");
        }
        EXPECT_EQ(m_log.Texts(), expected) << row.criterion;
    }
}

TEST_F(Filters, TagOfACriterionIsTheFirstIdKeyThatSucceeds) {
    SettingsStatusMapping::FilterItem filter;
    const JsonTree item(cJSON_Parse(
        FilterJson(R"({"ids":[3,1,3],"setting_id":5,"status_id":6},{"status_id":"7","values":[0]})", "").c_str()));

    ASSERT_TRUE(filter.FromJSON(item.get(), {"setting_id", "status_id"}));

    ASSERT_EQ(filter.criteria.size(), 2u);
    EXPECT_EQ(filter.criteria[0]->tag, "setting_id");
    EXPECT_EQ(filter.criteria[0]->id, 5);
    EXPECT_EQ(filter.criteria[0]->numbers, (Ints{1, 3, 3}));
    EXPECT_EQ(filter.criteria[1]->tag, "status_id");
    EXPECT_EQ(filter.criteria[1]->id, 7);
    EXPECT_TRUE(filter.blacklist.empty());
}

TEST_F(Filters, BrokenFiltersAreLeftOutAndTheOthersKeepTheirBlacklists) {
    const std::string badEntry = R"({"setting_id":5,"opt_ids":[]})";
    ParseFilters(FilterJson(R"({"setting_id":2,"ids":[1]})", R"({"setting_id":2,"opt_ids":[6]})") + "," +  //
                 FilterJson("", kForbid5) + ",7," +                                                        //
                 R"({"activated_by":[)" + kStatus8Is0 + "]}," +                                            //
                 FilterJson(R"({"setting_id":2,"ids":[4]})", badEntry + "," + kForbid5));
    EXPECT_EQ(m_log.Texts(),
              (Texts{
                  "No activated_by members in array",
                  "Parsing failed",
                  "Unable to find <activated_by> array in file",
                  "Parsing failed",
                  "There are no <blacklist> available for the filter.",
                  "Parsing failed",
                  "Unable to find any numbers for numberTag: opt_ids in file",
                  "Unable to parse blacklist entry " + PrintJson(JsonTree(cJSON_Parse(badEntry.c_str())).get()),
              }));

    Push(R"({"settings":{"2":4}})");
    EXPECT_EQ(Capabilities(), (std::map<int, Ints>{{2, {1, 4, 6}}, {5, {0}}, {9, {3}}}));
    Push(R"({"settings":{"2":1}})");
    EXPECT_EQ(Capabilities(), (std::map<int, Ints>{{2, {1, 4}}, {5, {0, 1, 2}}, {9, {3}}}));
}

TEST_F(Filters, BlacklistOfAnUnknownSettingMakesAnEntryWithoutOptions) {
    ParseFilters(FilterJson(kStatus8Is0, R"({"setting_id":300,"opt_ids":[1]},{"setting_id":-7,"opt_ids":[1]})"));

    Push(R"({"status":{"8":1}})");

    EXPECT_EQ(Capabilities(), (std::map<int, Ints>{{-7, {}}, {2, {1, 4, 6}}, {5, {0, 1, 2}}, {9, {3}}, {300, {}}}));
    EXPECT_EQ(m_model.FindCapability(300)->id, 0);
    EXPECT_EQ(ChangedCapabilities(), (Ints{2, 5, 9}));
}

TEST_F(Filters, CapabilityQueryCopiesTheAskedOrAllEntries) {
    ParseFilters(FilterJson(kStatus8Is0, kForbid5));
    std::map<int, IdNums> result;
    EXPECT_TRUE(m_model.GetTheseSettingsCapabilityValues({}, result));
    EXPECT_TRUE(result.empty());
    EXPECT_TRUE(m_model.GetTheseSettingsCapabilityValues({2}, result));
    EXPECT_EQ(NumbersOf(result), (std::map<int, Ints>{{2, {}}}));
    Push(R"({"status":{"8":0}})");

    EXPECT_TRUE(m_model.GetTheseSettingsCapabilityValues({2, 250}, result));
    EXPECT_EQ(NumbersOf(result), (std::map<int, Ints>{{2, {1, 4, 6}}, {250, {}}}));
    EXPECT_EQ(result[250].id, 0);
    EXPECT_EQ(result[250].tag, "NOT BUILT FROM JSON");
    EXPECT_EQ(m_model.FindCapability(250), nullptr);

    result.clear();
    EXPECT_TRUE(m_model.GetTheseSettingsCapabilityValues({}, result));
    EXPECT_EQ(NumbersOf(result), (std::map<int, Ints>{{2, {1, 4, 6}}, {5, {0}}, {9, {3}}}));
}

TEST_F(Filters, TagChangedOptionsComparesInOrderAndReplaces) {
    std::map<int, IdNums> first = {{2, IdNums(2, {1, 4})}, {5, IdNums(5, {})}};
    std::map<int, IdNums> second = {{2, IdNums(2, {1, 4})}, {5, IdNums(5, {0})}, {6, IdNums(6, {1})}};
    std::map<int, IdNums> third = {{2, IdNums(2, {4, 1})}};
    std::map<int, IdNums> none;

    EXPECT_TRUE(m_model.TagChangedOptions(first));
    EXPECT_EQ(ChangedCapabilities(), Ints{2});
    EXPECT_TRUE(m_model.TagChangedOptions(second));
    EXPECT_EQ(ChangedCapabilities(), (Ints{5, 6}));
    EXPECT_TRUE(second[5].changed);
    EXPECT_FALSE(m_model.TagChangedOptions(second));
    EXPECT_TRUE(m_model.TagChangedOptions(third));
    EXPECT_EQ(Capabilities(), (std::map<int, Ints>{{2, {4, 1}}}));
    EXPECT_FALSE(m_model.TagChangedOptions(none));
    EXPECT_TRUE(Capabilities().empty());
}

TEST_F(Filters, StepsAreTracedAtLevelSix) {
    ParseFilters(FilterJson(kSetting2Is1Or4 + "," + kStatus8Is0, R"({"setting_id":9,"opt_ids":[3]},)" + kForbid5) +
                 "," + FilterJson(kStatus8Is0, R"({"setting_id":9,"opt_ids":[3]})") + "," +
                 FilterJson(kSetting2Is1Or4, R"({"setting_id":300,"opt_ids":[3]})"));
    g_logLevel = 6;
    Push(R"({"settings":{"2":1},"status":{"8":0}})");
    g_logLevel = 2;

    const Texts both = {"\t\tEvaluating criteria: ", "\t\tEvaluating criteria: ", "\t\tThis filter succeeded",
                        "\tApplying blacklist: ", "\tApplying blacklist: "};
    Texts expected = {"****Applying filters that potentially blacklist Setting ID 5",
                      "****Setting ID 5 original options --> ", "Options before applying filter 0 --> "};
    expected.insert(expected.end(), both.begin(), both.end());
    // Setting 9 has lost its only option already.
    expected.insert(
        expected.end(),
        {"****Applying filters that potentially blacklist Setting ID 9", "****Setting ID 9 original options --> ",
         "****Applying filters that potentially blacklist Setting ID 300", "****Setting ID 300 original options --> "});
    Texts texts = m_log.Texts();
    ASSERT_GE(texts.size(), 1u);
    EXPECT_TRUE(texts[0].starts_with("Updated json --> {\n"));
    EXPECT_EQ(Texts(texts.begin() + 1, texts.end()), expected);

    m_log.Clear();
    g_logLevel = 6;
    Push(R"({"settings":{"2":6}})");
    g_logLevel = 2;
    EXPECT_TRUE(m_log.Has("\t\tThis criteria (and thus filter) failed", 6));
    EXPECT_FALSE(m_log.Has("Nothing in the push data affects current blacklists"));
}

TEST_F(Filters, CriterionOfUnknownKindNeverHolds) {
    SettingsStatusMapping::FilterItem filter;
    filter.criteria.push_back(std::make_unique<IdNums>(2, Ints{1}));
    std::map<int, FlexValue> values;
    values[2] = ByteValue(1);

    EXPECT_FALSE(filter.Validate(values, values));
    EXPECT_TRUE(m_log.Has("Unhandled case in Validate", 2));
    filter.criteria.clear();
    EXPECT_TRUE(filter.Validate(values, values));
}

}  // namespace
