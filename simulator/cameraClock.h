// The camera's clock: starts at the machine's time, runs on from whatever it was set to.
#pragma once

#include <chrono>
#include <cstdint>

#include "bytes.h"

namespace kzsim {

// The record that carries a date, 10 bytes, numbers little-endian.
//
// offset width field
//      0     2 year
//      2     1 month, 1 to 12
//      3     1 day
//      4     1 hour
//      5     1 minute
//      6     1 second
//      7     2 time-zone offset in minutes, signed; kNoTimeZone when none is given
//      9     1 daylight-saving flag
struct __attribute__((packed)) DateTime {
    uint16_t year;
    uint8_t month;
    uint8_t day;
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
    int16_t zoneMinutes;
    uint8_t daylightSaving;
};
static_assert(sizeof(DateTime) == 10);
constexpr int16_t kNoTimeZone = 0x7fff;

class CameraClock {
  public:
    CameraClock();

    // False, with nothing changed, for a date that no calendar has. Without a time zone the one set before stays.
    bool set(const DateTime& dateTime);
    DateTime now() const;

  private:
    DateTime m_set{};
    int64_t m_setSeconds = 0;  // the same as seconds of the calendar
    std::chrono::steady_clock::time_point m_setAt;
};

}  // namespace kzsim
