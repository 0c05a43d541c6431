// The operations of MemoryStream that are seldom called, and its dumps.
#include "MemStream.h"

#include <string>

#include "utils.h"

namespace {

constexpr const char* kLogTag = "MemStream.cpp";
constexpr const char* kPath = "kzBleSdkD/lib/MemStream";
constexpr unsigned kDumpLineBytes = 16;

}  // namespace

// The assertions name the operation that all operators call in the end.
void MemoryStream::writeFailed() {
    kzAssertFailedTraced(kPath, "writeArray", __LINE__, "(m_index + len) <= m_sourceLen");
}

void MemoryStream::readFailed() {
    kzAssertFailedTraced(kPath, "readArray", __LINE__, "m_index + len <= m_sourceLen");
}

void MemoryStream::writeRemainder(const MemoryStream& other) {
    const unsigned short len = other.getRemainder();
    if (m_index + len > m_sourceLen) {
        writeFailed();
    }
    if (len != 0) {
        std::memmove(m_buffer + m_index, other.m_buffer + other.m_index, len);
        m_index = static_cast<unsigned short>(m_index + len);
    }
}

void MemoryStream::dump(const char* name) const {
    LOG_TRACE("%s: m_index:%d", name != nullptr ? name : "MemStream", m_index);
    dumpArray(m_buffer, m_index);
}

void MemoryStream::dumpAll() const {
    dumpArray(m_buffer, m_sourceLen);
}

void MemoryStream::dumpArray(const unsigned char* data, unsigned short len) {
    if (kzUtilGetLogLevel() < KZ_LOG_TRACE) {
        return;
    }
    if (data == nullptr) {
        LOG_TRACE("None\n");
        return;
    }
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(len * 3u + len / kDumpLineBytes);
    for (unsigned i = 0; i < len; ++i) {
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 0x0F];
        text += ' ';
        if (i % kDumpLineBytes == kDumpLineBytes - 1) {
            text += '\n';
        }
    }
    LOG_TRACE("%s\n", text.c_str());
}
