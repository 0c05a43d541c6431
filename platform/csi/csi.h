/* The camera's key/value status service, libcsi.so. Its ABI is fixed by the camera. 0 (CSI_OK) is success. Multi-byte
 * numbers are little-endian. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CSI_OK 0

/* Copies the value of `key` into `buffer` and its length to `length`; a value longer than `bufferSize` is a failure. */
int csi_get(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer);
/* Stores the value and notifies the key's subscribers. */
int csi_set(uint8_t key, const void* value, uint32_t length);

#ifdef __cplusplus
}
#endif
