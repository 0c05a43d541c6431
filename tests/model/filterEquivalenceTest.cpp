// The three ways to the capabilities must agree on any catalogue and any sequence of values: the compiled filters of
// the push path, the plain evaluation that the traces come from, and a third one written here from scratch.
#include <algorithm>
#include <random>

#include "modelFixture.h"

namespace {

struct Criterion {
    bool isStatus;
    int id;
    Ints numbers;
};
struct Filter {
    std::vector<Criterion> criteria;
    std::vector<std::pair<int, Ints>> blacklist;
};
struct Plan {
    std::map<int, Ints> options;
    std::vector<Filter> filters;
};

class Dice {
  public:
    explicit Dice(unsigned seed) : m_engine(seed) {}
    int Roll(int from, int to) { return std::uniform_int_distribution<int>(from, to)(m_engine); }
    bool Chance(int percent) { return Roll(1, 100) <= percent; }
    Ints Numbers(int count, int from, int to) {
        Ints numbers;
        for (int i = 0; i < count; ++i) {
            numbers.push_back(Roll(from, to));
        }
        return numbers;
    }

  private:
    std::mt19937 m_engine;
};

// Few ids and few values, so that filters meet: options repeat, blacklists name unknown settings and unknown options,
// criteria stand on ids beyond the tables, on four-byte, string and valueless ids.
Plan RandomPlan(Dice& dice) {
    static constexpr int kSettingIds[] = {1, 2, 3, 4, 30, 181, 182, 300, -4};
    static constexpr int kStatusIds[] = {1, 2, 5, 13, 29, 33, 54, 118};
    const auto settingId = [&] { return kSettingIds[dice.Roll(0, 8)]; };
    const auto statusId = [&] { return kStatusIds[dice.Roll(0, 7)]; };
    Plan plan;
    const int settings = dice.Roll(0, 7);
    for (int i = 0; i < settings; ++i) {
        const int count = dice.Chance(10) ? dice.Roll(60, 200) : dice.Roll(1, 6);
        plan.options[settingId()] = dice.Numbers(count, -1, count + 2);
    }
    const int filters = dice.Chance(10) ? dice.Roll(60, 140) : dice.Roll(0, 8);
    for (int i = 0; i < filters; ++i) {
        Filter filter;
        for (int n = dice.Roll(1, 3); n > 0; --n) {
            const bool isStatus = dice.Chance(50);
            filter.criteria.push_back(
                {isStatus, isStatus ? statusId() : settingId(), dice.Numbers(dice.Roll(1, 4), -1, 3)});
        }
        for (int n = dice.Roll(0, 3); n > 0; --n) {
            filter.blacklist.emplace_back(settingId(), dice.Numbers(dice.Roll(1, 6), -1, dice.Chance(20) ? 150 : 6));
        }
        plan.filters.push_back(std::move(filter));
    }
    return plan;
}

std::string JsonOf(const Ints& numbers) {
    std::string text = "[";
    for (const int number : numbers) {
        text += (text.size() > 1 ? "," : "") + std::to_string(number);
    }
    return text + "]";
}

std::string FiltersJson(const Plan& plan) {
    std::string text;
    for (const Filter& filter : plan.filters) {
        text += text.empty() ? R"({"activated_by":[)" : R"(,{"activated_by":[)";
        const char* separator = "";
        for (const Criterion& criterion : filter.criteria) {
            text += std::string(separator) + (criterion.isStatus ? R"({"status_id":)" : R"({"setting_id":)") +
                    std::to_string(criterion.id) + (criterion.isStatus ? R"(,"values":)" : R"(,"ids":)") +
                    JsonOf(criterion.numbers) + "}";
            separator = ",";
        }
        text += R"(],"blacklist":[)";
        separator = "";
        for (const auto& [id, options] : filter.blacklist) {
            text += std::string(separator) + R"({"setting_id":)" + std::to_string(id) + R"(,"opt_ids":)" +
                    JsonOf(options) + "}";
            separator = ",";
        }
        text += "]}";
    }
    return text;
}

std::string SettingsJson(const Plan& plan) {
    std::string text;
    for (const auto& [id, options] : plan.options) {
        text += (text.empty() ? "" : ",") + SettingJson(id, options);
    }
    return text;
}

// A few random members of one part of a push. Strings for text widths, now and then a value without a number.
std::string RandomMembers(Dice& dice, bool isStatus) {
    std::string text;
    for (int n = dice.Roll(0, 4); n > 0; --n) {
        const int id = isStatus ? Ints{1, 2, 5, 13, 29, 33, 54}[static_cast<size_t>(dice.Roll(0, 6))]
                                : Ints{1, 2, 3, 4, 30, 181}[static_cast<size_t>(dice.Roll(0, 5))];
        const int number = dice.Roll(-1, 4);
        const bool isText = isStatus && id == 29;
        const std::string letters = number < 0 ? "" : std::string(1, static_cast<char>('\x01' + number));
        text += (text.empty() ? "\"" : ",\"") + std::to_string(id) +
                "\":" + (isText ? "\"" + letters + "\"" : std::to_string(number));
    }
    return text;
}

// The written rule: every setting's options less those that a filter forbids that is on.
std::map<int, Ints> Expected(const Plan& plan, const std::map<int, uint32_t>& settings,
                             const std::map<int, uint32_t>& status) {
    std::map<int, Ints> result = plan.options;
    for (auto& [id, options] : result) {
        std::sort(options.begin(), options.end());
    }
    for (const Filter& filter : plan.filters) {
        const bool on = std::all_of(filter.criteria.begin(), filter.criteria.end(), [&](const Criterion& criterion) {
            const auto& values = criterion.isStatus ? status : settings;
            const auto value = values.find(criterion.id);
            return value != values.end() && std::any_of(criterion.numbers.begin(), criterion.numbers.end(), [&](int n) {
                       return static_cast<uint32_t>(n) == value->second;
                   });
        });
        for (const auto& [id, forbidden] : filter.blacklist) {
            Ints& options = result[id];
            if (on) {
                std::erase_if(options, [&, &list = forbidden](int option) {
                    return std::find(list.begin(), list.end(), option) != list.end();
                });
            }
        }
    }
    return result;
}

std::map<int, uint32_t> NumbersOfValues(const std::map<int, FlexValue>& values) {
    std::map<int, uint32_t> numbers;
    for (const auto& [id, value] : values) {
        if (value.GetDataLength() != 0) {
            numbers[id] = value.GetUI32Value();
        }
    }
    return numbers;
}

class Equivalence : public testing::TestWithParam<unsigned> {
  protected:
    Equivalence() { fakes::Reset(); }

    void Load(SettingsStatusMapping& model) const {
        const JsonTree root(cJSON_Parse(
            (R"({"modes":0,"settings":[)" + SettingsJson(m_plan) + R"(],"filters":[)" + FiltersJson(m_plan) + "]}")
                .c_str()));
        ASSERT_TRUE(root != nullptr && model.ParseSettings(root.get()) && model.ParseFilters(root.get()));
    }

    Dice m_dice{GetParam()};
    Plan m_plan = RandomPlan(m_dice);
    fakes::LogCapture m_log{0};
};

TEST_P(Equivalence, CompiledPlainAndBruteForceFiltersAgree) {
    SettingsStatusMapping compiled;  // never traced
    SettingsStatusMapping plain;     // always traced
    SettingsStatusMapping mixed;     // changes between the two
    for (SettingsStatusMapping* model : {&compiled, &plain, &mixed}) {
        Load(*model);
    }
    std::map<int, Ints> before;
    for (int step = 0; step < 80; ++step) {
        const std::string push =
            R"({"settings":{)" + RandomMembers(m_dice, false) + R"(},"status":{)" + RandomMembers(m_dice, true) + "}}";
        SCOPED_TRACE(push);
        const bool traced = m_dice.Chance(20);
        const bool disconnects = m_dice.Chance(10);
        bool compiledChanged = false;
        bool plainChanged = false;
        bool mixedChanged = false;

        compiled.CurrentSettingsStatusFromJSON(push.c_str(), compiledChanged);
        g_logLevel = 6;
        plain.CurrentSettingsStatusFromJSON(push.c_str(), plainChanged);
        g_logLevel = traced ? 6 : 0;
        mixed.CurrentSettingsStatusFromJSON(push.c_str(), mixedChanged);
        g_logLevel = 0;
        m_log.Clear();

        std::map<int, FlexValue> settings;
        std::map<int, FlexValue> status;
        compiled.GetTheseSettingsValues({}, settings);
        compiled.GetTheseStatusValues({}, status);
        std::map<int, SettingsStatusMapping::IdNums> applied;
        compiled.ApplyFilters(settings, status, applied);
        const auto expected = Expected(m_plan, NumbersOfValues(settings), NumbersOfValues(status));

        const auto& capabilities = compiled.GetCapabilities();
        ASSERT_EQ(capabilities.size(), plain.GetCapabilities().size());
        if (plainChanged) {
            ASSERT_EQ(NumbersOf(applied), expected);
            ASSERT_EQ(NumbersOf(capabilities), expected);
            ASSERT_NE(expected, before);
            before = expected;
        }
        ASSERT_EQ(compiledChanged, plainChanged);
        ASSERT_EQ(mixedChanged, plainChanged);
        for (const auto& [id, entry] : plain.GetCapabilities()) {
            const SettingsStatusMapping::IdNums* other = compiled.FindCapability(id);
            const SettingsStatusMapping::IdNums* third = mixed.FindCapability(id);
            ASSERT_TRUE(other != nullptr && third != nullptr);
            ASSERT_EQ(other->numbers, entry.numbers);
            ASSERT_EQ(third->numbers, entry.numbers);
            ASSERT_EQ(other->changed, entry.changed) << id;
            ASSERT_EQ(third->changed, entry.changed) << id;
            ASSERT_EQ(other->id, entry.id);
        }
        for (SettingsStatusMapping* model : {&compiled, &plain, &mixed}) {
            if (disconnects) {
                model->SetStatusValue(33, ByteValue(255));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Random, Equivalence, testing::Range(0u, 24u));

}  // namespace
