#include "delivery.h"

#include "accessoryBuffers.h"
#include "clientTable.h"
#include "radioPort.h"
#include "requestInterfaces.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

void LogDropped(uint32_t connectionId, const RequestInterface& row) {
    if (row.id == KZ_STR_ID_COMMAND) {
        LOG_INFO("Response dropped because notify disabled on conn_id %d stream_id:%d for response:%d", connectionId,
                 row.id, row.responseStream);
    } else {
        LOG_INFO("Response dropped because notify disabled on conn_id %d stream_id:%d", connectionId, row.id);
    }
}

}  // namespace

void Delivery::DeliverAnswer(const RequestInterface& row, BleNotificationClient& client, ble_message_t& record,
                             std::span<const unsigned char> answer) {
    const uint32_t connectionId = client.m_identity.m_connectionId;
    if (!client.m_answers.GetEnabledByStreamId(row.id)) {
        LogDropped(connectionId, row);
        return;
    }
    const auto length = static_cast<unsigned short>(answer.size());
    record.streamId = row.responseStream;
    if (!m_radio.PostResponse(record, answer.data(), length)) {
        LOG_ERROR("Failed to send a response of length %d to connection_id:%d", length, connectionId);
        client.m_answers.Entry(row.stored).Store(answer.data(), length);
        return;
    }
    LOG_INFO("Response sent to client %d stream_id:%d", connectionId, row.responseStream);
    if (row.id == KZ_STR_ID_SENSOR) {
        m_buffers.SendTo(client);
    }
}

bool Delivery::CheckClientsStoredResponses() {
    if (m_radio.GetBleTxQueueAvailability() == 0) {
        return false;
    }
    bool sent = false;
    const ClientLock lock(m_clients.Mutex());
    for (const auto& client : m_clients.Clients()) {
        if (m_radio.GetBleTxQueueAvailability() > 0 && SendStoredResponse(*client)) {
            sent = true;
        }
    }
    return sent;
}

bool Delivery::SendStoredResponse(BleNotificationClient& client) {
    client.m_pushes.RefillStoredPushes(PushRoom(m_radio.GetLongestResponse()));
    StoredResponse* stored = client.m_answers.GetHighestPriorityStoredResponse();
    if (stored == nullptr) {
        return false;
    }
    const RequestInterface& row = *kRequestInterfaces.Find(static_cast<uint32_t>(stored->m_streamId));
    const ble_message_t record = NewDataRecord(client.m_identity.m_connectionId, row.responseStream);
    if (!m_radio.PostResponse(record, stored->m_data.get(), static_cast<unsigned short>(stored->m_length))) {
        return false;
    }
    stored->Clear();
    return true;
}
