// The builders, fed packet by packet as a client would send them.
#include "messageBuilders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

namespace {

using Bytes = std::vector<unsigned char>;
using RawPacket = std::array<unsigned char, kPacketSize>;

constexpr unsigned char kFiller = 0xEE;  // what a packet carries behind the message's end
constexpr unsigned char kGuard = 0xA5;   // what nobody may overwrite

Bytes MessageOf(size_t length) {
    Bytes message(length);
    std::iota(message.begin(), message.end(), static_cast<unsigned char>(1));
    return message;
}

// A message as packets, the way the format says it: this cutter shares nothing with the code under test.
std::vector<RawPacket> Cut(const Bytes& message) {
    Bytes head;
    if (message.size() <= 19) {
        head = {static_cast<unsigned char>(message.size())};
    } else {
        head = {static_cast<unsigned char>(0x20 + message.size() / 256),
                static_cast<unsigned char>(message.size() % 256)};
    }
    std::vector<RawPacket> packets;
    size_t sent = 0;
    unsigned char counter = 0;
    do {
        RawPacket packet;
        packet.fill(kFiller);
        auto* out = std::copy(head.begin(), head.end(), packet.data());
        const size_t room = static_cast<size_t>(packet.data() + packet.size() - out);
        const size_t chunk = std::min(room, message.size() - sent);
        std::copy_n(message.data() + sent, chunk, out);
        sent += chunk;
        packets.push_back(packet);
        head = {static_cast<unsigned char>(0x80 + counter)};
        counter = static_cast<unsigned char>((counter + 1) % 16);
    } while (sent < message.size());
    return packets;
}

RawPacket ContinuationPacket() {
    RawPacket packet;
    packet.fill(kFiller);
    packet[0] = 0x80;
    return packet;
}

BlePacketHeader ReadHeader(RawPacket& packet) {
    MemoryStream stream(packet.data(), kPacketSize);
    BlePacketHeader header;
    stream >> header;
    return header;
}

// Keeps every message it is given whole.
class Recorder : public FragmentedMessageBuilder {
  public:
    Recorder() : FragmentedMessageBuilder(0) {}
    int Deserialize() override {
        Bytes message(m_stream.getRemainder());
        m_stream.readArray(message.data(), static_cast<unsigned short>(message.size()));
        messages.push_back(message);
        return verdict;
    }
    void Reset(int length) override { SetLength(length); }

    int Take(RawPacket packet, int bufferSize = 8188) {
        buffer.assign(static_cast<size_t>(bufferSize) + 64, kGuard);
        BlePacketHeader header = ReadHeader(packet);
        const int result = ProcessPacket(packet.data(), header, buffer.data(), bufferSize);
        EXPECT_EQ(std::count(buffer.begin() + bufferSize, buffer.end(), kGuard), 64) << "wrote past the buffer";
        return result;
    }
    // The result of the last packet; every other one must ask for more.
    int TakeAll(const std::vector<RawPacket>& packets, int bufferSize = 8188) {
        for (size_t i = 0; i + 1 < packets.size(); ++i) {
            EXPECT_EQ(Take(packets[i], bufferSize), kMessageNeedsMore) << "packet " << i;
        }
        return Take(packets.back(), bufferSize);
    }

    std::vector<Bytes> messages;
    int verdict = 0;
    Bytes buffer;
};

TEST(FragmentedMessageBuilderTest, MessageOfAnyLengthArrivesByteForByteInABufferOfItsSize) {
    Recorder builder;
    for (size_t length = 0; length <= 7599; length = length < 100 ? length + 1 : length + 57) {
        const Bytes message = MessageOf(length);

        const int result = builder.TakeAll(Cut(message), static_cast<int>(length));

        ASSERT_EQ(result, kMessageComplete) << length;
        ASSERT_EQ(builder.messages, std::vector<Bytes>{message}) << length;
        builder.messages.clear();
    }
}

TEST(FragmentedMessageBuilderTest, VerdictOfTheParserIsTheResultAndTheNextMessageIsServed) {
    Recorder builder;
    builder.verdict = 1;

    EXPECT_EQ(builder.TakeAll(Cut(MessageOf(40))), kMessageFailed);
    builder.verdict = 0;
    EXPECT_EQ(builder.TakeAll(Cut(MessageOf(7))), kMessageComplete);

    EXPECT_EQ(builder.messages, (std::vector<Bytes>{MessageOf(40), MessageOf(7)}));
    EXPECT_EQ(std::count(builder.buffer.begin(), builder.buffer.end(), kFiller), 12)
        << "the packet's whole payload area";
}

TEST(FragmentedMessageBuilderTest, StartPacketDropsTheMessageInProgress) {
    for (const size_t newLength : {size_t{7}, size_t{45}}) {
        Recorder builder;
        const std::vector<RawPacket> abandoned = Cut(MessageOf(100));
        builder.Take(abandoned[0]);
        builder.Take(abandoned[1]);

        const int result = builder.TakeAll(Cut(MessageOf(newLength)));

        EXPECT_EQ(result, kMessageComplete);
        EXPECT_EQ(builder.messages, std::vector<Bytes>{MessageOf(newLength)});
    }
}

TEST(FragmentedMessageBuilderTest, ContinuationWithoutAMessageIsDroppedWhateverCameBefore) {
    const struct {
        const char* before;
        std::vector<RawPacket> packets;
        int bufferSize;
    } rows[] = {
        {"nothing", {}, 8188},
        {"a message of one packet", Cut(MessageOf(5)), 8188},
        {"a message of several packets", Cut(MessageOf(60)), 8188},
        {"a message too long for the buffer", Cut(MessageOf(60)), 59},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.before);
        Recorder builder;
        for (const RawPacket& packet : row.packets) {
            builder.Take(packet, row.bufferSize);
        }
        builder.messages.clear();

        for (int i = 0; i < 500; ++i) {
            ASSERT_EQ(builder.Take(ContinuationPacket()), kMessageFailed);
        }

        EXPECT_TRUE(builder.messages.empty());
        EXPECT_EQ(builder.TakeAll(Cut(MessageOf(30))), kMessageComplete);
        EXPECT_EQ(builder.messages, std::vector<Bytes>{MessageOf(30)});
    }
}

TEST(FragmentedMessageBuilderTest, MessageOfMoreThanFourHundredPacketsIsGivenUp) {
    Recorder builder;
    const std::vector<RawPacket> packets = Cut(MessageOf(7600));
    ASSERT_EQ(packets.size(), 401u);

    const int result = builder.TakeAll(packets);

    EXPECT_EQ(result, kMessageFailed);
    EXPECT_EQ(builder.Take(ContinuationPacket()), kMessageFailed);
    EXPECT_TRUE(builder.messages.empty());
    EXPECT_EQ(builder.TakeAll(Cut(MessageOf(7599))), kMessageComplete);
}

TEST(FragmentedMessageBuilderTest, MessageLongerThanTheBufferNeverReachesTheParser) {
    Recorder builder;

    EXPECT_EQ(builder.TakeAll(Cut(MessageOf(41)), 40), kMessageFailed);
    EXPECT_EQ(builder.TakeAll(Cut(MessageOf(19)), 18), kMessageFailed);

    EXPECT_TRUE(builder.messages.empty());
}

TEST(FragmentedMessageBuilderTest, PacketOfAnUnsupportedLengthTypeEndsTheMessageInProgress) {
    Recorder builder;
    builder.Take(Cut(MessageOf(40))[0]);
    RawPacket packet = ContinuationPacket();
    packet[0] = 0x45;

    const int result = builder.Take(packet);

    EXPECT_EQ(result, kMessageComplete);
    EXPECT_EQ(builder.messages, std::vector<Bytes>{Bytes{}});
    EXPECT_EQ(builder.Take(ContinuationPacket()), kMessageFailed);
}

// Consumes each packet's payload as it comes.
class Incremental : public FragmentedMessageBuilderSimple {
  public:
    Incremental() : FragmentedMessageBuilderSimple(0) {}
    int Deserialize() override {
        const size_t seen = message.size();
        message.resize(seen + m_stream.getRemainder());
        m_stream.readArray(message.data() + seen, m_stream.getRemainder());
        return verdict;
    }
    void Reset(int length) override {
        message.clear();
        SetLength(length);
    }
    int Take(RawPacket packet) {
        BlePacketHeader header = ReadHeader(packet);
        return ProcessPacket(packet.data(), header);
    }

    Bytes message;
    int verdict = 0;
};

TEST(FragmentedMessageBuilderSimpleTest, ParserSeesThePayloadsOneByOneWithoutThePadding) {
    Incremental builder;
    const std::vector<RawPacket> packets = Cut(MessageOf(40));

    EXPECT_EQ(builder.Take(packets[0]), kMessageNeedsMore);
    EXPECT_EQ(builder.message.size(), 18u);
    EXPECT_EQ(builder.Take(packets[1]), kMessageNeedsMore);
    EXPECT_EQ(builder.Take(packets[2]), kMessageComplete);

    EXPECT_EQ(builder.message, MessageOf(40));
    EXPECT_EQ(builder.Take(ContinuationPacket()), kMessageFailed);
}

TEST(FragmentedMessageBuilderSimpleTest, RefusedPayloadEndsTheMessage) {
    Incremental builder;
    builder.verdict = 1;

    EXPECT_EQ(builder.Take(Cut(MessageOf(40))[0]), kMessageFailed);
    builder.verdict = 0;

    EXPECT_EQ(builder.Take(ContinuationPacket()), kMessageFailed);
    EXPECT_EQ(builder.Take(Cut(MessageOf(4))[0]), kMessageComplete);
    EXPECT_EQ(builder.message, MessageOf(4));
}

// Consumes a given number of bytes of each message.
class OnePacket : public NonFragmentedMessageBuilder {
  public:
    OnePacket() : NonFragmentedMessageBuilder(0) {}
    int Deserialize() override {
        ++calls;
        Bytes bytes(consumed);
        m_stream.readArray(bytes.data(), static_cast<unsigned short>(consumed));
        return verdict;
    }
    void Reset(int length) override { SetLength(length); }
    int Take(RawPacket packet) {
        BlePacketHeader header = ReadHeader(packet);
        return ProcessPacket(packet.data(), header);
    }

    int calls = 0;
    size_t consumed = 0;
    int verdict = 0;
};

TEST(NonFragmentedMessageBuilderTest, OnlyAWholeMessageThatTheParserConsumesIsAccepted) {
    const struct {
        const char* what;
        RawPacket packet;
        size_t consumed;
        int verdict;
        int result;
        int calls;
    } rows[] = {
        {"a message", Cut(MessageOf(19))[0], 19, 0, kMessageComplete, 1},
        {"bytes left unread", Cut(MessageOf(5))[0], 4, 0, kMessageFailed, 1},
        {"a parse error", Cut(MessageOf(5))[0], 5, 1, kMessageFailed, 1},
        {"a message of two packets", Cut(MessageOf(20))[0], 0, 0, kMessageFailed, 0},
        {"a continuation", ContinuationPacket(), 0, 0, kMessageFailed, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        OnePacket builder;
        builder.consumed = row.consumed;
        builder.verdict = row.verdict;

        EXPECT_EQ(builder.Take(row.packet), row.result);

        EXPECT_EQ(builder.calls, row.calls);
    }
}

}  // namespace
