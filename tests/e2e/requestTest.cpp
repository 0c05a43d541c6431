// Requests of every interface as rows: what a client writes, what the daemon does on the camera for it, what it
// answers.
#include "fixture.h"

namespace e2e {
namespace {

constexpr uint8_t kVoice = 10;  // a voice-control client; its mode commands go another way

struct Request {
    const char* name;
    const char* request;
    const char* calls;
    const char* answer;
    uint8_t deviceType = kPhone;
};

class Requests : public E2e {
  protected:
    // Each row is asked by a new client.
    void carryOut(uint8_t interface, const std::vector<Request>& rows) {
        serve();
        play({replies("command 98", 0, "e8 07 05 06 07 08 09 78 00 01"), replies("command 36", 5),
              replies("command 35", -101), replies("csi_get 122", 0, "02 00 00 00"), replies("option 3", 0),
              connects(99)});
        for (const Request& row : rows) {
            SCOPED_TRACE(row.name);
            play({joins(1, row.deviceType), settles()});
            rig->camera.takeCalls();
            play({asks(1, interface, row.request, row.answer), calls(row.calls), quiet(), disconnects(1)});
        }
    }
};

TEST_F(Requests, CommandsReportWhoDrivesTheCameraAndAreCarriedOut) {
    carryOut(kCommand, {
                           {"shutter", "01 01 01", "csi_set 92: 0b, command 3: 01", "01 00"},
                           {"shutter without parameter", "01", "csi_set 92: 0b", "01 02"},
                           {"shutter with parameter cut short", "01 02 01", "", "01 02"},
                           {"mode by voice", "02 01 01", "csi_set 92: 0a, command 59: 01 00 00 00", "02 00", kVoice},
                           {"control daemon refuses", "04", "csi_set 92: 0b, command 35", "04 01"},
                           {"control daemon answers a code", "05", "csi_set 92: 0b, command 36", "05 05"},
                           {"get date", "0e", "csi_set 92: 0b, command 98", "0e 00 08 07 e8 05 06 07 08 09 00"},
                           {"client information of an LED accessory", "1c 06 01 04 01 02 03 63",
                            "csi_set 92: 0b, csi_set 11: 04 00 00 00, csi_set 162: 63 18 00 00", "1c 00"},
                           {"settings version", "3a", "csi_set 92: 0b", "3a 00 04 31 2e 32 35"},
                           {"camera information", "3c", "csi_set 92: 0b, camera-info", "3c 01"},
                           {"unknown command", "46", "csi_set 92: 0b", "46 02"},
                           {"no bytes", "", "", "00 02"},
                           {"highest command", "ff", "", "ff 02"},
                       });
}

TEST_F(Requests, SettingsAreCheckedAgainstTheModelAndSet) {
    carryOut(kSettings, {
                            {"allowed option", "02 01 04",
                             "csi_set 92: 0b, option 2: 04 00 00 00, command 30: 02 00 00 00 04 00 00 00", "02 00"},
                            {"forbidden option", "03 01 04", "csi_set 92: 0b, option 3: 04 00 00 00", "03 02"},
                            {"no value", "05", "", "05 02"},
                            {"cloud enabled", "f3 7d 08 01", "csi_set 92: 0b, csi_set 108: 01 00 00 00", "f3 fd 08 01"},
                            {"unknown action", "f3 c8", "csi_set 92: 0b", "00 01"},
                            {"no bytes", "", "", "00 02"},
                        });
}

TEST_F(Requests, QueriesAreAnsweredFromTheModel) {
    carryOut(kQuery, {
                         {"values", "12 02 03", "", "12 00 02 00 03 00"},
                         {"unknown id is left out", "12 c8 02", "", "12 00 02 00"},
                         {"register", "52 02", "", "52 00 02 00"},
                         {"unknown type", "92", "", "92 02"},
                         {"unknown category", "14", "", "14 02"},
                         {"cloud error", "f5 7a", "csi_get 122", "f5 fa 08 02 10 01"},
                         {"no bytes", "", "", "00 02"},
                     });
}

TEST_F(Requests, SensorRefusalsCarryTheirCode) {
    const std::pair<const char*, const char*> rows[] = {
        {"02 01 48 52 4d", "02 00"},                    // a strap with one stream
        {"03 48 52 54 45 00 00 53 02 01 00", "03 00"},  // and the key HRTE of one 16-bit value
        {"02 01 48 52 4d", "02 03"},                    // registered already
        {"03 48 52 54 45 00 00 53 02 01 00", "03 08"},  // key present
        {"03 48 52", "03 02"},                          // cut short
        {"01 05 00 00", "01 0a"},                       // sample of an unknown key
        {"07", "07 0b"},                                // unknown command
    };
    serve();
    play({joins(1, kSensor)});
    for (const auto& [request, answer] : rows) {
        SCOPED_TRACE(request);
        play({asks(1, kSensorData, request, answer)});
    }
    play({quiet()});
}

TEST_F(Requests, BrokenPacketsAreAnsweredWithAnErrorAndLeaveTheOtherInterfacesAlone) {
    const char* const firstOfTwoPackets = "20 15 12 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02";
    serve();
    play({joins(1), writesPacket(1, kQuery, firstOfTwoPackets)});
    for (const uint8_t interface : {kCommand, kSettings, kSensorData}) {
        SCOPED_TRACE(testing::Message() << "interface " << int{interface});
        play({writesPacket(1, interface, "80 01"), answers(1, interface, "00 02"),  // continues nothing
              writesPacket(1, interface, "45"), answers(1, interface, "00 02"),
              logs("[ERROR] Error in format of SDK message, unsupported RLE type. FirstByte is:0x45",
                   "blePacketHeader.cpp"),
              writesPacket(1, interface, "02 02"), answers(1, interface, "02 02")});
    }
    play({writesPacket(1, kQuery, "80 02 02 02"), answers(1, kQuery, "12 02 02 00"),  // one setting for twenty ids
          quiet()});
}

}  // namespace
}  // namespace e2e
