// Request and response between the camera's daemons: builds a complete TLV message (command, argument, source,
// destination, end marker), checks it and posts it into a mailbox, or posts it and waits for the reply.
//
//     kzmsg message;                                                    // size is KZMSG_MAX
//     kzmsg_build(&message, "CR", keys, sizeof(keys), CAT_KZNET_CMD);
//     kzmsg_try_send(&message, "/to_blesdk", "/to_kznet", nullptr, 0);
//
// Calls share no state, but only one exchange at a time can use a reply mailbox: another one with the same waits for
// it.
#pragma once

#include <cstdint>

#include "kzMbox.h"

// The message buffer, owned by the caller: an aggregate whose default member values are what kzmsg_build expects.
struct kzmsg {
    uint32_t size = KZMSG_MAX;  // capacity of buf
    uint32_t length = 0;        // bytes in use
    uint8_t buf[KZMSG_MAX];     // the TLV message
};

// Which messages are dumped in hexadecimal while bit 8 of g_debug_level is set; each dump label has its bit. Initially
// 0x30000000.
extern uint32_t g_debug;

// The indices of dump labels run from 0 to 28. Messages with index 0 or any other number are never dumped.
constexpr int kDumpLabelCount = 29;

// Starts a message: writes the two characters of `command` and the argument, and sets `length`. An argument that does
// not fit is left out; the validation when the message is sent finds that.
void kzmsg_build(kzmsg* message, const char* command, const void* argument, uint32_t argumentLength, uint8_t category);

// Completes a built message and posts it to `via`, or to `to` when `via` is null. `from` names the mailbox for the
// reply. An invalid message or a missing destination aborts, and a full queue drops the message, so this is only for
// messages and queues that this process alone answers for. Returns the result of closing the transmit queue.
int kzmsg_send(kzmsg* message, const char* from, const char* to, const char* via, int dumpIndex);

// The same for a destination that may be missing or full: never blocks, never aborts. Returns a kzSendResult. A failure
// is logged at level 2 and leaves the message as it was built, so that the caller may try again.
int kzmsg_try_send(kzmsg* message, const char* from, const char* to, const char* via, int dumpIndex);

// Posts like kzmsg_send and waits at most g_timedreceive seconds for the reply, which replaces the message in the
// buffer; `size` must be KZMSG_MAX. The mailbox `from` is made for the exchange and removed after it; a failure to make
// it aborts. Returns the length of the reply or
//   kExchangeTimeout        the buffer still holds the request, and `length` is -1
//   kExchangeInvalidReply   the buffer holds what arrived, which was printed and dumped on the debug-print channel
int kzmsg_send_timedreceive(kzmsg* message, const char* from, const char* to, const char* via, int dumpIndex);
enum : int { kExchangeTimeout = -1, kExchangeInvalidReply = -2 };

// Finds the response argument of a received message that was validated. Sets `*data` to its bytes, inside the message,
// and
// `*length` to their number, or to null and 0 when there is none. Returns `*data`.
uint8_t* kzmsg_response(kzmsg* message, uint8_t** data, uint32_t* length);
