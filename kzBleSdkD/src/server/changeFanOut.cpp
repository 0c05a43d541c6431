// The fan-out of changes: every client gets the chance to build a push, which leaves on the query response stream.
#include "MemStream.h"
#include "bleSDK.h"
#include "kzBleServer.h"
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

struct KzBleServer::PushKind {
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

const KzBleServer::PushKind KzBleServer::PushKind::kSettings = {
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

const KzBleServer::PushKind KzBleServer::PushKind::kStatus = {
    NotificationClient::eNotifyStatus,
    NotificationClient::eNotifyStatus,
    &SettingsStatusMapping::GetChangedStatusIds,
    LogAttempt,
    [](unsigned short) {},
    LogStatusDropped,
};

const KzBleServer::PushKind KzBleServer::PushKind::kCapabilities = {
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
const KzBleServer::PushKind KzBleServer::PushKind::kCsi = {
    NotificationClient::eNotifyCSI,
    NotificationClient::eNotifyStatus,
    nullptr,
    LogAttempt,
    [](unsigned short) {},
    LogStatusDropped,
};

// ---------------------------------------------------------------- one push

// Sends what waits of this type, if the queue has room for it now: a client hears of changes in their order.
void KzBleServer::SendWaitingPush(const PushKind& kind, BleNotificationClient& client) {
    BleNotificationClient::StoredResponse& waiting = *client.StoredPush(kind.storedAs);
    if (waiting.m_length == 0 || PacketsNeeded(static_cast<unsigned>(waiting.m_length)) > GetBleTxQueueAvailability()) {
        return;
    }
    ble_message_t record = NewDataRecord(client.m_connectionId, KZ_STR_ID_QUERY_RESPONSE);
    if (PostResponse(record, waiting.m_data.get(), static_cast<unsigned short>(waiting.m_length))) {
        waiting.Clear();
    }
}

// Sends the push in m_msgBuffer.
KzBleServer::PushResult KzBleServer::SendPush(const PushKind& kind, BleNotificationClient& client,
                                              unsigned short length) {
    ble_message_t record = NewDataRecord(client.m_connectionId, KZ_STR_ID_QUERY_RESPONSE);
    if (!client.GetEnabledByStreamId(KZ_STR_ID_QUERY)) {
        kind.logDropped(record);
        return PushResult::kDropped;
    }
    SendWaitingPush(kind, client);
    if (!PostResponse(record, m_msgBuffer.get(), length)) {
        LOG_ERROR("Failed to send a response of length %d to connection_id:%d, will buffer.", length,
                  client.m_connectionId);
        return PushResult::kNoRoom;
    }
    LOG_INFO("Response sent to client %d stream_id:%d", client.m_connectionId, record.streamId);
    return PushResult::kSent;
}

// ---------------------------------------------------------------- one client

bool KzBleServer::PushToClient(const PushKind& kind, BleNotificationClient& client, std::vector<int>& ids) {
    kind.logAttempt(client.m_connectionId);
    std::vector<int>* offered = &ids;
    bool several = false;
    bool produced = false;
    for (;;) {
        unsigned short length = GetPushRoom();
        int kzErrno = KZ_OK;
        if (!client.ExecutePush(kind.type, *offered, m_msgBuffer.get(), &length, &kzErrno)) {
            return produced;
        }
        produced = true;
        several = several || !client.PushRemainder().empty();
        kind.logBuilt(length);
        const PushResult result = SendPush(kind, client, length);
        ++client.m_pushCount;
        if (result == PushResult::kNoRoom && several) {
            client.DeferPush(kind.type, *offered);
            return true;
        }
        if (result == PushResult::kNoRoom) {
            client.StorePushResponse(kind.storedAs, m_msgBuffer.get(), length);
        } else if (result == PushResult::kSent && kind.type == kind.storedAs) {
            client.DeferStoredPush(kind.storedAs);  // it was too long to leave before this one
        }
        if (client.PushRemainder().empty()) {
            return true;
        }
        m_remainingIds = client.PushRemainder();
        offered = &m_remainingIds;
    }
}

// ---------------------------------------------------------------- all clients

// The caller holds the lock.
bool KzBleServer::FanOut(const PushKind& kind, std::vector<int>& ids) {
    bool produced = false;
    for (const auto& client : m_clients) {
        produced = PushToClient(kind, *client, ids) || produced;
    }
    return produced;
}

bool KzBleServer::FanOutCsiChange() {
    return FanOut(PushKind::kCsi, m_changedIds);
}

bool KzBleServer::NotifyOfModelChanges(const PushKind& kind) {
    const SettingsStatusMapping* model = BleSDK::LoadedMapping();
    if (model == nullptr) {
        LOG_ERROR("No Database!!");
        return false;
    }
    m_changedIds.clear();
    (model->*kind.changedIds)(m_changedIds);
    const Lock lock(&m_clientMutex);
    return FanOut(kind, m_changedIds);
}

bool KzBleServer::NotifyClientsOfSettingsChanges() {
    return NotifyOfModelChanges(PushKind::kSettings);
}

bool KzBleServer::NotifyClientsOfStatusChanges() {
    return NotifyOfModelChanges(PushKind::kStatus);
}

bool KzBleServer::NotifyClientsOfSettingsCapabilitiesChanges() {
    return NotifyOfModelChanges(PushKind::kCapabilities);
}
