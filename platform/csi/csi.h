/* The camera's key/value status service, libcsi.so. Its ABI is fixed by the camera. 0 (CSI_OK) is success; any other
 * result is a failure, among them no answer within two seconds. Multi-byte numbers are little-endian. Not for two
 * threads at once. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CSI_OK 0

/* Copies the value of `key` into `buffer` and its length to `length`; a value longer than `bufferSize` is a failure,
 * and on failure neither is written. */
int csi_get(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer);
/* Stores the value and notifies the key's subscribers. */
int csi_set(uint8_t key, const void* value, uint32_t length);

#ifdef __cplusplus
}
#endif
