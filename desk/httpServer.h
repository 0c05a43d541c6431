// The HTTP side of the desk: listens, checks who asks, limits what is read, hands out the page, and leaves everything
// else to the Api.
//
// A connection carries one request. What a refused request has left unread would otherwise be taken for the next
// request on it, and a foreign page could put one there that has no foreign Origin.
#pragma once

#include <httplib.h>

#include <optional>
#include <string>

#include "api.h"
#include "connection.h"
#include "hostCheck.h"

namespace kzdesk {

class HttpServer {
  public:
    // `api` has to outlive it; `webPath` is the folder of the page's files.
    HttpServer(Api& api, const std::string& webPath);

    // Opens the port; nothing when that fails. Returns where it listens, with the real port.
    std::optional<ListenAddress> bind(const ListenAddress& address);
    // Serves until stop(), and returns when the last request has been answered.
    void serve() { m_server.listen_after_bind(); }
    // From any thread. What is being answered still may be, but nobody is waited for.
    void stop();

  private:
    // A hundred programs may connect in the same moment. The library lets five wait, and the system answers the others
    // a second later or not at all.
    class Server : public httplib::Server {
      public:
        bool letManyWait() { return ::listen(svr_sock_, 512) == 0; }
        Serving serving;

      private:
        bool process_and_close_socket(socket_t socket) override;
    };

    bool isAllowed(const httplib::Request& request) const;
    std::string readBody(const httplib::Request& request, const httplib::ContentReader& reader) const;
    void answer(const httplib::Request& request, httplib::Response& response, const httplib::ContentReader* reader);

    Api& m_api;
    std::optional<HostCheck> m_hosts;
    Server m_server;
};

}  // namespace kzdesk
