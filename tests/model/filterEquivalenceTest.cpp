// The three ways to the capabilities must agree on any catalogue and any sequence of values: the compiled filters of
// the push path, the plain evaluation that the traces come from, and a third one written here from scratch.
#include <algorithm>
#include <array>
#include <random>

#include "modelFixture.h"

namespace {

using Model = SettingsStatusMapping;

struct Criterion {
    bool isStatus;
    int id;
    Ints numbers;
};
struct Filter {
    std::vector<Criterion> criteria;
    std::vector<std::pair<int, Ints>> blacklist;
};
// A catalogue as this test understands it, and as the code reads it.
struct Plan {
    Options options;
    std::vector<Filter> filters;
    std::string settingsJson;
    std::string filtersJson;
};

void Append(std::string& list, const std::string& element) {
    list += (list.empty() ? "" : ",") + element;
}

class Dice {
  public:
    explicit Dice(unsigned seed) : m_engine(seed) {}
    int Roll(int from, int to) { return std::uniform_int_distribution<int>(from, to)(m_engine); }
    bool Chance(int percent) { return Roll(1, 100) <= percent; }
    int OneOf(const Ints& ids) { return ids[static_cast<size_t>(Roll(0, static_cast<int>(ids.size()) - 1))]; }
    Ints Numbers(int count, int from, int to) {
        Ints numbers(static_cast<size_t>(count));
        std::generate(numbers.begin(), numbers.end(), [&] { return Roll(from, to); });
        return numbers;
    }

  private:
    std::mt19937 m_engine;
};

// Few ids and few values, so that filters meet: options repeat, blacklists name unknown settings and unknown options,
// criteria stand on ids beyond the tables, on four-byte, string and valueless ids.
const Ints kSettingIds = {1, 2, 3, 4, 30, 181, 182, 300, -4};
const Ints kStatusIds = {1, 2, 5, 13, 29, 33, 54, 118};

Plan RandomPlan(Dice& dice) {
    Plan plan;
    for (int n = dice.Roll(0, 7); n > 0; --n) {
        const int count = dice.Chance(20) ? dice.Roll(60, 200) : dice.Roll(1, 6);
        plan.options[dice.OneOf(kSettingIds)] = dice.Numbers(count, -1, count + 2);
    }
    for (const auto& [id, options] : plan.options) {
        Append(plan.settingsJson, SettingJson(id, options));
    }
    plan.filters.resize(static_cast<size_t>(dice.Chance(10) ? dice.Roll(60, 140) : dice.Roll(0, 8)));
    for (Filter& filter : plan.filters) {
        std::string criteria;
        for (int n = dice.Roll(1, 3); n > 0; --n) {
            const bool isStatus = dice.Chance(50);
            const int id = dice.OneOf(isStatus ? kStatusIds : kSettingIds);
            filter.criteria.push_back({isStatus, id, dice.Numbers(dice.Roll(1, 4), -1, 3)});
            Append(criteria, (isStatus ? R"({"status_id":)" : R"({"setting_id":)") + std::to_string(id) +
                                 (isStatus ? R"(,"values":)" : R"(,"ids":)") + JsonOf(filter.criteria.back().numbers) +
                                 "}");
        }
        std::string blacklist;
        for (int n = dice.Roll(0, 3); n > 0; --n) {
            const bool many = dice.Chance(30);
            filter.blacklist.emplace_back(dice.OneOf(kSettingIds),
                                          dice.Numbers(dice.Roll(1, many ? 60 : 6), -1, many ? 150 : 6));
            Append(blacklist, R"({"setting_id":)" + std::to_string(filter.blacklist.back().first) + R"(,"opt_ids":)" +
                                  JsonOf(filter.blacklist.back().second) + "}");
        }
        Append(plan.filtersJson, FilterJson(criteria, blacklist));
    }
    return plan;
}

// A few random members of one part of a push. Status 29 is a text of one character, or of none.
std::string RandomMembers(Dice& dice, const Ints& ids) {
    std::string members;
    for (int n = dice.Roll(0, 4); n > 0; --n) {
        const int id = dice.OneOf(ids);
        const int number = dice.Roll(-1, 4);
        const std::string letters(number < 0 ? 0 : 1, static_cast<char>('\x01' + number));
        Append(members,
               "\"" + std::to_string(id) + "\":" + (id == 29 ? "\"" + letters + "\"" : std::to_string(number)));
    }
    return members;
}

// Whether a criterion holds: its id has a value whose number it lists.
bool Holds(const Criterion& criterion, const Model& model) {
    const FlexValue* value =
        criterion.isStatus ? model.FindStatusValue(criterion.id) : model.FindSettingValue(criterion.id);
    return value != nullptr && value->GetDataLength() != 0 &&
           std::any_of(criterion.numbers.begin(), criterion.numbers.end(),
                       [&](int number) { return static_cast<uint32_t>(number) == value->GetUI32Value(); });
}

// The written rule: every setting's options less those that a filter forbids that is on.
Options Expected(const Plan& plan, const Model& model) {
    Options result = plan.options;
    for (auto& [id, options] : result) {
        std::sort(options.begin(), options.end());
    }
    for (const Filter& filter : plan.filters) {
        const bool on = std::all_of(filter.criteria.begin(), filter.criteria.end(),
                                    [&](const Criterion& criterion) { return Holds(criterion, model); });
        for (const auto& [id, forbidden] : filter.blacklist) {
            std::erase_if(result[id], [&, &list = forbidden](int option) {
                return on && std::find(list.begin(), list.end(), option) != list.end();
            });
        }
    }
    return result;
}

class Equivalence : public testing::TestWithParam<unsigned> {};

}  // namespace

TEST_P(Equivalence, CompiledPlainAndBruteForceFiltersAgree) {
    fakes::Reset();
    const fakes::LogCapture log(KZ_LOG_OFF);
    Dice dice(GetParam());
    const Plan plan = RandomPlan(dice);
    const JsonTree json = CatalogueJson(plan.settingsJson, plan.filtersJson);
    std::array<Model, 3> models;  // the filters are evaluated compiled, plainly, and by turns
    for (Model& model : models) {
        ASSERT_TRUE(json != nullptr && model.ParseSettings(json.get()) && model.ParseFilters(json.get()));
    }
    Options before;
    for (int step = 0; step < 80; ++step) {
        const std::string push = R"({"settings":{)" + RandomMembers(dice, {1, 2, 3, 4, 30, 181}) + R"(},"status":{)" +
                                 RandomMembers(dice, {1, 2, 5, 13, 29, 33, 54}) + "}}";
        SCOPED_TRACE(push);
        const int levels[] = {KZ_LOG_OFF, KZ_LOG_TRACE, dice.Chance(20) ? KZ_LOG_TRACE : KZ_LOG_OFF};
        bool changed[3] = {};
        for (size_t i = 0; i < models.size(); ++i) {
            g_logLevel = levels[i];  // only the plain evaluation is traced
            models[i].CurrentSettingsStatusFromJSON(push.c_str(), changed[i]);
        }
        g_logLevel = KZ_LOG_OFF;

        const Options expected = Expected(plan, models[0]);
        if (changed[0]) {
            ASSERT_EQ(NumbersOf(models[0].GetCapabilities()), expected);
            ASSERT_NE(expected, before);
            before = expected;
        }
        for (size_t i = 1; i < models.size(); ++i) {
            ASSERT_EQ(changed[i], changed[0]);
            ASSERT_EQ(NumbersOf(models[i].GetCapabilities()), NumbersOf(models[0].GetCapabilities()));
            for (const auto& [id, entry] : models[i].GetCapabilities()) {
                ASSERT_EQ(entry.changed, models[0].FindCapability(id)->changed) << id;
            }
        }
        if (dice.Chance(10)) {  // the last client disconnects
            for (Model& model : models) {
                FlexValue reset(eValueWidth1Byte, 0);
                reset.SetValue(static_cast<uint8_t>(255));
                model.SetStatusValue(33, reset);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Random, Equivalence, testing::Range(0u, 24u));
