#include "requestServer.h"

namespace kzsim {
namespace {

Bytes answer(ByteView record, const RequestServer::Handler& handler) {
    kzwire::ReplyHeader header{};
    ServiceReply reply{kzwire::kResultFailure};
    if (record.size() >= sizeof(kzwire::RequestHeader)) {
        const ServiceRequest request{numberAt<kzwire::RequestHeader>(record),
                                     record.subspan(sizeof(kzwire::RequestHeader))};
        header.sequence = request.header.sequence;
        reply = handler(request);
    }
    header.result = reply.result;
    Bytes bytes = bytesOf(header);
    if (reply.result == 0) {
        appendBytes(bytes, reply.payload);
    }
    return bytes;
}

}  // namespace

RequestServer::RequestServer(EventLoop& loop, const kzwire::Endpoint& endpoint, Handler handler)
    : m_server(loop, endpoint.address(), sizeof(kzwire::RequestHeader) + kzwire::kMaxPayload,
               [handler = std::move(handler)](ByteView record) { return answer(record, handler); }) {}

}  // namespace kzsim
