// BleCommandMessage: the command interface. A message names one command by its id; nearly every command becomes one
// command of the camera's control daemon, a few read or write CSI keys or start a file transfer.
//
//   plain     byte 0: command id 1 to 239; then parameters, each L (1 to 255) and L bytes, numbers big-endian
//   protobuf  byte 0: feature id 240 or 241; byte 1: action id; then the serialised request
//
// One object serves all messages of one client, one after the other. Command thread only; calls block while the camera
// answers.
//
// Sources: commandMessage.cpp (parsing and dispatch), commandHandlers.cpp (the table and most plain commands),
// commandDateTime.cpp, commandClientInfo.cpp, commandCameraInfo.cpp, commandProtobuf.cpp and liveStream.cpp (protobuf
// commands).
#pragma once

#include <cstdint>
#include <vector>

#include "FlexValue.h"
#include "bleResponses.h"
#include "servedMessage.h"

struct Peer;

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

class BleCommandMessage : public ServedMessage {
  public:
    explicit BleCommandMessage(int length = 0, const Services& services = DetachedServices())
        : ServedMessage(length, services) {}

    // Returns 0, or 1 when the message is empty, its id is 0 or above 241, or a parameter or the action id does not
    // fit.
    int Deserialize() override;
    void Reset(int length) override;
    // Carries the command out for `client`. *responseLength is the capacity of `response` on entry and the answer's
    // length on return; length 0 with KZ_OK means that there is nothing to send. Returns KZ_OK, or the code whose
    // answer the caller gets from HandleError: KZ_ERR_INVALID_PARAM for a command that is unknown or malformed, KZ_ERR,
    // KZ_ERR_ACCESS_DENIED, or what the control daemon returned.
    int Execute(Peer* client, uint8_t* response, uint16_t* responseLength);
    // Writes command id and result byte, as far as *responseLength allows. Returns 0.
    int HandleError(int error, uint8_t* response, uint16_t* responseLength);
    void Dump() const;

    uint32_t m_commandId = 0;
    std::vector<FlexValue> m_params;  // of a plain command
    uint8_t m_actionId = 0;           // of a protobuf command
    std::vector<uint8_t> m_payload;   // likewise; keeps its capacity between messages

  private:
    BleCommandResponse m_answer{0, 0};  // the answer being made; its parameters keep their room between messages
};
