/* The IPC library that hands metadata to the metadata service, libkzipc.so. Its ABI is fixed by the camera. A channel is a
 * caller-owned, zeroed record of KZIPC_CHANNEL_SIZE bytes; a negative result is a failure. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KZIPC_CHANNEL_SIZE 256

int kzIpcInit(const char* name, void* channel);
int kzIpcSend(void* channel, const void* record, uint32_t length);
int kzIpcDestroy(void* channel);

#ifdef __cplusplus
}
#endif
