// What `--trace` prints on standard error: one line a packet, with time, device, direction, stream and its name,
// meaning and bytes. The first packet of a message says what the whole message is.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "catalogue.h"
#include "packetAssembler.h"
#include "radioLink.h"

namespace kzprotocol {
struct Row;
}

namespace kzble {

class Trace {
  public:
    using Names = std::function<const kzclient::Catalogue&()>;

    Trace(std::string address, Names names) : m_address(std::move(address)), m_names(std::move(names)) {}
    void operator()(const kzclient::LinkEvent& event);

  private:
    using Message = std::span<const uint8_t>;

    std::string meaning(const kzclient::LinkEvent& event);
    std::string packetMeaning(const kzclient::LinkEvent& event);
    std::string requestMeaning(uint8_t streamId, Message message);
    std::string answerMeaning(uint8_t streamId, Message message);
    const kzclient::Catalogue& names() const;

    std::string m_address;
    Names m_names;
    std::map<std::pair<bool, uint8_t>, kzclient::PacketAssembler> m_messages;  // by direction and stream
    std::multiset<const kzprotocol::Row*> m_open;                              // requests without an answer so far
};

}  // namespace kzble
