#include "values.h"

namespace kzble {

nlohmann::ordered_json valueJson(ValueKind kind, const kzclient::Entry& entry) {
    if (entry.value.empty()) {
        return nullptr;
    }
    if (kind == ValueKind::Status && kzclient::isTextStatus(entry.id)) {
        return std::string(entry.value.begin(), entry.value.end());
    }
    return kzclient::bigEndian(entry.value);
}

std::string valueText(ValueKind kind, const kzclient::Entry& entry, const kzclient::Catalogue& catalogue) {
    const auto json = valueJson(kind, entry);
    if (json.is_null()) {
        return "unknown";
    }
    if (json.is_string()) {
        return json.get<std::string>();
    }
    const auto number = json.get<uint64_t>();
    if (kind == ValueKind::Status) {
        return std::to_string(number);
    }
    const std::string name = catalogue.optionName(entry.id, number);
    return name == std::to_string(number) ? name : name + " (" + std::to_string(number) + ")";
}

std::string idName(ValueKind kind, uint8_t id, const kzclient::Catalogue& catalogue) {
    return kind == ValueKind::Setting ? catalogue.settingName(id) : catalogue.statusName(id);
}

}  // namespace kzble
