// The camera's catalogue on the client's side: names of settings, their options and status fields, read from a
// settings.json. Without a file only ids work. Unknown names throw WrongUse, files that cannot be
// read Error.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kzclient {

// A decimal number that is all of the text.
std::optional<uint32_t> parseNumber(const std::string& text);

class Catalogue {
  public:
    struct Setting {
        std::string name;
        std::map<int, std::string> options;
    };

    // An empty catalogue: everything is known by number only.
    Catalogue() = default;
    // Reads a settings.json, plain or gzip-compressed.
    static Catalogue load(const std::string& path);
    // From the text of a settings.json.
    static Catalogue parse(const std::string& text);

    const std::map<int, Setting>& settings() const { return m_settings; }
    const std::map<int, std::string>& statuses() const { return m_statuses; }

    // An id given as a number or by name; names compare without case, and '-', '_' and ' ' count as the same.
    uint8_t settingId(const std::string& text) const;
    uint8_t statusId(const std::string& text) const;
    // The setting of that name, if there is one.
    std::optional<uint8_t> findSetting(const std::string& name) const;
    // An option of a setting: the id of one that it has, else a name, else any number.
    uint32_t optionId(uint8_t settingId, const std::string& text) const;

    std::string settingName(int id) const;
    std::string statusName(int id) const;
    // The option's name, or its number.
    std::string optionName(int settingId, uint64_t optionId) const;

  private:
    std::map<int, Setting> m_settings;
    std::map<int, std::string> m_statuses;
};

// Status fields whose values are texts.
bool isTextStatus(int id);

// Decompresses a whole gzip member. Throws Error.
std::string gunzip(const std::string& compressed);
std::string readFile(const std::string& path);

}  // namespace kzclient
