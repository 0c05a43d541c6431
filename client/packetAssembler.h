// Rebuilds whole messages from the packets of one response stream, on the client's side of the connection. Unlike the
// daemon's builders it accepts the long start form, which announces the catalogue's file transfer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace kzclient {

class PacketAssembler {
  public:
    enum class Problem {
        None,
        Empty,          // a packet without bytes
        UnknownLength,  // a start packet whose length type is not defined
        Restarted,      // a start packet in the middle of a message; the old message is dropped
        Orphan,         // a continuation without a message in progress; ignored
        OutOfOrder,     // a continuation whose counter does not follow; the message is dropped
    };

    struct Result {
        std::optional<std::vector<uint8_t>> message;  // whole, when this packet completed it
        Problem problem = Problem::None;
    };

    Result add(std::span<const uint8_t> packet);

    // Of the message in progress; 0 and 0 when there is none.
    size_t received() const { return m_progress ? m_progress->bytes.size() : 0; }
    size_t announced() const { return m_progress ? m_progress->length : 0; }

  private:
    struct Progress {
        size_t length;
        std::vector<uint8_t> bytes;
        uint8_t nextCounter = 0;
    };

    Problem begin(std::span<const uint8_t> packet);
    Problem proceed(std::span<const uint8_t> packet);
    void take(std::span<const uint8_t> payload);

    std::optional<Progress> m_progress;
};

const char* describe(PacketAssembler::Problem problem);

}  // namespace kzclient
