// Stand-in of libkzipc.so: see fakeCamera.h.
#include <cstring>

#include "fakeCamera.h"
#include "kzipc/kzipc.h"

using fakes::answer;
using fakes::Function;

int kzIpcInit(const char* name, void* /*channel*/) {
    return answer(Function::IpcInit, 0, name, static_cast<uint32_t>(std::strlen(name)), 0);
}

int kzIpcSend(void* /*channel*/, const void* record, uint32_t length) {
    return answer(Function::IpcSend, 0, record, length, 0);
}

int kzIpcDestroy(void* /*channel*/) {
    return answer(Function::IpcDestroy, 0, nullptr, 0, 0);
}
