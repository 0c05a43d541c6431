// SensorHandOver: gives the samples of all sensor streams to the camera's metadata service.
//
// A hand-over sends one IPC record, or several when the streams do not fit one:
//   0  4  sequence number, little-endian: 49 first, from 64 back to 48
//   4  n  a KZMF payload
//
// When: every second tick, for all streams; at once when the unsent samples come near what a record holds, and before a
// client's streams are closed, for the streams with unsent samples or sticky values alone. So a stream is emptied long
// before its area is full. Once the service hung, it is not asked again before the next session: what is handed over
// until then is lost.
//
// Command thread only, with the client table's lock held.
#pragma once

#include <array>
#include <cstdint>

class SensorHandOver {
  public:
    // A session is two ticks long: on every second one, while a stream is open, all streams are to be handed over.
    static bool IsSessionOver(uint32_t tick);
    // Hands over all streams.
    void writeSession();
    // Hands over what is unsent if the next sample might not fit one record together with it.
    void HandOverIfNearLimit();
    // Hands over the unsent samples and sticky values, if there are any.
    void HandOverUnsent();

  private:
    static constexpr uint32_t kSequenceSize = 4;
    static constexpr uint32_t kPayloadBudget = 4000;
    static constexpr uint32_t kFirstSequenceNumber = 49;

    void HandOver(bool unsentOnly);
    void HandOverPayload(uint32_t size);
    void WriteSequenceNumber();
    uint8_t* Payload() { return m_record.data() + kSequenceSize; }

    bool m_hung = false;                               // since the last session began
    uint32_t m_sequenceNumber = kFirstSequenceNumber;  // of the next record
    std::array<uint8_t, kSequenceSize + kPayloadBudget> m_record{};
};
