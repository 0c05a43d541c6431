// Recordings as other programs write them: both byte orders, every resolution of time, blocks that we do not know, and
// what a broken file is answered with.
#include <gtest/gtest.h>

#include <algorithm>

#include "radioCapture.h"

namespace {

using Bytes = std::vector<uint8_t>;
using namespace std::chrono_literals;

constexpr uint32_t kSection = 0x0a0d0d0a, kInterface = 1, kPacket = 6, kUnknown = 0x0bad;

// The numbers of a file in one byte order.
struct Order {
    bool big;

    Bytes number(uint64_t value, size_t width) const {
        Bytes bytes;
        for (size_t i = 0; i < width; ++i, value >>= 8) {
            bytes.push_back(static_cast<uint8_t>(value));
        }
        if (big) {
            std::reverse(bytes.begin(), bytes.end());
        }
        return bytes;
    }
};

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes block(Order order, uint32_t type, const Bytes& body) {
    const Bytes length = order.number(body.size() + 12, 4);
    return order.number(type, 4) + length + body + length;
}

Bytes section(Order order) {
    return block(order, kSection, order.number(0x1a2b3c4d, 4) + order.number(1, 2) + Bytes(10, 0xff));
}

// An option with the resolution of times, another one with seconds to add.
Bytes interface(Order order, uint16_t linkType, uint8_t resolution, int64_t offset) {
    return block(order, kInterface,
                 order.number(linkType, 2) + Bytes(6) + order.number(9, 2) + order.number(1, 2) +
                     Bytes{resolution, 0, 0, 0} + order.number(14, 2) + order.number(8, 2) +
                     order.number(static_cast<uint64_t>(offset), 8) + Bytes(4));
}

Bytes packet(Order order, uint32_t interface, uint64_t time, const Bytes& bytes, size_t original = 0) {
    return block(order, kPacket,
                 order.number(interface, 4) + order.number(time >> 32, 4) + order.number(time, 4) +
                     order.number(bytes.size(), 4) + order.number(std::max(original, bytes.size()), 4) + bytes +
                     Bytes((4 - bytes.size() % 4) % 4));
}

const Bytes kFrame{1, 2, 1, 14, 0, 0, 1, 7, 0xaa};  // a packet from the camera on stream 14, connection 263

TEST(Capture, IsReadInBothByteOrdersAndAtEveryResolution) {
    for (const Order order : {Order{false}, Order{true}}) {
        const Bytes file = section(order) + interface(order, 1, 6, 0) + interface(order, 147, 6, 0) +
                           interface(order, 147, 9, -3) + interface(order, 147, 0x80 | 10, 0) +
                           block(order, kUnknown, Bytes(8, 0xff)) + packet(order, 0, 0, Bytes(5)) +
                           packet(order, 1, 5'000'002, kFrame) + packet(order, 2, 8'000'000'002, kFrame) +
                           packet(order, 3, 5 * 1024 + 512, kFrame) + section(Order{!order.big}) +
                           interface(Order{!order.big}, 147, 3, 0) + packet(Order{!order.big}, 0, 5'250, kFrame);
        const auto frames = kzcapture::parseRadioCapture(file);
        std::vector<std::chrono::nanoseconds> times;
        for (const auto& frame : frames) {
            times.push_back(frame.time.time_since_epoch());
            EXPECT_EQ(frame.connection, 263u);
            EXPECT_EQ(frame.stream, 14);
            EXPECT_EQ(frame.bytes, Bytes{0xaa});
        }
        EXPECT_EQ(times, (std::vector<std::chrono::nanoseconds>{5s + 2us, 5s + 2ns, 5500ms, 5250ms}));
    }
}

TEST(Capture, SaysWhatIsWrongWithAFile) {
    const Order order{false};
    const Bytes begin = section(order) + interface(order, 147, 6, 0);
    const auto with = [](Bytes bytes, size_t at, uint8_t value) {
        bytes[at] = value;
        return bytes;
    };
    const Bytes whole = begin + packet(order, 0, 0, kFrame);
    const struct {
        Bytes file;
        const char* says;
    } rows[] = {
        {{}, "nothing of the radio"},
        {begin + packet(order, 0, 0, Bytes(3)), "packet 1 is no frame"},
        {Bytes(whole.begin(), whole.end() - 1), "the block at byte 72 is cut off"},
        {{0xd4, 0xc3, 0xb2, 0xa1, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0}, "not pcapng"},
        {Bytes(64, 'x'), "no pcapng file"},
        {with(begin, 8, 9), "unknown byte order"},
        {with(begin, 12, 2), "unknown version"},
        {with(begin, 4, 30), "impossible length, 30"},
        {with(begin, 24, 32), "two different lengths"},
        {with(begin, 46, 90), "option that is longer"},
        {begin + packet(order, 1, 0, kFrame), "interface that is not described"},
        {with(whole, 72 + 20, 200), "longer than the block"},
        {begin + packet(order, 0, UINT64_MAX, kFrame), "impossible time"},
        {begin + packet(order, 0, 0, kFrame, 20), "captured in part only"},
        {begin + packet(order, 0, 0, with(kFrame, 1, 4)), "unknown event"},
        {begin + packet(order, 0, 0, kFrame + Bytes(20)), "longer than packets of the radio"},
    };
    for (const auto& row : rows) {
        try {
            kzcapture::parseRadioCapture(row.file);
            ADD_FAILURE() << "nothing was wrong, but: " << row.says;
        } catch (const kzcapture::CaptureError& error) {
            EXPECT_NE(std::string(error.what()).find(row.says), std::string::npos) << error.what();
        }
    }
}

}  // namespace
