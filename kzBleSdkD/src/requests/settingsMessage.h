// BleSettingsMessage: the settings interface. A plain message changes one camera setting; feature id 243 carries
// protobuf requests for cloud and account settings.
//
//   plain     byte 0: setting id; then L (1 to 255) and L bytes, the value, big-endian; later bytes are ignored
//   protobuf  byte 0: 243; byte 1: action id; then the serialised request
//
// One object serves all messages of one client, one after the other. Command thread only; calls block while the camera
// answers.
#pragma once

#include <cstdint>
#include <vector>

#include "messageBuilders.h"

struct Peer;

class BleSettingsMessage : public FragmentedMessageBuilder {
  public:
    explicit BleSettingsMessage(int length = 0) : FragmentedMessageBuilder(length) {}

    // Returns 0, or 1 when the message is empty or its value or action id does not fit.
    int Deserialize() override;
    void Reset(int length) override;
    // Carries the request out for `client`. *responseLength is the capacity of `response` on entry and the answer's
    // length on return. Returns KZ_OK, or the code whose answer the caller gets from HandleError: KZ_ERR_INVALID_PARAM
    // for a setting or option that is not allowed now, KZ_ERR for an unknown action, or what the control daemon
    // returned.
    int Execute(Peer* client, uint8_t* response, uint16_t* responseLength);
    // Writes setting id and result byte, as far as *responseLength allows. Returns 0.
    int HandleError(int error, uint8_t* response, uint16_t* responseLength);
    void Dump() const;

    uint32_t m_settingId = 0;  // 0 in a protobuf message
    uint32_t m_value = 0;
    uint8_t m_featureId = 0;  // 0 in a plain message
    uint8_t m_actionId = 0;
    std::vector<uint8_t> m_payload;  // of a protobuf message, whole; keeps its capacity between messages

  private:
    int ExecuteSetting(uint8_t* response, uint16_t* responseLength);
    int ExecuteProtobuf(uint8_t* response, uint16_t* responseLength);
};
