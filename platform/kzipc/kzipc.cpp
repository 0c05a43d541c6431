// libkzipc.so over the simulator's IPC socket. The caller's channel record holds the link and the channel's name, which
// travels in every request, so that a channel whose connection broke opens another one by itself.
#include "kzipc/kzipc.h"

#include <cstring>

#include "cameraLink.h"

namespace {

constexpr uint32_t kChannelMark = 0x4348414e;  // tells an initialised record from a zeroed one

struct Channel {
    uint32_t mark;
    kzlink::Link link;
    uint32_t nameLength;
    char name[kzwire::kMaxChannelName];
};
static_assert(sizeof(Channel) <= KZIPC_CHANNEL_SIZE);

// The caller's record has no alignment of its own, so it is worked on as a copy.
Channel load(const void* record) {
    Channel channel;
    std::memcpy(&channel, record, sizeof channel);
    return channel;
}

void store(void* record, const Channel& channel) {
    std::memcpy(record, &channel, sizeof channel);
}

int exchange(Channel& channel, kzwire::Operation operation, const void* data, uint32_t length) {
    kzlink::Request request;
    request.operation = operation;
    request.target = channel.nameLength;
    request.first = {channel.name, channel.nameLength};
    request.second = {const_cast<void*>(data), length};
    kzlink::ReplyBuffer none;
    const int result = kzlink::exchange(channel.link, kzwire::kIpcEndpoint, request, none);
    return result > 0 ? -result : result;  // only negative results are failures here
}

}  // namespace

int kzIpcInit(const char* name, void* record) {
    if (name == nullptr || record == nullptr) {
        return kzwire::kResultFailure;
    }
    const size_t length = strnlen(name, kzwire::kMaxChannelName + 1);
    if (length == 0 || length > kzwire::kMaxChannelName) {
        return kzwire::kResultFailure;
    }
    Channel channel{};
    std::memcpy(channel.name, name, length);
    channel.nameLength = static_cast<uint32_t>(length);
    const int result = exchange(channel, kzwire::Operation::IpcOpen, nullptr, 0);
    if (result != 0) {
        kzlink::disconnect(channel.link);
        return result;
    }
    channel.mark = kChannelMark;
    store(record, channel);
    return 0;
}

int kzIpcSend(void* record, const void* data, uint32_t length) {
    if (record == nullptr || (data == nullptr && length != 0)) {
        return kzwire::kResultFailure;
    }
    Channel channel = load(record);
    if (channel.mark != kChannelMark) {
        return kzwire::kResultFailure;
    }
    const int result = exchange(channel, kzwire::Operation::IpcSend, data, length);
    store(record, channel);
    return result;
}

int kzIpcDestroy(void* record) {
    if (record == nullptr) {
        return kzwire::kResultFailure;
    }
    Channel channel = load(record);
    if (channel.mark != kChannelMark) {
        return kzwire::kResultFailure;
    }
    kzlink::disconnect(channel.link);
    channel.mark = 0;
    store(record, channel);
    return 0;
}
