// Request and response between the camera's daemons: builds a complete TLV message (command, argument, source,
// destination, end marker), checks it and posts it into a mailbox, or posts it and waits for the reply.
//
//     kzmsg message;                                                    // size is KZMSG_MAX
//     kzmsg_build(&message, "CR", keys, sizeof(keys), CAT_KZNET_CMD);
//     kzmsg_try_send(&message, "/to_blesdk", "/to_kznet", nullptr, 0);
//
// No shared state between calls; two exchanges with the same reply mailbox wait for one another.
#pragma once

#include <cstdint>

#include "kzMbox.h"

// The message buffer, owned by the caller: an aggregate whose default member values are what kzmsg_build expects.
struct kzmsg {
    uint32_t size = KZMSG_MAX;  // capacity of buf
    uint32_t length = 0;        // bytes in use
    uint8_t buf[KZMSG_MAX];     // the TLV message
};

// Which message directions are hex-dumped, one bit a dump label, while bit 8 of g_debug_level is set. Initially
// 0x30000000.
extern uint32_t g_debug;

// Indices of dump labels run from 0 (never dumped) to 28; any other is never dumped either.
constexpr int kDumpLabelCount = 29;

// Starts the message with the two characters of `command` and the argument; sets `length`. An argument that does not
// fit is left out, which validation reports later.
void kzmsg_build(kzmsg* message, const char* command, const void* argument, uint32_t argumentLength, uint8_t category);

// Completes a built message and posts it to `via`, or to `to` when `via` is null. `from` names the mailbox for the
// reply. An invalid message and a missing destination abort, a full one drops the message: only for messages and queues
// that are this process's own doing. Returns the result of closing the transmit queue.
int kzmsg_send(kzmsg* message, const char* from, const char* to, const char* via, int dumpIndex);

// The same for a destination that may be missing, gone or full: never blocks, never aborts. Returns a kzSendResult;
// every failure is logged at level 2 and leaves the message as it was built, so that it can be tried again.
int kzmsg_try_send(kzmsg* message, const char* from, const char* to, const char* via, int dumpIndex);

// Posts like kzmsg_send and waits at most g_timedreceive seconds for the reply, which replaces the message in the
// buffer; `size` must be KZMSG_MAX. The mailbox `from` exists during the exchange alone; that it cannot be made aborts.
// Returns the reply's length, kExchangeTimeout (the buffer holds the request, `length` is -1) or kExchangeInvalidReply
// (the buffer holds what arrived; it was debug-printed and dumped).
int kzmsg_send_timedreceive(kzmsg* message, const char* from, const char* to, const char* via, int dumpIndex);
enum : int { kExchangeTimeout = -1, kExchangeInvalidReply = -2 };

// Finds the response argument of a received, validated message. Returns its data, also in `*data` with its length in
// `*length`; null (and null and 0 there) when there is none. Points into the message.
uint8_t* kzmsg_response(kzmsg* message, uint8_t** data, uint32_t* length);
