// What one device has asked the camera to be notified of, read from its requests and the camera's answers. Requests of
// features are not followed. Any thread may call.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>

#include "bleClient.h"
#include "meaning.h"
#include "protocolFile.h"

namespace kzdesk {

class Interests {
  public:
    void noteRequest(const Interface& interface, Meaning::Message message);
    // A request counts once it is answered, because the camera refuses some.
    void noteAnswer(const Interface& interface, Meaning::Message message);

    // {"settings": [ids], "capabilities": [ids], "status": [ids], "display": true, "led": true}; without what is empty.
    nlohmann::ordered_json state() const;

  private:
    mutable std::mutex m_mutex;
    std::deque<std::pair<uint8_t, kzclient::Bytes>> m_open;  // stream and message of requests without an answer
    std::map<std::string, std::set<uint8_t>> m_ids;
    std::set<std::string> m_buffers;
};

}  // namespace kzdesk
