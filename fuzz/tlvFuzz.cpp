// TLV messages as they arrive: whatever the bytes say, checking, searching and decoding stay inside them; what was
// decoded encodes to the same bytes again.
#include <cstring>

#include "fuzz.h"
#include "kzBleMessages.h"
#include "kzTlv.h"
#include "utils.h"

namespace {

// An exact copy, so that a read past the received bytes is seen. A random total length rarely fits: half of the inputs
// announce the one that does.
std::vector<uint8_t> Received(const uint8_t* data, size_t size) {
    std::vector<uint8_t> message(data + 1, data + size);
    if ((data[0] & 1) != 0 && message.size() >= kTlvMessageHeaderSize) {
        message[0] = static_cast<uint8_t>(message.size() >> 8);
        message[1] = static_cast<uint8_t>(message.size());
    }
    return message;
}

void DecodeAndEncode(std::vector<uint8_t> received) {
    MemoryStream stream(received.data(), static_cast<unsigned short>(received.size()));
    Msg message(0);
    if (!message.decode(stream)) {
        Require(message.getSize() == kTlvMessageHeaderSize);
        return;
    }
    Require(message.getSize() == stream.getLength());
    std::vector<uint8_t> encoded(message.getSize());
    MemoryStream out(encoded.data(), message.getSize());
    out << message;
    // The same bytes again, but for the reserved ones, which are not carried, and the length, which an element may
    // pass.
    received[2] = 0;
    for (size_t at = kTlvMessageHeaderSize; at < encoded.size(); at += TLV_ELEM_HDR_SIZE + tlv_length(&received[at])) {
        received[at] = 0;
    }
    Require(std::equal(encoded.begin() + 2, encoded.end(), received.begin() + 2));
}

void SearchAndCopy(const std::vector<uint8_t>& message) {
    for (const uint8_t type : {TLV_CMD, TLV_CMDARG, TLV_DST, TLV_SRC, TLV_RSPARG, TLV_VOID, TLV_END}) {
        const unsigned char* element = tlv_find(message.data(), type);
        uint8_t out[64];
        const int copied = sntlv_find(out, sizeof(out), type, message.data());
        Require(element != nullptr || copied == 0);
        Require(element == nullptr ||
                tlv_data(element) + tlv_length(element) <= message.data() + sntlv_msg_len(message.data()));
        Require(copied == 0 || std::memcmp(out, tlv_data(element), static_cast<size_t>(copied)) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_logLevel = KZ_LOG_OFF;
    if (size == 0 || size > UINT16_MAX) {
        return 0;
    }
    std::vector<uint8_t> message = Received(data, size);
    DecodeAndEncode(message);
    const auto length = static_cast<uint32_t>(message.size());
    const int result = tlv_validate_received(message.data(), length);
    if (length < kTlvMessageHeaderSize || sntlv_msg_len(message.data()) > length) {
        Require(result == -1);
        return 0;
    }
    SearchAndCopy(message);
    if (result == 0) {  // it holds the elements that its users take for granted, and can be edited in place
        Require(tlv_find(message.data(), TLV_CMD) != nullptr && tlv_find(message.data(), TLV_SRC) != nullptr);
        Require(sntlv_remove(message.data(), length, TLV_END) == -4);
        sntlv_void(message.data(), TLV_CMDARG);
        Require(sntlv_add_bin(message.data(), length, TLV_END, 0, nullptr) == 4);
    }
    return 0;
}
