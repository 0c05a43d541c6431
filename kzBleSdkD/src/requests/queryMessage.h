// BleQueryMessage: the query interface. Plain queries read current values, capabilities and names or change what the
// client is notified of; feature id 245 carries protobuf queries of one feature's state.
//
//   plain     byte 0: category in bits 3..0, type in bits 7..4; then ids, one byte each
//   protobuf  byte 0: 245; byte 1: action id; then the serialised request
//
// Sources: queryMessage.cpp (parsing, and the table of categories and types), queryProtobuf.cpp (the table of actions
// and most of them), queryCloud.cpp (the actions of the cloud account and upload).
//
// Ids that the catalogue does not have are dropped. A query without ids means all of them; one whose ids were all
// dropped reads, registers and removes nothing.
//
// A plain answer that would not fit the response buffer, or that the radio queue could not take even when empty, holds
// the entries that fit whole and the result byte 1; the client asks for the ids that are missing in smaller groups.
// Instead of such a protobuf answer the client gets the error answer.
#pragma once

#include <cstdint>
#include <vector>

#include "servedMessage.h"

struct Peer;

class BleQueryMessage : public ServedMessage {
  public:
    explicit BleQueryMessage(int length = 0, const Services& services = DetachedServices())
        : ServedMessage(length, services) {}

    // Returns 0; or 1, a parse error, for a message without its first byte, for a protobuf query without action id, and
    // for more ids than the model's tables have.
    int Deserialize() override;
    void Reset(int length) override;
    // Carries the query out and writes its answer; *responseLength is the capacity on entry and the answer's length on
    // return, 0 after an error. Returns KZ_OK or the error whose answer the caller gets from HandleError; KZ_ERR also
    // for a capacity below the two bytes of a header, and for a protobuf answer that does not fit.
    int Execute(Peer* client, uint8_t* response, uint16_t* responseLength);
    // Writes the two bytes of an error answer, none into a smaller buffer. Returns 0.
    int HandleError(int error, uint8_t* response, uint16_t* responseLength);
    void Dump() const;

    uint32_t m_category = 0;
    uint32_t m_type = 0;
    std::vector<int> m_ids;
    bool m_idsGiven = false;  // the message named ids, even if none of them was valid
    uint8_t m_actionId = 0;
    std::vector<uint8_t> m_payload;  // keeps its capacity between messages

  private:
    int DeserializeProtobuf();
    int DeserializeIds();
    int ExecutePlain(Peer& client, MemoryStream& stream);
    int ExecuteProtobuf(Peer& client, MemoryStream& stream);
};
