// What the server's tests share: a server with clients and real queues, in a /tmp and a queue namespace of the test's
// own, with the camera's libraries played by the fakes.
#pragma once

#include <gtest/gtest.h>
#include <mqueue.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bleDevice.h"
#include "cameraFakes.h"
#include "kzBleServer.h"
#include "logCapture.h"
#include "skylark/bleMessage.h"

// The server as if it had been started: its radio queue and timer open, its clients connected.
struct KzBleServerTestAccess {
    static void Open();
    static BleNotificationClient& Connect(uint32_t connectionId, uint8_t deviceType);
    static uint32_t TransfersRunning();
    static void SetCsiValue(uint8_t key, uint32_t value);
};

namespace server_test {

using fakes::Bytes;

// One packet sent to a client.
struct Sent {
    uint32_t connectionId = 0;
    int streamId = 0;
    Bytes data;

    friend bool operator==(const Sent&, const Sent&) = default;
};
std::ostream& operator<<(std::ostream& out, const Sent& sent);

class ServerTest : public testing::Test {
  protected:
    static constexpr long kRadioDepth = 10;  // what an ordinary user may have

    void SetUp() override;
    void TearDown() override;

    static KzBleServer& Server() { return *KzBleServer::GetInstance(); }
    // A client whose command gate is open.
    static BleNotificationClient& Connect(uint32_t connectionId, uint8_t deviceType = KZ_CALLER_BLE_RC);
    static void Disconnect(uint32_t connectionId);
    // A data packet of a client, through the server's dispatch.
    static bool Receive(uint32_t connectionId, uint8_t streamId, const Bytes& data);

    // Takes what was sent to the radio so far.
    std::vector<Sent> TakeSent();
    // Leaves `free` places in the radio queue.
    void FillRadio(long free);
    // Values of CSI_ACCESSORY_UPDATE sent to the network daemon so far.
    std::vector<uint32_t> TakeAccessoryStates();

    static void WriteFile(const std::string& path, const Bytes& content);
    // A valid image of a version in the card's directory.
    static void WriteImage(const std::string& name, Bytes image, uint8_t patch = 1);
    // Makes settings.json.gz a file of these bytes; its path.
    static std::string WriteSettings(const Bytes& content);
    static void CameraStatus(uint8_t battery, uint8_t busy);

  private:
    QueueHandle m_radio;
    QueueHandle m_network;
};

// Bytes 1, 2, 3, ... of a length.
Bytes Counting(size_t length);
// An image file: header and image.
Bytes ImageFile(const Bytes& image, uint8_t major, uint8_t minor, uint8_t patch);

}  // namespace server_test
