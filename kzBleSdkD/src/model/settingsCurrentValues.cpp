// Current values: the pushes of the control daemon, changed marks, lookups.
#include <cjson/cJSON.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <optional>

#include "filterTable.h"
#include "jsonText.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "settingsStatusMapping.cpp";

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Reads a decimal number: leading blanks and a sign, then digits up to the first other character. Clamps to an int.
int ReadDecimal(const char* text) {
    while (IsBlank(*text)) {
        ++text;
    }
    const bool negative = *text == '-';
    if (negative || *text == '+') {
        ++text;
    }
    int64_t value = 0;
    for (; *text >= '0' && *text <= '9' && value <= INT_MAX; ++text) {
        value = value * 10 + (*text - '0');
    }
    value = std::min<int64_t>(value, INT_MAX);
    return static_cast<int>(negative ? -value : value);
}

// The text of a push and its JSON tree. The text is needed for the digits of numbers that a double may not hold; most
// pushes have no such number, and then it is not read again. The tree belongs to the arena in use.
class Push {
  public:
    explicit Push(const char* text) : m_text(text), m_root(cJSON_Parse(text)) {}

    const cJSON* Root() const { return m_root; }

    // Walks one part ("settings", "status") of the push, a member of its root. Members are asked for in order.
    class Part {
      public:
        Part(const Push& push, const cJSON* part) : m_push(push), m_part(part) {}

        // The text of the member's number, or null when the member's double holds the number exactly.
        const char* DigitsOf(const cJSON* member, eValueWidth width) {
            if (!NeedsDigits(member, width)) {
                return nullptr;
            }
            if (!m_members.has_value()) {
                m_members.emplace(ObjectText(m_push.m_text, m_push.Root()).ValueOf(m_part), m_part);
            }
            return m_members->ValueOf(member);
        }

      private:
        bool NeedsDigits(const cJSON* member, eValueWidth width) const {
            constexpr double kFirstInexactInteger = 9007199254740992.0;  // 2^53
            const bool isExactWidth = width == eValueWidth4Bytes || width == eValueWidth8Bytes;
            return isExactWidth && cJSON_IsNumber(member) &&
                   (m_push.m_hasRoundedNumbers || std::fabs(member->valuedouble) >= kFirstInexactInteger);
        }

        const Push& m_push;
        const cJSON* m_part;
        std::optional<ObjectText> m_members;
    };

  private:
    const char* m_text;
    const cJSON* m_root;
    bool m_hasRoundedNumbers = m_root != nullptr && HasFractionOrExponent(m_text);
};

// Builds the value of each member of `part` and hands it to store(id, value). The id of a member is its name; one
// beyond `tableSize` is logged and skipped.
template <typename WidthOf, typename Store>
void ReadPart(const Push& push, const cJSON* part, int tableSize, WidthOf&& widthOf, Store&& store) {
    Push::Part members(push, part);
    for (const cJSON* member = part->child; member != nullptr; member = member->next) {
        const int id = ReadDecimal(member->string);
        if (id < 0 || id >= tableSize) {
            LOG_ERROR("Key %d is too big for notification table of size %d", id, tableSize);
            continue;
        }
        const eValueWidth width = widthOf(id);
        FlexValue value = BuildFlexValue(width, member, members.DigitsOf(member, width));
        value.SetChanged(true);
        store(id, std::move(value));
    }
}

bool HasMembers(const cJSON* part) {
    return part != nullptr && cJSON_IsObject(part) && part->child != nullptr;
}

unsigned long NumberForLog(const FlexValue& value) {
    return value.GetDataLength() != 0 ? value.GetUI32Value() : 0;
}

// Ids are collected in ascending order, so there is something to sort only when the caller's vector was not empty.
void SortIds(std::vector<int>& ids) {
    if (!std::is_sorted(ids.begin(), ids.end())) {
        std::sort(ids.begin(), ids.end());
    }
}

template <int kSize>
void CopyValues(ValueTable<kSize>& values, const std::vector<int>& ids, std::map<int, FlexValue>& result) {
    if (ids.empty()) {
        values.ForEach([&](int id, const FlexValue& value) { result.insert_or_assign(id, value); });
    }
    for (const int id : ids) {
        result.insert_or_assign(id, values.GetOrMake(id));
    }
}

}  // namespace

// ---------------------------------------------------------------- pushes

uint8_t SettingsStatusMapping::CurrentSettingsStatusFromJSON(const char* text, bool& capabilitiesChanged) {
    capabilitiesChanged = false;
    const JsonArena::Use use(m_pushMemory);
    const Push push(text);
    if (push.Root() == nullptr) {
        LOG_ERROR("Input JSON is nullptr");
        return 0;
    }
    LOG_TRACE("Updated json --> %s", PrintJson(push.Root()).c_str());
    const cJSON* settings = cJSON_GetObjectItem(push.Root(), "settings");
    const cJSON* status = cJSON_GetObjectItem(push.Root(), "status");
    if (settings == nullptr && status == nullptr) {
        return kSettingsChanged;
    }
    uint8_t result = 0;
    bool blacklistsAffected = false;
    if (HasMembers(settings)) {
        ReadPart(
            push, settings, kSettingsTableSize, [&](int id) { return kzSettingWidth(modelNumber, id); },
            [&](int id, FlexValue&& value) { blacklistsAffected |= StoreSetting(id, std::move(value)); });
        result |= kSettingsChanged;
    }
    if (HasMembers(status)) {
        ReadPart(
            push, status, kStatusTableSize, [&](int id) { return kzStatusWidth(modelNumber, id); },
            [&](int id, FlexValue&& value) {
                blacklistsAffected |= StoreStatus(id, std::move(value));
                result |= kStatusChanged;
            });
    }
    if (blacklistsAffected) {
        capabilitiesChanged = UpdateCapabilities();
    } else {
        LOG_TRACE("Nothing in the push data affects current blacklists");
    }
    return result;
}

bool SettingsStatusMapping::StoreSetting(int id, FlexValue&& value) {
    m_filterTable->NoteSetting(id, m_settingValues.Store(id, std::move(value)));
    return m_filterTable->IsSettingTrigger(id);
}

bool SettingsStatusMapping::StoreStatus(int id, FlexValue&& value) {
    m_filterTable->NoteStatus(id, m_statusValues.Store(id, std::move(value)));
    return m_filterTable->IsStatusTrigger(id);
}

void SettingsStatusMapping::SetStatusValue(int id, const FlexValue& value) {
    if (m_statusValues.Covers(id)) {
        StoreStatus(id, FlexValue(value));
    }
}

// ---------------------------------------------------------------- changed marks

void SettingsStatusMapping::GetChangedSettingsIds(std::vector<int>& ids) const {
    m_settingValues.ForEach([&](int id, const FlexValue& value) {
        if (value.HasChanged()) {
            LOG_TRACE("Setting changed --> %d = %lu", id, NumberForLog(value));
            ids.push_back(id);
        }
    });
    SortIds(ids);
}

void SettingsStatusMapping::GetChangedStatusIds(std::vector<int>& ids) const {
    m_statusValues.ForEach([&](int id, const FlexValue& value) {
        if (value.HasChanged()) {
            LOG_TRACE("Status changed --> %d = %lu", id, NumberForLog(value));
            ids.push_back(id);
        }
    });
    SortIds(ids);
}

void SettingsStatusMapping::ResetSettingsHasChanged() {
    m_settingValues.ResetHasChanged();
}

void SettingsStatusMapping::ResetStatusHasChanged() {
    m_statusValues.ResetHasChanged();
}

// ---------------------------------------------------------------- lookups

bool SettingsStatusMapping::GetTheseSettingsValues(const std::vector<int>& ids, std::map<int, FlexValue>& result) {
    CopyValues(m_settingValues, ids, result);
    return true;
}

bool SettingsStatusMapping::GetTheseStatusValues(const std::vector<int>& ids, std::map<int, FlexValue>& result) {
    CopyValues(m_statusValues, ids, result);
    return true;
}

const FlexValue& SettingsStatusMapping::GetSettingValue(int id) {
    return m_settingValues.GetOrMake(id);
}

const FlexValue& SettingsStatusMapping::GetStatusValue(int id) {
    return m_statusValues.GetOrMake(id);
}
