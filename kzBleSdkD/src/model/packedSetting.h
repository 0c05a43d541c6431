// PackedSetting: one setting of the catalogue with the names of its options, as the model keeps it.
//
// A catalogue has thousands of options, and their names are read by a diagnostic listing alone. So a setting keeps all
// names of its options in one block and 16 bytes an option beside it. The maps of SettingsStatusMapping::Setting hold
// the same in three heap blocks an option: for 180 settings of 37 options that costs 820 KB more heap in a daemon that
// is to stay below 1.6 MB, and almost a third more instructions at the load. So they are made on demand (MakeSetting).
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

class PackedSetting {
  public:
    struct Option {
        int id = 0;
        const char* name = "";
    };

    // Copies the names. Of options with the same id the last one stays.
    PackedSetting(const char* settingName, std::vector<Option> options);

    const std::string& Name() const { return m_name; }
    // Ascending by id, each id once. The names live as long as the setting.
    std::span<const Option> Options() const { return m_options; }

  private:
    std::string m_name;
    std::vector<Option> m_options;
    std::unique_ptr<char[]> m_optionNames;
};
