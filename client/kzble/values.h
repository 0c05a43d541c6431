// Values of the camera in words: what `get`, `status`, `caps`, `wait` and `watch` ask for and print.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "session.h"
#include "valueText.h"

namespace kzble {

using kzclient::entryJson;
using kzclient::idName;
using kzclient::valueJson;
using kzclient::ValueKind;
using kzclient::valueText;

// The first byte of plain queries and pushes: type << 4 | category.
enum QueryHeader : uint8_t {
    kSettingValues = 0x12,
    kSettingNames = 0x22,
    kSettingCapabilities = 0x32,
    kStatusValues = 0x13,
    kRegisterSettings = 0x52,
    kRegisterStatus = 0x53,
    kRegisterCapabilities = 0x62,
    kPushSettings = 0x92,
    kPushStatus = 0x93,
    kPushCapabilities = 0xA2,
};

// Asks `header` for `ids`, none meaning all, and then `again` for what the answer left out, until nothing is missing.
// Entries stand in ascending order of their ids.
std::vector<kzclient::Entry> askForAll(Session& session, QueryHeader header, QueryHeader again, const Bytes& ids);
// Throws Error with the outcome Refused when one of the ids, which were asked for by themselves, has no entry: the
// camera does not have it.
void expectNamed(ValueKind kind, const Bytes& ids, const std::vector<kzclient::Entry>& entries);
// Every id of the catalogue; without one, every id there can be.
Bytes allIds(ValueKind kind, const kzclient::Catalogue& catalogue);
Bytes idsOf(ValueKind kind, const std::vector<std::string>& names, const kzclient::Catalogue& catalogue);

// The options that may be chosen, by setting.
using Capabilities = std::map<uint8_t, std::vector<uint64_t>>;
Capabilities capabilitiesOf(const std::vector<kzclient::Entry>& entries);
// {"id", "name", "options": [{"id", "name"}]}
nlohmann::ordered_json capabilityJson(uint8_t id, const std::vector<uint64_t>& options,
                                      const kzclient::Catalogue& catalogue);
// "NAME: OPTION, OPTION"
std::string capabilityText(uint8_t id, const std::vector<uint64_t>& options, const kzclient::Catalogue& catalogue);

}  // namespace kzble
