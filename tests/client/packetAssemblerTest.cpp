#include "packetAssembler.h"

#include <gtest/gtest.h>

#include <numeric>

namespace {

using kzclient::PacketAssembler;
using Bytes = std::vector<uint8_t>;
using Problem = PacketAssembler::Problem;

Bytes counting(size_t length) {
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

// A message as the camera sends it, behind that header.
std::vector<Bytes> packets(Bytes packet, size_t length) {
    std::vector<Bytes> result;
    for (const uint8_t byte : counting(length)) {
        if (packet.size() == 20) {
            result.push_back(packet);
            packet = {static_cast<uint8_t>(0x80 | ((result.size() - 1) & 0x0F))};
        }
        packet.push_back(byte);
    }
    result.push_back(packet);
    return result;
}

TEST(PacketAssembler, EveryLengthFormArrivesWhole) {
    const std::pair<Bytes, size_t> forms[] = {{{0x00}, 0},         {{0x13}, 19},         {{0x20, 0x14}, 20},
                                              {{0x21, 0x04}, 260}, {{0x3F, 0xFC}, 8188}, {{0x40, 0x23, 0x2A}, 9002}};
    for (const auto& [header, length] : forms) {
        PacketAssembler assembler;
        std::optional<Bytes> whole;
        for (const auto& packet : packets(header, length)) {
            EXPECT_FALSE(whole);
            whole = assembler.add(packet).message;
        }
        EXPECT_EQ(whole, counting(length));
        EXPECT_EQ(assembler.announced(), 0u);
    }
}

TEST(PacketAssembler, ReportsWhatItDropsAndGoesOn) {
    PacketAssembler assembler;
    const auto sent = packets({0x20, 0x28}, 40);

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
