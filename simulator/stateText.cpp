#include "stateText.h"

namespace kzsim {
namespace {

using Json = nlohmann::ordered_json;

bool saysNothing(const Json& value) {
    return value.is_null() || value == false || value == 0 || value == "" || (value.is_structured() && value.empty());
}

std::string scalar(const Json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// "  2 Video Resolution: 9 1080p"
std::string namedValue(const Json& item) {
    const std::string id = scalar(item.at("id"));
    return std::string(id.size() < 5 ? 5 - id.size() : 0, ' ') + id + ' ' +
           item.value("name", "(not in the catalogue)") + ": " + scalar(item.at("value")) +
           (item.contains("option") ? " " + item.value("option", "") : "") + '\n';
}

// "key value, key value"
std::string fields(const Json& object) {
    std::string line;
    for (const auto& [key, value] : object.items()) {
        if (!saysNothing(value)) {
            line += (line.empty() ? "" : ", ") + key + ' ' + scalar(value);
        }
    }
    return line;
}

// A line for each element of a list; those that are alike and follow each other share one.
std::string elements(const std::string& key, const Json& list) {
    std::string lines;
    for (size_t i = 0, next = 0; i < list.size(); i = next) {
        for (next = i + 1; next < list.size() && list[next] == list[i];) {
            ++next;
        }
        const std::string times = next - i == 1 ? "" : ", " + std::to_string(next - i) + " times";
        lines += "    " + key + ": " + fields(list[i]) + times + '\n';
    }
    return lines;
}

// A heading, then the object's single values on one line and each element of its lists on a line of its own.
std::string section(const std::string& title, const Json& object) {
    Json singles = Json::object();
    std::string lists;
    for (const auto& [key, value] : object.items()) {
        if (!value.is_array()) {
            singles[key] = value;
            continue;
        }
        lists += elements(key, value);
    }
    const std::string line = fields(singles);
    return line.empty() && lists.empty() ? "" : title + ": " + line + '\n' + lists;
}

}  // namespace

std::string stateAsText(const Json& state) {
    Json singles = Json::object();
    std::string sections;
    for (const auto& [key, value] : state.items()) {
        if (value.is_object()) {
            sections += section(key, value);
        } else if (!value.is_array()) {
            singles[key] = value;
        }
    }
    std::string text = "camera: " + fields(singles) + '\n' + sections + "settings:\n";
    for (const Json& item : state.at("settings")) {
        text += namedValue(item);
    }
    text += "status:\n";
    size_t zeros = 0;
    for (const Json& item : state.at("status")) {
        const bool nothing = saysNothing(item.at("value"));
        text += nothing ? "" : namedValue(item);
        zeros += nothing ? 1 : 0;
    }
    return text + "      (and " + std::to_string(zeros) + " that are 0 or empty)";
}

}  // namespace kzsim
