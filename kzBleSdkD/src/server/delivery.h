// Delivery: the last step of an answer. It leaves if its gate is open and the radio queue has room; what finds no room
// waits in the client and is tried again on each tick, as are the pushes that wait there.
//
// Command thread only.
#pragma once

#include <span>

#include "skylark/bleMessage.h"

class AccessoryBuffers;
class BleNotificationClient;
class ClientTable;
class RadioPort;
struct RequestInterface;

class Delivery {
  public:
    Delivery(ClientTable& clients, RadioPort& radio, AccessoryBuffers& buffers)
        : m_clients(clients), m_radio(radio), m_buffers(buffers) {}

    // Delivers the answer to the request that came in `record` on interface `row`; the record is used again for the
    // answer. Sends it, stores it in the client when the queue has no room, or drops it at a closed gate. An answer of
    // the sensor interface is followed by the accessory buffers. The caller holds the lock.
    void DeliverAnswer(const RequestInterface& row, BleNotificationClient& client, ble_message_t& record,
                       std::span<const unsigned char> answer);
    // Tries to send what is stored, one answer or push a client. True when any was sent. Takes the lock.
    bool CheckClientsStoredResponses();

  private:
    bool SendStoredResponse(BleNotificationClient& client);

    ClientTable& m_clients;
    RadioPort& m_radio;
    AccessoryBuffers& m_buffers;
};
