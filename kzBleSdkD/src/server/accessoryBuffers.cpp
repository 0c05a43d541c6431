#include "accessoryBuffers.h"

#include <algorithm>

#include "clientTable.h"
#include "radioPort.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

}  // namespace

void AccessoryBuffers::StoreLcdBuffer(std::span<const unsigned char> data) {
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

void AccessoryBuffers::StoreLedBuffer(std::span<const unsigned char> data) {
    LOG_INFO("BIRCH ACCESSORY LED BUFFER");
    m_ledBuffer.fill(0);
    std::copy(data.begin(), data.end(), m_ledBuffer.begin() + 1);
    m_ledLength = static_cast<uint16_t>(data.size() + 1);
    for (const auto& client : m_clients.Clients()) {
        if (client->m_file.IsTransferringLarch() || sendLEDBuffer(client.get(), m_ledBuffer.data(), m_ledLength)) {
            return;
        }
    }
}

void AccessoryBuffers::SendTo(BleNotificationClient& client) {
    if (m_lcdLength != 0) {
        sendLCDBuffer(&client, m_lcdBuffer.data(), m_lcdLength);
    }
    if (m_ledLength != 0) {
        sendLEDBuffer(&client, m_ledBuffer.data(), m_ledLength);
    }
}

bool AccessoryBuffers::sendLCDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length) {
    return SendBuffer(NotificationClient::eNotifyLcd, *client, buffer, length);
}

bool AccessoryBuffers::sendLEDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length) {
    return SendBuffer(NotificationClient::eNotifyLed, *client, buffer, length);
}

bool AccessoryBuffers::SendBuffer(NotificationClient::eNotificationType_t type, BleNotificationClient& client,
                                  unsigned char* buffer, unsigned short length) {
    const uint32_t connectionId = client.m_identity.m_connectionId;
    m_receiver.assign(1, static_cast<int>(connectionId));
    unsigned short pushLength = length;
    int kzErrno = KZ_OK;
    if (!client.m_pushes.ExecutePush(type, m_receiver, buffer, &pushLength, &kzErrno)) {
        return false;
    }
    return m_radio.PostResponse(NewDataRecord(connectionId, KZ_STR_ID_SENSOR_RESPONSE), buffer, length);
}
