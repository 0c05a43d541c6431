// The camera's clock.
#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "commands.h"

namespace kzble {

namespace {

enum CommandId : uint8_t {
    kSetDateTime = 13,
    kSetDateTimeZone = 15,
    kGetDateTimeZone = 16,
};

constexpr int kNoZone = 32767;
constexpr int kDaylightMinutes = 60;

struct DateTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

bool exists(const DateTime& when) {
    using namespace std::chrono;
    const auto date = year(when.year) / when.month / when.day;
    return date.ok() && when.hour < 24 && when.minute < 60 && when.second < 60;
}

DateTime parseDateTime(const std::string& when) {
    constexpr std::string_view kForm = "0000-00-00T00:00:00";
    bool formed = when.size() == kForm.size();
    for (size_t i = 0; formed && i < kForm.size(); ++i) {
        const bool blank = kForm[i] == 'T' && when[i] == ' ';
        const bool digit = kForm[i] == '0' && std::isdigit(static_cast<unsigned char>(when[i])) != 0;
        formed = digit || blank || when[i] == kForm[i];
    }
    if (!formed) {
        throw WrongUse("a date and time looks like 2026-11-24T16:30:00, not \"" + when + "\"");
    }
    const auto field = [&](size_t at, size_t length) { return std::stoi(when.substr(at, length)); };
    const DateTime result{field(0, 4), field(5, 2), field(8, 2), field(11, 2), field(14, 2), field(17, 2)};
    if (!exists(result)) {
        throw WrongUse("there is no " + when);
    }
    return result;
}

DateTime fromTm(const std::tm& time) {
    return {time.tm_year + 1900, time.tm_mon + 1, time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec};
}

struct Zone {
    int minutes = 0;  // without the daylight hour
    bool daylight = false;
};

Zone ourZone() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const bool daylight = local.tm_isdst > 0;
    return {static_cast<int>(local.tm_gmtoff / 60) - (daylight ? kDaylightMinutes : 0), daylight};
}

DateTime nowIn(const Zone& zone) {
    const std::time_t there = std::time(nullptr) + (zone.minutes + (zone.daylight ? kDaylightMinutes : 0)) * 60;
    std::tm time{};
    gmtime_r(&there, &time);
    return fromTm(time);
}

Bytes encode(const DateTime& when) {
    Bytes bytes = number(static_cast<uint64_t>(when.year), 2);
    for (const int field : {when.month, when.day, when.hour, when.minute, when.second}) {
        bytes.push_back(static_cast<uint8_t>(field));
    }
    return bytes;
}

// An offset from UTC as RFC 3339 has it; -00:00 says that it is not known.
std::string offsetText(int minutes, bool known) {
    char text[16];
    const int size = minutes < 0 ? -minutes : minutes;
    std::snprintf(text, sizeof(text), "%c%02d:%02d", minutes < 0 || !known ? '-' : '+', size / 60, size % 60);
    return text;
}

void timeGet(Session& session) {
    const auto fields = splitParameters(session.client().command(kGetDateTimeZone));
    if (fields.size() != 1 || fields[0].size() != 10) {
        throw Error("the camera's date and time cannot be read");
    }
    const Bytes& b = fields[0];
    const int zone = static_cast<int16_t>(b[7] << 8 | b[8]);
    const bool known = zone != kNoZone;
    const bool daylight = b[9] != 0;
    char when[64];
    std::snprintf(when, sizeof(when), "%04d-%02d-%02dT%02d:%02d:%02d", b[0] << 8 | b[1], b[2], b[3], b[4], b[5], b[6]);
    const std::string full = when + offsetText(known ? zone + (daylight ? kDaylightMinutes : 0) : 0, known);
    session.print({{"time", full},
                   {"utc_offset_minutes", known ? nlohmann::ordered_json(zone) : nlohmann::ordered_json()},
                   {"daylight_saving", daylight}},
                  full + (known ? "" : ", zone not given") + (daylight ? ", daylight saving" : ""));
}

struct TimeSet {
    std::string when;
    std::optional<int> zone;
    bool daylight = false;
};

void timeSet(Session& session, const TimeSet& given) {
    if (!given.when.empty() && !given.zone) {
        const Bytes when = encode(parseDateTime(given.when));
        session.client().command(kSetDateTime, {when});
        session.printDone();
        return;
    }
    const Zone zone = given.zone ? Zone{*given.zone, given.daylight} : ourZone();
    Bytes record = encode(given.when.empty() ? nowIn(zone) : parseDateTime(given.when));
    const Bytes offset = number(static_cast<uint64_t>(zone.minutes), 2);
    record.insert(record.end(), offset.begin(), offset.end());
    record.push_back(zone.daylight ? 1 : 0);
    session.client().command(kSetDateTimeZone, {record});
    session.printDone();
}

}  // namespace

void addTimeCommands(const Place& place) {
    const Place time = place.family("time", "The camera's clock");
    auto& session = place.session;
    addCommand(time, {"get", "Print date, time, zone and daylight saving", ""}, [&session] { timeGet(session); });
    auto given = std::make_shared<TimeSet>();
    CLI::App* set =
        addCommand(time, {"set", "Set the clock; without a time, to now", "2026-11-24T16:30:00 --zone -300"},
                   [&session, given] { timeSet(session, *given); });
    set->add_option("when", given->when, "Local date and time, for example 2026-11-24T16:30:00");
    CLI::Option* zone = addNumber(*set, "--zone", given->zone,
                                  "Offset from UTC in minutes without the daylight hour, -720 to 840", -720, 840);
    set->add_flag("--dst", given->daylight, "Daylight saving is on")->needs(zone);
}

}  // namespace kzble
