// What the tests of changes share: a server with a catalogue, clients and played queues.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bleDevice.h"
#include "cameraFakes.h"
#include "csi/csiKeys.h"
#include "kzBleServer.h"
#include "kzControlCommands.h"
#include "logCapture.h"
#include "playedQueues.h"
#include "settingsStatusMapping.h"
#include "utils.h"

struct KzBleServerTestAccess {
    static void Open(mqd_t radio);
    static void Connect(std::unique_ptr<BleNotificationClient> client);
    static uint8_t Paused();
    static uint8_t NewMedia();
    static uint8_t SdCardGood();
    static bool StReady();
    static fakes::Bytes LedBuffer();
};

namespace changes_test {

using fakes::Bytes;
using fakes::Call;
using fakes::Command;
using fakes::Le32;
using Ints = std::vector<int>;
using Texts = std::vector<std::string>;

constexpr auto kStatus = NotificationClient::eNotifyStatus;
constexpr auto kSettings = NotificationClient::eNotifySettings;
constexpr auto kCapabilities = NotificationClient::eNotifyCapabilities;
constexpr auto kCsi = NotificationClient::eNotifyCSI;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// One whole message to a client, joined from its packets.
struct Told {
    uint32_t connectionId = 0;
    Bytes message;

    friend bool operator==(const Told&, const Told&) = default;
};
void PrintTo(const Told& told, std::ostream* out);

class ChangesTest : public testing::Test {
  protected:
    ChangesTest();
    ~ChangesTest() override;

    static KzBleServer& Server() { return *KzBleServer::GetInstance(); }
    static void LoadCatalogue(const std::string& text);
    static bool PushJson(const std::string& json);  // whether capabilities changed

    // A client with its query gate open.
    static BleNotificationClient& Connect(uint32_t connectionId);
    static bool NotifyCsi(uint8_t key, const Bytes& value);

    // Takes what clients were told so far, checking that it came on the query response stream unless said otherwise.
    static std::vector<Told> TakeTold(uint8_t streamId = KZ_STR_ID_QUERY_RESPONSE);
    static void SetRadioDepth(long depth) { played::SetDepth(kMqToSkylark, depth); }
};

}  // namespace changes_test
