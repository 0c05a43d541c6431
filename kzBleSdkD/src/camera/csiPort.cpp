#include "csiPort.h"

#include <cstring>
#include <string>
#include <string_view>

#include "csiKeyTable.h"
#include "kzMbox.h"
#include "kzMsg.h"
#include "kzTlv.h"
#include "tlvText.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr uint8_t kEndOfSubscription = 3;  // payload of the message that ends it
constexpr uint8_t kAcknowledged = 0;
constexpr size_t kMaxQueueName = 255;
constexpr size_t kCategoryOffset = 3;  // of a message; also of an element's number within the element

int SendToNetworkDaemon(uint8_t category, const void* payload, uint32_t length) {
    kzmsg message;
    kzmsg_build(&message, "CR", payload, length, category);
    return kzmsg_try_send(&message, kMqCsi, kMqKzNet, nullptr, 0) == KZ_SEND_OK ? 0 : -1;
}

// Whether acknowledgements may go to a queue of this name: a slash and one component.
bool IsQueueName(std::string_view name) {
    return name.size() > 1 && name.size() <= kMaxQueueName && name.front() == '/' &&
           name.find('/', 1) == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

// Turns a notification into its acknowledgement: the category becomes the next one, source and destination change
// places, and a result of 0 is added.
void MakeAcknowledgement(unsigned char* message, uint32_t size) {
    unsigned char* source = tlv_find(message, TLV_SRC);
    unsigned char* destination = tlv_find(message, TLV_DST);
    if (tlv_find(message, TLV_END) != nullptr) {
        sntlv_remove(message, size, TLV_END);
    }
    message[kCategoryOffset] = static_cast<unsigned char>(message[kCategoryOffset] + 1);
    if (source != nullptr) {
        source[kCategoryOffset] = TLV_DST;
    }
    if (destination != nullptr) {
        destination[kCategoryOffset] = TLV_SRC;
    }
    sntlv_add_bin(message, size, TLV_RSPARG, sizeof(kAcknowledged), &kAcknowledged);
    sntlv_add_bin(message, size, TLV_END, 0, nullptr);
}

}  // namespace

int csi_set_no_rsp(uint8_t key, const void* value, uint32_t length) {
    uint8_t record[KZMSG_MAX];
    if (length > sizeof(record) - kCsiHeaderSize) {
        LOG_ERROR("CSI value of %u bytes is too long for a message", length);
        return -1;
    }
    const csiStruct header{key, length};
    std::memcpy(record, &header, kCsiHeaderSize);
    if (length > 0) {
        std::memcpy(record + kCsiHeaderSize, value, length);
    }
    kzmsg message;
    kzmsg_build(&message, "CI", record, static_cast<uint32_t>(kCsiHeaderSize + length), CAT_KZNET_CMD);
    return kzmsg_try_send(&message, kMqKzNet, kMqKzNet, nullptr, 0) == KZ_SEND_OK ? 0 : -1;
}

int subscribeCSIbleSdk() {
    constexpr auto kKeys = SubscribedCsiKeys();
    return SendToNetworkDaemon(CAT_KZNET_CMD, kKeys.data(), static_cast<uint32_t>(kKeys.size()));
}

int unsubscribeCSIbleSdk() {
    return SendToNetworkDaemon(CAT_KZNET_UNSUB, &kEndOfSubscription, sizeof(kEndOfSubscription));
}

void AcknowledgeNotification(unsigned char* message, uint32_t size) {
    const std::string replyTo(TextOf(tlv_find(message, TLV_SRC)));
    MakeAcknowledgement(message, size);
    if (tlv_validate(message) != 0) {
        LOG_ERROR("tlv_validate failed");
        hexprint_noaddr2("CR RSP", 0, message, sntlv_msg_len(message));
        return;
    }
    if (!IsQueueName(replyTo)) {
        LOG_ERROR("CSI notification names no queue for its acknowledgement");
        return;
    }
    kzMbox_try_send(replyTo.c_str(), message, sntlv_msg_len(message));
}
