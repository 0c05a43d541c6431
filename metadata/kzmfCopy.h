// One copy of streams: the "DEVC" containers with a "STRM" container a stream. Its size and its bytes come from the
// same steps, so that they agree. For the writer's own sources; the caller holds the mutexes of the streams it adds.
#pragma once

#include <cstdint>

#include "kzmfContent.h"

// Bytes of a device's id and name in front of its streams.
inline uint32_t KzmfDeviceHeadSize(const kzmfStream& stream) {
    return kKzmfCounterSize + kKzmfHeaderSize + KzmfRoundUp4(KzmfNameLength(stream));
}

// Decides which streams share a device container: successive ones of the same device, as long as a container can say
// their length.
class KzmfDeviceRun {
  public:
    // Counts in a stream whose container takes `streamSize` bytes. True when a new device container begins with it.
    bool Begins(const kzmfStream& stream, uint32_t streamSize) {
        const bool begins = !m_open || m_deviceId != stream.deviceId || m_length + streamSize > kKzmfLongestContainer;
        if (begins) {
            m_open = true;
            m_deviceId = stream.deviceId;
            m_length = KzmfDeviceHeadSize(stream);
        }
        m_length += streamSize;
        return begins;
    }
    void End() { m_open = false; }

  private:
    bool m_open = false;
    uint32_t m_deviceId = 0;
    uint32_t m_length = 0;  // data of the container so far
};

// Adds up what a copy of streams will take.
class KzmfMeasure {
  public:
    explicit KzmfMeasure(uint32_t sessionRate) : m_sessionRate(sessionRate) {}

    void Add(const kzmfStream& stream) {
        if (KzmfIsPreformatted(stream)) {
            m_run.End();
            m_size += KzmfPreformattedSize(stream);
            return;
        }
        const uint32_t streamSize = kKzmfHeaderSize + KzmfStreamDataSize(stream, m_sessionRate);
        if (m_run.Begins(stream, streamSize)) {
            m_size += kKzmfHeaderSize + KzmfDeviceHeadSize(stream);
        }
        m_size += streamSize;
    }
    uint64_t size() const { return m_size; }

  private:
    uint32_t m_sessionRate;
    KzmfDeviceRun m_run;
    uint64_t m_size = 0;
};

// Writes a copy of streams into a buffer that is known to be large enough. A copy moves the streams on: idle ones are
// marked, and a thinned one changes their session phase.
class KzmfCopyWriter {
  public:
    KzmfCopyWriter(uint8_t* out, uint32_t sessionRate) : m_begin(out), m_out(out), m_sessionRate(sessionRate) {}

    void Add(kzmfStream& stream);
    // Closes the last container, when all streams are added. Returns the number of bytes written.
    uint32_t Finish();

  private:
    void Put(const uint8_t* bytes, uint32_t size);
    void PadFrom(uint32_t size);
    void OpenDevice(const kzmfStream& stream);
    void CloseDevice();
    void PutThinned(kzmfStream& stream);
    void PutSamples(const uint8_t* record, const KzmfThinning& thinning);

    uint8_t* m_begin;
    uint8_t* m_out;
    uint32_t m_sessionRate;
    KzmfDeviceRun m_run;
    uint8_t* m_device = nullptr;  // header of the open device container; null when none is open
};
