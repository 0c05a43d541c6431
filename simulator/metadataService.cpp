#include "metadataService.h"

#include <cctype>
#include <cerrno>
#include <stdexcept>

#include "report.h"
#include "utils.h"

namespace kzsim {
namespace {

constexpr std::string_view kChannel = "metadata";
constexpr uint32_t kFirstSequence = 49;
constexpr uint32_t kLowestSequence = 48;
constexpr uint32_t kHighestSequence = 64;
constexpr size_t kSequenceSize = 4;
constexpr size_t kMaxPayload = 1400;

constexpr size_t kKlvHeader = 8;  // key, type, structure size, repeat
constexpr int kDeepest = 4;       // containers in containers

bool validKey(ByteView key) {
    for (const uint8_t character : key) {
        if (character != ' ' && (character >= 0x80 || std::isalnum(character) == 0)) {
            return false;
        }
    }
    return true;
}

bool wellFormed(ByteView data, int level) {
    while (!data.empty()) {
        if (data.size() < kKlvHeader || !validKey(data.first(4))) {
            return false;
        }
        const bool isDevice = std::memcmp(data.data(), "DEVC", 4) == 0;
        const size_t length = size_t{data[5]} * (size_t{data[6]} << 8 | data[7]);
        const size_t padded = (length + 3) & ~size_t{3};
        if ((level == 0 && !isDevice) || padded > data.size() - kKlvHeader) {
            return false;
        }
        const bool isContainer = data[4] == 0 && length != 0;
        if (isContainer && (level == kDeepest || !wellFormed(data.subspan(kKlvHeader, length), level + 1))) {
            return false;
        }
        data = data.subspan(kKlvHeader + padded);
    }
    return true;
}

}  // namespace

bool isKzmf(ByteView data) {
    return !data.empty() && wellFormed(data, 0);
}

MetadataService::MetadataService(EventLoop& loop, const std::string& file)
    : m_file(file.empty() ? nullptr : fopen(file.c_str(), "abe")),
      m_expected(kFirstSequence),
      m_server(loop, kzwire::kIpcEndpoint, [this](const ServiceRequest& request) { return handle(request); }) {
    if (!file.empty() && m_file == nullptr) {
        throw std::runtime_error("cannot open " + file + ": " + std::strerror(errno));
    }
}

ServiceReply MetadataService::handle(const ServiceRequest& request) {
    const uint32_t nameLength = request.header.target;
    const ByteView payload = request.payload;
    if (nameLength > payload.size() ||
        std::string_view(reinterpret_cast<const char*>(payload.data()), nameLength) != kChannel) {
        return {KZ_ERR_INVALID_PARAM};
    }
    switch (request.header.operation) {
        case kzwire::Operation::IpcOpen:
            return {KZ_OK};
        case kzwire::Operation::IpcSend:
            return {take(payload.subspan(nameLength))};
        default:
            return {KZ_ERR_NOT_SUPPORTED};
    }
}

int32_t MetadataService::take(ByteView record) {
    if (record.size() <= kSequenceSize || record.size() - kSequenceSize > kMaxPayload ||
        !isKzmf(record.subspan(kSequenceSize))) {
        ++m_malformed;
        warn("metadata", "a record of %zu bytes is no KZMF", record.size());
        return KZ_ERR_INVALID_PARAM;
    }
    const auto sequence = numberAt<uint32_t>(record);
    if (sequence != m_expected) {
        ++m_gaps;
        warn("metadata", "record %u came where %u was due", sequence, m_expected);
    }
    m_expected = sequence >= kHighestSequence ? kLowestSequence : sequence + 1;
    const ByteView payload = record.subspan(kSequenceSize);
    report("metadata", "record %u, %zu bytes", sequence, payload.size());
    ++m_records;
    m_bytes += payload.size();
    if (m_file != nullptr) {
        fwrite(payload.data(), 1, payload.size(), m_file.get());
        fflush(m_file.get());
    }
    return KZ_OK;
}

nlohmann::json MetadataService::state() const {
    return {{"records", m_records}, {"bytes", m_bytes}, {"gaps", m_gaps}, {"malformed", m_malformed}};
}

}  // namespace kzsim
