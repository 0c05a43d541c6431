#include "radioCapture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace kzcapture {

namespace {

constexpr uint8_t kVersion = 1;
constexpr size_t kHeader = 8;
constexpr size_t kPeer = 8;
constexpr size_t kLongestPacket = 20;

Frame parseFrame(const CapturedPacket& packet, size_t number) {
    const auto bytes = packet.bytes;
    const auto fail = [number](const char* why) { throw CaptureError("packet " + std::to_string(number) + " " + why); };
    if (bytes.size() < kHeader || bytes[0] != kVersion) {
        fail("is no frame of the radio");
    }
    if (bytes.size() < packet.originalLength) {
        fail("is captured in part only");
    }
    if (bytes[1] > static_cast<uint8_t>(Event::Descriptor) || bytes[2] > static_cast<uint8_t>(Direction::FromCamera)) {
        fail("has an unknown event or direction");
    }
    Frame frame;
    frame.time = packet.time;
    frame.event = static_cast<Event>(bytes[1]);
    frame.direction = static_cast<Direction>(bytes[2]);
    frame.stream = bytes[3];
    for (const uint8_t byte : bytes.subspan(4, 4)) {
        frame.connection = frame.connection << 8 | byte;
    }
    frame.bytes.assign(bytes.begin() + kHeader, bytes.end());
    if (frame.event == Event::Descriptor && frame.bytes.size() != 1) {
        fail("has no value for its descriptor");
    }
    if (frame.event == Event::Packet && frame.bytes.size() > kLongestPacket) {
        fail("is longer than packets of the radio are");
    }
    return frame;
}

}  // namespace

std::optional<Peer> Frame::peer() const {
    if (event != Event::Connected || bytes.size() < kPeer) {
        return std::nullopt;
    }
    Peer peer;
    std::copy_n(bytes.begin(), peer.address.size(), peer.address.begin());
    peer.deviceType = bytes[peer.address.size()];
    peer.cameraIsCentral = bytes[peer.address.size() + 1] != 0;
    return peer;
}

RadioRecorder::RadioRecorder(const std::string& path, const std::string& application,
                             std::function<void(const std::string& why)> failed)
    : m_writer(path, kRadioLinkType, application), m_failed(std::move(failed)) {}

void RadioRecorder::connected(uint32_t connection, const Peer& peer) {
    std::vector<uint8_t> bytes(peer.address.begin(), peer.address.end());
    bytes.push_back(peer.deviceType);
    bytes.push_back(peer.cameraIsCentral ? 1 : 0);
    record(connection, Event::Connected, Direction::ToCamera, 0, bytes);
}

void RadioRecorder::disconnected(uint32_t connection) {
    record(connection, Event::Disconnected, Direction::ToCamera, 0, {});
}

void RadioRecorder::packet(uint32_t connection, Direction direction, uint8_t stream, std::span<const uint8_t> bytes) {
    record(connection, Event::Packet, direction, stream, bytes);
}

void RadioRecorder::descriptor(uint32_t connection, uint8_t descriptorStream, uint8_t value) {
    record(connection, Event::Descriptor, Direction::ToCamera, descriptorStream, {&value, 1});
}

void RadioRecorder::record(uint32_t connection, Event event, Direction direction, uint8_t stream,
                           std::span<const uint8_t> bytes) {
    if (m_ended) {
        return;
    }
    std::vector<uint8_t> frame{kVersion, static_cast<uint8_t>(event), static_cast<uint8_t>(direction), stream};
    for (int shift = 24; shift >= 0; shift -= 8) {
        frame.push_back(static_cast<uint8_t>(connection >> shift));
    }
    frame.insert(frame.end(), bytes.begin(), bytes.end());
    if (!m_writer.write(std::chrono::system_clock::now(), frame)) {
        m_ended = true;
        m_failed(std::strerror(errno));
    }
}

std::vector<Frame> parseRadioCapture(std::span<const uint8_t> file) {
    PcapngReader reader(file);
    std::vector<Frame> frames;
    for (size_t number = 1; const auto packet = reader.next(); ++number) {
        if (packet->linkType == kRadioLinkType) {
            frames.push_back(parseFrame(*packet, number));
        }
    }
    if (frames.empty()) {
        throw CaptureError("there is nothing of the radio in it");
    }
    return frames;
}

std::vector<Frame> readRadioCapture(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw CaptureError("cannot read " + path + ": " + std::strerror(errno));
    }
    try {
        return parseRadioCapture({reinterpret_cast<const uint8_t*>(content.data()), content.size()});
    } catch (const CaptureError& error) {
        throw CaptureError(path + ": " + error.what());
    }
}

}  // namespace kzcapture
