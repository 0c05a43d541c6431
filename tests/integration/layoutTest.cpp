// The tables of docs/integrating.md against the records and numbers of the code.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "csiPort.h"
#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "skylark/bleMessage.h"

namespace {

#define FIELD(record, field) \
    "| " + std::to_string(offsetof(record, field)) + " | " + std::to_string(sizeof(record::field)) + " | `" #field "`"

using Rows = std::vector<std::string>;

// The field rows that a layout's table has to have, without their meanings.
const std::map<std::string, Rows> kLayouts{
    {"ble_message_t",
     {FIELD(ble_message_t, eventType), FIELD(ble_message_t, connectionId), FIELD(ble_message_t, streamId),
      FIELD(ble_message_t, dataLength), FIELD(ble_message_t, data), FIELD(ble_message_t, rest)}},
    {"kz_camera_info_t",
     {FIELD(kz_camera_info_t, modelNumber), FIELD(kz_camera_info_t, modelName), FIELD(kz_camera_info_t, boardType),
      FIELD(kz_camera_info_t, firmwareVersion), FIELD(kz_camera_info_t, serialNumber), FIELD(kz_camera_info_t, apSsid),
      FIELD(kz_camera_info_t, apMac), FIELD(kz_camera_info_t, extraByte1), FIELD(kz_camera_info_t, unused),
      FIELD(kz_camera_info_t, extraText), FIELD(kz_camera_info_t, extraByte2)}},
    {"kz_push_registration_t",
     {FIELD(kz_push_registration_t, operation), FIELD(kz_push_registration_t, queueName),
      FIELD(kz_push_registration_t, reserved)}},
    {"kz_all_status_t",
     {FIELD(kz_all_status_t, otherBytes1), FIELD(kz_all_status_t, batteryPercent), FIELD(kz_all_status_t, charging),
      FIELD(kz_all_status_t, batteryBars), FIELD(kz_all_status_t, otherBytes2), FIELD(kz_all_status_t, busy),
      FIELD(kz_all_status_t, otherBytes3)}},
    {"kz_date_time_t",
     {FIELD(kz_date_time_t, year), FIELD(kz_date_time_t, month), FIELD(kz_date_time_t, day),
      FIELD(kz_date_time_t, hour), FIELD(kz_date_time_t, minute), FIELD(kz_date_time_t, second),
      FIELD(kz_date_time_t, zoneOffset), FIELD(kz_date_time_t, daylightSaving)}},
    {"kz_setting_t", {FIELD(kz_setting_t, settingId), FIELD(kz_setting_t, value)}},
    {"csiStruct", {FIELD(csiStruct, key), FIELD(csiStruct, length)}},
};

}  // namespace

TEST(IntegratorsDocument, SaysWhatTheRecordsAre) {
    std::map<std::string, Rows> found;
    int commands = 0;
    std::ifstream document(KZ_DOCUMENT);
    std::string layout;
    for (std::string line; std::getline(document, line);) {
        char name[64];
        unsigned number = 0;
        if (std::sscanf(line.c_str(), "<!-- layout %63[a-zA-Z_] -->", name) == 1) {
            layout = name;
        } else if (line.empty()) {
            layout.clear();
        } else if (!layout.empty() && std::sscanf(line.c_str(), "| %u | %*u | `", &number) == 1) {
            found[layout].push_back(line.substr(0, line.find('`', line.find('`') + 1) + 1));
        } else if (std::sscanf(line.c_str(), "| %u | `%63[A-Z_]` |", &number, name) == 2) {
            EXPECT_EQ(kzControlCommandName(number), std::string("KZCONTROL_") + name);
            ++commands;
        }
    }

    EXPECT_EQ(found, kLayouts);
    EXPECT_GT(commands, 40);
}
