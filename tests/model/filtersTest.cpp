// Filters: which are left out, when capabilities are computed and marked, and how their steps are told. What filters
// forbid is tested in filterEquivalenceTest.cpp.
#include "modelFixture.h"

namespace {

class Filters : public ModelTest {
  protected:
    Ints Changed() const { return Ids(&SettingsStatusMapping::GetCapabilityChangedSettingsIds); }
    void LoadFilters(const std::string& filters) {
        Load(SettingJson(2, {1, 4, 6}) + "," + SettingJson(5, {0, 1, 2}) + "," + SettingJson(9, {3}), filters);
    }
};

const std::string kSetting2Is1Or4 = R"({"setting_id":2,"ids":[4,1]})";
const std::string kStatus8Is0 = R"({"status_id":8,"values":[0]})";
const std::string kForbid5 = R"({"setting_id":5,"opt_ids":[2,1]})";
const std::string kForbid9 = R"({"setting_id":9,"opt_ids":[3]})";

}  // namespace

TEST_F(Filters, CapabilitiesAppearWithTheFirstTriggerAndMarksAreThoseOfTheLastComputation) {
    LoadFilters(FilterJson(kStatus8Is0, kForbid5) + "," + FilterJson(kSetting2Is1Or4, kForbid9));
    const std::tuple<std::string, bool, Ints> kRows[] = {
        {R"({"settings":{"5":1},"status":{"9":0}})", false, {}},  // no trigger
        {R"({"settings":{"2":6},"status":{"8":1}})", true, {2, 5, 9}},
        {R"({"status":{"8":0}})", true, {5}},
        {R"({"settings":{"5":0}})", false, {5}},  // nothing is computed
        {R"({"settings":{"2":1}})", true, {9}},
        {R"({"settings":{"2":4},"status":{"8":0}})", false, {}},  // other values, same filters
        {R"({"settings":{"2":6},"status":{"8":1}})", true, {5, 9}},
    };
    for (const auto& [push, changes, changed] : kRows) {
        Push(push);
        EXPECT_EQ(m_capabilitiesChanged, changes) << push;
        EXPECT_EQ(Changed(), changed) << push;
    }
    EXPECT_EQ(Capabilities(), (Options{{2, {1, 4, 6}}, {5, {0, 1, 2}}, {9, {3}}}));
}

TEST_F(Filters, NumbersOfACriterionStandUnderTheKeyThatItsFirstKeyAsksFor) {
    const std::pair<std::string, std::string> kRows[] = {
        {R"({"status_id":5,"values":["7",true]})", ""},
        {R"({"ids":[3],"status_id":5})", ""},
        {R"({"status_id":5,"setting_id":5,"values":[3]})", ""},
        {R"({"status_id":5,"ids":[3]})",
         "Unable to find array tag values in item {\n\t\"status_id\":\t5,\n\t\"ids\":\t[3]\n}"},
        {R"({"values":[3],"status_id":5})",
         "Unable to find array tag ids in item {\n\t\"values\":\t[3],\n\t\"status_id\":\t5\n}"},
        {R"({"setting_id":5,"ids":[]})", "Unable to find any numbers for numberTag: ids in file"},
        {R"({"ids":[3]})", "Unable to parse any criteria from this filter."},
    };
    for (const auto& [criterion, reason] : kRows) {
        m_log.Clear();
        SettingsStatusMapping::FilterItem filter;
        const JsonTree item(cJSON_Parse(FilterJson(criterion, kForbid5).c_str()));

        EXPECT_EQ(filter.FromJSON(item.get(), {"setting_id", "status_id"}), reason.empty()) << criterion;

        EXPECT_EQ(m_log.Texts(), reason.empty() ? Texts{} : m_log.Has(reason) ? m_log.Texts() : Texts{reason});
    }
}

TEST_F(Filters, BrokenFiltersAreLeftOutAndTheOthersKeepTheirBlacklists) {
    LoadFilters(FilterJson("", kForbid5) + R"(,7,{"activated_by":[)" + kStatus8Is0 + "]}," +
                FilterJson(R"({"setting_id":2,"ids":[4]})", R"({"setting_id":5,"opt_ids":[]},)" + kForbid5));
    EXPECT_EQ(
        m_log.Texts(),
        (Texts{"No activated_by members in array", "Parsing failed", "Unable to find <activated_by> array in file",
               "Parsing failed", "There are no <blacklist> available for the filter.", "Parsing failed",
               "Unable to find any numbers for numberTag: opt_ids in file",
               "Unable to parse blacklist entry {\n\t\"setting_id\":\t5,\n\t\"opt_ids\":\t[]\n}"}));

    Push(R"({"settings":{"2":4}})");
    EXPECT_EQ(Capabilities(), (Options{{2, {1, 4, 6}}, {5, {0}}, {9, {3}}}));
}

TEST_F(Filters, StepsAreTracedAtLevelSix) {
    LoadFilters(FilterJson(kSetting2Is1Or4 + "," + kStatus8Is0, kForbid9) + "," + FilterJson(kStatus8Is0, kForbid9) +
                "," + FilterJson(kStatus8Is0, kForbid9));
    const fakes::LogCapture log(KZ_LOG_TRACE);
    Push(R"({"settings":{"2":6},"status":{"8":0}})");

    Texts steps = log.Texts();
    steps.erase(steps.begin());  // the push itself
    EXPECT_EQ(steps,
              (Texts{"****Applying filters that potentially blacklist Setting ID 9",
                     "****Setting ID 9 original options --> ", "Options before applying filter 0 --> ",
                     "\t\tEvaluating criteria: ", "\t\tThis criteria (and thus filter) failed",
                     "Options before applying filter 1 --> ", "\t\tEvaluating criteria: ", "\t\tThis filter succeeded",
                     "\tApplying blacklist: ", "Options before applying filter 2 --> "}));
}
