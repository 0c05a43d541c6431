// Message builders: collect the packets of one message on one interface of one client and hand the message to the
// derived class's parser.
//
// The four message classes of the daemon derive from FragmentedMessageBuilder. The other two are kept because they
// belong to the public interface; no message of the daemon uses them.
//
// ProcessPacket takes a whole 20-byte packet (header included) and its header, read from the receive default. It
// returns
//   kMessageComplete (0)   the message is whole and Deserialize accepted it;
//   kMessageFailed (1)     the packet was dropped or the message failed. Each reason is logged unless said otherwise:
//                           1. a continuation packet with no message in progress: it is ignored;
//                           2. the 401st packet of one message: the message is given up;
//                           3. a whole message longer than the caller's buffer: it is given up, the parser not called;
//                           4. Deserialize returned 1 (not logged here).
//                          The builder then waits for a start packet; the caller simply goes on;
//   kMessageNeedsMore (2)  the packet was taken, the message needs more.
// A start packet in the middle of a message is logged, drops that message and begins the new one.
//
// A builder has two states: waiting for a start packet (at first, and after every complete or failed message) and
// receiving. Nothing that arrives while it waits can bring an earlier message back. Not thread-safe; the server's lock
// is held.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "MemStream.h"
#include "blePacketHeader.h"

enum : int { kMessageComplete = 0, kMessageFailed = 1, kMessageNeedsMore = 2 };

// Limits what one message can make the daemon hold to 8000 bytes. The longest message that can arrive in so many
// packets has 18 + 399 * 19 = 7599 bytes.
constexpr size_t kMaxPacketsPerMessage = 400;

// Stores the packets and joins them into the caller's buffer; Deserialize sees the message once, as a whole.
class FragmentedMessageBuilder {
  public:
    explicit FragmentedMessageBuilder(int length) : m_length(length) {}
    virtual ~FragmentedMessageBuilder() = default;

    // Parses the message, which is exactly the bytes of m_stream and may have none. Returns 0, or 1 for a parse error.
    virtual int Deserialize() = 0;
    // A message of `length` bytes begins: clears the derived class's fields and calls SetLength.
    virtual void Reset(int length) = 0;

    // Forgets the packets received and expects `length` bytes.
    void SetLength(int length);

    // `tempBuffer` receives the joined message and what the last packet carries behind it, as far as that has room, so
    // never more than tempBufferSize bytes (at most 65535). m_stream reads the message there and is valid until the
    // caller writes into the buffer.
    int ProcessPacket(unsigned char* packet, BlePacketHeader& header, unsigned char* tempBuffer, int tempBufferSize);

    // A packet of the stream was lost: a message in progress is given up, and its later packets are ignored like any
    // that belong to no message.
    void Abandon() { m_waitingForStart = true; }

    int m_length;                   // announced length of the message
    int m_received = 0;             // payload bytes of the packets received, what lies behind the message included
    MemoryStream m_stream;          // the joined message once it is complete
    bool m_fragmented = false;      // the message takes more than one packet
    int m_firstHeaderLength = 0;    // header bytes of the first stored packet
    bool m_waitingForStart = true;  // no message is in progress

  private:
    using Packet = std::array<unsigned char, kBlePacketSize>;

    void Join(const unsigned char* lastPacket, unsigned char* destination, int room);

    std::vector<Packet>
        m_packets;  // all but the last, in arrival order; the capacity stays, so that a session allocates only at first
};

// Stores nothing: Deserialize sees each packet's payload as it arrives and returns 1 to give the message up. Bytes of a
// packet that it leaves unread are lost.
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
