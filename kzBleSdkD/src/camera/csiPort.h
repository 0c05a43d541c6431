// What the daemon sends to the CSI service through the network daemon's queue, without waiting for an answer: values of
// keys, the subscription to changes, and the acknowledgement of a change. (cameraCalls.h has the calls that wait.)
#pragma once

#include <cstddef>
#include <cstdint>

constexpr const char* kMqCsi = "/to_blesdk";   // CSI service and network daemon to this daemon
constexpr const char* kMqKzNet = "/to_kznet";  // this daemon to the network daemon

// One CSI key with its value as it travels in messages: packed, length little-endian, `length` value bytes follow.
struct __attribute__((packed)) csiStruct {
    uint8_t key;
    uint32_t length;
    uint8_t value[];
};
constexpr size_t kCsiHeaderSize = 5;
static_assert(sizeof(csiStruct) == kCsiHeaderSize);

// Bytes by which the acknowledgement of a message is longer than the message.
constexpr unsigned kCsiAnswerRoom = 9;

// Sends a set message for one CSI key. Returns 0 when it was sent, and -1, with a line in the log, when the queue could
// not take it.
int csi_set_no_rsp(uint8_t key, const void* value, uint32_t length);

// Asks to be notified of the keys of the table in csiKeyTable.h. Returns 0 when the request was sent, and -1, with a
// line in the log, when the queue could not take it.
int subscribeCSIbleSdk();
// Ends the subscription. Returns as above.
int unsubscribeCSIbleSdk();

// Turns the notification at `message` into its acknowledgement, in a buffer of `size` bytes that has kCsiAnswerRoom
// bytes more than the message, and sends it to the queue that the message names as its source. What cannot be sent is
// logged and dropped.
void AcknowledgeNotification(unsigned char* message, uint32_t size);
