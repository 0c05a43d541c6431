// Answers: the notification gates of one client, and the answers and pushes that wait for room in the radio queue. Each
// kind has one entry, which holds the newest of its kind and the gate of its stream.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

struct Identity;

// A response, a push or a packet of a file that waits to be sent, and the gate of its stream.
class StoredResponse {
  public:
    StoredResponse() = default;
    explicit StoredResponse(int streamId) : m_streamId(streamId) {}

    // Replaces the held data by a copy. The storage is reused when it is large enough.
    void Store(const unsigned char* data, int length);
    // Frees the held data.
    void Clear();

    int m_length = 0;  // bytes held; 0 means empty
    std::unique_ptr<unsigned char[]> m_data;
    bool m_enabled = false;  // the notification gate; closed until the client opens it
    int m_streamId = 0;      // request stream whose answers this entry gates: 2, 7, 12 or 17

  private:
    int m_capacity = 0;  // bytes of m_data
};

// The entries in priority order.
enum eStoredResponse : unsigned {
    eStoredCommand = 0,
    eStoredSettingsPush,
    eStoredStatusPush,
    eStoredCapabilitiesPush,
    eStoredSettings,
    eStoredQuery,
    eStoredSensor,
    eStoredCount,
};

class Answers {
  public:
    // Starts empty and with all gates closed. `identity` must outlive it.
    explicit Answers(const Identity& identity);
    Answers(const Answers&) = delete;
    Answers& operator=(const Answers&) = delete;

    // Whether answers to this request stream (2, 7, 12, 17) may be sent.
    bool GetEnabledByStreamId(unsigned char streamId) const;
    // The client wrote a notification-enable descriptor (5, 10, 15, 20); 1 enables, anything else disables. Another
    // descriptor is logged and ignored.
    void SetCCCEnabled(unsigned char cccStreamId, unsigned char value);
    // Opens all gates: the camera is the central of a sensor, which has no descriptors to write.
    void SetSensorCCCEnabled();

    StoredResponse& Entry(eStoredResponse index) { return m_storedResponses[index]; }
    // The first entry in priority order that is enabled and holds data; null if none.
    StoredResponse* GetHighestPriorityStoredResponse();

    // Forgets everything stored and closes all gates.
    void Reset();
    // Logs gates and stored lengths at level 5.
    void Dump() const;

  private:
    const Identity& m_identity;
    std::array<StoredResponse, eStoredCount> m_storedResponses;
};
