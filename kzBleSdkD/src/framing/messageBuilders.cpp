#include "messageBuilders.h"

#include <algorithm>

#include "utils.h"

namespace {

constexpr const char* kLogTag = "messageBuilders.cpp";

constexpr int kContinuationHeaderLength = 1;

int PayloadRoom(const BlePacketHeader& header) {
    return static_cast<int>(kBlePacketSize) - header.m_headerLength;
}

// What SetLength means to all builders.
template <typename Builder>
void ExpectLength(Builder& builder, int length) {
    builder.m_length = length;
    builder.m_received = 0;
    builder.m_stream.reset();
}

// The first step of both fragmented builders: begins a message or checks that one is in progress. Returns false when
// the packet is to be ignored.
template <typename Builder>
bool AcceptHeader(Builder& builder, const BlePacketHeader& header) {
    if (header.m_isStart) {
        if (!builder.m_waitingForStart) {
            LOG_ERROR(
                "Got start packet when expecting subsequent packet, dropping previous data and restarting message with this packet");
        }
        builder.Reset(static_cast<int>(header.m_length));
        builder.m_fragmented = static_cast<int>(header.m_length) > PayloadRoom(header);
        if (builder.m_fragmented) {
            builder.m_waitingForStart = false;
        }
        LOG_INFO("Got a first packet, fragmented:%d length:%d", builder.m_fragmented ? 1 : 0, builder.m_length);
        return true;
    }
    if (!builder.m_fragmented || builder.m_waitingForStart) {
        LOG_ERROR("Got a subsequent packet for non fragmented message! Will ignore");
        builder.m_waitingForStart = true;
        return false;
    }
    return true;
}

// The step that the two builders share which store nothing: shows the parser `length` bytes behind the packet's header
// and counts what it consumes. Returns false when the parser refuses them.
template <typename Builder>
bool ParsePayload(Builder& builder, unsigned char* packet, const BlePacketHeader& header, int length) {
    builder.m_stream.attach(packet + header.m_headerLength, static_cast<unsigned short>(length));
    if (builder.Deserialize() == kMessageFailed) {
        return false;
    }
    builder.m_received += builder.m_stream.getLength();
    return true;
}

}  // namespace

void FragmentedMessageBuilder::SetLength(int length) {
    ExpectLength(*this, length);
    m_firstHeaderLength = 0;
    m_packets.clear();
}

int FragmentedMessageBuilder::ProcessPacket(unsigned char* packet, BlePacketHeader& header, unsigned char* tempBuffer,
                                            int tempBufferSize) {
    if (!AcceptHeader(*this, header)) {
        return kMessageFailed;
    }
    if (header.m_isStart) {
        m_firstHeaderLength = header.m_headerLength;
    }
    if (m_packets.size() >= kMaxPacketsPerMessage) {
        m_waitingForStart = true;
        LOG_ERROR("Got more than %d packets for a single message, dropping", static_cast<int>(kMaxPacketsPerMessage));
        return kMessageFailed;
    }
    m_received += PayloadRoom(header);
    if (m_received < m_length) {
        std::copy_n(packet, kBlePacketSize, m_packets.emplace_back().begin());
        return kMessageNeedsMore;
    }
    m_waitingForStart = true;
    if (m_length > tempBufferSize) {
        LOG_ERROR("Temp buffer:%d used is too small to handle message of length:%d", tempBufferSize, m_length);
        return kMessageFailed;
    }
    Join(packet, tempBuffer, tempBufferSize);
    m_stream.attach(tempBuffer, static_cast<unsigned short>(m_length));
    return Deserialize();
}

// The payload area of the last packet is copied whole, also what lies behind the end of the message, as far as there is
// room for it.
void FragmentedMessageBuilder::Join(const unsigned char* lastPacket, unsigned char* destination, int room) {
    const auto append = [&](const unsigned char* packet) {
        const int run = std::min(static_cast<int>(kBlePacketSize) - m_firstHeaderLength, room);
        destination = std::copy_n(packet + m_firstHeaderLength, run, destination);
        room -= run;
        m_firstHeaderLength = kContinuationHeaderLength;
    };
    for (const Packet& packet : m_packets) {
        append(packet.data());
    }
    append(lastPacket);
    m_packets.clear();
}

void FragmentedMessageBuilderSimple::SetLength(int length) {
    ExpectLength(*this, length);
}

int FragmentedMessageBuilderSimple::ProcessPacket(unsigned char* packet, BlePacketHeader& header) {
    if (!AcceptHeader(*this, header)) {
        return kMessageFailed;
    }
    if (!ParsePayload(*this, packet, header, std::min(m_length - m_received, PayloadRoom(header)))) {
        m_waitingForStart = true;
        return kMessageFailed;
    }
    LOG_INFO("After Processing, %d bytes were consumed for a total of %d", static_cast<int>(m_stream.getLength()),
             m_received);
    if (m_received < m_length && m_fragmented) {
        return kMessageNeedsMore;
    }
    m_waitingForStart = true;
    return kMessageComplete;
}

void NonFragmentedMessageBuilder::SetLength(int length) {
    ExpectLength(*this, length);
}

int NonFragmentedMessageBuilder::ProcessPacket(unsigned char* packet, BlePacketHeader& header) {
    if (!header.m_isStart) {
        return kMessageFailed;
    }
    Reset(static_cast<int>(header.m_length));
    m_tooLong = m_length > PayloadRoom(header);
    if (m_tooLong || !ParsePayload(*this, packet, header, m_length)) {
        return kMessageFailed;
    }
    return m_received < m_length ? kMessageFailed : kMessageComplete;
}
