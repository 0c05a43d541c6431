// What the server's tests share: a server with a catalogue, clients and played queues.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bleDevice.h"
#include "cameraFakes.h"
#include "csi/csiKeys.h"
#include "kzBleServer.h"
#include "logCapture.h"
#include "playedQueues.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace server_test {

using fakes::Bytes;
using fakes::Le32;
using Texts = std::vector<std::string>;

constexpr auto kStatus = NotificationClient::eNotifyStatus;
constexpr auto kSettings = NotificationClient::eNotifySettings;
constexpr auto kCapabilities = NotificationClient::eNotifyCapabilities;
constexpr auto kCsi = NotificationClient::eNotifyCSI;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// Bytes 1, 2, 3, ... of a length.
Bytes Counting(size_t length);

// One whole message to a client, joined from its packets.
struct Told {
    uint32_t connectionId = 0;
    Bytes message;

    friend bool operator==(const Told&, const Told&) = default;
};
void PrintTo(const Told& told, std::ostream* out);

class ServerTest : public testing::Test {
  protected:
    ServerTest();
    ~ServerTest() override;

    static KzBleServer& Server() { return *KzBleServer::GetInstance(); }
    static void LoadCatalogue(const std::string& text);
    static bool PushJson(const std::string& json);  // whether capabilities changed

    // A client with its query gate open.
    static BleNotificationClient& Connect(uint32_t connectionId);
    static bool NotifyCsi(uint8_t key, const Bytes& value);

    // Takes what clients were told so far, checking that it came on the query response stream.
    static std::vector<Told> TakeTold();
    static void SetRadioDepth(long depth) { played::SetDepth(kMqToSkylark, depth); }
};

}  // namespace server_test
