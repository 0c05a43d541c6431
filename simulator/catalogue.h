// The camera's own reading of its settings.json: which settings and options there are, and which filters forbid options
// in which state. It decides what the control daemon accepts.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kzsim {

class Catalogue {
  public:
    enum class Kind { Setting, Status };
    // The current value of a setting or a status; nothing when there is none or it is a text.
    using CurrentValue = std::function<std::optional<uint64_t>(Kind, uint32_t id)>;

    struct Setting {
        std::string name;
        std::vector<uint32_t> options;  // in the order of the file
        std::map<uint32_t, std::string> optionNames;
    };

    // Throws std::runtime_error, naming the file and what is wrong with it.
    static Catalogue load(const std::string& path);
    static Catalogue parse(const std::string& text);

    const std::map<uint32_t, Setting>& settings() const { return m_settings; }
    const std::map<uint32_t, std::string>& statuses() const { return m_statuses; }

    // What a user means: an id, or a name in any case, with '-' or '_' for a blank; an id wins over a name. Nothing
    // when the catalogue has neither.
    std::optional<uint32_t> settingCalled(const std::string& text) const;
    std::optional<uint32_t> optionCalled(uint32_t settingId, const std::string& text) const;
    std::optional<uint32_t> statusCalled(const std::string& text) const;

    // Whether the setting exists, has this option, and no filter that is on now forbids it.
    bool accepts(uint32_t settingId, uint32_t option, const CurrentValue& current) const;

    // The settings whose options depend on the value of `settingId`.
    std::vector<uint32_t> dependents(uint32_t settingId) const;

  private:
    struct Criterion {
        Kind kind;
        uint32_t id;
        std::vector<uint32_t> values;  // any of them
    };
    struct Forbidden {
        uint32_t settingId;
        std::vector<uint32_t> options;
    };
    struct Filter {
        std::vector<Criterion> criteria;  // all of them
        std::vector<Forbidden> forbidden;

        bool isOn(const CurrentValue& current) const;
    };

    std::map<uint32_t, Setting> m_settings;
    std::map<uint32_t, std::string> m_statuses;
    std::vector<Filter> m_filters;
};

}  // namespace kzsim
