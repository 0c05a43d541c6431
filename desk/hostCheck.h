// Who may speak to the desk. A web page from elsewhere runs in a browser on this machine and reaches every local port,
// so a request is accepted only when it is addressed to the desk by one of its own names, and when it comes from no
// other page. Immutable: any thread may ask.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kzdesk {

// Where to listen: HOST:PORT, [IPv6]:PORT or PORT alone, which is 127.0.0.1.
struct ListenAddress {
    std::string host = "127.0.0.1";  // without brackets
    int port = 0;                    // 0: any free one

    // Nothing when the text is not an address with a port up to 65535.
    static std::optional<ListenAddress> parse(const std::string& text);
    // "http://127.0.0.1:8080"
    std::string url() const;
};

class HostCheck {
  public:
    // `address` is the one that is listened at, with its real port. A wildcard (0.0.0.0 or ::) adds every address of
    // numbers: a name that a foreign page has made to point here is still refused.
    explicit HostCheck(ListenAddress address) : m_address(std::move(address)) {}

    // The value of a Host header.
    bool allowsHost(std::string_view host) const;
    // The value of an Origin header: http:// and such a host.
    bool allowsOrigin(std::string_view origin) const;

  private:
    ListenAddress m_address;
};

}  // namespace kzdesk
