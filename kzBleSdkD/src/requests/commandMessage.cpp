// Parsing and dispatch of the command interface.
#include "commandMessage.h"

#include "MemStream.h"
#include "bleSDK.h"
#include "cameraCalls.h"
#include "commandTable.h"
#include "peer.h"
#include "protobufAnswer.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleCommandMessage.cpp";

bool IsPlainCommand(uint32_t id) {
    return id >= 1 && id < eBleCommandProtobufCmd;
}
bool IsProtobufCommand(uint32_t id) {
    return id == eBleCommandProtobufCmd || id == eBleCommandProtobufCmdHigh;
}

// Commands that were withdrawn. They are refused like every id without a row, but without a line in the log.
bool IsWithdrawnCommand(uint32_t id) {
    return id == 6 || id == 7 || (id >= 50 && id <= 57);
}

// Whether the command is carried out with this number of parameters. A number other than the rule's is logged in any
// case.
bool CheckParameterCount(const ParameterRule& rule, size_t provided) {
    if (rule.complain == nullptr || provided == rule.count) {
        return true;
    }
    rule.complain(static_cast<int>(provided));
    return rule.optional;
}

int RunCommand(CommandCall& call, const CommandRow& row) {
    if (row.name != nullptr) {
        LOG_DEBUG("%s", row.name);
    }
    if (row.prepare != nullptr) {
        const int code = row.prepare(call);
        if (code != KZ_OK) {
            return code;
        }
    }
    if (!CheckParameterCount(row.params, call.message.m_params.size())) {
        return KZ_ERR_INVALID_PARAM;
    }
    return row.handler(call);
}

int WriteAnswer(const CommandCall& call) {
    const size_t size = WireSize(call.answer);
    if (size > *call.responseLength) {
        LOG_ERROR("Answer of %zu bytes does not fit, command:%d", size, static_cast<int>(call.answer.m_commandId));
        return KZ_ERR;
    }
    MemoryStream stream(call.response, *call.responseLength);
    stream << call.answer;
    *call.responseLength = stream.getLength();
    return KZ_OK;
}

}  // namespace

void BleCommandMessage::Reset(int length) {
    m_commandId = 0;
    m_params.clear();
    m_actionId = 0;
    m_payload.clear();
    SetLength(length);
}

int BleCommandMessage::Deserialize() {
    if (m_stream.getRemainder() == 0) {
        return 1;
    }
    uint8_t id = 0;
    m_stream >> id;
    m_commandId = id;

    if (IsProtobufCommand(id)) {
        LOG_INFO("Feature ID=%d", id);
        if (m_stream.getRemainder() == 0) {
            return 1;
        }
        m_stream >> m_actionId;
        m_payload.resize(m_stream.getRemainder());
        LOG_INFO("Protobuf ID=%d size=%d", m_actionId, static_cast<int>(m_payload.size()));
        m_stream.readArray(m_payload.data(), m_stream.getRemainder());
        LOG_INFO("pb={%02x %02x %02x %02x %02x}", PayloadByte(m_payload, 0), PayloadByte(m_payload, 1),
                 PayloadByte(m_payload, 2), PayloadByte(m_payload, 3), PayloadByte(m_payload, 4));
        return 0;
    }
    if (!IsPlainCommand(id)) {
        LOG_INFO("Received invalid ble command:%d from a device", id);
        return 1;
    }
    LOG_INFO("Received valid ble command:%d from a device", id);
    while (m_stream.getRemainder() > 0) {
        if (!FlexValue::ValidateInput(m_stream)) {
            return 1;
        }
        m_stream >> m_params.emplace_back();
    }
    return 0;
}

int BleCommandMessage::Execute(Peer* client, uint8_t* response, uint16_t* responseLength) {
    LOG_INFO("Executing Command:%d", static_cast<int>(m_commandId));
    const int status = ReportAnalyticsSource(client->m_identity.m_deviceType);
    if (status != CSI_OK) {
        LOG_ERROR("csi_set CSI_ANALYTICS_SOURCE failed - status %d", status);
    }

    int code = KZ_ERR_INVALID_PARAM;
    const CommandRow* row = FindCommand(m_commandId);
    if (row != nullptr) {
        m_answer.m_commandId = m_commandId;
        m_answer.m_result = static_cast<uint32_t>(BleSDK::SetKZErrNo(KZ_OK));
        m_answer.m_params.clear();
        CommandCall call{*this, *client, services(), response, responseLength, m_answer};
        code = RunCommand(call, *row);
        if (code == KZ_OK && !call.answered) {
            code = WriteAnswer(call);
        }
    } else if (!IsWithdrawnCommand(m_commandId)) {
        LOG_WARN("Unrecognized/unhandled command from ble. command_id:%d", static_cast<int>(m_commandId));
    }
    if (code != KZ_OK) {
        *responseLength = 0;
    }
    return code;
}

int BleCommandMessage::HandleError(int error, uint8_t* response, uint16_t* responseLength) {
    const BleCommandResponse answer(m_commandId, static_cast<uint32_t>(BleSDK::SetKZErrNo(error)));
    if (WireSize(answer) > *responseLength) {
        *responseLength = 0;
        return 0;
    }
    MemoryStream stream(response, *responseLength);
    stream << answer;
    *responseLength = stream.getLength();
    return 0;
}

void BleCommandMessage::Dump() const {
    LOG_TRACE("CommandId:%d", static_cast<int>(m_commandId));
    LOG_TRACE("Parameters:%d", static_cast<int>(m_params.size()));
    if (kzUtilGetLogLevel() >= KZ_LOG_TRACE) {
        for (const FlexValue& param : m_params) {
            param.Dump();
        }
    }
    LOG_TRACE("ActionId:%d payload:%d bytes", m_actionId, static_cast<int>(m_payload.size()));
}
