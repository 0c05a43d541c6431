// What the messages of one connection mean: the protocol's name of a request, which request an answer belongs to, and
// the result in words. Some answers have the first bytes of a push, so the requests that are open are kept.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <span>

#include "catalogue.h"
#include "protocolFile.h"

namespace kzdesk {

// Any thread may call; the order of the calls is the order of the messages.
class Meaning {
  public:
    using Message = std::span<const uint8_t>;

    // `names` has to outlive it.
    explicit Meaning(const kzclient::Catalogue& names) : m_names(names) {}

    // {"what": "request", "kind", "name", "does", "text"}; null when the protocol does not know the message. The text
    // has the values in words, where it has some.
    nlohmann::ordered_json ofRequest(const Interface& interface, Message message);
    // {"what": "answer" or "push", "kind", "name", "does", "text", "result": {"code", "name"}}; the result where there
    // is one.
    nlohmann::ordered_json ofNotification(const Interface& interface, Message message);

  private:
    struct Open {
        uint8_t stream;  // the request's
        uint8_t first;
        int second;  // the action of a protobuf request as its answer has it; -1: not compared
    };

    bool answersAnOpenOne(const Interface& interface, Message message);

    const kzclient::Catalogue& m_names;
    std::mutex m_mutex;
    std::deque<Open> m_open;  // oldest first
};

}  // namespace kzdesk
