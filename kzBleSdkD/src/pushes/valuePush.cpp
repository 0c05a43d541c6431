#include "valuePush.h"

#include <algorithm>
#include <iterator>

#include "MemStream.h"
#include "bleResponses.h"
#include "bleSDK.h"
#include "queryEntries.h"
#include "queryKinds.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleDevice.cpp";

bool AppendValue(MemoryStream& stream, int id, const FlexValue* value) {
    static const FlexValue kNoValue;
    return AppendValueEntry(stream, id, value != nullptr ? *value : kNoValue);
}

bool AppendSetting(MemoryStream& stream, const SettingsStatusMapping& model, int id) {
    return AppendValue(stream, id, model.FindSettingValue(id));
}

bool AppendStatus(MemoryStream& stream, const SettingsStatusMapping& model, int id) {
    return AppendValue(stream, id, model.FindStatusValue(id));
}

bool AppendCapability(MemoryStream& stream, const SettingsStatusMapping& model, int id) {
    static const SettingsStatusMapping::IdNums kNoCapability;
    const SettingsStatusMapping::IdNums* capability = model.FindCapability(id);
    return AppendCapabilityEntry(stream, id, capability != nullptr ? *capability : kNoCapability);
}

constexpr ValuePush kValuePushes[kValuePushTypes] = {
    {NotificationClient::eNotifySettings, kCategorySettings, kQueryTypeValuePush, eStoredSettingsPush, AppendSetting,
     KZ_LOG_TRACE, "Handling Settings Push Notifications", "Settings Push Notifications backed up, replacing oldest",
     [](uint32_t id) { LOG_TRACE("Connection_id:%d has no interest in ANY settings push.", id); }, [](size_t) {}},
    {NotificationClient::eNotifyStatus, kCategoryStatus, kQueryTypeValuePush, eStoredStatusPush, AppendStatus,
     KZ_LOG_INFO, "Handling Status Push Notifications", "Status Push Notifications backed up, replacing oldest",
     [](uint32_t id) { LOG_TRACE("Connection_id:%d has no interest in ANY status push.", id); },
     [](size_t count) { LOG_INFO("Got %d values back", static_cast<int>(count)); }},
    {NotificationClient::eNotifyCapabilities, kCategorySettings, kQueryTypeCapabilityPush, eStoredCapabilitiesPush,
     AppendCapability, KZ_LOG_TRACE, "Handling SettingsCapabilities Push Notifications",
     "Capabilities Push Notifications backed up, replacing oldest",
     [](uint32_t id) { LOG_TRACE("Connection_id:%d has no interest in ANY capabilities push.", id); },
     [](size_t) { LOG_TRACE("Get Settings Capability Values"); }},
};

}  // namespace

const ValuePush* FindValuePush(NotificationClient::eNotificationType_t type) {
    const auto* push = std::find_if(std::begin(kValuePushes), std::end(kValuePushes),
                                    [type](const ValuePush& candidate) { return candidate.type == type; });
    return push != std::end(kValuePushes) ? push : nullptr;
}

bool WriteValuePush(const ValuePush& push, const SettingsStatusMapping& model, std::vector<int>& ids,
                    MemoryStream& stream) {
    stream << BleQueryResponse(push.category, push.queryType, static_cast<uint32_t>(BleSDK::SetKZErrNo(KZ_OK)));
    const unsigned short headerSize = stream.getLength();
    auto id = ids.begin();
    for (; id != ids.end(); ++id) {
        if (push.append(stream, model, *id)) {
            continue;
        }
        if (stream.getLength() != headerSize) {
            break;
        }
        LOG_ERROR("Entries of id:%d do not fit a push of %d bytes, leaving them out", *id, stream.getSourceLength());
    }
    ids.erase(ids.begin(), id);
    return stream.getLength() != headerSize;
}
