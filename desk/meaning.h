// What the messages of one connection mean: the protocol's name of a request, which request an answer belongs to, and
// the result in words. Some answers have the first bytes of a push, so the requests that are open are kept.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <span>

#include "protocolFile.h"

namespace kzdesk {

// Any thread may call; the order of the calls is the order of the messages.
class Meaning {
  public:
    using Message = std::span<const uint8_t>;

    // {"what": "request", "kind", "name", "does"}; null when the protocol does not know the message.
    nlohmann::ordered_json ofRequest(const Interface& interface, Message message);
    // {"what": "answer" or "push", "kind", "name", "does", "result": {"code", "name"}}; the result where there is one.
    nlohmann::ordered_json ofNotification(const Interface& interface, Message message);

  private:
    struct Open {
        uint8_t stream;  // the request's
        uint8_t first;
        int second;  // the action of a protobuf request as its answer has it; -1: not compared
    };

    bool answersAnOpenOne(const Interface& interface, Message message);

    std::mutex m_mutex;
    std::deque<Open> m_open;  // oldest first
};

}  // namespace kzdesk
