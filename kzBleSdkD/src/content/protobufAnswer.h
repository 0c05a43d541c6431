// The protobuf framing that the command and settings interfaces share. A request is a feature id, an action id and a
// serialised message; its answer repeats the feature id, sets bit 7 of the action id and carries the serialised answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "generic/EnumResultGeneric.pb.h"

namespace google::protobuf {
class MessageLite;
}

constexpr uint8_t kProtobufAnswerBit = 0x80;

// Reads a request's payload into `request`. A field that does not parse stays absent, and its handler goes on with the
// default; nothing is logged.
void ParseRequest(const std::vector<uint8_t>& payload, google::protobuf::MessageLite* request);

template <typename Request>
Request ParseRequest(const std::vector<uint8_t>& payload) {
    Request request;
    ParseRequest(payload, &request);
    return request;
}

// The byte at `index` of the payload, for the log; 0 beyond its end.
inline uint8_t PayloadByte(const std::vector<uint8_t>& payload, size_t index) {
    return index < payload.size() ? payload[index] : uint8_t{0};
}

// How the outcome of a request is reported in a ResponseGeneric.
constexpr EnumResultGeneric ResultOf(bool success) {
    return success ? RESULT_SUCCESS : RESULT_UNKNOWN;
}

// Writes the answer of one action into the caller's buffer. An answer longer than the buffer is refused.
class ProtobufAnswer {
  public:
    // *responseLength is the capacity of `response` and becomes the answer's length.
    ProtobufAnswer(uint8_t featureId, uint8_t actionId, uint8_t* response, uint16_t* responseLength)
        : m_featureId(featureId), m_actionId(actionId), m_response(response), m_responseLength(responseLength) {}

    // Each returns KZ_OK, or KZ_ERR with length 0 when the answer does not fit.
    int Send(const google::protobuf::MessageLite& message) const;
    int Send(const uint8_t* body, size_t length) const;  // an already serialised answer
    int SendResult(EnumResultGeneric result) const;      // a ResponseGeneric

  private:
    // Writes feature and action id and returns where the body goes. Null, after a log line, when a body of `bodyLength`
    // bytes does not fit.
    uint8_t* Begin(size_t bodyLength) const;

    uint8_t m_featureId;
    uint8_t m_actionId;
    uint8_t* m_response;
    uint16_t* m_responseLength;
};
