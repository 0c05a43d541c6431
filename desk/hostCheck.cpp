#include "hostCheck.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <charconv>

namespace kzdesk {
namespace {

constexpr int kDefaultPort = 80;

struct HostPort {
    std::string host;  // lower case, without brackets
    std::optional<int> port;
};

std::optional<int> portOf(std::string_view text) {
    int port = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
    return whole && port >= 0 && port <= 65535 ? std::optional(port) : std::nullopt;
}

// HOST, HOST:PORT or [IPv6]:PORT; nothing for any other form.
std::optional<HostPort> split(std::string_view text) {
    HostPort result;
    std::string_view rest;
    if (text.starts_with('[')) {
        const size_t end = text.find(']');
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        result.host = text.substr(1, end - 1);
        rest = text.substr(end + 1);
    } else {
        const size_t colon = std::min(text.find(':'), text.size());
        result.host = text.substr(0, colon);
        rest = text.substr(colon);
    }
    if (!rest.empty()) {
        result.port = rest[0] == ':' ? portOf(rest.substr(1)) : std::nullopt;
        if (!result.port) {
            return std::nullopt;
        }
    }
    std::transform(result.host.begin(), result.host.end(), result.host.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result.host.empty() ? std::nullopt : std::optional(result);
}

bool isNumeric(const std::string& host) {
    in6_addr ignored{};
    return inet_pton(AF_INET, host.c_str(), &ignored) == 1 || inet_pton(AF_INET6, host.c_str(), &ignored) == 1;
}

}  // namespace

std::optional<ListenAddress> ListenAddress::parse(const std::string& text) {
    if (const auto alone = portOf(text)) {
        return ListenAddress{"127.0.0.1", *alone};
    }
    const auto both = split(text);
    return both && both->port ? std::optional(ListenAddress{both->host, *both->port}) : std::nullopt;
}

std::string ListenAddress::url() const {
    const bool isV6 = host.find(':') != std::string::npos;
    return "http://" + (isV6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

bool HostCheck::allowsHost(std::string_view text) const {
    const auto asked = split(text);
    if (!asked || asked->port.value_or(kDefaultPort) != m_address.port) {
        return false;
    }
    const bool isWildcard = m_address.host == "0.0.0.0" || m_address.host == "::";
    return asked->host == "localhost" || asked->host == "127.0.0.1" || asked->host == "::1" ||
           asked->host == m_address.host || (isWildcard && isNumeric(asked->host));
}

bool HostCheck::allowsOrigin(std::string_view origin) const {
    constexpr std::string_view kScheme = "http://";
    return origin.starts_with(kScheme) && allowsHost(origin.substr(kScheme.size()));
}

}  // namespace kzdesk
