#include "changeFanOut.h"

#include "bleSDK.h"
#include "clientTable.h"
#include "radioPort.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

void LogAttempt(uint32_t connectionId) {
    LOG_TRACE("Pushing notification to client connection_id %d", connectionId);
}

void LogStatusDropped(const ble_message_t& record) {
    LOG_INFO("Status Push dropped because notify disabled on conn_id %d stream_id:%d", record.connectionId,
             record.streamId);
}

}  // namespace

// ---------------------------------------------------------------- the kinds of pushes

struct ChangeFanOut::PushKind {
    NotificationClient::eNotificationType_t type;
    NotificationClient::eNotificationType_t storedAs;
    void (SettingsStatusMapping::*changedIds)(std::vector<int>& ids) const;  // null: not a change of the model
    void (*logAttempt)(uint32_t connectionId);
    void (*logBuilt)(unsigned short length);
    void (*logDropped)(const ble_message_t& record);

    static const PushKind kSettings;
    static const PushKind kStatus;
    static const PushKind kCapabilities;
    static const PushKind kCsi;
};

const ChangeFanOut::PushKind ChangeFanOut::PushKind::kSettings = {
    NotificationClient::eNotifySettings,
    NotificationClient::eNotifySettings,
    &SettingsStatusMapping::GetChangedSettingsIds,
    [](uint32_t) {},
    [](unsigned short length) { LOG_INFO("Client provided data for push response, length:%d", length); },
    [](const ble_message_t& record) {
        LOG_INFO("Settings Push dropped because notify disabled on conn_id %d stream_id:%d", record.connectionId,
                 record.streamId);
    },
};

const ChangeFanOut::PushKind ChangeFanOut::PushKind::kStatus = {
    NotificationClient::eNotifyStatus,
    NotificationClient::eNotifyStatus,
    &SettingsStatusMapping::GetChangedStatusIds,
    LogAttempt,
    [](unsigned short) {},
    LogStatusDropped,
};

const ChangeFanOut::PushKind ChangeFanOut::PushKind::kCapabilities = {
    NotificationClient::eNotifyCapabilities,
    NotificationClient::eNotifyCapabilities,
    &SettingsStatusMapping::GetCapabilityChangedSettingsIds,
    [](uint32_t) {},
    [](unsigned short) {},
    [](const ble_message_t& record) {
        LOG_INFO("Capabilities Push dropped because notify disabled on conn_id %d stream_id:%d", record.connectionId,
                 record.streamId);
    },
};

// A feature notification waits in the entry of the status pushes.
const ChangeFanOut::PushKind ChangeFanOut::PushKind::kCsi = {
    NotificationClient::eNotifyCSI,
    NotificationClient::eNotifyStatus,
    nullptr,
    LogAttempt,
    [](unsigned short) {},
    LogStatusDropped,
};

// ---------------------------------------------------------------- one push

// Sends the push of this type that waits, if the queue has room for it now. It leaves before the new one, because a
// client is notified of changes in their order.
void ChangeFanOut::SendWaitingPush(const PushKind& kind, BleNotificationClient& client) {
    StoredResponse& waiting = *client.m_pushes.StoredPush(kind.storedAs);
    if (waiting.m_length == 0 ||
        PacketsNeeded(static_cast<unsigned>(waiting.m_length)) > m_radio.GetBleTxQueueAvailability()) {
        return;
    }
    const ble_message_t record = NewDataRecord(client.m_identity.m_connectionId, KZ_STR_ID_QUERY_RESPONSE);
    if (m_radio.PostResponse(record, waiting.m_data.get(), static_cast<unsigned short>(waiting.m_length))) {
        waiting.Clear();
    }
}

// Sends the push of `length` bytes in the buffer.
ChangeFanOut::PushResult ChangeFanOut::SendPush(const PushKind& kind, BleNotificationClient& client,
                                                unsigned short length) {
    const ble_message_t record = NewDataRecord(client.m_identity.m_connectionId, KZ_STR_ID_QUERY_RESPONSE);
    if (!client.m_answers.GetEnabledByStreamId(KZ_STR_ID_QUERY)) {
        kind.logDropped(record);
        return PushResult::kDropped;
    }
    SendWaitingPush(kind, client);
    if (!m_radio.PostResponse(record, m_msgBuffer.data(), length)) {
        LOG_ERROR("Failed to send a response of length %d to connection_id:%d, will buffer.", length,
                  record.connectionId);
        return PushResult::kNoRoom;
    }
    LOG_INFO("Response sent to client %d stream_id:%d", record.connectionId, record.streamId);
    return PushResult::kSent;
}

// ---------------------------------------------------------------- one client

// The part of the change that the client wants, because most clients want few ids of a large change.
std::vector<int>* ChangeFanOut::ChangeFor(const PushKind& kind, const BleNotificationClient& client) {
    if (kind.changedIds == nullptr) {
        return &m_changedIds;
    }
    m_remainingIds.clear();
    m_changed.AppendCommon(client.m_interests.SetOf(kind.type), m_remainingIds);
    return &m_remainingIds;
}

bool ChangeFanOut::PushToClient(const PushKind& kind, BleNotificationClient& client) {
    kind.logAttempt(client.m_identity.m_connectionId);
    ClientPushes& pushes = client.m_pushes;
    std::vector<int>* offered = ChangeFor(kind, client);
    std::vector<int>* notSent = &m_changedIds;  // all of it: the client may want more by the time there is room
    bool several = false;
    bool produced = false;
    for (;;) {
        unsigned short length = PushRoom(m_radio.GetLongestResponse());
        int kzErrno = KZ_OK;
        if (!pushes.ExecutePush(kind.type, *offered, m_msgBuffer.data(), &length, &kzErrno)) {
            return produced;
        }
        produced = true;
        several = several || !pushes.PushRemainder().empty();
        kind.logBuilt(length);
        const PushResult result = SendPush(kind, client, length);
        ++client.m_identity.m_pushCount;
        if (result == PushResult::kNoRoom && several) {
            pushes.DeferPush(kind.type, *notSent);
            return true;
        }
        if (result == PushResult::kNoRoom) {
            pushes.StorePushResponse(kind.storedAs, m_msgBuffer.data(), length);
        } else if (result == PushResult::kSent && kind.type == kind.storedAs) {
            // A push that still waits needs more room than the one just sent, so its values are older: build it anew.
            pushes.DeferStoredPush(kind.storedAs);
        }
        if (pushes.PushRemainder().empty()) {
            return true;
        }
        m_remainingIds = pushes.PushRemainder();
        offered = notSent = &m_remainingIds;
    }
}

// ---------------------------------------------------------------- all clients

// Offers m_changedIds to every client. The caller holds the lock.
bool ChangeFanOut::FanOut(const PushKind& kind) {
    bool produced = false;
    for (const auto& client : m_clients.Clients()) {
        produced = PushToClient(kind, *client) || produced;
    }
    return produced;
}

bool ChangeFanOut::NotifyOfCsiChange(std::optional<int> field) {
    m_changedIds.clear();
    if (field) {
        m_changedIds.push_back(*field);
    }
    return FanOut(PushKind::kCsi);
}

bool ChangeFanOut::NotifyOfModelChanges(const PushKind& kind) {
    const SettingsStatusMapping* model = BleSDK::LoadedMapping();
    if (model == nullptr) {
        LOG_ERROR("No Database!!");
        return false;
    }
    m_changedIds.clear();
    (model->*kind.changedIds)(m_changedIds);
    m_changed = IdSet(m_changedIds);
    const ClientLock lock(m_clients.Mutex());
    return FanOut(kind);
}

bool ChangeFanOut::NotifyClientsOfSettingsChanges() {
    return NotifyOfModelChanges(PushKind::kSettings);
}

bool ChangeFanOut::NotifyClientsOfStatusChanges() {
    return NotifyOfModelChanges(PushKind::kStatus);
}

bool ChangeFanOut::NotifyClientsOfSettingsCapabilitiesChanges() {
    return NotifyOfModelChanges(PushKind::kCapabilities);
}
