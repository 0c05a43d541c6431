/* libkzipc.so of a canned camera: takes sensor records and drops them. */
#include "kzipc/kzipc.h"

#include "stub.h"

/* What the caller's record holds. It has no alignment of its own, so it is copied. */
struct channel {
    uint32_t open; /* OPEN, or anything else in a record that is not open */
    uint32_t records;
};

enum { OPEN = 0x4f50454e };

EXPORTED int kzIpcInit(const char* name, void* channel) {
    const struct channel opened = {OPEN, 0};
    if (strcmp(name, "metadata") != 0) {
        return STUB_FAILURE;
    }
    memcpy(channel, &opened, sizeof opened);
    return STUB_OK;
}

EXPORTED int kzIpcSend(void* channel, const void* record, uint32_t length) {
    struct channel opened;
    memcpy(&opened, channel, sizeof opened);
    if (opened.open != OPEN || record == NULL || length == 0) {
        return STUB_FAILURE;
    }
    ++opened.records;
    memcpy(channel, &opened, sizeof opened);
    return STUB_OK;
}

EXPORTED int kzIpcDestroy(void* channel) {
    const struct channel closed = {0, 0};
    memcpy(channel, &closed, sizeof closed);
    return STUB_OK;
}
