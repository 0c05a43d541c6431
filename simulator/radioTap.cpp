#include "radioTap.h"

#include <algorithm>

#include "report.h"

namespace kzsim {

namespace {

using kzcapture::Direction;
using kzradio::Kind;

std::span<const uint8_t> bytesOf(const kzradio::Record& record) {
    return std::span(record.data).first(std::min<size_t>(record.length, sizeof record.data));
}

}  // namespace

RadioTap::RadioTap(const std::string& path) {
    if (!path.empty()) {
        m_recorder.emplace(path, "kzCameraSim", [path](const std::string& why) {
            warn("radio", "%s takes no more, the recording ends: %s", path.c_str(), why.c_str());
        });
    }
}

void RadioTap::fromDevice(uint32_t connectionId, const kzradio::Record& record) {
    if (!m_recorder) {
        return;
    }
    if (record.kind == Kind::Hello) {
        kzcapture::Peer peer{{}, static_cast<uint8_t>(record.argument0), record.argument1 != 0};
        std::copy_n(record.data, peer.address.size(), peer.address.begin());
        m_recorder->connected(connectionId, peer);
    } else if (record.kind == Kind::Packet) {
        m_recorder->packet(connectionId, Direction::ToCamera, record.streamId, bytesOf(record));
    } else if (record.kind == Kind::Ccc) {
        m_recorder->descriptor(connectionId, record.streamId, record.length);
    }
}

void RadioTap::toDevice(uint32_t connectionId, const kzradio::Record& record) {
    if (m_recorder) {
        m_recorder->packet(connectionId, Direction::FromCamera, record.streamId, bytesOf(record));
    }
}

void RadioTap::ended(uint32_t connectionId) {
    if (m_recorder) {
        m_recorder->disconnected(connectionId);
    }
}

}  // namespace kzsim
