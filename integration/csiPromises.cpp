// libcsi.so while the CSI service runs. Keys that are written get their old values back.
#include <algorithm>
#include <cstring>

#include "csi/csiKeys.h"
#include "promise.h"
#include "skylark/bleMessage.h"

namespace kzcheck {
namespace {

constexpr uint32_t kLongestText = 1400;

// Keys whose number the daemon reads when a client asks.
constexpr uint8_t kNumberKeys[] = {CSI_DEVICE_MGR_STATE, CSI_WOM_STATE,      CSI_CAHA_STATE,     CSI_CAH_FEATURE_ENABLE,
                                   CSI_CAH_ACTIVE,       CSI_CAH_AUTH_STATE, CSI_CAH_STICKY_ERR, CSI_CAH_AUTO_CLEAR};
constexpr uint8_t kTextKeys[] = {CSI_CAH_ASSOCIATION_STATE, CSI_CLIENT_ID};

struct Value {
    Call call;
    std::vector<uint8_t> bytes;
};

Value get(const Platform& platform, uint8_t key) {
    Value value;
    value.bytes.resize(kLongestText);
    uint32_t length = 0;
    value.call = timed([&] { return platform.csiGet(key, kLongestText, &length, value.bytes.data()); });
    value.bytes.resize(answered(value.call) ? std::min(length, kLongestText) : 0);
    return value;
}

Call set(const Platform& platform, uint8_t key, const std::vector<uint8_t>& value) {
    return timed([&] { return platform.csiSet(key, value.data(), static_cast<uint32_t>(value.size())); });
}

// Reads a key into a buffer of `size` bytes.
Outcome readInto(const Platform& platform, uint8_t key, uint32_t size) {
    ReplyBuffer reply(size);
    uint32_t length = UINT32_MAX;
    const Call call = reply.ask([&](void* buffer) { return platform.csiGet(key, size, &length, buffer); });
    if (reply.writtenOutside()) {
        return broken("key %u: writes outside a buffer of %u bytes", key, size);
    }
    if (!answered(call)) {
        return broken("key %u: %s", key, describe(call).c_str());
    }
    return length <= size && reply.written(0, length)
               ? kept("key %u: %u bytes", key, length)
               : broken("key %u: says %u bytes and does not write them", key, length);
}

template <const auto& Keys, uint32_t Size>
Outcome readsKeys(const Scene& scene) {
    for (const uint8_t key : Keys) {
        const Outcome outcome = readInto(scene.platform, key, Size);
        if (outcome.result != Result::Kept) {
            return outcome;
        }
    }
    return kept("%zu keys", std::size(Keys));
}

Outcome keepsToShortBuffer(const Scene& scene) {
    ReplyBuffer reply(1);
    uint32_t length = 0;
    const Call call =
        reply.ask([&](void* buffer) { return scene.platform.csiGet(CSI_MODEL_NUMBER, 1, &length, buffer); });
    if (reply.writtenOutside() || (call.result == CSI_OK && length > 1)) {
        return broken("gives %u bytes into a buffer of 1", length);
    }
    return kept("%s", describe(call).c_str());
}

// Writes a key and reads it back.
Outcome stores(const Platform& platform, uint8_t key, const std::vector<uint8_t>& value) {
    const Value before = get(platform, key);
    const Call written = set(platform, key, value);
    const Value after = get(platform, key);
    if (before.call.result == CSI_OK) {
        set(platform, key, before.bytes);
    }
    if (!answered(written)) {
        return broken("key %u: %s", key, describe(written).c_str());
    }
    return after.bytes == value
               ? kept("key %u: %zu bytes", key, value.size())
               : broken("key %u: %zu bytes written, %zu others read", key, value.size(), after.bytes.size());
}

Outcome storesByte(const Scene& scene) {
    const Outcome first = stores(scene.platform, CSI_ANALYTICS_SOURCE, {KZ_CALLER_UNKNOWN});
    return first.result == Result::Kept ? stores(scene.platform, CSI_ANALYTICS_SOURCE, {KZ_CALLER_BLE_RC}) : first;
}

Outcome storesText(const Scene& scene) {
    std::vector<uint8_t> url(kLongestText, 'x');
    std::memcpy(url.data(), "rtmp://", 7);
    return stores(scene.platform, CSI_BROADCAST_PRIVATE, url);
}

constexpr Promise kPromises[] = {
    {"csi.numbers", "csi_get gives each number that clients ask for, in at most 4 bytes", "csi_get", nullptr,
     readsKeys<kNumberKeys, 4>},
    {"csi.texts", "csi_get gives the texts of keys 104 and 105, of at most 1400 bytes", "csi_get", nullptr,
     readsKeys<kTextKeys, kLongestText>},
    {"csi.short", "a value that is longer than its buffer is not written behind it", "csi_get", nullptr,
     keepsToShortBuffer},
    {"csi.byte", "csi_set stores a value of one byte as such", "csi_get csi_set", nullptr, storesByte},
    {"csi.text", "csi_set stores a text of 1400 bytes", "csi_get csi_set", nullptr, storesText},
};

}  // namespace

std::span<const Promise> csiPromises() {
    return kPromises;
}

}  // namespace kzcheck
