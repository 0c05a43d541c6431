// SensorStreams: the metadata streams of one accessory, with the keys under which its samples are stored. Holds the
// streams' buffers; the KZMF writer works in them for as long as they are open.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

class SensorStreams {
  public:
    static constexpr int kMaxMetadataStreams = 3;
    static constexpr int kMaxMetadataKeys = 20;
    static constexpr unsigned kMetadataStreamBufferSize = 3000;

    // A sensor key as registered by the accessory; free while its structure size is 0.
    struct MetadataKey {
        char fourCC[4] = {'N', 'N', 'N', 'N'};
        uint32_t keyIndex = 0;
        uint32_t streamIndex = 0;
        uint32_t type = 0;
        uint32_t structureSize = 0;
        uint32_t repeat = 0;
        uint32_t flags = 0;
    };

    // Allocates the zero-filled buffer of stream `index`, of kMetadataStreamBufferSize bytes. A stream that was there
    // is closed. Returns the buffer, which is the handle of the stream that is then opened in it; null for an index
    // outside 0 to 2.
    void* AddStreamBuffer(unsigned char index);
    // Frees the buffer of stream `index` when the stream could not be opened.
    void DropStreamBuffer(unsigned char index) { m_metadataStreams[index].reset(); }
    // The handle of stream `index`; null when there is none.
    void* MetadataStream(size_t index) const {
        return index < m_metadataStreams.size() ? m_metadataStreams[index].get() : nullptr;
    }
    // Closes the streams and frees their buffers, on disconnection. m_metadataStreamCount stays as it is.
    void RemoveStreams();
    void ResetAllMetadataStreams();

    std::string m_metadataDeviceName;
    uint8_t m_metadataStreamCount = 0;
    std::array<MetadataKey, kMaxMetadataKeys> m_metadataKeys{};

  private:
    // One buffer per registered stream, shared with the copies of a client record. The last owner closes the stream
    // before the buffer goes.
    std::array<std::shared_ptr<unsigned char[]>, kMaxMetadataStreams> m_metadataStreams;
};
