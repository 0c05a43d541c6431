// BleNotificationClient: what a client wants to be told of, and the pushes that tell it.
#include <algorithm>
#include <iterator>

#include "MemStream.h"
#include "bleDevice.h"
#include "bleResponses.h"
#include "bleSDK.h"
#include "featurePush.h"
#include "idSet.h"
#include "kzBleServer.h"
#include "queryEntries.h"
#include "queryKinds.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleDevice.cpp";

// First bytes of the buffers that are pushed to sensor clients.
constexpr unsigned char kLcdMarker = 0x51;
constexpr unsigned char kLedMarker = 0x53;

bool Contains(const std::vector<int>& ids, int id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

void SortUnique(std::vector<int>& ids) {
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
}

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

}  // namespace

// ---------------------------------------------------------------- the pushes of values

struct BleNotificationClient::ValuePush {
    eNotificationType_t type;
    uint32_t category;
    uint32_t queryType;
    eStoredResponse stored;
    std::vector<int> BleNotificationClient::*interest;
    bool (*append)(MemoryStream& stream, const SettingsStatusMapping& model, int id);
    int noMatchLevel;
    const char* handlingText;
    const char* replacingText;
    void (*logNoInterest)(uint32_t connectionId);
    void (*logRead)(size_t count);
};

const BleNotificationClient::ValuePush* BleNotificationClient::FindValuePush(eNotificationType_t type) {
    static constexpr ValuePush kValuePushes[kValuePushTypes] = {
        {eNotifySettings, kCategorySettings, kQueryTypeValuePush, eStoredSettingsPush,
         &BleNotificationClient::m_settingsInterest, AppendSetting, KZ_LOG_TRACE,
         "Handling Settings Push Notifications", "Settings Push Notifications backed up, replacing oldest",
         [](uint32_t id) { LOG_TRACE("Connection_id:%d has no interest in ANY settings push.", id); }, [](size_t) {}},
        {eNotifyStatus, kCategoryStatus, kQueryTypeValuePush, eStoredStatusPush,
         &BleNotificationClient::m_statusInterest, AppendStatus, KZ_LOG_INFO, "Handling Status Push Notifications",
         "Status Push Notifications backed up, replacing oldest",
         [](uint32_t id) { LOG_TRACE("Connection_id:%d has no interest in ANY status push.", id); },
         [](size_t count) { LOG_INFO("Got %d values back", static_cast<int>(count)); }},
        {eNotifyCapabilities, kCategorySettings, kQueryTypeCapabilityPush, eStoredCapabilitiesPush,
         &BleNotificationClient::m_capabilitiesInterest, AppendCapability, KZ_LOG_TRACE,
         "Handling SettingsCapabilities Push Notifications",
         "Capabilities Push Notifications backed up, replacing oldest",
         [](uint32_t id) { LOG_TRACE("Connection_id:%d has no interest in ANY capabilities push.", id); },
         [](size_t) { LOG_TRACE("Get Settings Capability Values"); }},
    };
    const auto* push = std::find_if(std::begin(kValuePushes), std::end(kValuePushes),
                                    [type](const ValuePush& candidate) { return candidate.type == type; });
    return push != std::end(kValuePushes) ? push : nullptr;
}

BleNotificationClient::OwedPush& BleNotificationClient::Owed(const ValuePush& push) {
    return m_owed[static_cast<size_t>(push.stored - eStoredSettingsPush)];
}

// ---------------------------------------------------------------- interests

std::vector<int>* BleNotificationClient::InterestList(eNotificationType_t type) {
    switch (type) {
        case eNotifyStatus:
            return &m_statusInterest;
        case eNotifySettings:
            return &m_settingsInterest;
        case eNotifyCapabilities:
            return &m_capabilitiesInterest;
        case eNotifyCSI:
            return &m_interestedCSIs;
        case eNotifyLcd:
            return &m_lcdInterest;
        case eNotifyLed:
            return &m_ledInterest;
    }
    return nullptr;
}

bool BleNotificationClient::AddInterest(eNotificationType_t type, int id) {
    std::vector<int>* list = InterestList(type);
    if (list != nullptr && !Contains(*list, id)) {
        list->push_back(id);
    }
    return true;
}

bool BleNotificationClient::AddInterest(eNotificationType_t type, std::vector<int> ids) {
    std::vector<int>* list = InterestList(type);
    if (list != nullptr) {
        list->insert(list->end(), ids.begin(), ids.end());
        SortUnique(*list);
    }
    return true;
}

bool BleNotificationClient::AddInterestAll(eNotificationType_t type) {
    if (type == eNotifyLcd || type == eNotifyLed) {
        InterestList(type)->clear();
        return true;
    }
    const SettingsStatusMapping* model = FindValuePush(type) != nullptr ? BleSDK::LoadedMapping() : nullptr;
    if (model == nullptr) {
        return true;
    }
    if (type == eNotifyStatus) {
        model->GetValidStatusIds(*InterestList(type));
    } else {
        model->GetValidSettingsIds(*InterestList(type));
    }
    return true;
}

bool BleNotificationClient::RemoveInterest(eNotificationType_t type, int id) {
    std::vector<int>* list = InterestList(type);
    if (list != nullptr) {
        std::erase(*list, id);
    }
    return true;
}

bool BleNotificationClient::RemoveInterest(eNotificationType_t type, std::vector<int> ids) {
    std::vector<int>* list = InterestList(type);
    if (list != nullptr) {
        std::erase_if(*list, [&ids](int id) { return Contains(ids, id); });
        std::sort(list->begin(), list->end());
    }
    return true;
}

bool BleNotificationClient::RemoveInterestAll(eNotificationType_t type) {
    std::vector<int>* list = type != eNotifyCSI ? InterestList(type) : nullptr;
    if (list != nullptr) {
        list->clear();
    }
    return true;
}

// ---------------------------------------------------------------- building a push

bool BleNotificationClient::ExecutePush(eNotificationType_t type, std::vector<int>& ids, unsigned char* response,
                                        unsigned short* responseLength, int* kzErrno) {
    *kzErrno = KZ_OK;
    m_pushRemainder.clear();
    const SettingsStatusMapping* model = BleSDK::LoadedMapping();
    if (model == nullptr) {
        LOG_ERROR("No Database");
        return false;
    }
    MemoryStream stream(response, *responseLength);
    switch (type) {
        case eNotifyStatus:
        case eNotifySettings:
        case eNotifyCapabilities:
            if (!ExecuteValuePush(*FindValuePush(type), *model, ids, stream)) {
                return false;
            }
            break;
        case eNotifyCSI: {
            if (m_interestedCSIs.empty()) {
                LOG_INFO("m_interestedCSIs.size() == 0)");
                return false;
            }
            const uint32_t field = ids.empty() ? 0 : static_cast<uint32_t>(ids.back());
            if (!BuildFeaturePush(KzBleServer::GetInstance()->GetLastCsiKey(), field, m_interestedCSIs, *model,
                                  stream)) {
                return false;
            }
            break;
        }
        case eNotifyLcd:
        case eNotifyLed:
            return ExecuteBufferPush(type, ids, response);
        default:
            LOG_ERROR("Unhandled push type");
            return false;
    }
    *responseLength = stream.getLength();
    return true;
}

bool BleNotificationClient::ExecuteValuePush(const ValuePush& push, const SettingsStatusMapping& model,
                                             const std::vector<int>& ids, MemoryStream& stream) {
    LOG_TRACE("%s", push.handlingText);
    const std::vector<int>& interest = this->*push.interest;
    if (interest.empty()) {
        push.logNoInterest(m_connectionId);
        return false;
    }
    const IdSet interested(interest);
    const auto matches = [&interested](int id) { return interested.Contains(id); };
    // What is to be told; at the end, what is left of it.
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(m_pushRemainder), matches);
    if (m_pushRemainder.empty()) {
        LOG_AT(push.noMatchLevel, "This client is has no matching ids in this push");
        return false;
    }
    push.logRead(m_pushRemainder.size());

    stream << BleQueryResponse(push.category, push.queryType, static_cast<uint32_t>(BleSDK::SetKZErrNo(KZ_OK)));
    const unsigned short headerSize = stream.getLength();
    auto id = m_pushRemainder.begin();
    for (; id != m_pushRemainder.end(); ++id) {
        if (push.append(stream, model, *id)) {
            continue;
        }
        if (stream.getLength() != headerSize) {
            break;
        }
        LOG_ERROR("Entries of id:%d do not fit a push of %d bytes, leaving them out", *id, stream.getSourceLength());
    }
    m_pushRemainder.erase(m_pushRemainder.begin(), id);
    return stream.getLength() != headerSize;
}

bool BleNotificationClient::ExecuteBufferPush(eNotificationType_t type, const std::vector<int>& ids,
                                              unsigned char* response) {
    const bool lcd = type == eNotifyLcd;
    const std::vector<int>& interest = *InterestList(type);
    if (interest.empty()) {
        if (lcd) {
            LOG_DEBUG("Failed to find a client interested in RCs");
        } else {
            LOG_DEBUG("Failed to find a client interested in Birchs");
        }
        return false;
    }
    const bool wanted = std::any_of(interest.begin(), interest.end(), [&ids](int id) { return Contains(ids, id); });
    if (wanted) {
        response[0] = lcd ? kLcdMarker : kLedMarker;
    }
    return wanted;
}

// ---------------------------------------------------------------- pushes that wait

BleNotificationClient::StoredResponse* BleNotificationClient::StoredPush(eNotificationType_t type) {
    const ValuePush* push = FindValuePush(type);
    return push != nullptr ? &m_storedResponses[static_cast<size_t>(push->stored)] : nullptr;
}

void BleNotificationClient::StorePushResponse(eNotificationType_t type, const unsigned char* data, int length) {
    const ValuePush* push = FindValuePush(type);
    if (push == nullptr) {
        LOG_ERROR("Unhandled notification type");
        return;
    }
    StoredResponse& entry = *StoredPush(type);
    if (entry.m_length > 0 && Owed(*push).stored) {
        DeferStoredPush(type);  // one of several pushes: told again later, not replaced
    }
    if (entry.m_length > 0) {
        LOG_ERROR("%s", push->replacingText);
    }
    entry.Store(data, length);
    Owed(*push).stored = false;
}

void BleNotificationClient::DeferPush(eNotificationType_t type, const std::vector<int>& ids) {
    const ValuePush* push = FindValuePush(type);
    if (push == nullptr) {
        return;
    }
    std::vector<int>& owed = Owed(*push).ids;
    owed.insert(owed.end(), ids.begin(), ids.end());
    SortUnique(owed);
}

void BleNotificationClient::DeferStoredPush(eNotificationType_t type) {
    const ValuePush* push = FindValuePush(type);
    if (push == nullptr) {
        return;
    }
    StoredResponse& entry = *StoredPush(type);
    const auto header = static_cast<unsigned char>(push->category | push->queryType << 4);
    constexpr int kHeaderSize = 2;
    if (entry.m_length < kHeaderSize || entry.m_data[0] != header) {
        return;
    }
    std::vector<int>& owed = Owed(*push).ids;
    CollectEntryIds(entry.m_data.get() + kHeaderSize, static_cast<size_t>(entry.m_length - kHeaderSize), owed);
    SortUnique(owed);
    entry.Clear();
}

void BleNotificationClient::RefillStoredPushes() {
    for (eNotificationType_t type : {eNotifySettings, eNotifyStatus, eNotifyCapabilities}) {
        StoredResponse& entry = *StoredPush(type);
        OwedPush& owed = Owed(*FindValuePush(type));
        if (owed.ids.empty() || entry.m_length > 0 || !entry.m_enabled) {
            continue;
        }
        unsigned char push[kPushBufferSize];
        unsigned short length = KzBleServer::GetInstance()->GetPushRoom();
        int kzErrno = KZ_OK;
        owed.stored = ExecutePush(type, owed.ids, push, &length, &kzErrno);
        if (owed.stored) {
            entry.Store(push, length);
        }
        owed.ids = m_pushRemainder;
    }
}
