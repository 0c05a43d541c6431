#include "valueText.h"

namespace kzclient {

using nlohmann::ordered_json;

ordered_json valueJson(ValueKind kind, const Entry& entry) {
    if (entry.value.empty()) {
        return nullptr;
    }
    if (kind == ValueKind::Status && isTextStatus(entry.id)) {
        return std::string(entry.value.begin(), entry.value.end());
    }
    return bigEndian(entry.value);
}

ordered_json entryJson(ValueKind kind, const Entry& entry, const Catalogue& catalogue) {
    const ordered_json value = valueJson(kind, entry);
    ordered_json json{{"id", entry.id}, {"name", idName(kind, entry.id, catalogue)}, {"value", value}};
    if (kind == ValueKind::Setting) {
        json["option"] = value.is_null() ? value : ordered_json(catalogue.optionName(entry.id, value.get<uint64_t>()));
    }
    return json;
}

std::string valueText(ValueKind kind, const Entry& entry, const Catalogue& catalogue) {
    const auto json = valueJson(kind, entry);
    if (json.is_null()) {
        return "unknown";
    }
    if (json.is_string()) {
        return printable(json.get<std::string>());
    }
    const auto number = json.get<uint64_t>();
    if (kind == ValueKind::Status) {
        return std::to_string(number);
    }
    const std::string name = catalogue.optionName(entry.id, number);
    return name == std::to_string(number) ? name : name + " (" + std::to_string(number) + ")";
}

std::string printable(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        constexpr uint8_t kDelete = 0x7F;
        if (byte < ' ' || byte == kDelete) {
            safe += "\\x" + hex(Bytes{byte});
        } else {
            safe += c;
        }
    }
    return safe;
}

std::string idName(ValueKind kind, uint8_t id, const Catalogue& catalogue) {
    return kind == ValueKind::Setting ? catalogue.settingName(id) : catalogue.statusName(id);
}

}  // namespace kzclient
