#include "statePush.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace kzsim {
namespace {

constexpr std::string_view kSettingsKey = "\"settings\":{";
constexpr std::string_view kStatusKey = "\"status\":{";
constexpr size_t kFrame = 2;  // the document's own braces

std::string member(uint32_t id, const std::string& value) {
    return '"' + std::to_string(id) + "\":" + value;
}

std::string valueText(const StatusValue& value) {
    if (const auto* const number = std::get_if<uint64_t>(&value)) {
        return std::to_string(*number);
    }
    // Bytes that are no UTF-8 must not stop a push.
    return nlohmann::json(std::get<std::string>(value)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Collects members of one object until the document is full.
class Section {
  public:
    Section(std::string_view key, size_t room) : m_key(key), m_room(room) {}

    bool add(const std::string& text) {
        const size_t cost = text.size() + (m_members.empty() ? m_key.size() + 1 : 1);  // "}" or ","
        if (cost > m_room) {
            return false;
        }
        m_room -= cost;
        m_members += (m_members.empty() ? "" : ",") + text;
        return true;
    }

    bool empty() const { return m_members.empty(); }
    size_t room() const { return m_room; }
    std::string text() const { return empty() ? "" : std::string(m_key) + m_members + '}'; }

  private:
    std::string_view m_key;
    size_t m_room;
    std::string m_members;
};

// Moves ids from `pending` to `section` until one does not fit; `valueOf` gives an id's value text, if it has one. An
// id that does not even fit an empty document of `whole` bytes is dropped.
template <typename ValueOf>
void fill(Section& section, std::set<uint32_t>& pending, size_t whole, ValueOf valueOf) {
    while (!pending.empty()) {
        const uint32_t id = *pending.begin();
        const std::optional<std::string> value = valueOf(id);
        if (value.has_value() && !section.add(member(id, *value)) &&
            Section(kSettingsKey, whole).add(member(id, *value))) {
            return;  // in the next document
        }
        pending.erase(id);
    }
}

}  // namespace

std::string takePush(PendingPush& pending, const CameraModel& camera, size_t limit) {
    const size_t whole = limit - std::min(limit, kFrame);
    Section settings(kSettingsKey, whole);
    fill(settings, pending.settings, whole, [&](uint32_t id) -> std::optional<std::string> {
        const auto found = camera.settings().find(id);
        return found == camera.settings().end() ? std::nullopt : std::optional(std::to_string(found->second));
    });
    const size_t comma = settings.empty() ? 0 : 1;
    Section statuses(kStatusKey, settings.room() - std::min(settings.room(), comma));
    if (pending.settings.empty()) {
        fill(statuses, pending.statuses, whole, [&](uint32_t id) -> std::optional<std::string> {
            const auto found = camera.statuses().find(id);
            return found == camera.statuses().end() ? std::nullopt : std::optional(valueText(found->second));
        });
    }
    if (settings.empty() && statuses.empty()) {
        return {};
    }
    const bool both = !settings.empty() && !statuses.empty();
    return '{' + settings.text() + (both ? "," : "") + statuses.text() + '}';
}

}  // namespace kzsim
