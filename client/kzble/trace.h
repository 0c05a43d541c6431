// What `--trace` prints on standard error: one line a packet, with time, device, direction, interface, meaning, bytes.
// The names of commands, queries and features stand in one table in trace.cpp.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "packetAssembler.h"
#include "radioLink.h"

namespace kzble {

class Trace {
  public:
    using SettingName = std::function<std::string(uint8_t id)>;

    Trace(std::string address, SettingName settingName)
        : m_address(std::move(address)), m_settingName(std::move(settingName)) {}
    void operator()(const kzclient::LinkEvent& event);

  private:
    std::string meaning(const kzclient::LinkEvent& event);
    std::string packetMeaning(const kzclient::LinkEvent& event);
    std::string messageMeaning(uint8_t streamId, bool outgoing, std::span<const uint8_t> message) const;
    std::string settingMeaning(uint8_t id) const;

    std::string m_address;
    SettingName m_settingName;
    std::map<std::pair<bool, uint8_t>, kzclient::PacketAssembler> m_messages;  // by direction and stream
};

}  // namespace kzble
