// Stand-in of libcsi.so: see fakeCamera.h.
#include "csi/csi.h"
#include "fakeCamera.h"

using fakes::answer;
using fakes::Function;

int csi_get(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer) {
    return answer(Function::CsiGet, key, &bufferSize, sizeof(bufferSize), -1, buffer, bufferSize, length);
}

int csi_set(uint8_t key, const void* value, uint32_t length) {
    return answer(Function::CsiSet, key, value, length, 0);
}
