// Message builders: collect the packets of one message on one interface of one client and hand the message to the
// derived class's parser.
//
// ProcessPacket takes a whole 20-byte packet (header included) and its header, read from the receive default. It
// returns
//   kMessageComplete (0)   the message is whole and Deserialize accepted it;
//   kMessageFailed (1)     the packet was dropped or the message failed; each reason is logged unless said otherwise:
//                           1. a continuation packet with no message in progress: ignored;
//                           2. the 401st packet of one message: the message is given up;
//                           3. a whole message longer than the caller's buffer: given up, the parser is not called;
//                           4. Deserialize returned 1 (not logged here).
//                          The builder then waits for a start packet; the caller simply goes on;
//   kMessageNeedsMore (2)  the packet was taken, the message needs more.
// A start packet in the middle of a message is logged, drops that message and begins the new one.
//
// Two states: waiting for a start packet (initially, and after every complete or failed message) and receiving. Nothing
// that arrives while waiting can bring an earlier message back. Not thread-safe; the server's lock is held.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "MemStream.h"
#include "blePacketHeader.h"

enum : int { kMessageComplete = 0, kMessageFailed = 1, kMessageNeedsMore = 2 };

// Bounds what one message can make the daemon hold: 8000 bytes, a message of at most 18 + 399 * 19 = 7599.
constexpr size_t kMaxPacketsPerMessage = 400;

// Stores the packets and joins them into the caller's buffer; Deserialize sees the message once, as a whole.
class FragmentedMessageBuilder {
  public:
    explicit FragmentedMessageBuilder(int length) : m_length(length) {}
    virtual ~FragmentedMessageBuilder() = default;

    // Parses the message, which is exactly m_stream. 0 success, 1 parse error, as for a message of no bytes.
    virtual int Deserialize() = 0;
    // A message of `length` bytes begins: clears the derived class's fields and calls SetLength.
    virtual void Reset(int length) = 0;

    // Forgets the packets received and expects `length` bytes.
    void SetLength(int length);

    // `tempBuffer` receives the joined message and, as far as it has room, what the last packet carries behind it:
    // never more than tempBufferSize bytes (at most 65535). m_stream is bound to the message in it and is valid for as
    // long as the caller leaves the buffer alone.
    int ProcessPacket(unsigned char* packet, BlePacketHeader& header, unsigned char* tempBuffer, int tempBufferSize);

    int m_length;                   // announced length of the message
    int m_received = 0;             // payload room of the packets received: at least the message bytes among them
    MemoryStream m_stream;          // the joined message once it is complete
    bool m_fragmented = false;      // the message takes more than one packet
    int m_firstHeaderLength = 0;    // header bytes of the first stored packet
    bool m_waitingForStart = true;  // no message is in progress

  private:
    using Packet = std::array<unsigned char, kPacketSize>;

    void Join(unsigned char* destination, int room);

    std::vector<Packet> m_packets;  // in arrival order; keeps its capacity, so that a warm session allocates nothing
};

// Stores nothing: Deserialize sees each packet's payload as it arrives, consumes what it can and returns 1 to give up.
// What it leaves unread of a packet is lost.
class FragmentedMessageBuilderSimple {
  public:
    explicit FragmentedMessageBuilderSimple(int length) : m_length(length) {}
    virtual ~FragmentedMessageBuilderSimple() = default;

    virtual int Deserialize() = 0;
    virtual void Reset(int length) = 0;

    void SetLength(int length);
    int ProcessPacket(unsigned char* packet, BlePacketHeader& header);

    int m_length;
    int m_received = 0;  // bytes the parser consumed
    MemoryStream m_stream;
    bool m_fragmented = false;
    bool m_waitingForStart = true;
};

// One packet is one message. Continuation packets, messages too long for one packet and bytes the parser leaves unread
// are failures; none of them is logged.
class NonFragmentedMessageBuilder {
  public:
    explicit NonFragmentedMessageBuilder(int length) : m_length(length) {}
    virtual ~NonFragmentedMessageBuilder() = default;

    virtual int Deserialize() = 0;
    virtual void Reset(int length) = 0;

    void SetLength(int length);
    int ProcessPacket(unsigned char* packet, BlePacketHeader& header);

    int m_length;
    int m_received = 0;  // bytes the parser consumed
    MemoryStream m_stream;
    bool m_tooLong = false;  // the packet cannot hold the announced length
};
