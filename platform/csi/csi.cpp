// libcsi.so over the simulator's CSI socket.
#include "csi/csi.h"

#include "cameraLink.h"

namespace {
kzlink::Link g_link;
}

int csi_get(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer) {
    if (buffer == nullptr || length == nullptr) {
        return kzwire::kResultFailure;
    }
    kzlink::Request request;
    request.operation = kzwire::Operation::CsiGet;
    request.target = key;
    kzlink::ReplyBuffer reply{buffer, bufferSize};
    const int result = kzlink::exchange(g_link, kzwire::kCsiEndpoint, request, reply);
    if (result == CSI_OK) {
        *length = reply.length;
    }
    return result;
}

int csi_set(uint8_t key, const void* value, uint32_t length) {
    if (value == nullptr && length != 0) {
        return kzwire::kResultFailure;
    }
    kzlink::Request request;
    request.operation = kzwire::Operation::CsiSet;
    request.target = key;
    request.first = {const_cast<void*>(value), length};
    kzlink::ReplyBuffer none;
    return kzlink::exchange(g_link, kzwire::kCsiEndpoint, request, none);
}
