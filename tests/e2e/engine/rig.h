// Everything around one daemon: radio stack, network daemon, control daemon's pushes, camera, files. A test takes a
// rig, starts the daemon in it and plays conversations (script.h).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "cameraScript.h"
#include "daemonProcess.h"
#include "queue.h"
#include "queueRoom.h"
#include "radioStack.h"
#include "tlvMessage.h"

namespace e2e {

constexpr const char* kSettingsDirectory = "/usr/local/zorvik/etc/58";
constexpr const char* kSettingsPath = "/usr/local/zorvik/etc/58/settings.json";
constexpr const char* kSettingsGzPath = "/usr/local/zorvik/etc/58/settings.json.gz";

// A small catalogue: settings 2 (options 1 4 5 9), 3 (0 1 2), 30 (10 1000, four bytes wide), status 8 10 29 33 54;
// setting 2 at 4 forbids option 1 of setting 3, and status 10 at 1 forbids option 2 of it. Version 1.25.
extern const char* const kSmallCatalogue;

// Makes the missing directories too.
void writeFile(const std::string& path, const Bytes& content);
void writeFile(const std::string& path, const std::string& content);

class Rig {
  public:
    struct Options {
        long transmitDepth = RadioStack::kDepth;
        bool networkDaemon = true;  // whether "/to_kznet" exists from the start
        bool radioStack = true;     // whether the radio queues do
        std::string catalogue = kSmallCatalogue;
        std::map<std::string, std::string> environment;
    };

    // Waits for the queue room that other rigs hold.
    Rig() : Rig(Options()) {}
    explicit Rig(const Options& options);
    ~Rig();

    // Starts the daemon and waits until it serves: its CSI subscription has arrived (with a network daemon), or its
    // command thread runs. Throws when the daemon does not come up.
    void start();
    // Starts it and returns at once.
    void launch(bool detach = false);
    void openRadio();
    void giveBackRadioRoom();  // for a test that makes radio queues of its own, under a RoomLock
    void openNetworkDaemon();
    // Everything sent to the radio queue before has been handled, and its packets are in the other queue.
    void settle();
    // Shutdown by the debug record; the exit status.
    std::optional<int> shutDown();
    void setLogLevel(unsigned level);

    // ---- the other daemons
    void pushJson(const std::string& json);  // as the control daemon does; handled when it returns
    // A CSI message of that command ("CN", "CU", ...); handled and acknowledged when it returns.
    TlvMessage notifyCsi(const std::string& command, const Bytes& records);
    // The next message to the network daemon; throws when none comes.
    TlvMessage receiveNet();

    CameraScript camera;
    std::optional<RadioStack> radio;
    std::optional<Queue> network;
    DaemonProcess daemon;

  private:
    Options m_options;
    QueueRoom m_room;
    std::optional<Queue> m_replies;
    uint8_t m_fence = 0;
};

// One CSI record: key, length, value.
Bytes csiRecord(uint8_t key, const Bytes& value);
Bytes csiRecord(uint8_t key, uint32_t value);

}  // namespace e2e
