/* What the three stubs share. Each is a whole library without a camera behind it: it answers from its own memory, at
 * once. A real one asks a service in its place, and gives up after two seconds. */
#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <string.h>

#define EXPORTED __attribute__((visibility("default")))

enum { STUB_OK = 0, STUB_FAILURE = -1 };

/* Copies a reply into the caller's buffer and says its length. A buffer that is too short is left as it was; one that
 * is not there is no failure, because nobody asked for the reply. */
static inline int stub_reply(void* buffer, uint32_t size, uint32_t* length, const void* reply, uint32_t reply_length) {
    if (buffer == NULL) {
        return STUB_OK;
    }
    if (reply_length > size) {
        return STUB_FAILURE;
    }
    memcpy(buffer, reply, reply_length);
    if (length != NULL) {
        *length = reply_length;
    }
    return STUB_OK;
}
