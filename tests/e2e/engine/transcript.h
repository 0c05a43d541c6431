// What went over the radio queues in both directions, for the reader of a failing test.
#pragma once

#include <deque>
#include <string>

#include "skylark/bleMessage.h"

namespace e2e {

class Transcript {
  public:
    // Keeps the newest records only.
    void toDaemon(const ble_message_t& record) { add("-> ", record); }
    void fromDaemon(const ble_message_t& record) { add("<- ", record); }
    // Each record with its meaning and a hex dump.
    std::string text() const;

  private:
    void add(const char* direction, const ble_message_t& record);

    struct Entry {
        const char* direction;
        ble_message_t record;
    };
    std::deque<Entry> m_entries;
    size_t m_dropped = 0;
};

// "data 1 on 4: 02 01 00", "connect 1 type 11", ...
std::string describe(const ble_message_t& record);

}  // namespace e2e
