// AccessoryBuffers: the camera's newest display and LED buffers, for the accessories that show them. The first byte of
// each is left for the marker of its push.
//
// Command thread only, with the client table's lock held.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "messageBuffer.h"
#include "notificationClient.h"

class BleNotificationClient;
class ClientTable;
class RadioPort;

class AccessoryBuffers {
  public:
    static constexpr unsigned kLcdBufferSize = kMessageBufferSize;
    static constexpr unsigned kLedBufferSize = 19;  // a marker byte and 18 data bytes

    AccessoryBuffers(ClientTable& clients, RadioPort& radio) : m_clients(clients), m_radio(radio) {}

    // Keep a new buffer of at most the size above less one, and send it to the first client that asked for it. The
    // search for the LED buffer's client ends without one at a client whose firmware is being updated.
    void StoreLcdBuffer(std::span<const unsigned char> data);
    void StoreLedBuffer(std::span<const unsigned char> data);
    // Sends what is kept to a client that asked for it: one that connected later than the buffers came gets them with
    // its next answer.
    void SendTo(BleNotificationClient& client);
    // Send a buffer to a client if it asked for it; its first byte becomes the marker. False when it did not ask or the
    // radio queue has no room.
    bool sendLCDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length);
    bool sendLEDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length);

  private:
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
