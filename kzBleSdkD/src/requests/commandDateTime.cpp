// Commands 13 to 16: the camera's clock.
#include "cameraCalls.h"
#include "commandMessage.h"
#include "commandTable.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleCommandMessage.cpp";

constexpr int16_t kMinZoneOffset = -720;
constexpr int16_t kMaxZoneOffset = 840;

// Parameters, big-endian: year (2), month, day, hour, minute, second; the longer one also zone offset (2), daylight
// saving.
constexpr int kDateTimeSize = 7;
constexpr int kDateTimeDSTSize = 10;
constexpr int kDateTimeAnswerSize = 8;  // the answer without a zone has a weekday byte, always 0

uint16_t BigEndian16(const uint8_t* bytes) {
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

void WriteBigEndian16(uint8_t* bytes, uint16_t value) {
    bytes[0] = static_cast<uint8_t>(value >> 8);
    bytes[1] = static_cast<uint8_t>(value);
}

// The first kDateTimeSize bytes of a parameter, without a zone.
kz_date_time_t ReadDateTime(const uint8_t* bytes) {
    return {BigEndian16(bytes), bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], KZ_NO_ZONE_OFFSET, 0};
}

void WriteDateTime(const kz_date_time_t& record, uint8_t* bytes) {
    WriteBigEndian16(bytes, record.year);
    bytes[2] = record.month;
    bytes[3] = record.day;
    bytes[4] = record.hour;
    bytes[5] = record.minute;
    bytes[6] = record.second;
}

int FetchDateTime(kz_date_time_t* record) {
    return CallControl(KZCONTROL_GET_DATE_TIME, nullptr, 0, record, sizeof(*record));
}

void AnswerBytes(CommandCall& call, const uint8_t* bytes, int length) {
    call.answer.m_params.emplace_back(eValueWidthString, length).SetValue(bytes);
}

}  // namespace

int SetDateAndTime(CommandCall& call) {
    const FlexValue& param = call.message.m_params[0];
    if (param.GetDataLength() != kDateTimeSize) {
        return KZ_ERR_INVALID_PARAM;
    }
    const kz_date_time_t record = ReadDateTime(param.GetDataPointer());
    LOG_DEBUG("Sending date  command with value: year:%d mo:%d date:%d hr:%d min:%d sec:%d", record.year, record.month,
              record.day, record.hour, record.minute, record.second);
    return SendCommand(KZCONTROL_SET_DATE_TIME, record);
}

int SetDateAndTimeDST(CommandCall& call) {
    const FlexValue& param = call.message.m_params[0];
    if (param.GetDataLength() != kDateTimeDSTSize) {
        LOG_ERROR("Invalid param length, expected 10, got %d", param.GetDataLength());
        return KZ_ERR_INVALID_PARAM;
    }
    const uint8_t* bytes = param.GetDataPointer();
    kz_date_time_t record = ReadDateTime(bytes);
    record.zoneOffset = static_cast<int16_t>(BigEndian16(bytes + kDateTimeSize));
    record.daylightSaving = bytes[kDateTimeSize + 2];
    LOG_DEBUG("Sending date  command with value: year:%d mo:%d date:%d hr:%d min:%d sec:%d tz_off %d, dst %d",
              record.year, record.month, record.day, record.hour, record.minute, record.second, record.zoneOffset,
              record.daylightSaving);
    if (record.daylightSaving > 1 || record.zoneOffset < kMinZoneOffset || record.zoneOffset > kMaxZoneOffset) {
        LOG_ERROR("Invalid DST / TZ range");
        return KZ_ERR_INVALID_PARAM;
    }
    return SendCommand(KZCONTROL_SET_DATE_TIME, record);
}

int GetDateAndTime(CommandCall& call) {
    kz_date_time_t record = {};
    const int code = FetchDateTime(&record);
    LOG_DEBUG("y=%d m=%d d=%d h=%d m=%d s=%d day=na", record.year, record.month, record.day, record.hour, record.minute,
              record.second);
    uint8_t bytes[kDateTimeAnswerSize] = {};
    WriteDateTime(record, bytes);
    AnswerBytes(call, bytes, sizeof(bytes));
    return code;
}

int GetDateAndTimeDST(CommandCall& call) {
    kz_date_time_t record = {};
    const int code = FetchDateTime(&record);
    LOG_DEBUG("y=%d m=%d d=%d h=%d m=%d s=%d dstm=%d dst_on=%d", record.year, record.month, record.day, record.hour,
              record.minute, record.second, record.zoneOffset, record.daylightSaving);
    uint8_t bytes[kDateTimeDSTSize] = {};
    WriteDateTime(record, bytes);
    WriteBigEndian16(bytes + kDateTimeSize, static_cast<uint16_t>(record.zoneOffset));
    bytes[kDateTimeSize + 2] = record.daylightSaving;
    AnswerBytes(call, bytes, sizeof(bytes));
    return code;
}
