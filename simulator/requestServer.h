// A service of the camera that answers the requests of its client library (cameraWire.h).
#pragma once

#include "cameraWire.h"
#include "localSocket.h"

namespace kzsim {

struct ServiceRequest {
    kzwire::RequestHeader header;
    ByteView payload;
};

// The answer: a result code, and the reply's bytes when it is 0.
struct ServiceReply {
    int32_t result = 0;
    Bytes payload = {};
};

class RequestServer {
  public:
    using Handler = std::function<ServiceReply(const ServiceRequest&)>;

    RequestServer(EventLoop& loop, const kzwire::Endpoint& endpoint, Handler handler);

    // A server that hangs answers nobody; afterwards it answers what has come meanwhile, late.
    void setHung(bool hung) { m_server.setReading(!hung); }

  private:
    RecordServer m_server;
};

}  // namespace kzsim
