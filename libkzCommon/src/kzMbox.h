// Mailboxes: named POSIX message queues, opened, filled and drained one message at a time.
//
// A record belongs to its caller and to the thread that opened it. Names ("/to_kznet") are borrowed and must outlive
// the record. The functions named kzMbox_* and snkzMbox_* treat a missing or full queue as written at each; those named
// *_try_* are for peers that may fail: they never block and never assert.
#pragma once

#include <mqueue.h>

#include <cstdint>

constexpr uint32_t KZMSG_MAX = 1500;     // largest message, and the message size of every mailbox made here
constexpr long KZMSG_MAX_COUNT_SM = 2;   // depth of a reply mailbox
constexpr long kMboxTransmitDepth = 40;  // depth that describes a transmit mailbox

struct kzMbox {
    mqd_t mqd;
    struct mq_attr attr;  // flags 0, depth, message size; current count and depth are queried before each send
    const char* name;
};

// Results of the *_try_* functions.
enum kzSendResult : int {
    KZ_SEND_OK = 0,
    KZ_SEND_INVALID = -1,  // the message is not valid; nothing was sent
    KZ_SEND_GONE = -2,     // the destination queue is missing or refuses the message
    KZ_SEND_FULL = -3,     // the destination queue is full
};

// How many seconds snkzMbox_timedreceive waits. Initially 10.
extern int g_timedreceive;

// Describes a mailbox of messages up to KZMSG_MAX bytes; opens nothing.
void kzMbox_init(const char* name, long depth, kzMbox* mbox);

// Opens an existing queue for sending. Returns 0, or -1 after a level-2 text.
int kzMbox_txopen(const char* name, kzMbox* mbox);
// Sends one message with priority 0. A full queue drops it with a level-2 text and returns 0. More than KZMSG_MAX bytes
// is a calling error and aborts. Otherwise the result of mq_send.
int kzMbox_send(const void* buffer, uint32_t length, kzMbox* mbox);
// Opens `name`, sends one complete message and closes, without ever blocking or aborting: for queues that a peer owns
// or names. Returns a kzSendResult. A missing and a full queue give the level-2 texts of kzMbox_txopen and kzMbox_send;
// more than KZMSG_MAX bytes are KZ_SEND_INVALID.
int kzMbox_try_send(const char* name, const void* buffer, uint32_t length);
// Closes the queue and returns the result of mq_close.
int kzMbox_close(kzMbox* mbox);

// Opens a queue for receiving, which is created with mode 0664 if it is missing; tries five times, 10 ms apart. Returns
// 0, or -1 after a level-2 text.
int kzMbox_rxopen(const char* name, long depth, kzMbox* mbox);
int kzMbox_rxopen_ext(const char* name, long depth, long messageSize, kzMbox* mbox);
// Creates a queue that must not exist yet, and opens it for receiving. Tries six times within 1.5 seconds, in which an
// exchange that uses the same name for its reply mailbox can end and remove it. Returns 0, or -1 after a level-2 text.
int kzMbox_rxopen_shared(const char* name, long depth, kzMbox* mbox);
int kzMbox_rxopen_shared_ext(const char* name, long depth, long messageSize, kzMbox* mbox);
// Makes sure that the queue exists: opens it for receiving, which creates it if needed, and closes it. Returns 0, or -1
// when it cannot be opened.
int kzMbox_create(const char* name, long depth);
int kzMbox_create_ext(const char* name, long depth, long messageSize);
// Removes the queue's name. Returns 0, or -1 after a level-2 text.
int kzMbox_unlink(const char* name);

// Waits at most `*timeoutSeconds` seconds for a message and receives it; `priority` may be null. Returns its length, or
// -1 with errno: ETIMEDOUT when none came, else that of mq_receive.
int kz_mq_timedreceive(mqd_t mqd, void* buffer, uint32_t size, unsigned int* priority, const int* timeoutSeconds);
// Receives one message and returns its length; a failing receive (for example a buffer below the queue's message size)
// is a calling error and aborts.
int snkzMbox_receive(void* buffer, uint32_t size, kzMbox* mbox);
// The same, but returns -1 with errno ETIMEDOUT when no message comes within g_timedreceive seconds.
int snkzMbox_timedreceive(void* buffer, uint32_t size, kzMbox* mbox);
