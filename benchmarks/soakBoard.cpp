#include "soakBoard.h"

#include <algorithm>
#include <array>

namespace soak {
namespace {

// How long an answer may still give the former value: a change reaches the daemon's model a moment after its answer.
constexpr std::chrono::milliseconds kSettling{1000};
// After that a push that has not come is lost. Pushes that find the radio busy leave on later ticks.
constexpr std::chrono::milliseconds kPushPatience{6000};
constexpr std::chrono::seconds kKept{30};  // how long former values are kept

// Settings that depend on no other value, and on which no other does but the capabilities named below. No preset
// contains them.
struct SettingRow {
    uint8_t id;
    uint32_t first;
    std::vector<uint32_t> options;
};
const SettingRow kSettings[] = {
    {54, 2, {2, 3}},
    {83, 1, {0, 1}},
    {21, 0, {0, 1, 2, 3, 4}},
    {22, 4, {0, 2, 4, 6, 8}},
    {59, 4, {0, 1, 4, 6, 7}},
    {65, 0, {0, 15, 30}},
    {76, 0, {0, 1, 2, 3}},
    {84, 0, {0, 1, 2, 3, 4, 5}},
    {91, 2, {0, 2, 5}},
    {141, 0, {0, 1, 65536}},
    {67, 0, {0, 3600, 86400}},
    {86, 0, {0, 1}},
    {62, 0, {0, 600, 3600, 14400}},
    {66, 0, {0, 15, 30}},
    {87, 70, {40, 70, 100}},
    {88, 70, {40, 70, 100}},
};

// What may be chosen for setting `id` when setting `owner` has the option.
struct CapabilityRow {
    uint8_t owner;
    uint32_t option;
    uint8_t id;
    std::vector<uint32_t> options;
};
const CapabilityRow kCapabilities[] = {
    {54, 2, 127, {0, 60, 120, 240, 480}},
    {54, 3, 127, {0, 240, 480}},
    {83, 0, 88, {10, 40, 70, 100}},
    {83, 1, 88, {40, 70, 100}},
};

// Status fields that nothing in the camera changes by itself.
struct StatusRow {
    uint8_t id;
    uint64_t first;
};
constexpr StatusRow kStatuses[] = {{29, 0}, {40, 0}, {56, 0}, {57, 4200}, {105, 0}, {117, 127865454592}};

constexpr uint8_t kWideSettings[] = {30, 32, 60, 61, 62, 65, 66, 67, 127, 141, 168};
constexpr uint8_t kWideStatuses[] = {57};
constexpr uint8_t kWidestStatuses[] = {54, 117};
constexpr uint8_t kTextStatuses[] = {29, 30, 40};

bool oneOf(const auto& ids, uint8_t id) {
    return std::find(std::begin(ids), std::end(ids), id) != std::end(ids);
}

Bytes bigEndian(uint64_t number, size_t width) {
    Bytes bytes(width);
    for (size_t i = width; i-- > 0; number >>= 8) {
        bytes[i] = static_cast<uint8_t>(number);
    }
    return bytes;
}

// The options as the values of one answer, one behind the other.
Bytes optionValues(const CapabilityRow& row) {
    Bytes all;
    for (const uint32_t option : row.options) {
        const Bytes value = settingValue(row.id, option);
        all.insert(all.end(), value.begin(), value.end());
    }
    return all;
}

}  // namespace

bool isTextStatus(uint8_t id) {
    return oneOf(kTextStatuses, id);
}

Bytes settingValue(uint8_t id, uint64_t number) {
    return bigEndian(number, oneOf(kWideSettings, id) ? 4 : 1);
}

Bytes statusValue(uint8_t id, uint64_t number) {
    return bigEndian(number, oneOf(kWidestStatuses, id) ? 8 : oneOf(kWideStatuses, id) ? 4 : 1);
}

// ---------------------------------------------------------------- one value

std::string Cell::name() const {
    constexpr std::array kNames{"setting ", "status ", "capabilities of ", "feature ", "presets "};
    return kNames[static_cast<size_t>(m_kind)] + std::to_string(m_id);
}

void Cell::changing(const Bytes& value) {
    const std::lock_guard lock(m_mutex);
    m_next = value;
}

void Cell::changed(Outcome outcome) {
    const std::lock_guard lock(m_mutex);
    const auto now = Clock::now();
    const bool sure = outcome == Outcome::Sure;
    const bool differs = m_next.has_value() && *m_next != m_value;
    if (differs && outcome != Outcome::Unknown && m_kind != Kind::Presets) {
        m_tally.pushesExpected += m_watchers;
    }
    if (differs || m_known != sure) {
        m_former.push_back({m_value, now});
        m_since = now;
    }
    while (!m_former.empty() && m_former.front().until + kKept < now) {
        m_former.pop_front();
    }
    m_value = m_next.value_or(m_value);
    m_next.reset();
    m_known = sure;
}

bool Cell::mayBe(const Bytes& value, Clock::time_point since) const {
    const std::lock_guard lock(m_mutex);
    const auto wasCurrent = [&](const Former& one) { return one.value == value && one.until + kSettling >= since; };
    return !m_known || value == m_value || value == m_next || std::any_of(m_former.begin(), m_former.end(), wasCurrent);
}

std::optional<Cell::Due> Cell::due() const {
    const std::lock_guard lock(m_mutex);
    const bool sure = m_known && !m_next.has_value() && m_since + kPushPatience < Clock::now();
    return sure ? std::optional(Due{m_value, m_since}) : std::nullopt;
}

Bytes Cell::newest() const {
    const std::lock_guard lock(m_mutex);
    return m_next.value_or(m_value);
}

void Cell::watch() {
    const std::lock_guard lock(m_mutex);
    ++m_watchers;
}

void Cell::unwatch() {
    const std::lock_guard lock(m_mutex);
    --m_watchers;
}

// ---------------------------------------------------------------- all values

Board::Board(Tally& tally) : m_tally(tally) {
    for (const SettingRow& row : kSettings) {
        OwnedSetting owned{&add(Kind::Setting, row.id, settingValue(row.id, row.first)), row.options, nullptr, {}};
        for (const CapabilityRow& capability : kCapabilities) {
            if (capability.owner != row.id) {
                continue;
            }
            owned.capabilitiesByOption.push_back(optionValues(capability));
            if (capability.option == row.first) {
                owned.capabilities = &add(Kind::Capabilities, capability.id, optionValues(capability));
            }
        }
        m_owned.push_back(owned);
    }
    for (const StatusRow& row : kStatuses) {
        add(Kind::Status, row.id, isTextStatus(row.id) ? Bytes() : statusValue(row.id, row.first));
    }
    for (const uint8_t feature : {kStreamBitrate, kUpdatePercent, kUploadPermission}) {
        add(Kind::Feature, feature, {0, 0, 0, 0});
    }
    add(Kind::Presets, 0, {0, 0, 0, 0});
}

Cell& Board::add(Kind kind, uint8_t id, const Bytes& first) {
    m_cells.push_back(std::make_unique<Cell>(m_tally, kind, id, first));
    return *m_cells.back();
}

Cell* Board::find(Kind kind, uint8_t id) const {
    const auto found = std::find_if(m_cells.begin(), m_cells.end(),
                                    [&](const auto& cell) { return cell->kind() == kind && cell->id() == id; });
    return found == m_cells.end() ? nullptr : found->get();
}

std::vector<Cell*> Board::all(Kind kind) const {
    std::vector<Cell*> chosen;
    for (const auto& cell : m_cells) {
        if (cell->kind() == kind) {
            chosen.push_back(cell.get());
        }
    }
    return chosen;
}

}  // namespace soak
