#include "packetAssembler.h"

#include <algorithm>
#include <utility>

namespace kzclient {

namespace {

constexpr uint8_t kContinuation = 0x80;
constexpr uint8_t kCounterMask = 0x0F;
constexpr uint8_t kLengthTypeMask = 0x60;
constexpr uint8_t kSimple = 0x00;
constexpr uint8_t kExtended = 0x20;
constexpr uint8_t kLong = 0x40;
constexpr uint8_t kLengthBits = 0x1F;

struct Start {
    size_t length;
    size_t headerLength;
};

std::optional<Start> readStart(std::span<const uint8_t> packet) {
    const uint8_t first = packet[0];
    switch (first & kLengthTypeMask) {
        case kSimple:
            return Start{static_cast<size_t>(first & kLengthBits), 1};
        case kExtended:
            if (packet.size() >= 2) {
                return Start{static_cast<size_t>((first & kLengthBits) << 8 | packet[1]), 2};
            }
            break;
        case kLong:
            if (packet.size() >= 3) {
                return Start{static_cast<size_t>(packet[1] << 8 | packet[2]), 3};
            }
            break;
        default:
            break;
    }
    return std::nullopt;
}

}  // namespace

PacketAssembler::Result PacketAssembler::add(std::span<const uint8_t> packet) {
    Result result;
    if (packet.empty()) {
        result.problem = Problem::Empty;
        return result;
    }
    result.problem = (packet[0] & kContinuation) != 0 ? proceed(packet) : begin(packet);
    if (m_progress && m_progress->bytes.size() >= m_progress->length) {
        result.message = std::move(m_progress->bytes);
        m_progress.reset();
    }
    return result;
}

PacketAssembler::Problem PacketAssembler::begin(std::span<const uint8_t> packet) {
    const Problem problem = m_progress ? Problem::Restarted : Problem::None;
    m_progress.reset();
    const auto start = readStart(packet);
    if (!start) {
        return Problem::UnknownLength;
    }
    m_progress.emplace(Progress{start->length, {}, 0});
    m_progress->bytes.reserve(start->length);
    take(packet.subspan(start->headerLength));
    return problem;
}

PacketAssembler::Problem PacketAssembler::proceed(std::span<const uint8_t> packet) {
    if (!m_progress) {
        return Problem::Orphan;
    }
    if ((packet[0] & kCounterMask) != m_progress->nextCounter) {
        m_progress.reset();
        return Problem::OutOfOrder;
    }
    m_progress->nextCounter = (m_progress->nextCounter + 1) & kCounterMask;
    take(packet.subspan(1));
    return Problem::None;
}

void PacketAssembler::take(std::span<const uint8_t> payload) {
    const size_t missing = m_progress->length - m_progress->bytes.size();
    const auto chunk = payload.first(std::min(missing, payload.size()));
    m_progress->bytes.insert(m_progress->bytes.end(), chunk.begin(), chunk.end());
}

const char* describe(PacketAssembler::Problem problem) {
    switch (problem) {
        case PacketAssembler::Problem::None:
            return "fine";
        case PacketAssembler::Problem::Empty:
            return "an empty packet";
        case PacketAssembler::Problem::UnknownLength:
            return "a start packet of an unknown form";
        case PacketAssembler::Problem::Restarted:
            return "a message was cut off by the next one";
        case PacketAssembler::Problem::Orphan:
            return "a continuation without a message";
        case PacketAssembler::Problem::OutOfOrder:
            return "a continuation out of order";
    }
    return "unknown";
}

}  // namespace kzclient
