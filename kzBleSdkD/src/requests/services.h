// What the handlers of requests may use beyond their peer's own parts, and how they get it.
#pragma once

#include <cstdint>

#include "blePacketHeader.h"
#include "messageBuilders.h"

class CameraStatus;
class SensorHandOver;
class TransferSlot;

// Owned by the server; it outlives every client that is attached to it.
struct Services {
    CameraStatus& camera;
    SensorHandOver& sensorHandOver;
    TransferSlot& transferSlot;
    // Bytes of the longest response that the radio queue takes when it is empty: a longer one could never be sent.
    uint16_t longestResponse = kMaxExtendedLength;
};

// The services of clients that no server has taken in: a camera of which nothing is known yet, and a sensor hand-over
// and transfer slot that these clients share.
const Services& DetachedServices();

// A message whose handlers use services: DetachedServices until Attach is called.
class ServedMessage : public FragmentedMessageBuilder {
  public:
    using FragmentedMessageBuilder::FragmentedMessageBuilder;

    void Attach(const Services& services) { m_services = &services; }

  protected:
    const Services& services() const { return *m_services; }

  private:
    const Services* m_services = &DetachedServices();
};
