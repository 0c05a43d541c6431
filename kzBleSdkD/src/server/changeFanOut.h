// ChangeFanOut: notifies the clients of a change. It is offered to every client in table order; each builds its own
// push, or none, and the push leaves on the query response stream.
//
// A change set that does not fit one push goes out as several whole ones. What finds the radio queue full waits in the
// client: a single push as it is, where the newest replaces the older one of its type; the rest of several as ids,
// whose push is built from the values of the moment once there is room. A push that waits leaves before a later one of
// its type.
//
// Command thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "clientPushes.h"
#include "idSet.h"
#include "messageBuffer.h"

class BleNotificationClient;
class ClientTable;
class RadioPort;

class ChangeFanOut {
  public:
    // The buffer is where pushes are built.
    ChangeFanOut(ClientTable& clients, RadioPort& radio, MessageBuffer& buffer)
        : m_clients(clients), m_radio(radio), m_msgBuffer(buffer) {}

    // Notify of what the model has marked changed. Return true when any client produced a push. Take the lock.
    bool NotifyClientsOfSettingsChanges();
    bool NotifyClientsOfStatusChanges();
    bool NotifyClientsOfSettingsCapabilitiesChanges();

    // Notifies of the CSI key whose value the camera status stored last, with the field number of the value, if it has
    // one. True when any client produced a push. The caller holds the lock.
    bool NotifyOfCsiChange(std::optional<int> field);

  private:
    struct PushKind;
    enum class PushResult { kSent, kDropped, kNoRoom };

    bool NotifyOfModelChanges(const PushKind& kind);
    bool FanOut(const PushKind& kind);
    std::vector<int>* ChangeFor(const PushKind& kind, const BleNotificationClient& client);
    bool PushToClient(const PushKind& kind, BleNotificationClient& client);
    PushResult SendPush(const PushKind& kind, BleNotificationClient& client, unsigned short length);
    void SendWaitingPush(const PushKind& kind, BleNotificationClient& client);

    ClientTable& m_clients;
    RadioPort& m_radio;
    MessageBuffer& m_msgBuffer;
    // The vectors are kept for their capacity.
    std::vector<int> m_changedIds;    // the change set
    IdSet m_changed;                  // the same, if it is a change of the model
    std::vector<int> m_remainingIds;  // the part of it that one client has not been notified of yet
};
