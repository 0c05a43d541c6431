#include "protocolFile.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace kzdesk {

ProtocolFile::ProtocolFile(const std::string& path) {
    std::ifstream file(path);
    m_text.assign(std::istreambuf_iterator<char>(file), {});
    try {
        const auto description = nlohmann::json::parse(m_text);
        for (const auto& row : description.at("interfaces")) {
            m_interfaces.push_back({row.at("name"), row.at("request"), row.at("answer"), row.at("gate")});
        }
        for (const auto& row : description.at("streams")) {
            if (row.at("role") == "write") {
                m_writeStreams.push_back(row.at("id"));
            }
        }
        for (const auto& row : description.at("deviceTypes")) {
            m_deviceTypes.push_back({row.at("id"), row.at("name")});
        }
    } catch (const nlohmann::json::exception& error) {
        throw std::runtime_error(path + " is no description of the protocol: " + error.what());
    }
}

const Interface* ProtocolFile::interfaceOf(uint8_t stream) const {
    const auto row = std::find_if(m_interfaces.begin(), m_interfaces.end(),
                                  [&](const Interface& i) { return i.request == stream || i.answer == stream; });
    return row == m_interfaces.end() ? nullptr : &*row;
}

bool ProtocolFile::takesWrites(uint8_t stream) const {
    return std::find(m_writeStreams.begin(), m_writeStreams.end(), stream) != m_writeStreams.end();
}

bool ProtocolFile::isGate(uint8_t descriptor) const {
    return std::any_of(m_interfaces.begin(), m_interfaces.end(),
                       [&](const Interface& i) { return i.gate == descriptor; });
}

std::optional<uint8_t> ProtocolFile::deviceType(const std::string& name) const {
    const auto row = std::find_if(m_deviceTypes.begin(), m_deviceTypes.end(),
                                  [&](const DeviceType& type) { return type.name == name; });
    return row == m_deviceTypes.end() ? std::nullopt : std::optional(row->id);
}

std::string ProtocolFile::deviceTypeName(uint8_t type) const {
    const auto row =
        std::find_if(m_deviceTypes.begin(), m_deviceTypes.end(), [&](const DeviceType& one) { return one.id == type; });
    return row == m_deviceTypes.end() ? std::string() : row->name;
}

}  // namespace kzdesk
