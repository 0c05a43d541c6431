#include "catalogue.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "errors.h"
#include "nearest.h"

namespace kzclient {

namespace {

constexpr int kTextStatuses[] = {29, 30, 40};
constexpr size_t kLargestCatalogue = 16u << 20;  // bytes a decompressed catalogue may take

std::string folded(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += c == '-' || c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return result;
}

template <typename Map, typename NameOf>
std::optional<int> findByName(const Map& map, const std::string& text, NameOf nameOf) {
    const std::string wanted = folded(text);
    const auto found =
        std::find_if(map.begin(), map.end(), [&](const auto& row) { return folded(nameOf(row.second)) == wanted; });
    return found == map.end() ? std::nullopt : std::optional<int>(found->first);
}

template <typename Map, typename NameOf>
std::vector<std::string> namesOf(const Map& map, NameOf nameOf) {
    std::vector<std::string> names;
    for (const auto& row : map) {
        names.push_back(nameOf(row.second));
    }
    return names;
}

template <typename Map, typename NameOf>
uint8_t idOf(const Map& map, const std::string& text, const std::string& kind, NameOf nameOf) {
    const auto number = parseNumber(text);
    if (number && *number <= UINT8_MAX) {
        return static_cast<uint8_t>(*number);
    }
    if (number) {
        throw WrongUse("ids go up to 255, and " + text + " is above");
    }
    if (const auto named = findByName(map, text, nameOf)) {
        return static_cast<uint8_t>(*named);
    }
    const std::string unread = map.empty() ? " (no catalogue was read; see --catalogue)" : "";
    throw WrongUse("no " + kind + " is called \"" + text + "\"" + didYouMean(text, namesOf(map, nameOf)) + unread);
}

std::string itself(const std::string& name) {
    return name;
}

std::string nameOfSetting(const Catalogue::Setting& setting) {
    return setting.name;
}

}  // namespace

std::optional<uint32_t> parseNumber(const std::string& text) {
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

bool isTextStatus(int id) {
    return std::find(std::begin(kTextStatuses), std::end(kTextStatuses), id) != std::end(kTextStatuses);
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw Error("cannot read " + path);
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string gunzip(const std::string& compressed) {
    constexpr int kGzipWindow = 16 + MAX_WBITS;
    z_stream stream{};
    if (inflateInit2(&stream, kGzipWindow) != Z_OK) {
        throw Error("cannot decompress");
    }
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());
    std::string text;
    std::array<char, 16384> chunk{};
    int status = Z_OK;
    while (status == Z_OK && text.size() < kLargestCatalogue) {
        stream.next_out = reinterpret_cast<Bytef*>(chunk.data());
        stream.avail_out = chunk.size();
        status = inflate(&stream, Z_NO_FLUSH);
        text.append(chunk.data(), chunk.size() - stream.avail_out);
    }
    inflateEnd(&stream);
    if (status != Z_STREAM_END) {
        throw Error("not a whole gzip file");
    }
    return text;
}

Catalogue Catalogue::load(const std::string& path) {
    std::string text = readFile(path);
    if (text.starts_with("\x1f\x8b")) {
        text = gunzip(text);
    }
    return parse(text);
}

Catalogue Catalogue::parse(const std::string& text) try {
    const auto root = nlohmann::json::parse(text);
    Catalogue catalogue;
    for (const auto& item : root.at("settings")) {
        Setting setting{item.at("display_name").get<std::string>(), {}};
        for (const auto& option : item.at("options")) {
            setting.options.emplace(option.at("id").get<int>(), option.at("display_name").get<std::string>());
        }
        catalogue.m_settings.emplace(item.at("id").get<int>(), std::move(setting));
    }
    for (const auto& group : root.at("status").at("groups")) {
        for (const auto& field : group.at("fields")) {
            catalogue.m_statuses.emplace(field.at("id").get<int>(), field.at("name").get<std::string>());
        }
    }
    return catalogue;
} catch (const nlohmann::json::exception& problem) {
    throw Error(std::string("not a catalogue of settings: ") + problem.what());
}

uint8_t Catalogue::settingId(const std::string& text) const {
    return idOf(m_settings, text, "setting", nameOfSetting);
}

uint8_t Catalogue::statusId(const std::string& text) const {
    return idOf(m_statuses, text, "status", itself);
}

std::optional<uint8_t> Catalogue::findSetting(const std::string& name) const {
    const auto found = findByName(m_settings, name, nameOfSetting);
    return found ? std::optional(static_cast<uint8_t>(*found)) : std::nullopt;
}

uint32_t Catalogue::optionId(uint8_t settingId, const std::string& text) const {
    const auto number = parseNumber(text);
    std::vector<std::string> names;
    if (const auto setting = m_settings.find(settingId); setting != m_settings.end()) {
        const auto& options = setting->second.options;
        const bool isId = number && *number <= INT32_MAX && options.contains(static_cast<int>(*number));
        if (const auto id = findByName(options, text, itself); id && !isId) {
            return static_cast<uint32_t>(*id);
        }
        names = namesOf(options, itself);
    }
    if (number) {
        return *number;
    }
    throw WrongUse(settingName(settingId) + " has no option called \"" + text + "\"" + didYouMean(text, names));
}

std::string Catalogue::settingName(int id) const {
    const auto found = m_settings.find(id);
    return found == m_settings.end() ? "setting " + std::to_string(id) : found->second.name;
}

std::string Catalogue::statusName(int id) const {
    const auto found = m_statuses.find(id);
    return found == m_statuses.end() ? "status " + std::to_string(id) : found->second;
}

std::string Catalogue::optionName(int settingId, uint64_t optionId) const {
    const auto setting = m_settings.find(settingId);
    if (setting != m_settings.end() && optionId <= INT32_MAX) {
        const auto option = setting->second.options.find(static_cast<int>(optionId));
        if (option != setting->second.options.end()) {
            return option->second;
        }
    }
    return std::to_string(optionId);
}

}  // namespace kzclient
