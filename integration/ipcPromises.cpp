// libkzipc.so while the metadata service runs. The records are of a sensor called "kzPlatformCheck".
#include <algorithm>
#include <string_view>

#include "promise.h"

namespace kzcheck {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr const char* kChannel = "metadata";
constexpr uint8_t kSequenceNumber = 49;  // the daemon's first
constexpr size_t kLongestPayload = 1400;
constexpr size_t kItemHead = 8;
constexpr int kTimes = 20;

// An item of the metadata format: key, type, size of an element, number of elements big-endian, data in whole words.
Bytes item(std::string_view key, char type, uint8_t size, const Bytes& data) {
    const size_t count = data.size() / size;
    Bytes bytes(kItemHead + data.size());
    key.copy(reinterpret_cast<char*>(bytes.data()), 4);
    bytes[4] = static_cast<uint8_t>(type);
    bytes[5] = size;
    bytes[6] = static_cast<uint8_t>(count >> 8);
    bytes[7] = static_cast<uint8_t>(count);
    std::copy(data.begin(), data.end(), bytes.begin() + kItemHead);
    bytes.resize((bytes.size() + 3) & ~size_t{3});
    return bytes;
}

Bytes text(std::string_view words) {
    return {words.begin(), words.end()};
}

Bytes operator+(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// A record: sequence number, then a device with its id, its name, and a stream whose name fills the payload up to
// `size` bytes.
Bytes record(size_t size) {
    const Bytes device = item("DVID", 'L', 4, {0, 0, 0, 1}) + item("DVNM", 'c', 1, text("kzPlatformCheck"));
    const size_t nameLength = size - 3 * kItemHead - device.size();
    const Bytes stream = item("STRM", '\0', 1, item("STNM", 'c', 1, Bytes(nameLength, 'x')));
    return Bytes{kSequenceNumber, 0, 0, 0} + item("DEVC", '\0', 1, device + stream);
}

// A hand-over as the daemon makes it: opens the channel in a zeroed record, sends, closes.
Call handOver(const Platform& platform, const Bytes& bytes) {
    Channel channel;
    Call call = timed([&] { return std::min(platform.ipcInit(kChannel, channel.record), 0); });
    if (!answered(call)) {
        return call;
    }
    call = timed([&] {
        return std::min(platform.ipcSend(channel.record, bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
    });
    platform.ipcDestroy(channel.record);
    return call;
}

template <size_t Size, int Times>
Outcome takesRecords(const Scene& scene) {
    const Bytes bytes = record(Size);
    for (int i = 0; i < Times; ++i) {
        const Call call = handOver(scene.platform, bytes);
        if (!answered(call)) {
            return broken("record %d of %zu bytes: %s", i + 1, bytes.size(), describe(call).c_str());
        }
    }
    return kept("%d records of %zu bytes", Times, bytes.size());
}

Outcome keepsToChannel(const Scene& scene) {
    constexpr unsigned char kUntouched = 0xA5;
    Channel channel;
    std::fill(std::begin(channel.behind), std::end(channel.behind), kUntouched);
    const Bytes bytes = record(100);
    const Call call = timed([&] { return std::min(scene.platform.ipcInit(kChannel, channel.record), 0); });
    scene.platform.ipcSend(channel.record, bytes.data(), static_cast<uint32_t>(bytes.size()));
    scene.platform.ipcDestroy(channel.record);
    const auto* const touched = std::find_if(std::begin(channel.behind), std::end(channel.behind),
                                             [](unsigned char byte) { return byte != kUntouched; });
    if (touched != std::end(channel.behind)) {
        return broken("writes %td bytes behind it", touched - channel.behind + 1);
    }
    return answered(call) ? kept("nothing behind it is written") : broken("%s", describe(call).c_str());
}

constexpr const char* kFunctions = "kzIpcInit kzIpcSend kzIpcDestroy";

constexpr Promise kPromises[] = {
    {"ipc.record", "the channel \"metadata\" takes a record of sensor samples", kFunctions, nullptr,
     takesRecords<100, 1>},
    {"ipc.longest", "it takes one of 1404 bytes", kFunctions, nullptr, takesRecords<kLongestPayload, 1>},
    {"ipc.again", "a channel can be opened for each record", kFunctions, nullptr, takesRecords<100, kTimes>},
    {"ipc.channel", "a channel fits its 256 bytes", kFunctions, nullptr, keepsToChannel},
};

}  // namespace

std::span<const Promise> ipcPromises() {
    return kPromises;
}

}  // namespace kzcheck
