/* libcsi.so of a canned camera: every key has a value, at first four zero bytes, or what initial_values says. Nobody is
 * notified of changes: that is the network daemon's work, through the daemon's queue. */
#include "csi/csi.h"

#include "csi/csiKeys.h"
#include "stub.h"

enum { KEYS = 256, LONGEST = 1400, NUMBER = 4 };

struct value {
    bool written;
    uint32_t length;
    uint8_t bytes[LONGEST];
};

static struct value values[KEYS];

static const struct {
    uint8_t key;
    const char* text;
} initial_values[] = {{CSI_MODEL_NUMBER, "\x3a\0\0"}, {CSI_BATTERY_LEVEL, "\x50\0\0"}, {CSI_CLIENT_ID, "stub"}};

static struct value* find(uint8_t key) {
    struct value* const value = &values[key];
    if (!value->written) {
        value->written = true;
        value->length = NUMBER;
        for (size_t i = 0; i < sizeof initial_values / sizeof initial_values[0]; ++i) {
            if (initial_values[i].key == key) {
                memcpy(value->bytes, initial_values[i].text, NUMBER);
            }
        }
    }
    return value;
}

EXPORTED int csi_get(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer) {
    const struct value* const value = find(key);
    return stub_reply(buffer, bufferSize, length, value->bytes, value->length);
}

EXPORTED int csi_set(uint8_t key, const void* value, uint32_t length) {
    struct value* const stored = find(key);
    if (length > LONGEST) {
        return STUB_FAILURE;
    }
    stored->length = length;
    memcpy(stored->bytes, value, length);
    return CSI_OK;
}
