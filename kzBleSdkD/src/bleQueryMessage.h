// BleQueryMessage: the query interface. Plain queries read current values, capabilities and names or change what the client is
// told of; feature id 245 carries protobuf queries of one feature's state.
//
//   plain     byte 0: category in bits 3..0, type in bits 7..4; then ids, one byte each
//   protobuf  byte 0: 245; byte 1: action id; then the serialised request
#pragma once

#include <cstdint>
#include <vector>

#include "messageBuilders.h"

class BleNotificationClient;

class BleQueryMessage : public FragmentedMessageBuilder {
  public:
    explicit BleQueryMessage(int length = 0) : FragmentedMessageBuilder(length) {}

    int Deserialize() override;
    void Reset(int length) override;
    // Carries the query out and writes its answer; *responseLength is the capacity on entry and the answer's length on return.
    // Returns KZ_OK or the error whose answer the caller gets from HandleError.
    int Execute(BleNotificationClient* client, uint8_t* response, uint16_t* responseLength);
    int HandleError(int error, uint8_t* response, uint16_t* responseLength);
    void Dump() const;

    uint32_t m_category = 0;
    uint32_t m_type = 0;
    std::vector<int> m_ids;
    bool m_idsGiven = false;  // ids were in the message, also when none of them was valid
    uint8_t m_actionId = 0;
    std::vector<uint8_t> m_payload;  // keeps its capacity between messages
};
