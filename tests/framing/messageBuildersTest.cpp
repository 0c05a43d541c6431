// The builders, fed packet by packet as a client would send them.
#include "messageBuilders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "messageCutter.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned char kFiller = 0xEE;  // what a packet carries behind the message's end
constexpr unsigned char kGuard = 0xA5;   // what nobody may overwrite

Bytes MessageOf(size_t length) {
    Bytes message(length);
    std::iota(message.begin(), message.end(), static_cast<unsigned char>(1));
    return message;
}

Bytes Packet(Bytes header) {
    header.resize(kBlePacketSize, kFiller);
    return header;
}
const Bytes kContinuation = Packet({0x80});

// A message as packets, filled up behind its end.
std::vector<Bytes> Cut(size_t length) {
    const Bytes message = MessageOf(length);
    std::vector<Bytes> packets;
    MessageCutter cutter(static_cast<unsigned>(length));
    while (cutter.HasNext()) {
        cutter.WriteNext(message.data(), packets.emplace_back(Packet({})).data());
    }
    return packets;
}

BlePacketHeader HeaderOf(Bytes& packet) {
    MemoryStream stream(packet.data(), kBlePacketSize);
    BlePacketHeader header;
    stream >> header;
    return header;
}

// A builder of either kind: what its parser is given, piece by piece, and the verdict it gives.
template <typename Builder>
class Recorder : public Builder {
  public:
    Recorder() : Builder(0) {}
    int Deserialize() override {
        Bytes piece(std::min<size_t>(Builder::m_stream.getRemainder(), consumed));
        Builder::m_stream.readArray(piece.data(), static_cast<unsigned short>(piece.size()));
        pieces.push_back(piece);
        return verdict;
    }
    void Reset(int length) override { Builder::SetLength(length); }
    int Take(Bytes packet) {
        BlePacketHeader header = HeaderOf(packet);
        return Builder::ProcessPacket(packet.data(), header);
    }

    std::vector<Bytes> pieces;
    int verdict = 0;
    size_t consumed = 8188;  // of each piece
};

// Keeps every message it is given whole.
class Whole : public Recorder<FragmentedMessageBuilder> {
  public:
    int Take(Bytes packet, int bufferSize = 8188) {
        buffer.assign(static_cast<size_t>(bufferSize) + 64, kGuard);
        BlePacketHeader header = HeaderOf(packet);
        const int result = ProcessPacket(packet.data(), header, buffer.data(), bufferSize);
        EXPECT_EQ(std::count(buffer.begin() + bufferSize, buffer.end(), kGuard), 64) << "wrote past the buffer";
        return result;
    }
    // The result of the last packet; every other one must ask for more.
    int TakeAll(size_t length, int bufferSize = 8188) {
        const std::vector<Bytes> packets = Cut(length);
        for (size_t i = 0; i + 1 < packets.size(); ++i) {
            EXPECT_EQ(Take(packets[i], bufferSize), kMessageNeedsMore) << "packet " << i;
        }
        return Take(packets.back(), bufferSize);
    }

    Bytes buffer;
};

TEST(FragmentedMessageBuilderTest, MessageOfAnyLengthArrivesByteForByteInABufferOfItsSize) {
    for (size_t length = 0; length <= 7599; length = length < 100 ? length + 1 : length + 57) {
        Whole builder;

        ASSERT_EQ(builder.TakeAll(length, static_cast<int>(length)), kMessageComplete) << length;

        ASSERT_EQ(builder.pieces, std::vector<Bytes>{MessageOf(length)}) << length;
    }
}

TEST(FragmentedMessageBuilderTest, VerdictOfTheParserIsTheResultAndTheNextMessageIsServed) {
    Whole builder;
    builder.verdict = 1;

    EXPECT_EQ(builder.TakeAll(40), kMessageFailed);
    builder.verdict = 0;
    EXPECT_EQ(builder.TakeAll(7), kMessageComplete);

    EXPECT_EQ(builder.pieces, (std::vector<Bytes>{MessageOf(40), MessageOf(7)}));
    EXPECT_EQ(std::count(builder.buffer.begin(), builder.buffer.end(), kFiller), 12)
        << "the packet's whole payload area";
}

TEST(FragmentedMessageBuilderTest, StartPacketDropsTheMessageInProgressAndOneOfAnUnsupportedLengthTypeIsEmpty) {
    Whole builder;
    for (const size_t length : {7u, 45u}) {
        builder.Take(Cut(100)[0]);
        builder.Take(Cut(100)[1]);
        EXPECT_EQ(builder.TakeAll(length), kMessageComplete);
    }
    builder.Take(Cut(40)[0]);
    EXPECT_EQ(builder.Take(Packet({0x45})), kMessageComplete);

    EXPECT_EQ(builder.pieces, (std::vector<Bytes>{MessageOf(7), MessageOf(45), {}}));
    EXPECT_EQ(builder.Take(kContinuation), kMessageFailed);
}

TEST(FragmentedMessageBuilderTest, ContinuationWithoutAMessageIsDroppedAndAMessageTooLongNeverReachesTheParser) {
    // Length of the message before, 0 for none, size of its buffer, result.
    const std::tuple<size_t, int, int> kRows[] = {
        {0, 8188, kMessageComplete}, {5, 8188, kMessageComplete}, {60, 8188, kMessageComplete},
        {60, 59, kMessageFailed},    {19, 18, kMessageFailed},    {7600, 8188, kMessageFailed},  // 401 packets
    };
    for (const auto& [length, bufferSize, result] : kRows) {
        SCOPED_TRACE(length);
        Whole builder;
        if (length != 0) {
            EXPECT_EQ(builder.TakeAll(length, bufferSize), result);
            EXPECT_EQ(builder.pieces.size(), result == kMessageComplete ? 1u : 0u);
            builder.pieces.clear();
        }
        for (int i = 0; i < 500; ++i) {
            ASSERT_EQ(builder.Take(kContinuation), kMessageFailed);
        }
        EXPECT_EQ(builder.TakeAll(30), kMessageComplete);
        EXPECT_EQ(builder.pieces, std::vector<Bytes>{MessageOf(30)});
    }
}

TEST(FragmentedMessageBuilderSimpleTest, ParserSeesThePayloadsOneByOneAndARefusedOneEndsTheMessage) {
    Recorder<FragmentedMessageBuilderSimple> builder;
    const std::vector<Bytes> packets = Cut(40);
    const Bytes message = MessageOf(40);

    EXPECT_EQ(builder.Take(packets[0]), kMessageNeedsMore);
    EXPECT_EQ(builder.Take(packets[1]), kMessageNeedsMore);
    EXPECT_EQ(builder.Take(packets[2]), kMessageComplete);
    EXPECT_EQ(builder.Take(kContinuation), kMessageFailed);
    EXPECT_EQ(builder.pieces, (std::vector<Bytes>{{message.begin(), message.begin() + 18},
                                                  {message.begin() + 18, message.begin() + 37},
                                                  {message.begin() + 37, message.end()}}));
    builder.verdict = 1;
    EXPECT_EQ(builder.Take(packets[0]), kMessageFailed);
    builder.verdict = 0;
    EXPECT_EQ(builder.Take(packets[1]), kMessageFailed);
    EXPECT_EQ(builder.Take(Cut(4)[0]), kMessageComplete);
    EXPECT_EQ(builder.pieces.back(), MessageOf(4));
}

TEST(NonFragmentedMessageBuilderTest, OnlyAWholeMessageThatTheParserConsumesIsAccepted) {
    Recorder<NonFragmentedMessageBuilder> builder;

    EXPECT_EQ(builder.Take(Cut(19)[0]), kMessageComplete);
    EXPECT_EQ(builder.Take(Cut(20)[0]), kMessageFailed) << "more than one packet";
    EXPECT_EQ(builder.Take(kContinuation), kMessageFailed);
    EXPECT_EQ(builder.pieces, std::vector<Bytes>{MessageOf(19)});
    builder.consumed = 4;
    EXPECT_EQ(builder.Take(Cut(5)[0]), kMessageFailed) << "a byte is left unread";
    builder.consumed = 5;
    builder.verdict = 1;
    EXPECT_EQ(builder.Take(Cut(5)[0]), kMessageFailed) << "a parse error";
}

}  // namespace
