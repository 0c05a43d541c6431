#include "undoLog.h"

namespace kzsim {
namespace {

constexpr size_t kKept = 64;

template <typename Key, typename Value>
std::vector<std::pair<Key, std::optional<Value>>> former(const std::map<Key, Value>& before,
                                                         const std::map<Key, Value>& now) {
    std::vector<std::pair<Key, std::optional<Value>>> differing;
    for (const auto& [key, value] : now) {
        const auto old = before.find(key);
        if (old == before.end()) {
            differing.emplace_back(key, std::nullopt);
        } else if (old->second != value) {
            differing.emplace_back(key, old->second);
        }
    }
    for (const auto& [key, value] : before) {
        if (now.count(key) == 0) {
            differing.emplace_back(key, value);
        }
    }
    return differing;
}

}  // namespace

CameraSnapshot::CameraSnapshot(const Roles& roles)
    : settings(roles.camera.settings()),
      statuses(roles.camera.statuses()),
      csi(roles.camera.csiValues()),
      refused(roles.control.running() ? roles.control->refused() : decltype(refused)()),
      capturing(roles.camera.capturing()),
      radioRate(roles.radio.running() ? roles.radio->rate() : 0),
      radioReads(roles.radio.running() && roles.radio->reading()) {}

void UndoLog::note(const std::string& command, const CameraSnapshot& before, const Roles& roles) {
    const CameraSnapshot now(roles);
    Change change{command,
                  former(before.settings, now.settings),
                  former(before.statuses, now.statuses),
                  former(before.csi, now.csi),
                  former(before.refused, now.refused),
                  std::nullopt,
                  std::nullopt};
    if (before.capturing != now.capturing) {
        change.capturing = before.capturing;
    }
    if (before.radioRate != now.radioRate || before.radioReads != now.radioReads) {
        change.radio = {before.radioRate, before.radioReads};
    }
    if (change.settings.empty() && change.statuses.empty() && change.csi.empty() && change.refused.empty() &&
        !change.capturing && !change.radio) {
        return;
    }
    m_changes.push_back(std::move(change));
    if (m_changes.size() > kKept) {
        m_changes.pop_front();
    }
}

std::optional<std::string> UndoLog::undo(const Roles& roles) {
    if (m_changes.empty()) {
        return std::nullopt;
    }
    const Change change = std::move(m_changes.back());
    m_changes.pop_back();
    for (const auto& [id, value] : change.settings) {
        roles.camera.restoreSetting(id, value);
    }
    for (const auto& [id, value] : change.statuses) {
        roles.camera.restoreStatus(id, value);
    }
    for (const auto& [key, value] : change.csi) {
        roles.camera.restoreCsi(key, value);
    }
    for (const auto& [id, code] : change.refused) {
        roles.control->refuse(id, code.value_or(0));
    }
    if (change.capturing) {
        // After the values: a capture needs the card that they bring back.
        *change.capturing ? roles.camera.startCapture() : roles.camera.stopCapture();
    }
    if (change.radio) {
        roles.radio->setRate(change.radio->first);
        if (!change.radio->second) {
            roles.radio->stopReading();
        }
    }
    return change.command;
}

}  // namespace kzsim
