// A stream of 20-byte packets into a message builder, as a client that sends anything could produce it.
//
// input: the size of the joining buffer (two bytes), then the packets; the last may be short and is filled up with
// zeros. Checked besides what the sanitizers find: the buffer is exactly as large as the builder is told, a complete
// message has the length its start packet announced, and no packet is taken without a message in progress.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "messageBuilders.h"
#include "utils.h"

namespace {

constexpr size_t kSizeBytes = 2;

void Check(bool condition) {
    if (!condition) {
        abort();
    }
}

class Builder : public FragmentedMessageBuilder {
  public:
    Builder() : FragmentedMessageBuilder(0) {}
    int Deserialize() override {
        Check(m_stream.getRemainder() == m_announced);
        unsigned char sum = 0;
        for (unsigned left = m_stream.getRemainder(); left > 0; --left) {
            unsigned char byte = 0;
            m_stream >> byte;
            sum = static_cast<unsigned char>(sum + byte);
        }
        return sum % 2;
    }
    void Reset(int length) override {
        m_announced = length;
        SetLength(length);
    }

  private:
    int m_announced = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_logLevel = KZ_LOG_OFF;
    if (size < kSizeBytes) {
        return 0;
    }
    const size_t bufferSize = (static_cast<size_t>(data[0]) << 8 | data[1]) % 8189;
    const std::unique_ptr<unsigned char[]> buffer(new unsigned char[bufferSize]);
    Builder builder;
    for (size_t position = kSizeBytes; position < size; position += kPacketSize) {
        unsigned char packet[kPacketSize]{};
        std::copy_n(data + position, std::min<size_t>(kPacketSize, size - position), packet);
        MemoryStream stream(packet, kPacketSize);
        BlePacketHeader header;
        stream >> header;
        const bool waiting = builder.m_waitingForStart;

        const int result = builder.ProcessPacket(packet, header, buffer.get(), static_cast<int>(bufferSize));

        Check(result >= kMessageComplete && result <= kMessageNeedsMore);
        Check(header.m_isStart || !waiting || result == kMessageFailed);
        Check((result == kMessageNeedsMore) == !builder.m_waitingForStart);
    }
    return 0;
}
