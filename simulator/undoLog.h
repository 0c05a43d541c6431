// What the commands of kzcamctl changed, so that it can be taken back, last change first.
//
// A change is known by comparing the camera before and after the command. Taking it back touches only the values that
// the command changed: what phones and the camera's life changed since then stays.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "roles.h"

namespace kzsim {

// All that a command can change and that can be changed back.
struct CameraSnapshot {
    explicit CameraSnapshot(const Roles& roles);

    std::map<uint32_t, uint32_t> settings;
    std::map<uint32_t, StatusValue> statuses;
    std::map<uint8_t, Bytes> csi;
    std::map<uint32_t, int32_t> refused;
    bool capturing;
    uint32_t radioRate;
    bool radioReads;
};

class UndoLog {
  public:
    // Keeps what differs between `before` and now. A command that changed nothing is not kept.
    void note(const std::string& command, const CameraSnapshot& before, const Roles& roles);
    // Takes the last kept change back and gives its command; nothing when none is left.
    std::optional<std::string> undo(const Roles& roles);
    size_t size() const { return m_changes.size(); }

  private:
    // Keys with their former values; no value when the key did not exist.
    template <typename Key, typename Value>
    using Former = std::vector<std::pair<Key, std::optional<Value>>>;

    struct Change {
        std::string command;
        Former<uint32_t, uint32_t> settings;
        Former<uint32_t, StatusValue> statuses;
        Former<uint8_t, Bytes> csi;
        Former<uint32_t, int32_t> refused;
        std::optional<bool> capturing;
        std::optional<std::pair<uint32_t, bool>> radio;  // rate, reading
    };

    std::deque<Change> m_changes;
};

}  // namespace kzsim
