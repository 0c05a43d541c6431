// One connection of a client library to its service, and the one exchange it makes. Internal to the three libraries:
// nothing here is exported by them.
//
// A link is plain data, so that it can live in a record that the library's caller owns. It allocates nothing, and it
// must not be used from two threads at once.
#pragma once

#include <sys/uio.h>

#include <cstdint>

#include "cameraWire.h"

namespace kzlink {

constexpr int kReplyDeadlineMs = 2000;  // for connecting, sending and receiving, each

struct Link {
    int fd = -1;  // owned; -1 while not connected
    uint32_t sequence = 0;
};

struct Request {
    kzwire::Operation operation{};
    uint32_t target = 0;
    uint32_t callerId = 0;
    iovec first{};  // payload, in up to two pieces
    iovec second{};
};

// The caller's reply buffer. With null `data` a reply is accepted and thrown away.
struct ReplyBuffer {
    void* data = nullptr;
    uint32_t size = 0;
    uint32_t length = 0;  // out: bytes copied to `data`
};

// Sends `request` and waits for its reply, connecting first when the link is down. Gives the service's result code.
// -1 when nobody listens, the request is over-long, no reply came in time, the reply answers another request, or it
// does not fit the buffer; the buffer is then untouched. After a failure of the connection (not of the fit) the link is
// down, so that a reply that comes late meets a closed socket.
int exchange(Link& link, const kzwire::Endpoint& endpoint, const Request& request, ReplyBuffer& reply);

// Ends the connection; the next exchange makes a new one.
void disconnect(Link& link);

}  // namespace kzlink
