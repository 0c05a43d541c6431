#include "cameraClock.h"

#include <time.h>

namespace kzsim {
namespace {

int64_t toSeconds(const DateTime& dateTime) {
    tm parts{};
    parts.tm_year = dateTime.year - 1900;
    parts.tm_mon = dateTime.month - 1;
    parts.tm_mday = dateTime.day;
    parts.tm_hour = dateTime.hour;
    parts.tm_min = dateTime.minute;
    parts.tm_sec = dateTime.second;
    return timegm(&parts);
}

DateTime fromSeconds(int64_t seconds) {
    const time_t time = seconds;
    tm parts{};
    gmtime_r(&time, &parts);
    DateTime dateTime{};
    dateTime.year = static_cast<uint16_t>(parts.tm_year + 1900);
    dateTime.month = static_cast<uint8_t>(parts.tm_mon + 1);
    dateTime.day = static_cast<uint8_t>(parts.tm_mday);
    dateTime.hour = static_cast<uint8_t>(parts.tm_hour);
    dateTime.minute = static_cast<uint8_t>(parts.tm_min);
    dateTime.second = static_cast<uint8_t>(parts.tm_sec);
    return dateTime;
}

bool sameMoment(const DateTime& left, const DateTime& right) {
    return left.year == right.year && left.month == right.month && left.day == right.day && left.hour == right.hour &&
           left.minute == right.minute && left.second == right.second;
}

}  // namespace

CameraClock::CameraClock() : m_setAt(std::chrono::steady_clock::now()) {
    m_setSeconds = time(nullptr);
    m_set = fromSeconds(m_setSeconds);
}

bool CameraClock::set(const DateTime& dateTime) {
    const int64_t seconds = toSeconds(dateTime);
    if (!sameMoment(fromSeconds(seconds), dateTime)) {
        return false;
    }
    DateTime accepted = dateTime;
    if (dateTime.zoneMinutes == kNoTimeZone) {
        accepted.zoneMinutes = m_set.zoneMinutes;
        accepted.daylightSaving = m_set.daylightSaving;
    }
    m_set = accepted;
    m_setSeconds = seconds;
    m_setAt = std::chrono::steady_clock::now();
    return true;
}

DateTime CameraClock::now() const {
    const auto elapsed = std::chrono::steady_clock::now() - m_setAt;
    DateTime dateTime = fromSeconds(m_setSeconds + std::chrono::duration_cast<std::chrono::seconds>(elapsed).count());
    dateTime.zoneMinutes = m_set.zoneMinutes;
    dateTime.daylightSaving = m_set.daylightSaving;
    return dateTime;
}

}  // namespace kzsim
