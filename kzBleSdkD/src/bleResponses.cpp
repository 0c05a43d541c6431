// How the answers of the four interfaces are written.
#include "bleResponses.h"

#include <algorithm>
#include <string>

#include "MemStream.h"
#include "bleSDK.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleResponses.cpp";

constexpr size_t kMaxField = 255;  // what a one-byte length can say

unsigned short FieldLength(size_t length) {
    return static_cast<unsigned short>(std::min(length, kMaxField));
}

// Ids, categories and results are below 256 in this protocol; anything wider is written as its low byte.
void WriteByte(MemoryStream& stream, uint32_t value) {
    stream << static_cast<unsigned char>(value);
}

void WriteId(MemoryStream& stream, int id) {
    WriteByte(stream, static_cast<uint32_t>(id));
}

void WriteValue(MemoryStream& stream, const FlexValue& value) {
    const unsigned short length = FieldLength(static_cast<size_t>(value.GetDataLength()));
    WriteByte(stream, length);
    stream.writeArray(value.GetDataPointer(), length);
}

void WriteOption(MemoryStream& stream, const SettingsStatusMapping::IdNums& entry, int id, int option) {
    FlexValue value(entry.GetWidth(), 0);
    if (value.GetDataLength() > 0) {
        value.SetValueByWidth(static_cast<unsigned>(option));
    }
    WriteId(stream, id);
    WriteValue(stream, value);
}

void WriteOptionName(MemoryStream& stream, int id, int option) {
    const SettingsStatusMapping* mapping = BleSDK::LoadedMapping();
    if (mapping == nullptr) {
        return;
    }
    const std::string name = mapping->GetSettingName(std::to_string(id) + ":" + std::to_string(option));
    stream.writeArray(name.data(), FieldLength(name.size()));
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
    if (g_logLevel < KZ_LOG_TRACE) {
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
    WriteByte(stream, response.m_category | response.m_type << 4);
    WriteByte(stream, response.m_result);
    return stream;
}

MemoryStream& operator<<(MemoryStream& stream, const BleQueryCurrentValueResponse& response) {
    stream << static_cast<const BleQueryResponse&>(response);
    for (const auto& [id, value] : response.m_values) {
        WriteId(stream, id);
        WriteValue(stream, value);
    }
    return stream;
}

MemoryStream& operator<<(MemoryStream& stream, const BleQueryCurrentCapabilitiesResponse& response) {
    stream << static_cast<const BleQueryResponse&>(response);
    for (const auto& [id, entry] : response.m_capabilities) {
        if (entry.numbers.empty()) {
            WriteId(stream, id);
            WriteByte(stream, 0);
        }
        for (const int option : entry.numbers) {
            WriteOption(stream, entry, id, option);
        }
    }
    return stream;
}

MemoryStream& operator<<(MemoryStream& stream, const BleQueryCurrentCapabilitiesAndNamesResponse& response) {
    stream << static_cast<const BleQueryResponse&>(response);
    for (const auto& [id, entry] : response.m_capabilities) {
        if (entry.numbers.empty()) {
            WriteId(stream, id);
            WriteByte(stream, 0);
            WriteByte(stream, 0);
        }
        for (const int option : entry.numbers) {
            WriteOption(stream, entry, id, option);
            WriteOptionName(stream, id, option);
        }
    }
    return stream;
}

void BleQueryResponse::Dump() const {
    LOG_TRACE("Category:%u", m_category);
    LOG_TRACE("Type:%u", m_type);
    LOG_TRACE("Result:%u", m_result);
}

void BleQueryCurrentValueResponse::Dump() const {
    BleQueryResponse::Dump();
    if (g_logLevel < KZ_LOG_TRACE) {
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
