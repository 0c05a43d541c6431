#include "sensorStreams.h"

#include "kzmfWriter.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleDevice.cpp";

// Closes the stream before it frees its buffer: the writer must not keep a stream whose buffer is gone.
void ReleaseStreamBuffer(unsigned char* buffer) {
    const std::unique_ptr<unsigned char[]> owned(buffer);
    MetadataStreamClose(buffer);
}

}  // namespace

void* SensorStreams::AddStreamBuffer(unsigned char index) {
    if (index >= m_metadataStreams.size()) {
        return nullptr;
    }
    m_metadataStreams[index] = {std::make_unique<unsigned char[]>(kMetadataStreamBufferSize).release(),
                                ReleaseStreamBuffer};
    return m_metadataStreams[index].get();
}

void SensorStreams::RemoveStreams() {
    LOG_INFO("Disconnect so remove %d streams", m_metadataStreamCount);
    for (size_t i = 0; i < m_metadataStreamCount && i < m_metadataStreams.size(); ++i) {
        if (MetadataStreamClose(m_metadataStreams[i].get()) == nullptr) {
            LOG_ERROR("Error RemoveStreams");
        }
        m_metadataStreams[i].reset();
    }
}

void SensorStreams::ResetAllMetadataStreams() {
    for (size_t i = 0; i < m_metadataStreamCount && i < m_metadataStreams.size(); ++i) {
        LOG_INFO("ResetAllMetadataStreams");
        MetadataStreamReset(m_metadataStreams[i].get());
    }
}
