// Requests of every interface as rows: what a client writes, what the daemon does on the camera for it, what it
// answers.
#include "fixture.h"

namespace e2e {
namespace {

struct Request {
    const char* name;
    uint8_t stream;
    const char* request;
    std::vector<std::string> calls;
    const char* answer;
    uint8_t deviceType = kPhone;

    friend void PrintTo(const Request& row, std::ostream* out) { *out << row.name; }
};

// A voice-control client; its mode commands go another way.
constexpr uint8_t kVoice = 10;

uint8_t answerStreamOf(uint8_t requestStream) {
    switch (requestStream) {
        case kCommand:
            return kCommandAnswer;
        case kSettings:
            return kSettingsAnswer;
        default:
            return kQueryAnswer;
    }
}

// Date and time as the control daemon keeps it: 2024-05-06 07:08:09, offset 120, daylight saving on.
constexpr const char* kDateTime = "e8 07 05 06 07 08 09 78 00 01";

Bytes cameraInfo() {
    Bytes record(434, 0);
    const auto put = [&](size_t offset, const Bytes& bytes) {
        std::copy(bytes.begin(), bytes.end(), record.begin() + static_cast<long>(offset));
    };
    put(0, little32(58));
    put(4, textBytes("MODEL"));
    put(69, textBytes("B1"));
    put(134, textBytes("1.02"));
    put(199, textBytes("SN7"));
    put(264, textBytes("AP"));
    put(297, textBytes("0a0b"));
    record[362] = 7;
    put(368, textBytes("X"));
    record[433] = 9;
    return record;
}

class Requests : public E2e, public testing::WithParamInterface<Request> {};

TEST_P(Requests, AreCarriedOutAndAnswered) {
    const Request& row = GetParam();
    Rig& rig = serve();
    rig.camera.reply(fakes::Function::CameraInfo, 0, 0, cameraInfo());
    rig.camera.reply(fakes::Function::OptionExists, 3, 0);  // every option but those of setting 3
    play(rig, {replies(98, 0, kDateTime), replies(36, 5), replies(35, -101), csiHolds(122, "02 00 00 00"),
               connects(1, row.deviceType), opensAll(1), settles()});
    rig.camera.takeCalls();

    play(rig, {writes(1, row.stream, row.request), answers(1, answerStreamOf(row.stream), row.answer), calls(row.calls),
               quiet()});
}

// Every command first reports who drives the camera.
const std::string kByPhone = "csi_set 92: 0b";
const std::string kByVoice = "csi_set 92: 0a";

INSTANTIATE_TEST_SUITE_P(
    Command, Requests,
    testing::Values(
        Request{"Shutter", kCommand, "01 01 01", {kByPhone, "command 3: 01"}, "01 00"},
        Request{"ShutterWithoutParameter", kCommand, "01", {kByPhone}, "01 02"},
        Request{"ShutterWithBrokenParameter", kCommand, "01 02 01", {}, "01 02"},
        Request{"ShutterWithEmptyParameter", kCommand, "01 00", {}, "01 02"},
        Request{"Mode", kCommand, "02 04 00 00 00 01", {kByPhone, "command 4: 01 00 00 00"}, "02 00"},
        Request{"VoiceMode", kCommand, "02 01 01", {kByVoice, "command 59: 01 00 00 00"}, "02 00", kVoice},
        Request{
            "ModeSubMode", kCommand, "03 01 02 02 01 00", {kByPhone, "command 5: 02 00 00 00 00 01 00 00"}, "03 00"},
        Request{"VoiceModeBurst", kCommand, "03 01 02 01 00", {kByVoice, "command 59: 13"}, "03 00", kVoice},
        Request{"VoiceModeUnknown", kCommand, "03 01 03 01 00", {kByVoice, "command 59: ff"}, "03 00", kVoice},
        Request{"ControlDaemonRefuses", kCommand, "04", {kByPhone, "command 35"}, "04 01"},
        Request{"ControlDaemonAnswersACode", kCommand, "05", {kByPhone, "command 36"}, "05 05"},
        Request{"ResetWantsAParameterItIgnores", kCommand, "0a 01 55", {kByPhone, "command 27"}, "0a 00"},
        Request{"ResetWithoutParameter", kCommand, "0a", {kByPhone}, "0a 02"},
        Request{"SetDateAndTime",
                kCommand,
                "0d 07 07 e8 05 06 07 08 09",
                {kByPhone, "command 6: e8 07 05 06 07 08 09 ff 7f 00"},
                "0d 00"},
        Request{"SetDateAndTimeTooShort", kCommand, "0d 06 07 e8 05 06 07 08", {kByPhone}, "0d 02"},
        Request{"GetDateAndTime", kCommand, "0e", {kByPhone, "command 98"}, "0e 00 08 07 e8 05 06 07 08 09 00"},
        Request{"SetDateAndTimeWithOffset",
                kCommand,
                "0f 0a 07 e8 05 06 07 08 09 fd 30 01",
                {kByPhone, "command 6: e8 07 05 06 07 08 09 30 fd 01"},
                "0f 00"},
        Request{"SetDateAndTimeOffsetOutOfRange", kCommand, "0f 0a 07 e8 05 06 07 08 09 03 49 01", {kByPhone}, "0f 02"},
        Request{"GetDateAndTimeWithOffset",
                kCommand,
                "10",
                {kByPhone, "command 98"},
                "10 00 0a 07 e8 05 06 07 08 09 00 78 01"},
        Request{"AccessPoint", kCommand, "17 01 01", {kByPhone, "command 16: 01 00 00 00"}, "17 00"},
        Request{
            "Button", kCommand, "1b 02 03 01", {kByPhone, kByPhone, "command 88: 03 00 00 00 01 00 00 00"}, "1b 00"},
        Request{"ClientInfoOfALedAccessory",
                kCommand,
                "1c 06 01 04 01 02 03 63",
                {kByPhone, "csi_set 11: 04 00 00 00", "csi_set 162: 63 18 00 00"},
                "1c 00"},
        Request{"ClientInfoTooShort", kCommand, "1c 04 01 04 01 02", {kByPhone}, "1c 02"},
        Request{"QuickCapture",
                kCommand,
                "1c 07 01 04 01 02 03 63 03",
                {kByPhone, "csi_set 11: 04 00 00 00", "csi_set 162: 63 18 00 00", "command 99: 01"},
                "1c 00"},
        Request{"SettingsVersion", kCommand, "3a", {kByPhone}, "3a 00 04 31 2e 32 35"},
        Request{"CameraInfo",
                kCommand,
                "3c",
                {kByPhone, "camera-info"},
                "3c 00 04 00 00 00 3a 05 4d 4f 44 45 4c 02 42 31 04 31 2e 30 32 03 53 4e 37 02 41 50 04 30 61 30 62 01 "
                "07 01 01 01 00 01 58 01 09"},
        Request{"BleControlWithoutParameter", kCommand, "3d", {kByPhone, "command 65: 00 00 00 00"}, "3d 00"},
        Request{"SetMode", kCommand, "3e 02 03 e8", {kByPhone, "command 67: e8 03"}, "3e 00"},
        Request{"LoadPreset", kCommand, "40 04 00 00 00 02", {kByPhone, "command 76: 08 02"}, "40 00"},
        Request{"ThirdParty", kCommand, "50", {kByPhone, "csi_set 87: 76 01 00 00"}, "50 00"},
        Request{"ApiVersion", kCommand, "51", {kByPhone}, "51 00 01 02 01 00"},
        Request{"NoHandler", kCommand, "06", {kByPhone}, "06 02"},
        Request{"UnknownCommand", kCommand, "46", {kByPhone}, "46 02"},
        Request{"CommandZero", kCommand, "00", {}, "00 02"}, Request{"EmptyCommand", kCommand, "", {}, "00 02"},
        Request{"HighestCommand", kCommand, "ff", {}, "ff 02"}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Setting, Requests,
    testing::Values(
        Request{"Allowed",
                kSettings,
                "02 01 04",
                {kByPhone, "option 2: 4", "command 30: 02 00 00 00 04 00 00 00"},
                "02 00"},
        Request{"OfFourBytes",
                kSettings,
                "02 04 00 00 01 00",
                {kByPhone, "option 2: 256", "command 30: 02 00 00 00 00 01 00 00"},
                "02 00"},
        Request{"Forbidden", kSettings, "03 01 04", {kByPhone, "option 3: 4"}, "03 02"},
        Request{
            "NinetyOneIsNotChecked", kSettings, "5b 01 04", {kByPhone, "command 30: 5b 00 00 00 04 00 00 00"}, "5b 00"},
        Request{"WithoutValue", kSettings, "05", {}, "05 02"},
        Request{"WithValueCutShort", kSettings, "05 02 01", {}, "05 02"},
        Request{"CloudEnable", kSettings, "f3 7d 08 01", {kByPhone, "csi_set 108: 01 00 00 00"}, "f3 fd 08 01"},
        Request{"AssociationCleared", kSettings, "f3 7f 10 00", {kByPhone, "csi_set 104: 00"}, "f3 ff 08 01"},
        Request{"UnknownAction", kSettings, "f3 c8", {kByPhone}, "00 01"},
        Request{"Empty", kSettings, "", {}, "00 02"}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(Query, Requests,
                         testing::Values(Request{"Values", kQuery, "12 02 03", {}, "12 00 02 00 03 00"},
                                         Request{"UnknownIdIsLeftOut", kQuery, "12 c8 02", {}, "12 00 02 00"},
                                         Request{"OnlyUnknownStatus", kQuery, "13 c8", {}, "13 00"},
                                         Request{"Names", kQuery, "22 02", {}, "22 00 02 04 54 4f 44 4f"},
                                         Request{"CapabilitiesBeforeAnyPush", kQuery, "32 02", {}, "32 00 02 00"},
                                         Request{"RegisterOneSetting", kQuery, "52 02", {}, "52 00 02 00"},
                                         Request{"UnregisterSetting", kQuery, "72 05", {}, "72 00"},
                                         Request{"UnknownType", kQuery, "92", {}, "92 02"},
                                         Request{"UnknownCategory", kQuery, "14", {}, "14 02"},
                                         Request{"CloudError", kQuery, "f5 7a", {"csi_get 122"}, "f5 fa 08 02 10 01"},
                                         Request{"Empty", kQuery, "", {}, "00 02"}),
                         [](const auto& row) { return row.param.name; });

using RequestState = E2e;

TEST_F(RequestState, CameraInfoIsRefusedWhileTheCameraResumes) {
    Rig& rig = serve();
    play(rig, {connects(1), opensAll(1), notifies("CN", csiRecord(111, 1u))});

    play(rig, {writes(1, kCommand, "3c"), answers(1, kCommandAnswer, "3c 01"),
               logs("[ERROR]", "ERROR - BLE message recieved while resuming", "kzBleServer"),
               logs("[ERROR]", "Camera Info command while still resuming, return error, mobile should retry",
                    "bleCommandMessage.cpp")});
}

TEST_F(RequestState, BrokenMessagesLeaveTheOtherInterfacesAlone) {
    Rig& rig = serve();

    play(rig, {connects(1), opensAll(1),
               writesPacket(1, kQuery, "20 15 12 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02"),
               writesPacket(1, kCommand, "80 01"), answers(1, kCommandAnswer, "00 02"), writesPacket(1, kCommand, "45"),
               answers(1, kCommandAnswer, "00 02"),
               logs("[ERROR]", "Error in format of SDK message, unsupported RLE type. FirstByte is:0x45",
                    "blePacketHeader.cpp"),
               writesPacket(1, kSettings, "02 02"), answers(1, kSettingsAnswer, "02 02"),
               writesPacket(1, kQuery, "80 02 02 02"),
               answers(1, kQueryAnswer, "12 02 02 00"),  // one setting for twenty ids
               quiet()});
}

}  // namespace
}  // namespace e2e
