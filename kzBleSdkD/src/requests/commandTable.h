// The command table: one row per command id. Inside the command interface only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "commandMessage.h"

// One command while it is carried out.
struct CommandCall {
    const BleCommandMessage& message;
    Peer& client;
    const Services& services;
    uint8_t* response;
    uint16_t* responseLength;    // capacity; the answer's length once `answered`
    BleCommandResponse& answer;  // written when the handler succeeds, unless `answered`
    bool answered = false;       // the handler wrote an answer of its own
};

// Returns KZ_OK or an error code; see BleCommandMessage::Execute.
using CommandHandler = int (*)(CommandCall& call);

// How many parameters a command takes. `complain` logs another number, which refuses the command unless `optional`.
struct ParameterRule {
    size_t count = 0;
    void (*complain)(int provided) = nullptr;  // null: any number is accepted
    bool optional = false;
};

struct CommandRow {
    eBleCommand id;
    const char* name;  // logged; null for none
    ParameterRule params;
    CommandHandler prepare;  // runs before the parameters are checked and may refuse; null for none
    CommandHandler handler;
};

// The row of a command id; null when it has no handler.
const CommandRow* FindCommand(uint32_t commandId);

// Handlers with a source file of their own.
int SetDateAndTime(CommandCall& call);       // commandDateTime.cpp
int GetDateAndTime(CommandCall& call);       // likewise
int SetDateAndTimeDST(CommandCall& call);    // likewise
int GetDateAndTimeDST(CommandCall& call);    // likewise
int TakeClientInfo(CommandCall& call);       // commandClientInfo.cpp
int RefuseWhileResuming(CommandCall& call);  // commandCameraInfo.cpp
int GetCameraInfo(CommandCall& call);        // likewise
int ExecuteProtobufLow(CommandCall& call);   // commandProtobuf.cpp
int ExecuteProtobufHigh(CommandCall& call);  // likewise
