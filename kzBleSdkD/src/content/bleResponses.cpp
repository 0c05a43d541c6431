// How the answers of the four interfaces are written.
#include "bleResponses.h"

#include <algorithm>

#include "MemStream.h"
#include "bleSDK.h"
#include "queryEntries.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleResponses.cpp";

constexpr size_t kMaxField = 255;  // the longest field that a one-byte length can announce

unsigned short FieldLength(size_t length) {
    return static_cast<unsigned short>(std::min(length, kMaxField));
}

// Ids, categories and results are below 256 in this protocol; anything wider is written as its low byte.
void WriteByte(MemoryStream& stream, uint32_t value) {
    stream << static_cast<unsigned char>(value);
}

void WriteValue(MemoryStream& stream, const FlexValue& value) {
    const unsigned short length = FieldLength(static_cast<size_t>(value.GetDataLength()));
    WriteByte(stream, length);
    stream.writeArray(value.GetDataPointer(), length);
}

template <typename Value>
void WriteEntries(MemoryStream& stream, const BleQueryResponse& header, const std::map<int, Value>& entries,
                  bool (*append)(MemoryStream& stream, int id, const Value& value)) {
    EntryAnswer answer(stream, header);
    for (const auto& [id, value] : entries) {
        answer.Count(append(stream, id, value));
    }
}

}  // namespace

// ---------------------------------------------------------------- command

size_t WireSize(const BleCommandResponse& response) {
    size_t size = 2;
    for (const FlexValue& param : response.m_params) {
        size += 1 + FieldLength(static_cast<size_t>(param.GetDataLength()));
    }
    return size;
}

MemoryStream& operator<<(MemoryStream& stream, const BleCommandResponse& response) {
    WriteByte(stream, response.m_commandId);
    WriteByte(stream, response.m_result);
    for (const FlexValue& param : response.m_params) {
        WriteValue(stream, param);
    }
    return stream;
}

void BleCommandResponse::Dump() const {
    LOG_TRACE("CommandId:%u", m_commandId);
    LOG_TRACE("Result:%u", m_result);
    if (kzUtilGetLogLevel() < KZ_LOG_TRACE) {
        return;
    }
    for (const FlexValue& param : m_params) {
        param.Dump();
    }
}

// ---------------------------------------------------------------- settings

MemoryStream& operator<<(MemoryStream& stream, const BleSettingsResponseMessage& response) {
    WriteByte(stream, response.m_settingId);
    WriteByte(stream, response.m_errorCode);
    return stream;
}

void BleSettingsResponseMessage::Dump() const {
    LOG_TRACE("SettingId:%d", static_cast<int>(m_settingId));
    LOG_TRACE("ErrCode:%d", static_cast<int>(m_errorCode));
}

// ---------------------------------------------------------------- query

MemoryStream& operator<<(MemoryStream& stream, const BleQueryResponse& response) {
    const unsigned char header[] = {static_cast<unsigned char>(response.m_category | response.m_type << 4),
                                    static_cast<unsigned char>(response.m_result)};
    stream.writeArray(header, sizeof(header));
    return stream;
}

MemoryStream& operator<<(MemoryStream& stream, const BleQueryCurrentValueResponse& response) {
    WriteEntries(stream, response, response.m_values, AppendValueEntry);
    return stream;
}

MemoryStream& operator<<(MemoryStream& stream, const BleQueryCurrentCapabilitiesResponse& response) {
    WriteEntries(stream, response, response.m_capabilities, AppendCapabilityEntry);
    return stream;
}

MemoryStream& operator<<(MemoryStream& stream, const BleQueryCurrentCapabilitiesAndNamesResponse& response) {
    WriteEntries(stream, response, response.m_capabilities, AppendCapabilityAndNamesEntry);
    return stream;
}

EntryAnswer::EntryAnswer(MemoryStream& stream, const BleQueryResponse& header)
    : m_header(header), m_result(stream.getBuffer() + stream.getLength() + 1) {
    stream << header;
}

EntryAnswer::~EntryAnswer() {
    if (m_leftOut > 0) {
        LOG_ERROR("Answer to category:%u type:%u has no room for %zu of %zu ids", m_header.m_category, m_header.m_type,
                  m_leftOut, m_written + m_leftOut);
        *m_result = static_cast<unsigned char>(BleSDK::SetKZErrNo(KZ_ERR));
    }
}

void BleQueryResponse::Dump() const {
    LOG_TRACE("Category:%u", m_category);
    LOG_TRACE("Type:%u", m_type);
    LOG_TRACE("Result:%u", m_result);
}

void BleQueryCurrentValueResponse::Dump() const {
    BleQueryResponse::Dump();
    if (kzUtilGetLogLevel() < KZ_LOG_TRACE) {
        return;
    }
    for (const auto& [id, value] : m_values) {
        LOG_TRACE("Id:%d", id);
        value.Dump();
    }
}

void BleQueryCurrentCapabilitiesResponse::Dump() const {
    BleQueryResponse::Dump();
    for (const auto& [id, entry] : m_capabilities) {
        LOG_TRACE("Id:%d options:%d", id, static_cast<int>(entry.numbers.size()));
    }
}

void BleQueryCurrentCapabilitiesAndNamesResponse::Dump() const {
    BleQueryResponse::Dump();
    for (const auto& [id, entry] : m_capabilities) {
        LOG_TRACE("Id:%d options:%d", id, static_cast<int>(entry.numbers.size()));
    }
}
