#include "pcapng.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>

namespace kzcapture {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kSectionHeader = 0x0a0d0d0a;  // reads the same in both byte orders
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint32_t kByteOrder = 0x1a2b3c4d;
constexpr uint32_t kClassicMagics[] = {0xa1b2c3d4, 0xd4c3b2a1, 0xa1b23c4d, 0x4d3cb2a1};  // of the older format

constexpr uint16_t kEndOfOptions = 0;
constexpr uint16_t kSectionApplication = 4;
constexpr uint16_t kInterfaceName = 2;
constexpr uint16_t kTimeResolution = 9;  // the n of 10^-n seconds, or with the highest bit of 2^-n
constexpr uint16_t kTimeOffset = 14;     // seconds to add

constexpr size_t kBlockFrame = 12;     // type and both lengths
constexpr size_t kSectionFixed = 16;   // byte order, version, length of the section
constexpr size_t kInterfaceFixed = 8;  // link type, reserved, longest packet
constexpr size_t kPacketFixed = 20;    // interface, time, captured and original length
constexpr uint8_t kNanoseconds = 9;
constexpr uint64_t kNanosASecond = 1000000000;

size_t padded(size_t length) {
    return (length + 3) / 4 * 4;
}

template <typename Number>
void put(Bytes& out, Number value) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof(value));
}

void putPadded(Bytes& out, std::span<const uint8_t> bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
    out.resize(out.size() + padded(bytes.size()) - bytes.size());
}

void putOption(Bytes& out, uint16_t code, std::span<const uint8_t> value) {
    put(out, code);
    put(out, static_cast<uint16_t>(value.size()));
    putPadded(out, value);
}

void putOption(Bytes& out, uint16_t code, const std::string& value) {
    putOption(out, code, std::span(reinterpret_cast<const uint8_t*>(value.data()), value.size()));
}

Bytes block(uint32_t type, const Bytes& body) {
    Bytes out;
    const auto length = static_cast<uint32_t>(body.size() + kBlockFrame);
    put(out, type);
    put(out, length);
    out.insert(out.end(), body.begin(), body.end());
    put(out, length);
    return out;
}

Bytes sectionHeader(const std::string& application) {
    Bytes body;
    put(body, kByteOrder);
    put(body, uint16_t{1});  // version 1.0
    put(body, uint16_t{0});
    put(body, int64_t{-1});  // how long the section becomes is not known
    putOption(body, kSectionApplication, application);
    putOption(body, kEndOfOptions, std::span<const uint8_t>());
    return block(kSectionHeader, body);
}

Bytes interfaceDescription(uint16_t linkType) {
    Bytes body;
    put(body, linkType);
    put(body, uint16_t{0});
    put(body, uint32_t{0});  // packets of any length
    putOption(body, kInterfaceName, "radio");
    putOption(body, kTimeResolution, {&kNanoseconds, 1});
    putOption(body, kEndOfOptions, std::span<const uint8_t>());
    return block(kInterfaceDescription, body);
}

Bytes enhancedPacket(Time time, std::span<const uint8_t> packet) {
    const auto units = static_cast<uint64_t>(time.time_since_epoch().count());
    Bytes body;
    put(body, uint32_t{0});  // interface
    put(body, static_cast<uint32_t>(units >> 32));
    put(body, static_cast<uint32_t>(units));
    put(body, static_cast<uint32_t>(packet.size()));
    put(body, static_cast<uint32_t>(packet.size()));
    putPadded(body, packet);
    return block(kEnhancedPacket, body);
}

// The sum of two such numbers still fits into a Time.
constexpr uint64_t kFarthestSecond = std::numeric_limits<int64_t>::max() / kNanosASecond / 2 - 1;

}  // namespace

// ---------------------------------------------------------------- writing

PcapngWriter::PcapngWriter(const std::string& path, uint16_t linkType, const std::string& application)
    : m_file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {
    Bytes head = sectionHeader(application);
    const Bytes interface = interfaceDescription(linkType);
    head.insert(head.end(), interface.begin(), interface.end());
    if (m_file == -1 || !append(head)) {
        const std::string reason = std::strerror(errno);
        if (m_file != -1) {
            close(m_file);
        }
        throw CaptureError("cannot write " + path + ": " + reason);
    }
}

PcapngWriter::~PcapngWriter() {
    close(m_file);
}

bool PcapngWriter::write(Time time, std::span<const uint8_t> packet) {
    return append(enhancedPacket(time, packet));
}

bool PcapngWriter::append(std::span<const uint8_t> blocks) {
    ssize_t written = 0;
    do {
        written = ::write(m_file, blocks.data(), blocks.size());
    } while (written == -1 && errno == EINTR);
    if (written == static_cast<ssize_t>(blocks.size())) {
        m_size += written;
        return true;
    }
    const int reason = written == -1 ? errno : ENOSPC;
    if (written > 0 && ftruncate(m_file, m_size) == -1) {
        m_size += written;  // part of a block stays; a reader says where
    }
    errno = reason;
    return false;
}

// ---------------------------------------------------------------- reading

template <typename Number>
Number PcapngReader::number(std::span<const uint8_t> bytes, size_t at) const {
    uint8_t raw[sizeof(Number)];
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), sizeof(Number), raw);
    if (m_swapped) {
        std::reverse(std::begin(raw), std::end(raw));
    }
    return std::bit_cast<Number>(raw);
}

void PcapngReader::fail(const std::string& why) const {
    throw CaptureError("the block at byte " + std::to_string(m_block) + " " + why);
}

std::optional<CapturedPacket> PcapngReader::next() {
    while (m_at < m_file.size()) {
        uint32_t type = 0;
        const auto body = nextBlock(type);
        if (type == kSectionHeader) {
            beginSection(body);
        } else if (type == kInterfaceDescription) {
            addInterface(body);
        } else if (type == kEnhancedPacket) {
            return packet(body);
        }
    }
    return std::nullopt;
}

// The body of the block at m_at, which is then behind it. A section header says in which byte order it is, its own
// lengths included.
std::span<const uint8_t> PcapngReader::nextBlock(uint32_t& type) {
    m_block = m_at;
    const auto rest = m_file.subspan(m_at);
    if (rest.size() < kBlockFrame) {
        fail("is cut off");
    }
    type = number<uint32_t>(rest, 0);
    if (type == kSectionHeader) {
        m_swapped = false;
        const auto order = number<uint32_t>(rest, 8);
        m_swapped = order != kByteOrder;
        if (number<uint32_t>(rest, 8) != kByteOrder) {
            fail("has an unknown byte order");
        }
    } else if (!m_inSection) {
        const bool classic =
            std::find(std::begin(kClassicMagics), std::end(kClassicMagics), type) != std::end(kClassicMagics);
        throw CaptureError(classic ? "it is a pcap file, not pcapng (editcap -F pcapng makes one of it)"
                                   : "it is no pcapng file");
    }
    const auto length = number<uint32_t>(rest, 4);
    if (length < kBlockFrame || length % 4 != 0) {
        fail("has an impossible length, " + std::to_string(length));
    }
    if (length > rest.size()) {
        fail("is cut off");
    }
    if (number<uint32_t>(rest, length - 4) != length) {
        fail("has two different lengths");
    }
    m_at += length;
    return rest.subspan(8, length - kBlockFrame);
}

void PcapngReader::beginSection(std::span<const uint8_t> body) {
    if (body.size() < kSectionFixed) {
        fail("is too short for a section header");
    }
    if (number<uint16_t>(body, 4) != 1) {
        fail("has an unknown version");
    }
    m_inSection = true;
    m_interfaces.clear();
}

void PcapngReader::addInterface(std::span<const uint8_t> body) {
    if (body.size() < kInterfaceFixed) {
        fail("is too short for an interface");
    }
    Interface interface;
    interface.linkType = number<uint16_t>(body, 0);
    for (auto options = body.subspan(kInterfaceFixed); options.size() >= 4;) {
        const auto code = number<uint16_t>(options, 0);
        const size_t length = number<uint16_t>(options, 2);
        if (code == kEndOfOptions) {
            break;
        }
        if (padded(length) > options.size() - 4) {
            fail("has an option that is longer than the block");
        }
        takeOption(interface, code, options.subspan(4, length));
        options = options.subspan(4 + padded(length));
    }
    m_interfaces.push_back(interface);
}

void PcapngReader::takeOption(Interface& interface, uint16_t code, std::span<const uint8_t> value) const {
    if (code == kTimeOffset && value.size() == sizeof(int64_t)) {
        interface.offsetSeconds = number<int64_t>(value, 0);
    }
    if (code != kTimeResolution || value.size() != 1) {
        return;
    }
    const bool binary = (value[0] & 0x80) != 0;
    const unsigned exponent = value[0] & 0x7f;
    if (exponent > (binary ? 63u : 19u)) {
        fail("has times too fine to be read");
    }
    interface.unitsASecond = binary ? uint64_t{1} << exponent : 1;
    for (unsigned digit = 0; !binary && digit < exponent; ++digit) {
        interface.unitsASecond *= 10;
    }
}

CapturedPacket PcapngReader::packet(std::span<const uint8_t> body) const {
    if (body.size() < kPacketFixed) {
        fail("is too short for a packet");
    }
    const auto index = number<uint32_t>(body, 0);
    if (index >= m_interfaces.size()) {
        fail("has a packet of an interface that is not described");
    }
    const Interface& interface = m_interfaces[index];
    const size_t captured = number<uint32_t>(body, 12);
    if (captured > body.size() - kPacketFixed) {
        fail("has a packet that is longer than the block");
    }
    const uint64_t units = uint64_t{number<uint32_t>(body, 4)} << 32 | number<uint32_t>(body, 8);
    const uint64_t whole = units / interface.unitsASecond;
    // Long double has the 64 bits that the product would overflow.
    const auto fraction = static_cast<int64_t>(static_cast<long double>(units % interface.unitsASecond) *
                                               kNanosASecond / static_cast<long double>(interface.unitsASecond));
    if (whole > kFarthestSecond || interface.offsetSeconds > static_cast<int64_t>(kFarthestSecond) ||
        interface.offsetSeconds < -static_cast<int64_t>(kFarthestSecond)) {
        fail("has an impossible time");
    }
    const std::chrono::nanoseconds time{
        (static_cast<int64_t>(whole) + interface.offsetSeconds) * static_cast<int64_t>(kNanosASecond) + fraction};
    return {Time{time}, interface.linkType, body.subspan(kPacketFixed, captured), number<uint32_t>(body, 16)};
}

}  // namespace kzcapture
