/* The IPC library that hands metadata to the metadata service, libkzipc.so. Its ABI is fixed by the camera. A channel
 * is a caller-owned, zeroed record of KZIPC_CHANNEL_SIZE bytes; a negative result is a failure. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KZIPC_CHANNEL_SIZE 256

/* Opens the channel of that name (1 to 31 characters). On failure the record stays as it was and needs no destroy. */
int kzIpcInit(const char* name, void* channel);
/* Hands one record over; 0 once the service has accepted it. */
int kzIpcSend(void* channel, const void* record, uint32_t length);
/* Closes the channel; its record may then be initialised again. */
int kzIpcDestroy(void* channel);

#ifdef __cplusplus
}
#endif
