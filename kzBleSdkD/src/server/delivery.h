// Delivery: the last step to a client. Answers leave if their gate is open and the radio queue has room; what finds no
// room waits in the client and is tried again on each tick. Keeps the camera's display and LED buffers for the
// accessories that show them.
//
// Command thread only, with the client table's lock held unless said otherwise.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "messageBuffer.h"
#include "notificationClient.h"
#include "skylark/bleMessage.h"

class BleNotificationClient;
class ClientTable;
class RadioPort;

class Delivery {
  public:
    Delivery(ClientTable& clients, RadioPort& radio) : m_clients(clients), m_radio(radio) {}

    // ---- answers

    // Delivers the answer to the request that came in `record`, whose stream says which interface it is of; the record
    // is used again for the answer. Sends it, stores it in the client when the queue has no room, or drops it at a
    // closed gate.
    void DeliverAnswer(BleNotificationClient& client, ble_message_t& record, std::span<const unsigned char> answer);
    // Tries to send what is stored, one answer or push a client. True when any was sent. Takes the lock.
    bool CheckClientsStoredResponses();

    // ---- display and LED buffers. The first byte of a buffer is left for the marker of its push.

    static constexpr unsigned kLcdBufferSize = kMessageBufferSize;
    static constexpr unsigned kLedBufferSize = 19;  // a marker byte and 18 data bytes

    // Keep a new buffer of at most the size above less one, and send it to the first client that asked for it. The
    // search for the LED buffer's client ends without one at a client whose firmware is being updated.
    void StoreLcdBuffer(std::span<const unsigned char> data);
    void StoreLedBuffer(std::span<const unsigned char> data);
    // Send a buffer to a client if it asked for it; its first byte becomes the marker. False when it did not ask or the
    // queue has no room.
    bool sendLCDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length);
    bool sendLEDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length);

  private:
    bool SendStoredResponse(BleNotificationClient& client);
    void SendStoredBuffers(BleNotificationClient& client);
    bool SendBuffer(NotificationClient::eNotificationType_t type, BleNotificationClient& client, unsigned char* buffer,
                    unsigned short length);

    ClientTable& m_clients;
    RadioPort& m_radio;
    std::array<unsigned char, kLcdBufferSize> m_lcdBuffer{};
    std::array<unsigned char, kLedBufferSize> m_ledBuffer{};
    uint16_t m_lcdLength = 0;  // bytes, the marker counted; 0 before the first buffer
    uint16_t m_ledLength = 0;
    std::vector<int> m_receiver;  // the one connection id of a buffer push; kept for its capacity
};
