// The arithmetic of sending: how many packets a response takes, how many a file transfer may write now, what part of it
// is done. Functions of plain numbers, without side effects.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blePacketHeader.h"

// How many packets a response of `length` bytes (0 to kMaxExtendedLength) takes. A packet has 19 payload bytes; the
// first one of a response that takes several has 18.
constexpr long PacketsNeeded(unsigned length) {
    if (length == 0) {
        return 0;
    }
    if (length <= kMaxSimpleLength) {
        return 1;
    }
    constexpr unsigned kFirstPayload = kBlePacketSize - 2;
    constexpr unsigned kNextPayload = kBlePacketSize - 1;
    return 1 + static_cast<long>((length - kFirstPayload + kNextPayload - 1) / kNextPayload);
}

// How many bytes the longest response has that takes at most `packets` packets.
constexpr unsigned LongestResponse(long packets) {
    if (packets <= 1) {
        return packets == 1 ? kMaxSimpleLength : 0;
    }
    constexpr long kFirstPayload = kBlePacketSize - 2;
    constexpr long kNextPayload = kBlePacketSize - 1;
    return static_cast<unsigned>(std::min<long>(kFirstPayload + (packets - 1) * kNextPayload, kMaxExtendedLength));
}

// How full a queue is, in messages.
struct QueueFill {
    long capacity = 0;
    long used = 0;

    constexpr long Available() const { return capacity - used; }
    // More than a third full.
    constexpr bool IsBusy() const { return used > 0 && capacity / used < 3; }
    // Less than half full: a transfer may fill it up to the half.
    constexpr bool HasTransferRoom() const { return used < capacity / 2; }
};

// How many packets a transfer may write into the queue now. It fills the queue up to the half, which leaves the rest to
// ordinary traffic; beyond that it goes on with one packet at a time while more than a quarter is free.
constexpr long TransferBudget(const QueueFill& queue) {
    if (queue.HasTransferRoom()) {
        return queue.capacity / 2 - queue.used;
    }
    return queue.Available() > queue.capacity / 4 ? 1 : 0;
}

constexpr long kMaxStreamedPackets = 30;  // in one tick, to an accessory that takes its image as one stream
constexpr long kMaxBlockPackets = 50;     // for one request of an accessory that fetches its image block by block

// The budget of an accessory that takes its image as one stream.
constexpr long StreamedImageBudget(const QueueFill& queue) {
    const long budget = TransferBudget(queue);
    return queue.HasTransferRoom() ? std::min(budget, kMaxStreamedPackets) : budget;
}

// The budget of an accessory that fetches its image block by block. It never exceeds the rest of the block; while the
// queue has room, it is the rest up to kMaxBlockPackets.
constexpr long BlockImageBudget(const QueueFill& queue, unsigned blockBytesRemaining) {
    const long blockPackets = (static_cast<long>(blockBytesRemaining) + kBlePacketSize - 1) / kBlePacketSize;
    const long limit = queue.HasTransferRoom() ? kMaxBlockPackets : TransferBudget(queue);
    return std::min(blockPackets, limit);
}

constexpr uint32_t kImageHeaderSize = 20;  // of a firmware image file

// How many percent of the image are sent. `fileSize` includes the image header, `imageBytesSent` does not.
constexpr uint8_t PercentDone(uint32_t imageBytesSent, uint32_t fileSize) {
    if (fileSize <= kImageHeaderSize) {
        return 0;
    }
    return static_cast<uint8_t>(static_cast<uint64_t>(imageBytesSent) * 100 / (fileSize - kImageHeaderSize));
}
