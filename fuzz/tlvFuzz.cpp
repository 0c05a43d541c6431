// TLV messages as they arrive: whatever the bytes say, checking and searching stay inside them.
#include <cstring>

#include "fuzz.h"
#include "kzTlv.h"
#include "utils.h"

namespace {

constexpr uint8_t kTypes[] = {TLV_CMD,     TLV_CMDARG, TLV_DST, TLV_SRC, TLV_RSPARG,
                              TLV_ASOURCE, TLV_VOID,   TLV_RSP, TLV_END, 0};

void searchAndCopy(const std::vector<uint8_t>& message) {
    for (const uint8_t type : kTypes) {
        const unsigned char* element = tlv_find(message.data(), type);
        std::vector<uint8_t> out(64);
        const int copied = sntlv_find(out.data(), static_cast<uint32_t>(out.size()), type, message.data());
        if (element == nullptr) {
            Require(copied == 0);
            continue;
        }
        Require(tlv_data(element) + tlv_length(element) <= message.data() + sntlv_msg_len(message.data()));
        Require(copied == 0 || std::memcmp(out.data(), tlv_data(element), static_cast<size_t>(copied)) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_logLevel = KZ_LOG_OFF;
    if (size == 0 || size > UINT16_MAX) {
        return 0;
    }
    // An exact copy, so that a read past the received bytes is seen.
    std::vector<uint8_t> message(data + 1, data + size);
    if ((data[0] & 1) != 0 && message.size() >= kTlvMessageHeaderSize) {
        // A random total length rarely fits: half of the inputs announce the one that does.
        message[0] = static_cast<uint8_t>(message.size() >> 8);
        message[1] = static_cast<uint8_t>(message.size());
    }
    const int result = tlv_validate_received(message.data(), static_cast<uint32_t>(message.size()));
    if (message.size() < kTlvMessageHeaderSize || sntlv_msg_len(message.data()) > message.size()) {
        Require(result == -1);
        return 0;
    }
    searchAndCopy(message);
    if (result != 0) {
        return 0;
    }
    // What passed holds the elements that its users take for granted, and can be edited in place.
    Require(tlv_find(message.data(), TLV_CMD) != nullptr && tlv_find(message.data(), TLV_SRC) != nullptr);
    const auto capacity = static_cast<uint32_t>(message.size());
    Require(sntlv_remove(message.data(), capacity, TLV_END) == -4);
    sntlv_void(message.data(), TLV_CMDARG);
    Require(sntlv_add_bin(message.data(), capacity, TLV_END, 0, nullptr) == 4);
    return 0;
}
