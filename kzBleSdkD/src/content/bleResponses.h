// The answers of the four interfaces and their byte layouts. Responses are built on the stack and written onto a
// MemoryStream; a write past the stream is a fatal assertion, so whoever builds one keeps it within the buffer. The
// three query responses with entries keep themselves within it: an entry that does not fit is left out whole, and the
// result byte then says failure (1) whatever m_result is.
//
// L is a one-byte length. FlexValue data is big-endian.
//   BleCommandResponse          command id, result, then per parameter: L, data
//   BleSettingsResponseMessage  setting id, error code
//   BleQueryResponse            category | type << 4, result
//   ...CurrentValueResponse     header, then per entry in ascending id: id, L, data
//   ...CurrentCapabilities...   header, then per allowed value of each entry: id, L, value; an entry without: id, 0
//   ...CapabilitiesAndNames...  as above with the option's name (no length byte) behind each value; without: id, 0, 0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "FlexValue.h"
#include "settingsStatusMapping.h"

class MemoryStream;

class BleCommandResponse {
  public:
    BleCommandResponse(uint32_t commandId, uint32_t result) : m_commandId(commandId), m_result(result) {}
    virtual ~BleCommandResponse() = default;
    virtual void Dump() const;

    uint32_t m_commandId;
    uint32_t m_result;
    std::vector<FlexValue> m_params;
};
MemoryStream& operator<<(MemoryStream& stream, const BleCommandResponse& response);
// Bytes that the answer takes on the wire.
size_t WireSize(const BleCommandResponse& response);

class BleSettingsResponseMessage {
  public:
    BleSettingsResponseMessage(uint32_t settingId, uint32_t errorCode)
        : m_settingId(settingId), m_errorCode(errorCode) {}
    virtual ~BleSettingsResponseMessage() = default;
    void Dump() const;

    uint32_t m_settingId;
    uint32_t m_errorCode;
};
MemoryStream& operator<<(MemoryStream& stream, const BleSettingsResponseMessage& response);

class BleQueryResponse {
  public:
    BleQueryResponse(uint32_t category, uint32_t type, uint32_t result)
        : m_category(category), m_type(type), m_result(result) {}
    virtual ~BleQueryResponse() = default;
    virtual void Dump() const;

    uint32_t m_category;
    uint32_t m_type;
    uint32_t m_result;
};
MemoryStream& operator<<(MemoryStream& stream, const BleQueryResponse& response);

// A query answer written entry by entry: the header, then the entries that fit whole. When some do not, the result byte
// says failure and a level-2 text how many.
class EntryAnswer {
  public:
    EntryAnswer(MemoryStream& stream, const BleQueryResponse& header);
    ~EntryAnswer();
    EntryAnswer(const EntryAnswer&) = delete;
    EntryAnswer& operator=(const EntryAnswer&) = delete;

    // Takes what an Append function said of the next entry.
    void Count(bool written) { ++(written ? m_written : m_leftOut); }

  private:
    BleQueryResponse m_header;
    unsigned char* m_result;
    size_t m_written = 0;
    size_t m_leftOut = 0;
};

class BleQueryCurrentValueResponse : public BleQueryResponse {
  public:
    using BleQueryResponse::BleQueryResponse;
    void Dump() const override;

    std::map<int, FlexValue> m_values;
};
MemoryStream& operator<<(MemoryStream& stream, const BleQueryCurrentValueResponse& response);

class BleQueryCurrentCapabilitiesResponse : public BleQueryResponse {
  public:
    using BleQueryResponse::BleQueryResponse;
    void Dump() const override;

    std::map<int, SettingsStatusMapping::IdNums> m_capabilities;
};
MemoryStream& operator<<(MemoryStream& stream, const BleQueryCurrentCapabilitiesResponse& response);

class BleQueryCurrentCapabilitiesAndNamesResponse : public BleQueryResponse {
  public:
    using BleQueryResponse::BleQueryResponse;
    void Dump() const override;

    std::map<int, SettingsStatusMapping::IdNums> m_capabilities;
};
MemoryStream& operator<<(MemoryStream& stream, const BleQueryCurrentCapabilitiesAndNamesResponse& response);
