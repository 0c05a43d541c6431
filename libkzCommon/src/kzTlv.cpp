// TLV messages as bytes: building, searching, checking and editing in place.
#include "kzTlv.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>

#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzTlv.cpp";
constexpr const char* kPath = "libkzCommon/src/kzTlv";

struct TypeName {
    uint8_t type;
    const char* name;
};
constexpr TypeName kTypeNames[] = {
    {TLV_CMD, "CMD"},         {TLV_CMDARG, "CMDARG"}, {TLV_DST, "DST"}, {TLV_SRC, "SRC"}, {TLV_RSPARG, "RSPARG"},
    {TLV_ASOURCE, "ASOURCE"}, {TLV_VOID, "VOID"},     {TLV_RSP, "RSP"}, {TLV_END, "EE"},
};

enum : int { kValid = 0, kMalformed = -1, kBadCategory = -2, kElementMissing = -3 };

void putLength(unsigned char* buffer, uint32_t length) {
    buffer[0] = static_cast<unsigned char>(length >> 8);
    buffer[1] = static_cast<unsigned char>(length);
}

// The data of the first element of a type as a text with a terminator, which elements do not have. It ends at the first
// zero byte of the data, if any. Empty when there is no such element.
class ElementText {
  public:
    ElementText(const unsigned char* buffer, uint8_t type) {
        const unsigned char* element = tlv_find(buffer, type);
        const size_t length = element != nullptr ? std::min<size_t>(tlv_length(element), kTlvMaxMessageSize) : 0;
        if (length != 0) {
            std::memcpy(m_text, tlv_data(element), length);
        }
        m_text[length] = '\0';
    }
    // The text from character `first` on.
    const char* from(size_t first) const { return m_text + std::min(first, std::strlen(m_text)); }
    const char* text() const { return m_text; }

  private:
    char m_text[kTlvMaxMessageSize + 1];
};

// Adds up the sizes that the elements announce until the sum reaches or passes the end of the message. If the header of
// an element is cut off by the end, the missing bytes count as zero.
uint32_t sumOfElements(const unsigned char* buffer, uint32_t total) {
    const auto byteAt = [&](uint32_t offset) { return offset < total ? uint32_t{buffer[offset]} : 0; };
    uint32_t sum = 0;
    while (sum < total - kTlvMessageHeaderSize) {
        const uint32_t element = kTlvMessageHeaderSize + sum;
        sum += (byteAt(element + 1) << 8 | byteAt(element + 2)) + TLV_ELEM_HDR_SIZE;
    }
    return sum;
}

// Checks the lengths and the last byte. Logs, on the debug-print channel, what is wrong.
bool isWellFormed(const unsigned char* buffer) {
    const uint32_t total = sntlv_msg_len(buffer);
    const int length = static_cast<int>(total);
    if (total < kTlvMinMessageSize) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: MSG len is too short (%d < %d)\n", length,
                       static_cast<int>(kTlvMinMessageSize));
        return false;
    }
    if (total > kTlvMaxMessageSize) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: MSG len is too long (%d > 1500)\n", length);
        return false;
    }
    const uint32_t sum = sumOfElements(buffer, total);
    if (sum != total - kTlvMessageHeaderSize) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: MSG length (%d) does not match internal length (%d0.\n",
                       static_cast<int>(sum), length - static_cast<int>(kTlvMessageHeaderSize));
        return false;
    }
    if (buffer[total - 1] != TLV_END) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: MSG is missing ending TLV: 0xEE\n");
        return false;
    }
    return true;
}

// A response must repeat the argument of its command. One without an argument of its own is only reported.
int validateResponse(const unsigned char* buffer, const ElementText& command) {
    if (tlv_find(buffer, TLV_CMDARG) == nullptr) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: MSG :%s RSP needs a CMDARG\n", command.text());
        return kElementMissing;
    }
    if (tlv_find(buffer, TLV_RSPARG) == nullptr) {
        constexpr size_t kSourcePrefix = 3;  // "/to"
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_WARNING: MSG :%s RSP needs a RSPARG fr%s %s\n", command.text(),
                       ElementText(buffer, TLV_SRC).from(kSourcePrefix), ElementText(buffer, TLV_DST).text());
    }
    return kValid;
}

int validateCommand(const unsigned char* buffer, const ElementText& command) {
    if (tlv_find(buffer, TLV_CMDARG) == nullptr) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: MSG :%s CMD needs a CMDARG\n", command.text());
        return kElementMissing;
    }
    return kValid;
}

// Returns null when there is no such element, or when it or one before it reaches past the end of the message.
const unsigned char* find(const unsigned char* buffer, uint8_t type) {
    const uint32_t total = sntlv_msg_len(buffer);
    uint32_t offset = kTlvMessageHeaderSize;
    while (offset + TLV_ELEM_HDR_SIZE <= total) {
        const unsigned char* element = buffer + offset;
        const uint32_t size = TLV_ELEM_HDR_SIZE + tlv_length(element);
        if (offset + size > total) {
            return nullptr;
        }
        if (tlv_type(element) == type) {
            return element;
        }
        offset += size;
    }
    return nullptr;
}

}  // namespace

int sntlv_msg_init(unsigned char* buffer, uint32_t size, uint8_t category) {
    if (size < kTlvMessageHeaderSize) {
        return 0;
    }
    putLength(buffer, kTlvMessageHeaderSize);
    buffer[2] = 0;
    buffer[3] = category;
    return kTlvMessageHeaderSize;
}

unsigned short sntlv_msg_len(const unsigned char* buffer) {
    return static_cast<unsigned short>(buffer[0] << 8 | buffer[1]);
}

int sntlv_add_bin(unsigned char* buffer, uint32_t size, uint8_t type, uint32_t length, const void* data) {
    KZ_ASSERT((type != TLV_SRC) || (length > 0), kPath, "(atype != TLV_SRC) || (alen > 0)");
    KZ_ASSERT((type != TLV_DST) || (length > 0), kPath, "(atype != TLV_DST) || (alen > 0)");
    constexpr uint32_t kLongest = std::numeric_limits<uint16_t>::max();
    const uint32_t total = sntlv_msg_len(buffer);
    const uint64_t added = uint64_t{length} + TLV_ELEM_HDR_SIZE;
    if (total + added > std::min(size, kLongest)) {
        return 0;
    }
    unsigned char* element = buffer + total;
    element[0] = 0;
    putLength(element + 1, length);
    element[3] = type;
    if (length != 0) {
        std::memcpy(tlv_data(element), data, length);
    }
    putLength(buffer, total + static_cast<uint32_t>(added));
    return static_cast<int>(added);
}

int sntlv_add_dat(unsigned char* buffer, uint32_t size, uint8_t type, uint32_t length, uint32_t value) {
    const unsigned char bytes[] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
                                   static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    return length <= sizeof(bytes) ? sntlv_add_bin(buffer, size, type, length, bytes) : 0;
}

const unsigned char* tlv_find(const unsigned char* buffer, uint8_t type) {
    return find(buffer, type);
}

unsigned char* tlv_find(unsigned char* buffer, uint8_t type) {
    const unsigned char* element = find(buffer, type);
    return element != nullptr ? buffer + (element - buffer) : nullptr;
}

int sntlv_find(void* out, uint32_t outSize, uint8_t type, const unsigned char* buffer) {
    const unsigned char* element = tlv_find(buffer, type);
    if (element == nullptr) {
        return 0;
    }
    const unsigned short length = tlv_length(element);
    if (length == 0 || length >= outSize) {
        return 0;
    }
    std::memcpy(out, tlv_data(element), length);
    return length;
}

const char* tlv_type_name(uint8_t type) {
    const auto* row = std::find_if(std::begin(kTypeNames), std::end(kTypeNames),
                                   [type](const TypeName& candidate) { return candidate.type == type; });
    return row != std::end(kTypeNames) ? row->name : "UNKNOWN";
}

void sntlv_void(unsigned char* buffer, uint8_t type) {
    unsigned char* tlv = tlv_find(buffer, type);
    KZ_ASSERT(tlv != nullptr, kPath, "tlv != NULL");
    tlv[3] = TLV_VOID;
    std::memset(tlv_data(tlv), 0, tlv_length(tlv));
}

int sntlv_remove(unsigned char* buffer, uint32_t size, uint8_t type) {
    const uint32_t total = sntlv_msg_len(buffer);
    const unsigned char* tlvend = total <= size ? tlv_find(buffer, type) : nullptr;
    KZ_ASSERT(tlvend != nullptr, kPath, "tlvend != NULL");
    const uint32_t removed = TLV_ELEM_HDR_SIZE + tlv_length(tlvend);
    putLength(buffer, total - removed);
    return -static_cast<int>(removed);
}

int tlv_validate(const unsigned char* buffer) {
    if (!isWellFormed(buffer)) {
        return kMalformed;
    }
    if (tlv_find(buffer, TLV_CMD) == nullptr) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: MSG needs a CMD\n");
        return kElementMissing;
    }
    const ElementText command(buffer, TLV_CMD);
    if (tlv_find(buffer, TLV_DST) == nullptr) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: :%s MSG needs a DST\n", command.text());
        return kElementMissing;
    }
    if (tlv_find(buffer, TLV_SRC) == nullptr) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: :%s MSG needs a SRC\n", command.text());
        return kElementMissing;
    }
    if (tlv_find(buffer, TLV_END) != buffer + sntlv_msg_len(buffer) - TLV_ELEM_HDR_SIZE) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: :%s MSG has too many ending TLV: 0xEE\n", command.text());
        return kMalformed;
    }
    const uint8_t category = buffer[3];
    if (category >= kTlvCategoryLimit) {
        KZ_DEBUG_PRINT(kDebugThresholdTlv, "TLV_ERROR: :%s MSG needs a known CATagory. CAT=0x%02x\n", command.text(),
                       category);
        return kBadCategory;
    }
    return category % 2 != 0 ? validateResponse(buffer, command) : validateCommand(buffer, command);
}

int tlv_validate_received(const unsigned char* buffer, uint32_t received) {
    if (received < kTlvMessageHeaderSize) {
        LOG_ERROR("TLV message of %u bytes is shorter than its header", received);
        return kMalformed;
    }
    const unsigned total = sntlv_msg_len(buffer);
    if (total > received) {
        LOG_ERROR("TLV message announces %u bytes, %u arrived", total, received);
        return kMalformed;
    }
    return tlv_validate(buffer);
}
