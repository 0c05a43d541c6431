#include "protobufAnswer.h"

#include <google/protobuf/message_lite.h>

#include <cstring>

#include "generic/ResponseGeneric.pb.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "protobufAnswer.cpp";

constexpr size_t kHeaderSize = 2;

}  // namespace

void ParseRequest(const std::vector<uint8_t>& payload, google::protobuf::MessageLite* request) {
    // The plain parse would have the runtime print a line of its own about every required field that is missing.
    static_cast<void>(request->ParsePartialFromArray(payload.data(), static_cast<int>(payload.size())));
}

uint8_t* ProtobufAnswer::Begin(size_t bodyLength) const {
    if (kHeaderSize + bodyLength > *m_responseLength) {
        LOG_ERROR("Protobuf answer of %zu bytes does not fit, action:%d", bodyLength, m_actionId);
        *m_responseLength = 0;
        return nullptr;
    }
    m_response[0] = m_featureId;
    m_response[1] = static_cast<uint8_t>(m_actionId | kProtobufAnswerBit);
    *m_responseLength = static_cast<uint16_t>(kHeaderSize + bodyLength);
    return m_response + kHeaderSize;
}

int ProtobufAnswer::Send(const google::protobuf::MessageLite& message) const {
    uint8_t* body = Begin(message.ByteSizeLong());
    if (body == nullptr) {
        return KZ_ERR;
    }
    message.SerializeWithCachedSizesToArray(body);
    return KZ_OK;
}

int ProtobufAnswer::Send(const uint8_t* data, size_t length) const {
    uint8_t* body = Begin(length);
    if (body == nullptr) {
        return KZ_ERR;
    }
    std::memcpy(body, data, length);
    return KZ_OK;
}

int ProtobufAnswer::SendResult(EnumResultGeneric result) const {
    generic::ResponseGeneric answer;
    answer.set_result(result);
    return Send(answer);
}
