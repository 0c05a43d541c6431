#include "values.h"

#include <algorithm>
#include <set>

namespace kzble {

using nlohmann::ordered_json;

namespace {

constexpr uint8_t kStatusCategory = 3;
constexpr uint8_t kCategoryMask = 0x0F;

ValueKind kindOf(QueryHeader header) {
    return (header & kCategoryMask) == kStatusCategory ? ValueKind::Status : ValueKind::Setting;
}

}  // namespace

Bytes allIds(ValueKind kind, const kzclient::Catalogue& catalogue) {
    Bytes ids;
    const auto add = [&](const auto& rows) {
        for (const auto& row : rows) {
            ids.push_back(static_cast<uint8_t>(row.first));
        }
    };
    if (kind == ValueKind::Setting) {
        add(catalogue.settings());
    } else {
        add(catalogue.statuses());
    }
    for (int id = 1; ids.size() < UINT8_MAX && catalogue.settings().empty(); ++id) {
        ids.push_back(static_cast<uint8_t>(id));  // the camera drops those that it does not know
    }
    return ids;
}

Bytes idsOf(ValueKind kind, const std::vector<std::string>& names, const kzclient::Catalogue& catalogue) {
    Bytes ids;
    for (const auto& name : names) {
        ids.push_back(kind == ValueKind::Setting ? catalogue.settingId(name) : catalogue.statusId(name));
    }
    return ids;
}

std::vector<kzclient::Entry> askForAll(Session& session, QueryHeader header, QueryHeader again, const Bytes& ids) {
    auto& client = session.client();
    auto answer = client.query(header, ids);
    auto entries = std::move(answer.entries);
    std::set<uint8_t> missing;
    if (answer.partial) {
        const Bytes wanted = ids.empty() ? allIds(kindOf(header), session.catalogue()) : ids;
        missing.insert(wanted.begin(), wanted.end());
    }
    for (const auto& entry : entries) {
        missing.erase(entry.id);
    }
    while (answer.partial && !missing.empty()) {
        answer = client.query(again, Bytes(missing.begin(), missing.end()));
        const size_t before = missing.size();
        for (auto& entry : answer.entries) {
            missing.erase(entry.id);
            const bool valueless = entry.value.empty() && ids.empty() && again != kSettingCapabilities;
            if (!valueless) {  // a query for all leaves them out as well
                entries.push_back(std::move(entry));
            }
        }
        if (answer.partial && missing.size() == before) {
            throw Error("the camera has no room to answer for " + std::to_string(before) + " of the ids");
        }
    }
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.id < b.id; });
    return entries;
}

void expectNamed(ValueKind kind, const Bytes& ids, const std::vector<kzclient::Entry>& entries) {
    for (const uint8_t id : ids) {
        if (std::none_of(entries.begin(), entries.end(), [id](const auto& entry) { return entry.id == id; })) {
            throw Error(std::string("the camera has no ") + (kind == ValueKind::Setting ? "setting " : "status ") +
                            std::to_string(id),
                        kzclient::Outcome::Refused);
        }
    }
}

Capabilities capabilitiesOf(const std::vector<kzclient::Entry>& entries) {
    Capabilities capabilities;
    for (const auto& entry : entries) {
        auto& options = capabilities[entry.id];
        if (!entry.value.empty()) {
            options.push_back(kzclient::bigEndian(entry.value));
        }
    }
    return capabilities;
}

ordered_json capabilityJson(uint8_t id, const std::vector<uint64_t>& options, const kzclient::Catalogue& catalogue) {
    ordered_json list = ordered_json::array();
    for (const auto option : options) {
        list.push_back({{"id", option}, {"name", catalogue.optionName(id, option)}});
    }
    return {{"id", id}, {"name", catalogue.settingName(id)}, {"options", list}};
}

std::string capabilityText(uint8_t id, const std::vector<uint64_t>& options, const kzclient::Catalogue& catalogue) {
    std::string text;
    for (const auto option : options) {
        const std::string number = std::to_string(option);
        const std::string name = catalogue.optionName(id, option);
        text += (text.empty() ? " " : ", ") + (name == number ? name : name + " (" + number + ")");
    }
    return catalogue.settingName(id) + ":" + (text.empty() ? " nothing may be chosen" : text);
}

}  // namespace kzble
