// The JSON object in a request's body. Every reading function throws ApiError 400 with words for the user.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "bleClient.h"

namespace kzdesk {

class RequestBody {
  public:
    // An object with no other members than these.
    RequestBody(const std::string& text, std::initializer_list<std::string_view> members);

    bool has(const char* member) const { return m_object.contains(member); }
    const nlohmann::json& at(const char* member) const;
    // A whole number from `lowest` to `highest`.
    unsigned number(const char* member, unsigned lowest, unsigned highest) const;
    // False when there is no such member.
    bool flag(const char* member) const;
    std::string text(const char* member) const;
    std::vector<std::string> words(const char* member) const;
    // Bytes as hexadecimal digits, 1 to `most` of them.
    kzclient::Bytes bytes(const char* member, size_t most) const;

  private:
    nlohmann::json m_object;
};

}  // namespace kzdesk
