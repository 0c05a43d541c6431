#include "requestBody.h"

#include <algorithm>
#include <set>

#include "apiError.h"

namespace kzdesk {
namespace {

std::string quoted(const char* member) {
    return std::string("\"") + member + "\"";
}

// The library reads up to a NUL only, and of members with one name keeps the last.
nlohmann::json parse(const std::string& text) {
    using Event = nlohmann::json::parse_event_t;
    std::set<std::string> seen;
    bool isClear = text.find('\0') == std::string::npos;
    const auto note = [&](int depth, Event event, nlohmann::json& value) {
        isClear = isClear && (event != Event::key || depth != 1 || seen.insert(value.get<std::string>()).second);
        return true;
    };
    nlohmann::json parsed = nlohmann::json::parse(text, note, false);
    return isClear ? parsed : nlohmann::json();
}

}  // namespace

RequestBody::RequestBody(const std::string& text, std::initializer_list<std::string_view> members)
    : m_object(parse(text)) {
    if (!m_object.is_object()) {
        throw badRequest("the body has to be a JSON object");
    }
    for (const auto& [name, value] : m_object.items()) {
        if (std::find(members.begin(), members.end(), name) == members.end()) {
            throw badRequest(quoted(name.c_str()) + " is no member of this request");
        }
    }
}

const nlohmann::json& RequestBody::at(const char* member) const {
    if (!has(member)) {
        throw badRequest(quoted(member) + " is missing");
    }
    return m_object[member];
}

unsigned RequestBody::number(const char* member, unsigned lowest, unsigned highest) const {
    const nlohmann::json& value = at(member);
    if (!value.is_number_unsigned() || value.get<uint64_t>() < lowest || value.get<uint64_t>() > highest) {
        throw badRequest(quoted(member) + " has to be a whole number from " + std::to_string(lowest) + " to " +
                         std::to_string(highest));
    }
    return value.get<unsigned>();
}

bool RequestBody::flag(const char* member) const {
    if (!has(member)) {
        return false;
    }
    if (!at(member).is_boolean()) {
        throw badRequest(quoted(member) + " has to be true or false");
    }
    return at(member).get<bool>();
}

std::string RequestBody::text(const char* member) const {
    if (!at(member).is_string()) {
        throw badRequest(quoted(member) + " has to be a text");
    }
    return at(member).get<std::string>();
}

std::vector<std::string> RequestBody::words(const char* member) const {
    const nlohmann::json& list = at(member);
    const bool isFine =
        list.is_array() && !list.empty() && std::all_of(list.begin(), list.end(), [](const auto& word) {
            return word.is_string() && word.template get_ref<const std::string&>().find('\0') == std::string::npos;
        });
    if (!isFine) {
        throw badRequest(quoted(member) + " has to be a list of words");
    }
    return list.get<std::vector<std::string>>();
}

kzclient::Bytes RequestBody::bytes(const char* member, size_t most) const {
    kzclient::Bytes bytes;
    try {
        bytes = kzclient::parseHex(text(member));
    } catch (const kzclient::WrongUse&) {
    }
    if (bytes.empty() || bytes.size() > most) {
        throw badRequest(quoted(member) + " has to be 1 to " + std::to_string(most) +
                         " bytes in hexadecimal digits, for example \"01 01 01\"");
    }
    return bytes;
}

}  // namespace kzdesk
