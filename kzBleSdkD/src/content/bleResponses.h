// The answers of the command, settings and query interfaces and their byte layouts. Responses are built on the stack
// and written onto a MemoryStream. A write past the stream is a fatal assertion, so whoever builds a response makes
// sure that it fits. Only the three query responses with entries see to that themselves: an entry that does not fit is
// left out whole, and the result byte then says failure (1) whatever m_result is.
//
// L is a one-byte length. FlexValue data is big-endian.
//   BleCommandResponse          command id, result, then per parameter: L, data
//   BleSettingsResponseMessage  setting id, error code
//   BleQueryResponse            category | type << 4, result
//   ...CurrentValueResponse     header, then per entry in ascending id: id, L, data
//   ...CurrentCapabilities...   header, then per allowed option of each entry: id, L, option; id, 0 if it has none
//   ...CapabilitiesAndNames...  likewise with the option's name (no length byte) behind each; id, 0, 0 if it has none
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
// How many bytes the answer takes on the wire.
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

// A query answer that is written entry by entry. The constructor writes the header; the destructor, if some entry did
// not fit, sets the result byte to failure and logs how many were left out.
class EntryAnswer {
  public:
    EntryAnswer(MemoryStream& stream, const BleQueryResponse& header);
    ~EntryAnswer();
    EntryAnswer(const EntryAnswer&) = delete;
    EntryAnswer& operator=(const EntryAnswer&) = delete;

    // Counts an entry; `written` is what its Append function (queryEntries.h) returned.
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
