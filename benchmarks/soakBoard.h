// The values that the camera must have: each one has one writer, and any number of clients read it and are told of its
// changes. A client asks the board whether a value that it was given can be right.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "bleClient.h"
#include "soakTally.h"

namespace soak {

using kzclient::Bytes;

// What is known after a request for a change.
enum class Outcome {
    Sure,     // it was carried out
    Likely,   // the answer says so, but a fault was near: an earlier request that was given up may be carried out late
    Unknown,  // it failed, or nobody answered
};

enum class Kind { Setting, Status, Capabilities, Feature, Presets };

class Cell {
  public:
    Cell(Tally& tally, Kind kind, uint8_t id, Bytes first) : m_tally(tally), m_kind(kind), m_id(id), m_value(first) {}

    Kind kind() const { return m_kind; }
    uint8_t id() const { return m_id; }
    std::string name() const;

    // ---- the writer: announces a change before it asks for it, and says what came of it.
    void changing(const Bytes& value);
    // When it is not sure, the value stays unknown until the next change that is.
    void changed(Outcome outcome);

    // ---- the readers
    // Whether somebody who asked at `since` or later may be given this value.
    bool mayBe(const Bytes& value, Clock::time_point since) const;
    // The value, once everybody who watches it must have been told, and since when it is that; nothing while it is
    // unknown or too new.
    struct Due {
        Bytes value;
        Clock::time_point since;
    };
    std::optional<Due> due() const;
    // The value, changed or about to.
    Bytes newest() const;
    void watch();
    void unwatch();

  private:
    struct Former {
        Bytes value;
        Clock::time_point until;
    };

    Tally& m_tally;
    const Kind m_kind;
    const uint8_t m_id;
    mutable std::mutex m_mutex;
    Bytes m_value;
    std::optional<Bytes> m_next;
    bool m_known = true;
    Clock::time_point m_since{};  // when the value was changed or became known
    std::deque<Former> m_former;
    unsigned m_watchers = 0;
};

// A setting that one phone owns.
struct OwnedSetting {
    Cell* cell;
    std::vector<uint32_t> options;
    Cell* capabilities;  // of another setting, which depend on this one; null for none
    std::vector<Bytes> capabilitiesByOption;
};

class Board {
  public:
    explicit Board(Tally& tally);

    size_t ownedCount() const { return m_owned.size(); }
    const OwnedSetting& owned(size_t index) const { return m_owned[index]; }
    const std::vector<std::unique_ptr<Cell>>& cells() const { return m_cells; }
    // Null when the board has no such value.
    Cell* find(Kind kind, uint8_t id) const;
    std::vector<Cell*> all(Kind kind) const;

  private:
    Cell& add(Kind kind, uint8_t id, const Bytes& first);

    Tally& m_tally;
    std::vector<std::unique_ptr<Cell>> m_cells;
    std::vector<OwnedSetting> m_owned;
};

// A number as the answers hold it: big-endian, in as many bytes as the values of that setting or status field take.
Bytes settingValue(uint8_t id, uint64_t number);
Bytes statusValue(uint8_t id, uint64_t number);
bool isTextStatus(uint8_t id);

// What the camera tells of its features as numbers of their own; the ids of the cells of kind Feature.
enum Feature : uint8_t { kStreamBitrate = 1, kUpdatePercent = 2, kUploadPermission = 3 };

}  // namespace soak
