// The catalogue: what settings.json becomes, and what each kind of broken entry costs.
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "modelFixture.h"

namespace {

using Catalogue = ModelTest;

std::string NamedOption(int id, const std::string& name) {
    return R"({"id":)" + std::to_string(id) + R"(,"display_name":")" + name + "\"}";
}

std::string Printed(const std::string& json) {
    return PrintJson(JsonTree(cJSON_Parse(json.c_str())).get());
}

// ---------------------------------------------------------------- settings

TEST_F(Catalogue, SettingsAreAscendingWhateverTheOrderOfTheFile) {
    ParseSettings(SettingJson(30, {5, 1, 3}) + "," + SettingJson(2, {7}) + "," + SettingJson(181, {0}));

    EXPECT_EQ(ValidSettings(), (Ints{2, 30, 181}));
    EXPECT_TRUE(m_model.IsValidSettingsId(30));
    EXPECT_FALSE(m_model.IsValidSettingsId(3));
    EXPECT_TRUE(m_log.Lines().empty());
}

TEST_F(Catalogue, IdsBeyondTheTablesAreKnownButNeverValid) {
    ParseSettings(SettingJson(182, {1}) + "," + SettingJson(-1, {1}));
    const JsonTree root(
        cJSON_Parse(R"({"status":{"groups":[{"fields":[{"id":118,"name":"a"},{"id":117,"name":"b"}]}]}})"));
    ASSERT_TRUE(m_model.ParseStatus(root.get()));

    EXPECT_EQ(ValidSettings(), (Ints{-1, 182}));
    EXPECT_FALSE(m_model.IsValidSettingsId(182));
    EXPECT_FALSE(m_model.IsValidSettingsId(static_cast<unsigned>(-1)));
    EXPECT_FALSE(m_model.IsValidStatusId(118));
    EXPECT_TRUE(m_model.IsValidStatusId(117));
    EXPECT_EQ(m_model.GetMaxSettingsId(), 182);
    EXPECT_EQ(m_model.GetMaxStatusId(), 118);
}

TEST_F(Catalogue, IntegersMayBeNumbersDigitsOrTruthValues) {
    ParseSettings(
        R"({"id":"12","display_name":"a","options":[{"id":"7","display_name":"x"},{"id":true,"display_name":"y"}]})");
    std::map<int, SettingsStatusMapping::IdNums> options;
    m_model.ApplyFilters({}, {}, options);

    EXPECT_EQ(NumbersOf(options), (std::map<int, Ints>{{12, {1, 7}}}));
}

TEST_F(Catalogue, OptionListsAreSortedAndKeepRepeatedIds) {
    ParseSettings(SettingJson(2, {9, -1, 4, 9}));
    std::map<int, SettingsStatusMapping::IdNums> options;
    m_model.ApplyFilters({}, {}, options);

    ASSERT_EQ(NumbersOf(options), (std::map<int, Ints>{{2, {-1, 4, 9, 9}}}));
    EXPECT_EQ(options[2].id, 2);
    EXPECT_EQ(options[2].tag, "NOT BUILT FROM JSON");
    EXPECT_EQ(options[2].model, 58);
}

// Each broken setting stands between two good ones, which must stay.
TEST_F(Catalogue, BrokenSettingIsDroppedWithItsReasonAndNothingElse) {
    const std::string nameless = R"({"id":5,"display_name":null,"options":[{"id":1,"display_name":"x"}]})";
    const std::string badOption = R"({"id":"7x","display_name":"x"})";
    const std::string namelessOption = R"({"id":7,"display_name":3})";
    const struct {
        std::string setting;
        std::string text;
    } kRows[] = {
        {"null", "Unable to parse <id> from settings array, setting_index 1"},
        {"[]", "Unable to parse <id> from settings array, setting_index 1"},
        {R"({"id":[],"display_name":"a"})", "Unable to parse <id> from settings array, setting_index 1"},
        {R"({"id":"5 ","display_name":"a"})", "Unable to parse <id> from settings array, setting_index 1"},
        {SettingJson(2, {8}), "A setting with id 2 already exists in settings map"},
        {nameless, "Unable to parse <display_name> from setting id 5 --> " + Printed(nameless)},
        {R"({"id":5,"display_name":"Five"})", "There are no options available for setting Five"},
        {R"({"id":5,"display_name":"Five","options":[]})", "Not able to find any options for setting Five"},
        {R"({"id":5,"display_name":"Five","options":"x"})", "Not able to find any options for setting Five"},
        {SettingWith(5, NamedOption(1, "x") + "," + badOption),
         "Not able to parse option id from " + Printed(badOption)},
        {SettingWith(5, NamedOption(1, "x") + "," + namelessOption),
         "Not able to parse option name from " + Printed(namelessOption)},
        {SettingWith(5, NamedOption(1, "x") + ",7"), "Not able to parse option id from 7"},
    };
    for (const auto& row : kRows) {
        SettingsStatusMapping model;
        m_log.Clear();
        const JsonTree root(cJSON_Parse(
            (R"({"modes":0,"settings":[)" + SettingJson(2, {1}) + "," + row.setting + "," + SettingJson(9, {1}) + "]}")
                .c_str()));

        ASSERT_TRUE(model.ParseSettings(root.get())) << row.setting;

        Ints ids;
        model.GetValidSettingsIds(ids);
        EXPECT_EQ(ids, (Ints{2, 9})) << row.setting;
        EXPECT_EQ(m_log.Texts(), std::vector<std::string>{row.text});
        EXPECT_TRUE(m_log.Has(row.text, 2));
        std::map<int, SettingsStatusMapping::IdNums> options;
        model.ApplyFilters({}, {}, options);
        EXPECT_EQ(NumbersOf(options), (std::map<int, Ints>{{2, {1}}, {9, {1}}}));
    }
}

// A tree built in code may hold elements without a type.
TEST_F(Catalogue, MissingElementsAreSkippedWithTheirIndexes) {
    const JsonTree root(cJSON_Parse((R"({"modes":0,"settings":[0,)" + SettingWith(3, "0") + "," + SettingJson(4, {1}) +
                                     R"(],"status":{"groups":[{"fields":[]},{"fields":[{"id":1,"name":"a"},0]}]},
            "filters":[{"activated_by":[0,{"setting_id":4,"ids":[1]}],"blacklist":[0,{"setting_id":4,"opt_ids":[1]}]}]})")
                                        .c_str()));
    ASSERT_NE(root, nullptr);
    const auto at = [](cJSON* item, const char* key, int index) {
        return cJSON_GetArrayItem(cJSON_GetObjectItem(item, key), index);
    };
    cJSON* filter = at(root.get(), "filters", 0);
    for (cJSON* item : {at(root.get(), "settings", 0), at(at(root.get(), "settings", 1), "options", 0),
                        at(at(cJSON_GetObjectItem(root.get(), "status"), "groups", 1), "fields", 1),
                        at(filter, "activated_by", 0), at(filter, "blacklist", 0)}) {
        item->type = cJSON_Invalid;
    }

    EXPECT_TRUE(m_model.ParseSettings(root.get()) && m_model.ParseStatus(root.get()) &&
                m_model.ParseFilters(root.get()));

    EXPECT_EQ(m_log.Texts(), (std::vector<std::string>{
                                 "Unable to item from settings array setting_index 0",
                                 "Unable to parse item from options array, setting:Setting 3 options_index 0",
                                 "Unable to get item from status array, groupIndex:1 fieldIndex: 1",
                                 "Unable to parse item from activated_by array, activated_index 0",
                                 "Unable to parse item from blacklist array at index 0",
                             }));
    EXPECT_EQ(ValidSettings(), Ints{4});
    Push(R"({"settings":{"4":1}})");
    EXPECT_EQ(Capabilities(), (std::map<int, Ints>{{4, {}}}));
}

// ---------------------------------------------------------------- status

TEST_F(Catalogue, BrokenStatusFieldsAreSkipped) {
    const JsonTree root(cJSON_Parse(R"({"status":{"groups":[
        {"fields":[{"id":9,"name":"first"},{"id":"x","name":"b"},{"id":3,"name":null},{"id":9,"name":"again"}]},
        {"fields":[{"id":4},{"id":1,"name":"last"}]}]}})"));

    ASSERT_TRUE(m_model.ParseStatus(root.get()));

    Ints ids;
    m_model.GetValidStatusIds(ids);
    EXPECT_EQ(ids, (Ints{1, 9}));
    EXPECT_TRUE(m_model.IsValidStatusId(9));
    EXPECT_FALSE(m_model.IsValidStatusId(3));
    EXPECT_EQ(m_log.Texts(), (std::vector<std::string>{
                                 "Unable to <id> from settings array, modeIndex:0 setting_index 1",
                                 "Unable to get <name> from settings array, modeIndex:0 setting_index 2",
                                 "A Status value for key 9 already exists in settings map",
                                 "Unable to get <name> from settings array, modeIndex:1 setting_index 0",
                             }));
}

// ---------------------------------------------------------------- file

class CatalogueFile : public ModelTest {
  protected:
    CatalogueFile() : m_path("/tmp/kzCatalogueTest." + std::to_string(getpid()) + ".json") {}
    ~CatalogueFile() override { std::remove(m_path.c_str()); }

    bool Parse(const std::string& text) {
        std::ofstream(m_path) << text;
        m_log.Clear();
        m_loaded = std::make_unique<SettingsStatusMapping>();
        return m_loaded->ParseJsonFile(m_path);
    }

    std::string m_path;
    std::unique_ptr<SettingsStatusMapping> m_loaded;
};

TEST_F(CatalogueFile, WithoutARequiredPartFailsWithOneReason) {
    const std::string kStatus = R"("status":{"groups":[]})";
    const struct {
        std::string text;
        std::string reason;
    } kRows[] = {
        {"", "No data read from file \n"},
        {"{\"version\":1", "Unable to parse JSON from file \n"},
        {R"({"version":1,"settings":[],)" + kStatus + "}", "Unable to find <modes> array in file"},
        {R"({"version":1,"modes":[],"settings":{},)" + kStatus + "}", "Unable to find <settings> array in file"},
        {R"({"version":1,"modes":[],"settings":[]})", "Unable to find <status> in file"},
        {R"({"version":1,"modes":[],"settings":[],"status":{}})", "Unable to find <groups> array in file"},
        {R"({"version":1,"modes":[],"settings":[],"status":{"groups":[{"fields":[]},{"name":"x"}]}})",
         "Unable to find <fields> array in file for group 1"},
        {std::string(2000, '['), "Unable to parse JSON from file \n"},
    };
    for (const auto& row : kRows) {
        EXPECT_FALSE(Parse(row.text)) << row.text;
        EXPECT_EQ(m_log.Texts(), std::vector<std::string>{row.reason});
    }
}

TEST_F(CatalogueFile, LoadsWithoutVersionAndFilters) {
    EXPECT_TRUE(Parse(R"({"modes":null,"settings":[],"status":{"groups":[]}})"));

    EXPECT_EQ(m_loaded->version, "unknown");
    EXPECT_EQ(m_log.Texts(), (std::vector<std::string>{"Unable to find -version- tag in json file \n",
                                                       "Unable to find <filters> array in file"}));
}

TEST_F(CatalogueFile, VersionHasFourSignificantDigits) {
    const struct {
        std::string json;
        std::string version;
    } kRows[] = {{"2", "2"},       {"1.25", "1.25"},     {"3.14159", "3.142"}, {"123456", "1.235e+05"},
                 {"1e400", "inf"}, {"\"2\"", "unknown"}, {"null", "unknown"},  {"{}", "unknown"}};
    for (const auto& row : kRows) {
        EXPECT_TRUE(
            Parse(R"({"version":)" + row.json + R"(,"modes":0,"settings":[],"status":{"groups":[]},"filters":[]})"));
        EXPECT_EQ(m_loaded->version, row.version);
    }
}

TEST_F(CatalogueFile, WhatIsNoReadableFileIsRefused) {
    const auto parse = [&](const std::string& path) {
        m_log.Clear();
        return SettingsStatusMapping().ParseJsonFile(path);
    };
    const std::vector<std::string> noData = {"No data read from file \n"};

    EXPECT_FALSE(parse(m_path));  // missing
    EXPECT_EQ(m_log.Texts(), noData);
    EXPECT_FALSE(parse("/tmp"));  // a folder
    EXPECT_EQ(m_log.Texts(), noData);
    EXPECT_FALSE(parse("/dev/zero"));  // endless
    EXPECT_EQ(m_log.Texts(), noData);

    std::ofstream(m_path) << "{}";
    ASSERT_EQ(truncate(m_path.c_str(), SettingsStatusMapping::kMaxFileSize + 1), 0);
    EXPECT_FALSE(parse(m_path));
    EXPECT_EQ(m_log.Texts(), std::vector<std::string>{"Refusing a file of 8388609 bytes, the limit is 8388608"});
}

TEST_F(CatalogueFile, DumpListsEverything) {
    ASSERT_TRUE(
        Parse(R"({"version":1,"modes":0,"settings":[)" +
              SettingWith(2, NamedOption(7, "first") + "," + NamedOption(4, "four") + "," + NamedOption(7, "last")) +
              R"(],"status":{"groups":[{"fields":[{"id":8,"name":"battery"}]}]},"filters":[
                          {"activated_by":[{"status_id":8,"values":[1,0]}],"blacklist":[{"setting_id":2,"opt_ids":[7]}]}]})"));
    bool changed = false;
    m_loaded->CurrentSettingsStatusFromJSON(R"({"status":{"8":1}})", changed);
    const fakes::LogCapture log(5);

    testing::internal::CaptureStdout();
    m_loaded->Dump();
    std::fflush(stdout);

    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Setting 2 (id = 2)\n\tfour (id = 4)\n\tlast (id = 7)\n\tid:2 nums:[4 7 7 ]\n"
              "FILTER\n\tid:8 nums:[0 1 ]\nBLACKLIST:\n\tid:2 nums:[7 ]\n");
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{
                               "Settings Conversion Map" + std::string(52, '=') + "\n",
                               "Settings Option_id Map" + std::string(57, '=') + "\n",
                               "Status Map" + std::string(65, '=') + "\n",
                               "id:8 name:battery\n",
                               "Filters Array" + std::string(62, '=') + "\n",
                               "0 --> ",
                               "Blacklisted by ID" + std::string(59, '=') + "\n",
                               "id:2 nums:[4 ]",
                               "Active setting ID's" + std::string(58, '=') + "\n",
                               "Active status ID's" + std::string(58, '=') + "\n",
                               "8",
                           }));
}

// ---------------------------------------------------------------- model number, widths, options

TEST_F(Catalogue, ModelNumberComesFromTheControlDaemon) {
    fakes::SetModelNumber(0, 60);
    EXPECT_EQ(SettingsStatusMapping().modelNumber, 60);
    EXPECT_TRUE(m_log.Lines().empty());

    fakes::SetModelNumber(-1, 60);
    EXPECT_EQ(SettingsStatusMapping().modelNumber, 58);
    EXPECT_TRUE(m_log.Has("Couldn't get model number using default:58", 2));
}

TEST_F(Catalogue, WidthsAreTheSameForEveryModelAndNoneBeyondTheTables) {
    const std::set<int> settings4 = {30, 32, 60, 61, 62, 65, 66, 67, 127, 141, 168};
    const std::set<int> status4 = {13, 14, 15, 21, 34, 35, 36, 37, 38, 39, 49,  57, 59,
                                   60, 62, 64, 93, 94, 95, 96, 97, 98, 99, 100, 107};
    const std::set<int> statusNone = {0, 5, 7, 12, 18, 25, 50, 51, 52, 53, 92};
    const auto settingWidth = [&](int id) {
        return id <= 0 || id > 181 ? eValueWidthNone : settings4.contains(id) ? eValueWidth4Bytes : eValueWidth1Byte;
    };
    const auto statusWidth = [&](int id) {
        if (id < 0 || id > 117 || statusNone.contains(id)) {
            return eValueWidthNone;
        }
        if (id == 54 || id == 117) {
            return eValueWidth8Bytes;
        }
        if (id == 29 || id == 30 || id == 40) {
            return eValueWidthString;
        }
        return status4.contains(id) ? eValueWidth4Bytes : eValueWidth1Byte;
    };
    for (const uint8_t model : Bytes{58, 60, 0, 255}) {
        for (int id = -2; id < 300; ++id) {
            EXPECT_EQ(kzSettingWidth(model, id), settingWidth(id)) << id;
            EXPECT_EQ(kzStatusWidth(model, id), statusWidth(id)) << id;
        }
    }
    EXPECT_EQ(SettingsStatusMapping::IdNums(30, {}).GetWidth(), eValueWidth4Bytes);
}

TEST_F(Catalogue, OptionsAreCheckedByTheControlDaemonAlone) {
    fakes::SetOptionExists(
        [](uint32_t model, uint32_t setting, uint32_t option) { return model == 58 && setting == 200 && option == 7; });

    EXPECT_TRUE(m_model.IsCurrentlyValidSettingOptionId(200, 7));
    EXPECT_FALSE(m_model.IsCurrentlyValidSettingOptionId(7, 200));
    EXPECT_EQ(m_model.GetSettingName("2"), "TODO");
}

}  // namespace
