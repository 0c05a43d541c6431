#include "kzmfCopy.h"

#include <cstring>

namespace {

void PutContainerHeader(uint8_t* place, uint32_t key, uint32_t length) {
    if (length > kKzmfLongestPlainContainer) {
        KzmfWriteHeader(place, key, kTypeContainer, 4, length / 4);
    } else {
        KzmfWriteHeader(place, key, kTypeContainer, 1, length);
    }
}

}  // namespace

void KzmfCopyWriter::Add(kzmfStream& stream) {
    if (KzmfIsPreformatted(stream)) {
        m_run.End();
        CloseDevice();
        Put(stream.payload.data + kKzmfHeaderSize, KzmfPreformattedSize(stream));
        return;
    }
    const uint32_t dataSize = KzmfStreamDataSize(stream, m_sessionRate);
    if (m_run.Begins(stream, kKzmfHeaderSize + dataSize)) {
        CloseDevice();
        OpenDevice(stream);
    }
    if (KzmfIsIdle(stream)) {
        KzmfMarkIdle(stream);
    }
    PutContainerHeader(m_out, kKeyStream, dataSize);
    m_out += kKzmfHeaderSize;
    Put(stream.sticky.data, stream.sticky.used);
    if (m_sessionRate == 0) {
        Put(stream.payload.data, stream.payload.used);
    } else {
        PutThinned(stream);
    }
}

uint32_t KzmfCopyWriter::Finish() {
    CloseDevice();
    return static_cast<uint32_t>(m_out - m_begin);
}

void KzmfCopyWriter::Put(const uint8_t* bytes, uint32_t size) {
    std::memcpy(m_out, bytes, size);
    m_out += size;
}

// Writes zeroes behind `size` bytes of data up to the next multiple of 4.
void KzmfCopyWriter::PadFrom(uint32_t size) {
    const uint32_t padding = KzmfRoundUp4(size) - size;
    std::memset(m_out, 0, padding);
    m_out += padding;
}

// Leaves room for the container's header, whose length is known when the device is closed.
void KzmfCopyWriter::OpenDevice(const kzmfStream& stream) {
    m_device = m_out;
    m_out += kKzmfHeaderSize;
    KzmfWriteHeader(m_out, kKeyDeviceId, 'L', 4, 1);
    KzmfWriteBE32(m_out + kKzmfHeaderSize, stream.deviceId);
    m_out += kKzmfCounterSize;
    const uint32_t nameLength = KzmfNameLength(stream);
    KzmfWriteHeader(m_out, kKeyDeviceName, 'c', 1, nameLength);
    m_out += kKzmfHeaderSize;
    Put(reinterpret_cast<const uint8_t*>(stream.name), nameLength);
    PadFrom(nameLength);
}

void KzmfCopyWriter::CloseDevice() {
    if (m_device != nullptr) {
        PutContainerHeader(m_device, kKeyDevice, static_cast<uint32_t>(m_out - m_device) - kKzmfHeaderSize);
        m_device = nullptr;
    }
}

void KzmfCopyWriter::PutThinned(kzmfStream& stream) {
    for (uint32_t at = 0; at < stream.payload.used; at += KzmfRecordSize(stream.payload.data + at)) {
        const uint8_t* record = stream.payload.data + at;
        if (KzmfIsThinned(record, m_sessionRate)) {
            PutSamples(record, KzmfThin(KzmfRecordRepeat(record), m_sessionRate, stream.sessionPhase));
        } else {
            Put(record, KzmfRecordSize(record));
        }
    }
}

void KzmfCopyWriter::PutSamples(const uint8_t* record, const KzmfThinning& thinning) {
    const uint32_t sampleSize = KzmfRecordStructureSize(record);
    Put(record, kKzmfHeaderSize);
    KzmfWriteBE16(m_out - 2, thinning.count);
    for (uint32_t i = 0; i < thinning.count; ++i) {
        const size_t sample = size_t{thinning.first} + size_t{i} * thinning.step;
        Put(record + kKzmfHeaderSize + sample * sampleSize, sampleSize);
    }
    PadFrom(thinning.count * sampleSize);
}
