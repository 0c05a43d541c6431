// The metadata service: takes the records of the channel "metadata", checks their numbering and their KZMF form, and
// keeps the payloads in a file if asked to.
//
// record: 32-bit sequence number, little-endian, then the KZMF payload. The first number is 49; after 64 comes 48.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "eventLoop.h"
#include "fileCloser.h"
#include "requestServer.h"

namespace kzsim {

// Whether `data` is a whole number of well-formed KZMF records: at the top level device containers only, keys of four
// letters, digits or blanks, lengths that stay inside, containers that are well-formed themselves.
bool isKzmf(ByteView data);

class MetadataService {
  public:
    // Payloads are appended to `file`; an empty name keeps none. Throws std::runtime_error when it cannot be opened.
    MetadataService(EventLoop& loop, const std::string& file);

    // Hangs, or wakes again.
    void setHung(bool hung) { m_server.setHung(hung); }

    nlohmann::json state() const;

    // One record of the channel; negative when it is no KZMF. A gap in the numbering is only counted.
    int32_t take(ByteView record);

  private:
    ServiceReply handle(const ServiceRequest& request);

    FileHandle m_file;
    uint32_t m_expected;
    uint64_t m_records = 0;
    uint64_t m_bytes = 0;
    uint64_t m_gaps = 0;
    uint64_t m_malformed = 0;
    RequestServer m_server;
};

}  // namespace kzsim
