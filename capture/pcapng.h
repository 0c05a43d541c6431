// Capture files of the pcapng format. Written are one section and one interface, in the machine's byte order, with
// times in nanoseconds. Read are both byte orders, several sections and interfaces, and every resolution of time;
// blocks that carry no packet with a time are passed over.
//
// A block, of which the body is described at the functions that write it:
//   0  4  type
//   4  4  length of the whole block, a multiple of 4
//   8     body
//      4  length again
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace kzcapture {

using Time = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

// A file cannot be opened, or what it holds is no capture; in words for the user.
class CaptureError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class PcapngWriter {
  public:
    // Makes the file, or empties it. Throws CaptureError.
    PcapngWriter(const std::string& path, uint16_t linkType, const std::string& application);
    ~PcapngWriter();
    PcapngWriter(const PcapngWriter&) = delete;
    PcapngWriter& operator=(const PcapngWriter&) = delete;

    // A packet is in the file when this returns, so that a capture survives the sudden end of its program. False when
    // the file could not take it; the file then ends with the packet before.
    bool write(Time time, std::span<const uint8_t> packet);

  private:
    bool append(std::span<const uint8_t> blocks);

    int m_file = -1;
    int64_t m_size = 0;
};

struct CapturedPacket {
    Time time;
    uint16_t linkType = 0;
    std::span<const uint8_t> bytes;
    size_t originalLength = 0;  // more than bytes.size() when the capture has only the packet's beginning
};

class PcapngReader {
  public:
    // `file` must outlive the reader and what it returns.
    explicit PcapngReader(std::span<const uint8_t> file) : m_file(file) {}

    // The next packet; nothing at the end of the file. Throws CaptureError where the file breaks the format, with the
    // offset of the block.
    std::optional<CapturedPacket> next();

  private:
    struct Interface {
        uint16_t linkType = 0;
        uint64_t unitsASecond = 1000000;
        int64_t offsetSeconds = 0;
    };

    std::span<const uint8_t> nextBlock(uint32_t& type);
    void beginSection(std::span<const uint8_t> body);
    void addInterface(std::span<const uint8_t> body);
    void takeOption(Interface& interface, uint16_t code, std::span<const uint8_t> value) const;
    CapturedPacket packet(std::span<const uint8_t> body) const;
    template <typename Number>
    Number number(std::span<const uint8_t> bytes, size_t at) const;
    [[noreturn]] void fail(const std::string& why) const;

    std::span<const uint8_t> m_file;
    size_t m_at = 0;
    size_t m_block = 0;  // offset of the block that is read
    bool m_swapped = false;
    bool m_inSection = false;
    std::vector<Interface> m_interfaces;
};

}  // namespace kzcapture
