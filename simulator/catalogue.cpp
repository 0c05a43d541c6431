#include "catalogue.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace kzsim {
namespace {

using Json = nlohmann::json;

bool contains(const std::vector<uint32_t>& values, uint64_t value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

std::string folded(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += c == '-' || c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return result;
}

// The id of the row of `rows` whose id or name `text` is; `nameOf` gives a row's name.
template <typename Map, typename NameOf>
std::optional<uint32_t> called(const std::string& text, const Map& rows, NameOf nameOf) {
    const char* const last = text.data() + text.size();
    uint32_t id = 0;
    const auto parsed = std::from_chars(text.data(), last, id);
    if (parsed.ec == std::errc() && parsed.ptr == last && rows.count(id) != 0) {
        return id;
    }
    const auto row = std::find_if(rows.begin(), rows.end(), [&, wanted = folded(text)](const auto& one) {
        return folded(nameOf(one.second)) == wanted;
    });
    return row == rows.end() ? std::nullopt : std::optional(row->first);
}

}  // namespace

Catalogue Catalogue::load(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read the catalogue " + path + " (see --settings)");
    }
    std::ostringstream text;
    text << file.rdbuf();
    try {
        return parse(text.str());
    } catch (const std::exception& error) {
        throw std::runtime_error("the catalogue " + path + " makes no sense: " + error.what());
    }
}

Catalogue Catalogue::parse(const std::string& text) {
    const Json root = Json::parse(text);
    Catalogue catalogue;
    for (const Json& item : root.at("settings")) {
        Setting& setting = catalogue.m_settings[item.at("id").get<uint32_t>()];
        setting.name = item.at("display_name").get<std::string>();
        for (const Json& option : item.at("options")) {
            setting.options.push_back(option.at("id").get<uint32_t>());
            setting.optionNames[setting.options.back()] = option.at("display_name").get<std::string>();
        }
    }
    for (const Json& group : root.at("status").at("groups")) {
        for (const Json& field : group.at("fields")) {
            catalogue.m_statuses[field.at("id").get<uint32_t>()] = field.at("name").get<std::string>();
        }
    }
    const Json filters = root.value("filters", Json::array());
    for (const Json& item : filters) {
        Filter filter;
        for (const Json& criterion : item.at("activated_by")) {
            const bool isStatus = criterion.contains("status_id");
            filter.criteria.push_back({isStatus ? Kind::Status : Kind::Setting,
                                       criterion.at(isStatus ? "status_id" : "setting_id").get<uint32_t>(),
                                       criterion.at(isStatus ? "values" : "ids").get<std::vector<uint32_t>>()});
        }
        for (const Json& entry : item.at("blacklist")) {
            filter.forbidden.push_back(
                {entry.at("setting_id").get<uint32_t>(), entry.at("opt_ids").get<std::vector<uint32_t>>()});
        }
        catalogue.m_filters.push_back(std::move(filter));
    }
    return catalogue;
}

std::optional<uint32_t> Catalogue::settingCalled(const std::string& text) const {
    return called(text, m_settings, [](const Setting& setting) { return setting.name; });
}

std::optional<uint32_t> Catalogue::optionCalled(uint32_t settingId, const std::string& text) const {
    const auto setting = m_settings.find(settingId);
    return setting == m_settings.end()
               ? std::nullopt
               : called(text, setting->second.optionNames, [](const std::string& name) { return name; });
}

std::optional<uint32_t> Catalogue::statusCalled(const std::string& text) const {
    return called(text, m_statuses, [](const std::string& name) { return name; });
}

bool Catalogue::Filter::isOn(const CurrentValue& current) const {
    return std::all_of(criteria.begin(), criteria.end(), [&](const Criterion& criterion) {
        const auto value = current(criterion.kind, criterion.id);
        return value.has_value() && contains(criterion.values, *value);
    });
}

bool Catalogue::accepts(uint32_t settingId, uint32_t option, const CurrentValue& current) const {
    const auto setting = m_settings.find(settingId);
    if (setting == m_settings.end() || !contains(setting->second.options, option)) {
        return false;
    }
    return std::none_of(m_filters.begin(), m_filters.end(), [&](const Filter& filter) {
        const bool names = std::any_of(filter.forbidden.begin(), filter.forbidden.end(), [&](const Forbidden& entry) {
            return entry.settingId == settingId && contains(entry.options, option);
        });
        return names && filter.isOn(current);
    });
}

std::vector<uint32_t> Catalogue::dependents(uint32_t settingId) const {
    std::vector<uint32_t> found;
    for (const Filter& filter : m_filters) {
        const bool triggers = std::any_of(
            filter.criteria.begin(), filter.criteria.end(),
            [&](const Criterion& criterion) { return criterion.kind == Kind::Setting && criterion.id == settingId; });
        for (const Forbidden& entry : filter.forbidden) {
            if (triggers && !contains(found, entry.settingId)) {
                found.push_back(entry.settingId);
            }
        }
    }
    return found;
}

}  // namespace kzsim
