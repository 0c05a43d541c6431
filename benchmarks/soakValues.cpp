// Requests for settings, status fields, what may be chosen, and interests in their changes.
#include <algorithm>
#include <set>

#include "skylark/bleMessage.h"
#include "soakRequest.h"

namespace soak {
namespace {

// First bytes of queries.
enum Query : uint8_t {
    kGetSettings = 0x12,
    kGetStatuses = 0x13,
    kGetNames = 0x22,
    kGetCapabilities = 0x32,
    kRegisterSettings = 0x52,
    kRegisterStatuses = 0x53,
    kRegisterCapabilities = 0x62,
    kUnregisterSettings = 0x72,
    kUnregisterStatuses = 0x73,
    kUnregisterCapabilities = 0x82,
};
struct QueryKinds {
    Kind kind;
    uint8_t get;
    uint8_t watch;
    uint8_t unwatch;
};
constexpr QueryKinds kQueries[] = {
    {Kind::Setting, kGetSettings, kRegisterSettings, kUnregisterSettings},
    {Kind::Status, kGetStatuses, kRegisterStatuses, kUnregisterStatuses},
    {Kind::Capabilities, kGetCapabilities, kRegisterCapabilities, kUnregisterCapabilities},
};

constexpr uint8_t kRefused = 2;       // invalid parameter
constexpr uint32_t kNoOption = 0x7e;  // of no setting
// Values come from the control daemon, once a client is there.
constexpr unsigned kValues = kControl | kRadio;
constexpr const char* kName = "TODO";  // the camera names every setting so
constexpr size_t kMostAskedFor = 12;   // ids of one query

// The entries of an answer by id; an id that comes again, as each option of a capability does, is appended.
std::optional<std::map<uint8_t, Bytes>> entriesOf(const Bytes& answer, uint8_t query) {
    if (answer.size() < 2 || answer[0] != query || answer[1] != 0) {
        return std::nullopt;
    }
    std::map<uint8_t, Bytes> values;
    try {
        for (const auto& entry : kzclient::parseEntries(std::span(answer).subspan(2))) {
            Bytes& value = values[entry.id];
            value.insert(value.end(), entry.value.begin(), entry.value.end());
        }
    } catch (const kzclient::Error&) {
        return std::nullopt;
    }
    return values;
}

// Whether the answer has just the values of these cells.
bool hasValues(const Bytes& answer, uint8_t query, const std::vector<Cell*>& cells, Clock::time_point asked) {
    const auto values = entriesOf(answer, query);
    return values && values->size() == cells.size() && std::all_of(cells.begin(), cells.end(), [&](const Cell* cell) {
               const auto found = values->find(cell->id());
               return found != values->end() && cell->mayBe(found->second, asked);
           });
}

Bytes queryFor(uint8_t query, const std::vector<Cell*>& cells) {
    Bytes message{query};
    for (const Cell* cell : cells) {
        message.push_back(cell->id());
    }
    return message;
}

// Some cells of the kind, each once, in any order.
std::vector<Cell*> someOf(Asker& phone, Kind kind) {
    std::vector<Cell*> cells = phone.world().board.all(kind);
    std::shuffle(cells.begin(), cells.end(), phone.random());
    cells.resize(1 + below(phone.random(), std::min(cells.size(), kMostAskedFor)));
    return cells;
}

Request watchRequest(Asker& phone, const QueryKinds& kinds, const std::vector<Cell*>& cells) {
    const uint8_t query = kinds.watch;
    return {"register",
            KZ_STR_ID_QUERY,
            queryFor(query, cells),
            kValues,
            [=](const Bytes& answer, auto asked) { return hasValues(answer, query, cells, asked); },
            [=, &phone] {
                for (Cell* cell : cells) {
                    phone.mayWatch(*cell);
                }
            },
            [=, &phone](const Bytes& answer, Outcome) {
                const auto values = entriesOf(answer, query).value_or(std::map<uint8_t, Bytes>());
                for (Cell* cell : cells) {
                    const auto found = values.find(cell->id());
                    phone.watch(*cell, found == values.end() ? Bytes() : found->second);
                }
            }};
}

Request unwatchRequest(Asker& phone, const QueryKinds& kinds, Cell& cell) {
    const uint8_t query = kinds.unwatch;
    return {"unregister",
            KZ_STR_ID_QUERY,
            {query, cell.id()},
            kNoPart,
            [=](const Bytes& answer, auto) {
                return answer == Bytes{query, 0};
            },
            [] {},
            [&phone, &cell](const Bytes&, Outcome) { phone.unwatch(cell); }};
}

Request wrongOption(const OwnedSetting& owned) {
    const uint8_t id = owned.cell->id();
    Bytes message = settingValue(id, kNoOption);
    message.insert(message.begin(), {id, static_cast<uint8_t>(message.size())});
    return {"no option", KZ_STR_ID_SETTINGS, message, kValues, [=](const Bytes& answer, auto) {
                return answer == Bytes{id, kRefused};
            }};
}

Request allValues(Asker& phone) {
    return {"all settings", KZ_STR_ID_QUERY, {kGetSettings}, kValues, [&phone](const Bytes& answer, auto asked) {
                const auto values = entriesOf(answer, kGetSettings);
                const auto cells = phone.world().board.all(Kind::Setting);
                return values && values->size() == phone.world().catalogue.settings().size() &&
                       std::all_of(cells.begin(), cells.end(), [&](const Cell* cell) {
                           const auto found = values->find(cell->id());
                           return found != values->end() && cell->mayBe(found->second, asked);
                       });
            }};
}

}  // namespace

Requests changeOwnSetting(Asker& phone) {
    if (phone.world().quiet) {
        return askForValues(phone);
    }
    const OwnedSetting& owned = phone.owned();
    if (chance(phone.random(), 10)) {
        return {wrongOption(owned)};
    }
    const size_t choice = below(phone.random(), owned.options.size());
    const uint8_t id = owned.cell->id();
    const Bytes value = settingValue(id, owned.options[choice]);
    Bytes message = value;
    message.insert(message.begin(), {id, static_cast<uint8_t>(value.size())});
    return {{"setting", KZ_STR_ID_SETTINGS, message, kValues,
             [=](const Bytes& answer, auto) {
                 return answer == Bytes{id, 0};
             },
             [=, &owned] {
                 owned.cell->changing(value);
                 if (owned.capabilities != nullptr) {
                     owned.capabilities->changing(owned.capabilitiesByOption[choice]);
                 }
             },
             [&owned](const Bytes&, Outcome outcome) {
                 owned.cell->changed(outcome);
                 if (owned.capabilities != nullptr) {
                     owned.capabilities->changed(outcome);
                 }
             }}};
}

Requests askForValues(Asker& phone) {
    if (chance(phone.random(), 5)) {
        return {allValues(phone)};
    }
    const QueryKinds& kinds = anyOf(phone.random(), kQueries);
    const auto cells = someOf(phone, kinds.kind);
    return {
        {"values", KZ_STR_ID_QUERY, queryFor(kinds.get, cells), kValues,
         [=, query = kinds.get](const Bytes& answer, auto asked) { return hasValues(answer, query, cells, asked); }}};
}

Requests askForNames(Asker& phone) {
    const auto cells = someOf(phone, Kind::Setting);
    return {{"names", KZ_STR_ID_QUERY, queryFor(kGetNames, cells), kNoPart, [=](const Bytes& answer, auto) {
                 const auto names = entriesOf(answer, kGetNames);
                 return names && names->size() == cells.size() &&
                        std::all_of(names->begin(), names->end(), [](const auto& entry) {
                            return std::string(entry.second.begin(), entry.second.end()) == kName;
                        });
             }}};
}

// Begins or ends the interest in one value.
Requests changeInterest(Asker& phone) {
    const QueryKinds& kinds = anyOf(phone.random(), kQueries);
    const auto cells = phone.world().board.all(kinds.kind);
    Cell& cell = *anyOf(phone.random(), cells);
    return {phone.watches(cell) ? unwatchRequest(phone, kinds, cell) : watchRequest(phone, kinds, {&cell})};
}

Requests firstInterests(Asker& phone) {
    Requests requests;
    for (const QueryKinds& kinds : kQueries) {
        auto cells = someOf(phone, kinds.kind);
        cells.resize(std::min<size_t>(cells.size(), 3));
        Cell* const own = phone.owned().cell;
        if (kinds.kind == Kind::Setting && std::find(cells.begin(), cells.end(), own) == cells.end()) {
            cells.push_back(own);
        }
        requests.push_back(watchRequest(phone, kinds, cells));
    }
    return requests;
}

}  // namespace soak
