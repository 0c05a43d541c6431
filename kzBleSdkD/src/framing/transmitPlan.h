// The arithmetic of sending: how many packets a response takes, how many a file transfer may write now, how far it is.
// Pure functions over plain numbers.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blePacketHeader.h"

// Packets of a response of `length` bytes (0 to kMaxExtendedLength): 19 payload bytes a packet, 18 in the first packet
// of a response that takes more than one.
constexpr long PacketsNeeded(unsigned length) {
    if (length == 0) {
        return 0;
    }
    if (length <= kMaxSimpleLength) {
        return 1;
    }
    constexpr unsigned kFirstPayload = kPacketSize - 2;
    constexpr unsigned kNextPayload = kPacketSize - 1;
    return 1 + static_cast<long>((length - kFirstPayload + kNextPayload - 1) / kNextPayload);
}

// Bytes of the longest response that takes at most `packets` packets; PacketsNeeded the other way round.
constexpr unsigned LongestResponse(long packets) {
    if (packets <= 1) {
        return packets == 1 ? kMaxSimpleLength : 0;
    }
    constexpr long kFirstPayload = kPacketSize - 2;
    constexpr long kNextPayload = kPacketSize - 1;
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

// Packets that a transfer may write into the queue now. It leaves half of the queue to ordinary traffic and creeps
// along, a packet at a time, while at least a quarter is free.
constexpr long TransferBudget(const QueueFill& queue) {
    if (queue.HasTransferRoom()) {
        return queue.capacity / 2 - queue.used;
    }
    return queue.Available() > queue.capacity / 4 ? 1 : 0;
}

constexpr long kMaxStreamedPackets = 30;  // a tick, for an accessory that takes its image as one stream
constexpr long kMaxBlockPackets = 50;     // a request, for one that fetches it block by block

// The budget of an accessory that takes its image as one stream.
constexpr long StreamedImageBudget(const QueueFill& queue) {
    const long budget = TransferBudget(queue);
    return queue.HasTransferRoom() ? std::min(budget, kMaxStreamedPackets) : budget;
}

// The budget of an accessory that fetches its image block by block: what is left of the block, whole while the queue
// has room; nothing once the block is sent.
constexpr long BlockImageBudget(const QueueFill& queue, unsigned blockBytesRemaining) {
    const long blockPackets = (static_cast<long>(blockBytesRemaining) + kPacketSize - 1) / kPacketSize;
    const long limit = queue.HasTransferRoom() ? kMaxBlockPackets : TransferBudget(queue);
    return std::min(blockPackets, limit);
}

constexpr uint32_t kImageHeaderSize = 20;  // of a firmware image file

// Percent of the image sent. `fileSize` counts the image header, `imageBytesSent` does not.
constexpr uint8_t PercentDone(uint32_t imageBytesSent, uint32_t fileSize) {
    if (fileSize <= kImageHeaderSize) {
        return 0;
    }
    return static_cast<uint8_t>(static_cast<uint64_t>(imageBytesSent) * 100 / (fileSize - kImageHeaderSize));
}
