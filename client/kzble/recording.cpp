#include "recording.h"

#include <iostream>

namespace kzble {

namespace {

using kzcapture::Direction;
using kzclient::LinkEvent;

// One connection in a recording, from its making to its end.
class RecordedConnection {
  public:
    RecordedConnection(std::shared_ptr<kzcapture::RadioRecorder> recorder, uint32_t id, const kzcapture::Peer& peer)
        : m_recorder(std::move(recorder)), m_id(id) {
        m_recorder->connected(m_id, peer);
    }
    ~RecordedConnection() { m_recorder->disconnected(m_id); }
    RecordedConnection(const RecordedConnection&) = delete;
    RecordedConnection& operator=(const RecordedConnection&) = delete;

    void add(const LinkEvent& event) {
        if (event.kind == LinkEvent::Kind::Gate) {
            m_recorder->descriptor(m_id, event.streamId, event.bytes.front());
        } else {
            m_recorder->packet(m_id, event.outgoing ? Direction::ToCamera : Direction::FromCamera, event.streamId,
                               event.bytes);
        }
    }

  private:
    std::shared_ptr<kzcapture::RadioRecorder> m_recorder;
    uint32_t m_id;
};

}  // namespace

void Recording::add(kzclient::RadioLink& link, const kzclient::RadioLink::Peer& peer, const std::string& path) {
    if (path.empty()) {
        return;
    }
    if (!m_recorder) {
        m_recorder = std::make_shared<kzcapture::RadioRecorder>(path, "kzble", [path](const std::string& why) {
            std::cerr << "kzble: " << path << " takes no more, the recording ends: " << why << '\n';
        });
    }
    const kzcapture::Peer recorded{peer.address, peer.deviceType, peer.cameraIsCentral};
    auto connection = std::make_shared<RecordedConnection>(m_recorder, link.connectionId(), recorded);
    link.setRecorder([connection](const LinkEvent& event) { connection->add(event); });
}

}  // namespace kzble
