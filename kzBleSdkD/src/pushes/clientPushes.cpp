#include "clientPushes.h"

#include <algorithm>
#include <iterator>

#include "MemStream.h"
#include "bleSDK.h"
#include "cameraStatus.h"
#include "featurePush.h"
#include "idSet.h"
#include "peer.h"
#include "queryEntries.h"
#include "settingsStatusMapping.h"
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

}  // namespace

ClientPushes::OwedPush& ClientPushes::Owed(const ValuePush& push) {
    return m_owed[static_cast<size_t>(push.stored - eStoredSettingsPush)];
}

// ---------------------------------------------------------------- building a push

bool ClientPushes::ExecutePush(Type type, std::vector<int>& ids, unsigned char* response,
                               unsigned short* responseLength, int* kzErrno) {
    *kzErrno = KZ_OK;
    m_pushRemainder.clear();
    const SettingsStatusMapping* model = BleSDK::LoadedMapping();
    if (model == nullptr) {
        LOG_ERROR("No Database");
        return false;
    }
    if (type == NotificationClient::eNotifyLcd || type == NotificationClient::eNotifyLed) {
        return ExecuteBufferPush(type, ids, response);
    }
    MemoryStream stream(response, *responseLength);
    bool built = false;
    if (const ValuePush* push = FindValuePush(type); push != nullptr) {
        built = ExecuteValuePush(*push, *model, ids, stream);
    } else if (type == NotificationClient::eNotifyCSI) {
        built = ExecuteFeaturePush(*model, ids, stream);
    } else {
        LOG_ERROR("Unhandled push type");
    }
    if (built) {
        *responseLength = stream.getLength();
    }
    return built;
}

bool ClientPushes::ExecuteValuePush(const ValuePush& push, const SettingsStatusMapping& model,
                                    const std::vector<int>& ids, MemoryStream& stream) {
    LOG_TRACE("%s", push.handlingText);
    if (m_peer.m_interests.Of(push.type).empty()) {
        push.logNoInterest(m_peer.m_identity.m_connectionId);
        return false;
    }
    const IdSet& interested = m_peer.m_interests.SetOf(push.type);
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(m_pushRemainder),
                 [&interested](int id) { return interested.Contains(id); });
    if (m_pushRemainder.empty()) {
        LOG_AT(push.noMatchLevel, "This client is has no matching ids in this push");
        return false;
    }
    push.logRead(m_pushRemainder.size());
    return WriteValuePush(push, model, m_pushRemainder, stream);
}

bool ClientPushes::ExecuteFeaturePush(const SettingsStatusMapping& model, const std::vector<int>& ids,
                                      MemoryStream& stream) {
    const std::vector<int>& interest = m_peer.m_interests.Of(NotificationClient::eNotifyCSI);
    if (interest.empty()) {
        LOG_INFO("m_interestedCSIs.size() == 0)");
        return false;
    }
    const uint32_t field = ids.empty() ? 0 : static_cast<uint32_t>(ids.back());
    return BuildFeaturePush({m_camera, model, interest, m_camera.GetLastCsiKey(), field}, stream);
}

bool ClientPushes::ExecuteBufferPush(Type type, const std::vector<int>& ids, unsigned char* response) {
    const bool lcd = type == NotificationClient::eNotifyLcd;
    const std::vector<int>& interest = m_peer.m_interests.Of(type);
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

StoredResponse* ClientPushes::StoredPush(Type type) {
    const ValuePush* push = FindValuePush(type);
    return push != nullptr ? &m_peer.m_answers.Entry(push->stored) : nullptr;
}

void ClientPushes::StorePushResponse(Type type, const unsigned char* data, int length) {
    const ValuePush* push = FindValuePush(type);
    if (push == nullptr) {
        LOG_ERROR("Unhandled notification type");
        return;
    }
    StoredResponse& entry = *StoredPush(type);
    if (entry.m_length > 0 && Owed(*push).stored) {
        DeferStoredPush(type);  // it is one of several pushes, which must all be sent: its ids are owed again
    }
    if (entry.m_length > 0) {
        LOG_ERROR("%s", push->replacingText);
    }
    entry.Store(data, length);
    Owed(*push).stored = false;
}

void ClientPushes::DeferPush(Type type, const std::vector<int>& ids) {
    const ValuePush* push = FindValuePush(type);
    if (push == nullptr) {
        return;
    }
    std::vector<int>& owed = Owed(*push).ids;
    owed.insert(owed.end(), ids.begin(), ids.end());
    SortUnique(owed);
}

void ClientPushes::DeferStoredPush(Type type) {
    const ValuePush* push = FindValuePush(type);
    if (push == nullptr) {
        return;
    }
    StoredResponse& entry = *StoredPush(type);
    if (entry.m_length < kValuePushHeaderSize || entry.m_data[0] != push->Header()) {
        return;
    }
    std::vector<int>& owed = Owed(*push).ids;
    CollectEntryIds(entry.m_data.get() + kValuePushHeaderSize,
                    static_cast<size_t>(entry.m_length - kValuePushHeaderSize), owed);
    SortUnique(owed);
    entry.Clear();
}

void ClientPushes::RefillStoredPushes(unsigned short room) {
    for (Type type : {NotificationClient::eNotifySettings, NotificationClient::eNotifyStatus,
                      NotificationClient::eNotifyCapabilities}) {
        StoredResponse& entry = *StoredPush(type);
        OwedPush& owed = Owed(*FindValuePush(type));
        if (owed.ids.empty() || entry.m_length > 0 || !entry.m_enabled) {
            continue;
        }
        unsigned char push[kPushBufferSize];
        unsigned short length = std::min<unsigned short>(room, sizeof(push));
        int kzErrno = KZ_OK;
        owed.stored = ExecutePush(type, owed.ids, push, &length, &kzErrno);
        if (owed.stored) {
            entry.Store(push, length);
        }
        owed.ids = m_pushRemainder;
    }
}

void ClientPushes::Reset() {
    m_owed = {};
    m_pushRemainder.clear();
}
