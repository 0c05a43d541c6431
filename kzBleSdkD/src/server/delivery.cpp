#include "delivery.h"

#include <algorithm>

#include "changeFanOut.h"
#include "clientTable.h"
#include "dispatchTable.h"
#include "radioPort.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

// Where the answers to the requests of one stream go, and where they wait. The request stream is also their gate.
struct AnswerRow {
    uint8_t id;  // request stream
    uint8_t responseStream;
    eStoredResponse stored;
};
constexpr AnswerRow kAnswerRows[] = {
    {KZ_STR_ID_COMMAND, KZ_STR_ID_COMMAND_RESPONSE, eStoredCommand},
    {KZ_STR_ID_SETTINGS, KZ_STR_ID_SETTINGS_RESPONSE, eStoredSettings},
    {KZ_STR_ID_QUERY, KZ_STR_ID_QUERY_RESPONSE, eStoredQuery},
    {KZ_STR_ID_SENSOR, KZ_STR_ID_SENSOR_RESPONSE, eStoredSensor},
};
constexpr DispatchTable kAnswers(kAnswerRows);

void LogDropped(uint32_t connectionId, const AnswerRow& row) {
    if (row.id == KZ_STR_ID_COMMAND) {
        LOG_INFO("Response dropped because notify disabled on conn_id %d stream_id:%d for response:%d", connectionId,
                 row.id, row.responseStream);
    } else {
        LOG_INFO("Response dropped because notify disabled on conn_id %d stream_id:%d", connectionId, row.id);
    }
}

}  // namespace

// ---------------------------------------------------------------- answers

void Delivery::DeliverAnswer(BleNotificationClient& client, ble_message_t& record,
                             std::span<const unsigned char> answer) {
    const AnswerRow& row = *kAnswers.Find(record.streamId);
    const uint32_t connectionId = client.m_identity.m_connectionId;
    if (!client.GetEnabledByStreamId(row.id)) {
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
        SendStoredBuffers(client);
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
    client.m_pushes.RefillStoredPushes(PushRoom(m_radio));
    StoredResponse* stored = client.GetHighestPriorityStoredResponse();
    if (stored == nullptr) {
        return false;
    }
    const AnswerRow& row = *kAnswers.Find(static_cast<uint32_t>(stored->m_streamId));
    const ble_message_t record = NewDataRecord(client.m_identity.m_connectionId, row.responseStream);
    if (!m_radio.PostResponse(record, stored->m_data.get(), static_cast<unsigned short>(stored->m_length))) {
        return false;
    }
    stored->Clear();
    return true;
}

// ---------------------------------------------------------------- display and LED buffers

void Delivery::StoreLcdBuffer(std::span<const unsigned char> data) {
    LOG_INFO("LB command");
    m_lcdBuffer.fill(0);
    std::copy(data.begin(), data.end(), m_lcdBuffer.begin() + 1);
    m_lcdLength = static_cast<uint16_t>(data.size() + 1);
    for (const auto& client : m_clients.Clients()) {
        if (sendLCDBuffer(client.get(), m_lcdBuffer.data(), m_lcdLength)) {
            return;
        }
    }
}

void Delivery::StoreLedBuffer(std::span<const unsigned char> data) {
    LOG_INFO("BIRCH ACCESSORY LED BUFFER");
    m_ledBuffer.fill(0);
    std::copy(data.begin(), data.end(), m_ledBuffer.begin() + 1);
    m_ledLength = static_cast<uint16_t>(data.size() + 1);
    for (const auto& client : m_clients.Clients()) {
        if (client->IsTransferringLarch() || sendLEDBuffer(client.get(), m_ledBuffer.data(), m_ledLength)) {
            return;
        }
    }
}

// A sensor client that connects later than the buffers came gets them with its next answer.
void Delivery::SendStoredBuffers(BleNotificationClient& client) {
    if (m_lcdLength != 0) {
        sendLCDBuffer(&client, m_lcdBuffer.data(), m_lcdLength);
    }
    if (m_ledLength != 0) {
        sendLEDBuffer(&client, m_ledBuffer.data(), m_ledLength);
    }
}

bool Delivery::sendLCDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length) {
    return SendBuffer(NotificationClient::eNotifyLcd, *client, buffer, length);
}

bool Delivery::sendLEDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length) {
    return SendBuffer(NotificationClient::eNotifyLed, *client, buffer, length);
}

bool Delivery::SendBuffer(NotificationClient::eNotificationType_t type, BleNotificationClient& client,
                          unsigned char* buffer, unsigned short length) {
    const uint32_t connectionId = client.m_identity.m_connectionId;
    m_receiver.assign(1, static_cast<int>(connectionId));
    unsigned short pushLength = length;
    int kzErrno = KZ_OK;
    if (!client.ExecutePush(type, m_receiver, buffer, &pushLength, &kzErrno)) {
        return false;
    }
    return m_radio.PostResponse(NewDataRecord(connectionId, KZ_STR_ID_SENSOR_RESPONSE), buffer, length);
}
