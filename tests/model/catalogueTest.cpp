// The catalogue: what settings.json becomes, and what each kind of broken entry costs.
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "modelFixture.h"

namespace {

using Model = SettingsStatusMapping;

class Catalogue : public ModelTest {
  protected:
    ~Catalogue() override { std::remove(m_path.c_str()); }

    bool LoadFile(const std::string& text) {
        std::ofstream(m_path) << text;
        m_log.Clear();
        m_loaded = std::make_unique<Model>();
        return m_loaded->ParseJsonFile(m_path);
    }

    std::string m_path = "/tmp/kzCatalogueTest." + std::to_string(getpid()) + ".json";
    std::unique_ptr<Model> m_loaded;
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // it has memory of its own
#else
constexpr bool kSanitized = false;
#endif

// The most memory of the process, in bytes, since it was asked for with `again`.
long PeakMemory(bool again) {
    if (again) {
        std::ofstream("/proc/self/clear_refs") << "5";
    }
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line) && !line.starts_with("VmHWM:")) {
    }
    return line.empty() ? 0 : std::stol(line.substr(line.find_first_of("0123456789"))) * 1024;
}

}  // namespace

TEST_F(Catalogue, SettingsAndOptionsAreAscendingAndIdsBeyondTheTablesNeverValid) {
    Load(SettingJson(30, {9, -1, 4, 9}) + "," + SettingJson(182, {7}) + "," + SettingJson(-1, {3}) +
         R"(,{"id":"12","display_name":"a","options":[{"id":"7","display_name":"x"},{"id":true,"display_name":"y"}]})");

    EXPECT_EQ(Ids(&Model::GetValidSettingsIds), (Ints{-1, 12, 30, 182}));
    EXPECT_EQ(AllOptions(), (Options{{-1, {3}}, {12, {1, 7}}, {30, {-1, 4, 9, 9}}, {182, {7}}}));
    EXPECT_TRUE(m_model.IsValidSettingsId(30));
    EXPECT_FALSE(m_model.IsValidSettingsId(31) || m_model.IsValidSettingsId(182) || m_model.IsValidSettingsId(~0u));
    EXPECT_TRUE(kzSettingWidth(58, -1) == eValueWidthNone && kzSettingWidth(58, 182) == eValueWidthNone);
    EXPECT_TRUE(kzStatusWidth(58, -1) == eValueWidthNone && kzStatusWidth(58, 118) == eValueWidthNone);
    EXPECT_EQ(m_log.Texts(), Texts{});
}

TEST_F(Catalogue, SettingIsMadeWithItsOptionsByIdAndTheLastOfARepeatedOption) {
    Load(R"({"id":3,"display_name":"Lens","options":[{"id":4,"display_name":"Wide"},
        {"id":-1,"display_name":"Linear, which is longer than a short string"},{"id":4,"display_name":"Narrow"}]})");

    const std::unique_ptr<Model::Setting> setting = m_model.MakeSetting(3);

    EXPECT_EQ(setting->display_name + " " + std::to_string(setting->id), "Lens 3");
    std::map<int, std::string> names;
    for (const auto& [id, option] : setting->options) {
        EXPECT_EQ(option->id, id);
        names[id] = option->display_name;
    }
    EXPECT_EQ(names, (std::map<int, std::string>{{-1, "Linear, which is longer than a short string"}, {4, "Narrow"}}));
    EXPECT_EQ(m_model.MakeSetting(4), nullptr);

    Model::IdNums entry;
    EXPECT_EQ(entry.tag, "NOT BUILT FROM JSON");
    EXPECT_TRUE(entry.FromJSON(JsonTree(cJSON_Parse(R"({"a":3,"b":[9,1,9]})")).get(), std::string("a").c_str(), "b"));
    EXPECT_EQ(entry.tag, "a");
    EXPECT_EQ(entry.numbers, (Ints{1, 9, 9}));
}

TEST_F(Catalogue, BrokenSettingIsDroppedWithItsReasonAndNothingElse) {
    const std::string unreadable = "Unable to parse <id> from settings array, setting_index 1";
    const std::string five = R"({"id":5,"display_name":"Five")";
    const std::pair<std::string, std::string> kRows[] = {
        {"null", unreadable},
        {R"({"id":[],"display_name":"a"})", unreadable},
        {R"({"id":"5 ","display_name":"a"})", unreadable},
        {SettingJson(2, {8}), "A setting with id 2 already exists in settings map"},
        {R"({"id":5,"display_name":null})",
         "Unable to parse <display_name> from setting id 5 --> {\n\t\"id\":\t5,\n\t\"display_name\":\tnull\n}"},
        {five + "}", "There are no options available for setting Five"},
        {five + R"(,"options":[]})", "Not able to find any options for setting Five"},
        {five + R"(,"options":[{"id":1,"display_name":"x"},7]})", "Not able to parse option id from 7"},
        {five + R"(,"options":[{"id":"7x"}]})", "Not able to parse option id from {\n\t\"id\":\t\"7x\"\n}"},
        {five + R"(,"options":[{"id":7}]})", "Not able to parse option name from {\n\t\"id\":\t7\n}"},
    };
    for (const auto& [setting, text] : kRows) {
        Model model;
        m_log.Clear();

        EXPECT_TRUE(
            model.ParseSettings(CatalogueJson(SettingJson(2, {1}) + "," + setting + "," + SettingJson(9, {1})).get()));

        Ints ids;
        model.GetValidSettingsIds(ids);
        EXPECT_EQ(ids, (Ints{2, 9})) << setting;
        EXPECT_EQ(m_log.Texts(), Texts{text});
    }
}

TEST_F(Catalogue, BrokenStatusFieldsAreSkipped) {
    const JsonTree root(cJSON_Parse(R"({"status":{"groups":[
        {"fields":[{"id":9,"name":"first"},{"id":"x","name":"b"},{"id":3,"name":null},{"id":9,"name":"again"}]},
        {"fields":[{"id":4},{"id":118,"name":"beyond the table"},{"id":1,"name":"last"}]}]}})"));

    ASSERT_TRUE(m_model.ParseStatus(root.get()));

    EXPECT_EQ(Ids(&Model::GetValidStatusIds), (Ints{1, 9, 118}));
    EXPECT_TRUE(m_model.IsValidStatusId(9));
    EXPECT_FALSE(m_model.IsValidStatusId(3) || m_model.IsValidStatusId(118));
    EXPECT_EQ(m_log.Texts(), (Texts{
                                 "Unable to <id> from settings array, modeIndex:0 setting_index 1",
                                 "Unable to get <name> from settings array, modeIndex:0 setting_index 2",
                                 "A Status value for key 9 already exists in settings map",
                                 "Unable to get <name> from settings array, modeIndex:1 setting_index 0",
                             }));
}

TEST_F(Catalogue, FileWithoutARequiredPartFailsWithOneReason) {
    const std::string kStatus = R"(,"status":{"groups":[]}})";
    const std::pair<std::string, std::string> kRows[] = {
        {"", "No data read from file \n"},
        {"{\"version\":1", "Unable to parse JSON from file \n"},
        {std::string(2000, '['), "Unable to parse JSON from file \n"},
        {R"({"version":1,"settings":[])" + kStatus, "Unable to find <modes> array in file"},
        {R"({"version":1,"modes":[],"settings":{})" + kStatus, "Unable to find <settings> array in file"},
        {R"({"version":1,"modes":[],"settings":[]})", "Unable to find <status> in file"},
        {R"({"version":1,"modes":[],"settings":[],"status":{}})", "Unable to find <groups> array in file"},
        {R"({"version":1,"modes":[],"settings":[],"status":{"groups":[{"fields":[]},{"name":"x"}]}})",
         "Unable to find <fields> array in file for group 1"},
    };
    for (const auto& [text, reason] : kRows) {
        EXPECT_FALSE(LoadFile(text)) << text;
        EXPECT_EQ(m_log.Texts(), Texts{reason});
    }
    for (const char* path : {"/tmp/kzCatalogueTest.missing", "/tmp", "/dev/zero"}) {
        EXPECT_FALSE(Model().ParseJsonFile(path)) << path;
    }
    ASSERT_EQ(truncate(m_path.c_str(), Model::kMaxFileSize + 1), 0);
    EXPECT_FALSE(Model().ParseJsonFile(m_path));
    EXPECT_TRUE(m_log.Has("Refusing a file of 8388609 bytes, the limit is 8388608"));
}

// As many items as the file may have bytes for, and a little less than the limit of the tree for.
TEST_F(Catalogue, HostileFileCostsLittleMemoryAndFewLines) {
    const std::string head = R"({"modes":0,"settings":[1)";
    const std::string tail = R"(],"status":{"groups":[{"fields":[2]}]},"filters":[3]})";
    const auto repeat = [](const std::string& item, size_t count) {
        std::string text;
        while (count-- > 0) {
            text += item;
        }
        return text;
    };
    const std::string deep = "," + std::string(900, '[') + std::string(900, ']');
    const std::string option = R"({"id":1,"display_name":""},)";
    const std::string criteria = R"({"setting_id":1,"ids":[2]})";
    const std::string rows[] = {
        head + repeat(",1", 4'000'000) + tail,
        head + repeat(",1", 240'000) + tail,
        head + R"(,{"id":1,"display_name":"x","options":[)" + repeat(option, 70'000) + "1]}" + tail,
        head + repeat(deep, 200) + R"(,{"id":1,"display_name":)" + deep.substr(1) + "}" + tail,
        head + R"(],"status":{"groups":[{"fields":[0)" + repeat(R"(,{"id":1,"name":"a"})", 70'000) + "]}]}}",
        head + R"(],"status":{"groups":[]},"filters":[0)" +
            repeat(R"(,{"activated_by":[)" + criteria + R"(],"blacklist":[{"setting_id":1,"opt_ids":[1]}]})", 18'000) +
            "]}",
        head + R"(,{"id":1,"display_name":"x","options":[)" +
            repeat(R"({"id":1,"display_name":")" + std::string(455, 'y') + R"("},)", 15'500) +
            R"({"id":2,"display_name":"z"}]})" + tail,
    };
    for (const std::string& text : rows) {
        SCOPED_TRACE(text.substr(0, 80));
        std::ofstream(m_path) << text;
        m_log.Clear();
        const long before = PeakMemory(true);
        Model model;
        model.ParseJsonFile(m_path);
        const long cost = kSanitized ? 0 : PeakMemory(false) - before;
        EXPECT_LT(m_log.Texts().size(), 200u);
        EXPECT_EQ(m_log.Count("Refusing a file that would take"), &text == rows ? 1u : 0u);
        EXPECT_LT(cost, 3 * Model::kMaxFileSize);
    }
}

TEST_F(Catalogue, FileLoadsWithoutVersionAndFilters) {
    EXPECT_TRUE(LoadFile(R"({"modes":null,"settings":[],"status":{"groups":[]}})"));
    EXPECT_EQ(m_log.Texts(),
              (Texts{"Unable to find -version- tag in json file \n", "Unable to find <filters> array in file"}));

    for (const auto& [json, version] :
         std::map<std::string, std::string>{{"3.14159", "3.142"}, {"123456", "1.235e+05"}, {"\"2\"", "unknown"}}) {
        EXPECT_TRUE(LoadFile(R"({"version":)" + json + R"(,"modes":0,"settings":[],"status":{"groups":[]}})"));
        EXPECT_EQ(m_loaded->version, version) << "four significant digits";
    }
}

TEST_F(Catalogue, DumpListsEverything) {
    ASSERT_TRUE(LoadFile(R"({"version":1,"modes":0,"settings":[)" + SettingJson(2, {7, 4, 7}) +
                         R"(],"status":{"groups":[{"fields":[{"id":8,"name":"battery"}]}]},"filters":[)" +
                         FilterJson(R"({"status_id":8,"values":[1,0]})", R"({"setting_id":2,"opt_ids":[7]})") + "]}"));
    m_loaded->CurrentSettingsStatusFromJSON(R"({"status":{"8":1}})", m_capabilitiesChanged);
    const fakes::LogCapture log(KZ_LOG_INFO);
    testing::internal::CaptureStdout();
    m_loaded->Dump();
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Setting 2 (id = 2)\n\tOption (id = 4)\n\tOption (id = 7)\n\tid:2 nums:[4 7 7 ]\n"
              "FILTER\n\tid:8 nums:[0 1 ]\nBLACKLIST:\n\tid:2 nums:[7 ]\n");
    EXPECT_TRUE(log.Has("id:8 name:battery\n") && log.Has("0 --> ") && log.Has("id:2 nums:[4 ]") && log.Has("8"));
}

TEST_F(Catalogue, ModelNumberComesFromTheControlDaemonAndAsksItAboutOptions) {
    fakes::SetModelNumber(0, 60);
    fakes::OnOption(7, false);
    Model model;
    EXPECT_TRUE(model.IsCurrentlyValidSettingOptionId(200, 7));
    EXPECT_FALSE(model.IsCurrentlyValidSettingOptionId(7, 200));
    EXPECT_EQ(fakes::Calls("option").front(), (fakes::Call{"option", 200, fakes::Le32({60, 7})}));

    fakes::SetModelNumber(-1, 60);
    EXPECT_EQ(Model().modelNumber, 58);
    EXPECT_TRUE(m_log.Has("Couldn't get model number using default:58", KZ_LOG_ERROR));
}
