// The command table: one row per command id. Inside the command interface only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "bleResponses.h"

class BleCommandMessage;
class BleNotificationClient;

enum eBleCommand : uint8_t {
    eBleCommandShutter = 1,
    eBleCommandMode = 2,
    eBleCommandModeSubMode = 3,
    eBleCommandPower = 4,
    eBleCommandSleep = 5,
    eBleCommandCancelWifiRemotePair = 8,
    eBleCommandVideoFulgradeReset = 10,
    eBleCommandMultiShotFulgradeReset = 11,
    eBleCommandPhotoFulgradeReset = 12,
    eBleCommandSetDateAndTime = 13,
    eBleCommandGetDateAndTime = 14,
    eBleCommandSetDateAndTimeDST = 15,
    eBleCommandGetDateAndTimeDST = 16,
    eBleCommandLocate = 22,
    eBleCommandAPControl = 23,
    eBleCommandTagMoment = 24,
    eBleCommandRemotePair = 25,
    eBleCommandiVoiceEditMyStory = 26,
    eBleCommandSetButton = 27,
    eBleCommandClientInfo = 28,
    eBleCommandVoicePhotoTake = 32,
    eBleCommandVoiceVideoStart = 33,
    eBleCommandVoiceVideoStop = 34,
    eBleCommandVoiceTimelapseStart = 35,
    eBleCommandVoiceTimelapseStop = 36,
    eBleCommandVoiceBurstTake = 37,
    eBleCommandVoiceTag = 38,
    eBleCommandiVoiceDeleteLast = 39,
    eBleCommandSettingsJSONVersion = 58,
    eBleCommandSettingsJSON = 59,
    eBleCommandCameraInfo = 60,
    eBleCommandBLEControl = 61,
    eBleCommandSetMode = 62,
    eBleCommandFulgradeReset = 63,
    eBleCommandSetPreset = 64,
    eBleCommandDeleteAllFiles = 65,
    eBleCommandDeleteLastFile = 66,
    eBleCommandSetThirdPartyClientInfo = 80,
    eBleCommandGetThirdPartyApiVersion = 81,
    eBleCommandProtobufCmd = 240,
    eBleCommandProtobufCmdHigh = 241,
};

// One command while it is carried out.
struct CommandCall {
    const BleCommandMessage& message;
    BleNotificationClient& client;
    uint8_t* response;
    uint16_t* responseLength;    // capacity; the answer's length once `answered`
    BleCommandResponse& answer;  // written when the handler succeeds, unless it has
    bool answered = false;       // written its own
};

// Returns KZ_OK or an error code; see BleCommandMessage::Execute.
using CommandHandler = int (*)(CommandCall& call);

// How many parameters a command takes. `complain` logs another number, which refuses the command unless `optional`.
struct ParameterRule {
    size_t count = 0;
    void (*complain)(int provided) = nullptr;  // null: any number goes
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
int SetDateAndTime(CommandCall& call);       // bleCommandDateTime.cpp
int GetDateAndTime(CommandCall& call);       // likewise
int SetDateAndTimeDST(CommandCall& call);    // likewise
int GetDateAndTimeDST(CommandCall& call);    // likewise
int TakeClientInfo(CommandCall& call);       // bleCommandClientInfo.cpp
int ExecuteProtobufLow(CommandCall& call);   // bleCommandProtobuf.cpp
int ExecuteProtobufHigh(CommandCall& call);  // likewise
