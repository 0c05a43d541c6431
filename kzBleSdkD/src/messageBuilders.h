// Message builders: collect the packets of one message on one interface of one client and hand the whole message to the
// derived class's parser.
//
// ProcessPacket takes the 20-byte packet with its header and returns
//   kMessageComplete (0)  the message is whole and Deserialize accepted it;
//   kMessageFailed   (1)  the packet was dropped or the message failed, for the reason logged:
//       - a continuation without a message in progress;
//       - the 401st packet of one message;
//       - a whole message longer than the caller's buffer;
//       - Deserialize returned 1.
//     The caller may simply go on with the next packet;
//   kMessageNeedsMore (2) the packet was taken.
// A start packet in the middle of a message drops that message and begins the new one. No locks: one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "MemStream.h"
#include "blePacketHeader.h"

enum : int { kMessageComplete = 0, kMessageFailed = 1, kMessageNeedsMore = 2 };

// Packets one message may take: bounds what one client can make the daemon hold.
constexpr size_t kMaxPacketsPerMessage = 400;

// Stores the packets and joins them into the caller's buffer; Deserialize sees the message once.
class FragmentedMessageBuilder {
  public:
    explicit FragmentedMessageBuilder(int length);
    virtual ~FragmentedMessageBuilder() = default;
    // Parses the message from m_stream. 0 success, 1 parse error.
    virtual int Deserialize() = 0;
    // Clears the derived class's fields and calls SetLength.
    virtual void Reset(int length) = 0;

    void SetLength(int length);
    // `tempBuffer` receives the joined message; it must hold 18 bytes more than tempBufferSize... see the source for how the
    // last packet is bounded.
    int ProcessPacket(unsigned char* packet, BlePacketHeader& header, unsigned char* tempBuffer, int tempBufferSize);

    int m_length;
    int m_received = 0;
    MemoryStream m_stream;
    bool m_fragmented = false;
    int m_firstHeaderLength = 0;
    bool m_waitingForStart = true;

  private:
    std::vector<std::array<unsigned char, 20>> m_packets;  // keeps its capacity between messages
};

// Stores nothing: Deserialize sees each packet's payload as it arrives.
class FragmentedMessageBuilderSimple {
  public:
    explicit FragmentedMessageBuilderSimple(int length);
    virtual ~FragmentedMessageBuilderSimple() = default;
    virtual int Deserialize() = 0;
    virtual void Reset(int length) = 0;

    void SetLength(int length);
    int ProcessPacket(unsigned char* packet, BlePacketHeader& header);

    int m_length;
    int m_received = 0;
    MemoryStream m_stream;
    bool m_fragmented = false;
    bool m_waitingForStart = true;
};

// One packet is one message.
class NonFragmentedMessageBuilder {
  public:
    explicit NonFragmentedMessageBuilder(int length);
    virtual ~NonFragmentedMessageBuilder() = default;
    virtual int Deserialize() = 0;
    virtual void Reset(int length) = 0;

    void SetLength(int length);
    int ProcessPacket(unsigned char* packet, BlePacketHeader& header);

    int m_length;
    int m_received = 0;
    MemoryStream m_stream;
    bool m_tooLong = false;
};
