#include "packetAssembler.h"

#include <gtest/gtest.h>

#include <numeric>

#include "messageCutter.h"

namespace {

using kzclient::PacketAssembler;
using Bytes = std::vector<uint8_t>;
using Problem = PacketAssembler::Problem;

Bytes counting(size_t length) {
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

// A message as the camera sends it.
std::vector<Bytes> packets(size_t length) {
    const Bytes message = counting(length);
    std::vector<Bytes> result;
    MessageCutter cutter(static_cast<unsigned>(length));
    while (cutter.HasNext()) {
        Bytes& packet = result.emplace_back(kBlePacketSize);
        packet.resize(cutter.WriteNext(message.data(), packet.data()));
    }
    return result;
}

TEST(PacketAssembler, EveryLengthFormArrivesWhole) {
    for (const size_t length : {0, 19, 20, 260, 8188, 9002}) {
        PacketAssembler assembler;
        std::optional<Bytes> whole;
        for (const auto& packet : packets(length)) {
            EXPECT_FALSE(whole);
            whole = assembler.add(packet).message;
        }
        EXPECT_EQ(whole, counting(length));
        EXPECT_EQ(assembler.announced(), 0u);
    }
}

TEST(PacketAssembler, ReportsWhatItDropsAndGoesOn) {
    PacketAssembler assembler;
    const auto sent = packets(40);

    EXPECT_EQ(assembler.add({}).problem, Problem::Empty);
    EXPECT_EQ(assembler.add(Bytes{0x80, 1}).problem, Problem::Orphan);
    EXPECT_EQ(assembler.add(Bytes{0x61, 1}).problem, Problem::UnknownLength);
    EXPECT_EQ(assembler.add(Bytes{0x20}).problem, Problem::UnknownLength);
    EXPECT_EQ(assembler.add(sent[0]).problem, Problem::None);
    EXPECT_EQ(assembler.received(), 18u);
    EXPECT_EQ(assembler.add(sent[2]).problem, Problem::OutOfOrder);
    EXPECT_EQ(assembler.add(sent[1]).problem, Problem::Orphan);
    EXPECT_EQ(assembler.add(sent[0]).problem, Problem::None);
    const auto restarted = assembler.add(Bytes{0x01, 0x77});
    EXPECT_EQ(restarted.problem, Problem::Restarted);
    EXPECT_EQ(restarted.message, Bytes{0x77});
}

}  // namespace
