// A stream of 20-byte packets into a message builder, as a client that sends anything could produce it.
//
// input: the size of the joining buffer (two bytes), then the packets; the last may be short and is filled up with
// zeros. Checked besides what the sanitizers find: the buffer is exactly as large as the builder is told, a complete
// message has the length its start packet announced, and no packet is taken without a message in progress.
#include "fuzz.h"
#include "messageBuilders.h"
#include "utils.h"

namespace {

class Builder : public FragmentedMessageBuilder {
  public:
    Builder() : FragmentedMessageBuilder(0) {}
    int Deserialize() override {
        Require(m_stream.getRemainder() == m_announced);
        unsigned char verdict = 0;
        while (m_stream.getRemainder() > 0) {
            m_stream >> verdict;
        }
        return verdict % 2;
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
    Input input(data, size);
    std::vector<unsigned char> buffer(input.BigEndian16() % 8189);
    Builder builder;
    while (!input.IsEmpty()) {
        std::vector<unsigned char> packet = input.Bytes(kBlePacketSize);
        MemoryStream stream(packet.data(), kBlePacketSize);
        BlePacketHeader header;
        stream >> header;
        const bool waiting = builder.m_waitingForStart;

        const int result = builder.ProcessPacket(packet.data(), header, buffer.data(), static_cast<int>(buffer.size()));

        Require(result >= kMessageComplete && result <= kMessageNeedsMore);
        Require(header.m_isStart || !waiting || result == kMessageFailed);
        Require((result == kMessageNeedsMore) == !builder.m_waitingForStart);
    }
    return 0;
}
