// Everything around one daemon: radio stack, network daemon, control daemon's pushes, camera, files. A test takes a
// rig, starts the daemon in it and plays conversations (script.h).
#pragma once

#include <optional>
#include <string>

#include "camera.h"
#include "daemonProcess.h"
#include "queue.h"
#include "radioStack.h"
#include "tlvMessage.h"

namespace e2e {

// The daemon's own queues.
constexpr const char* kEventQueue = "/to_kzBleD";
constexpr const char* kCsiQueue = "/to_blesdk";

constexpr const char* kSettingsGzPath = "/usr/local/zorvik/etc/58/settings.json.gz";

// A small catalogue: settings 2 (options 1 4 5 9), 3 (0 1 2), 30 (10 1000, four bytes wide), status 8 10 29 33 54;
// setting 2 at 4 forbids option 1 of setting 3, and status 10 at 1 forbids option 2 of it. Version 1.25.
extern const char* const kSmallCatalogue;

class Rig {
  public:
    struct Options {
        long transmitDepth = kRadioDepth;
        bool radioStack = true;     // whether the radio queues exist from the start
        bool networkDaemon = true;  // whether "/to_kznet" does
        std::string catalogue = kSmallCatalogue;
        std::string libraries = KZ_FAKES_DIRECTORY;  // the folder of the camera's three libraries
    };

    // Waits for the queue room that other worlds hold.
    explicit Rig(const Options& options);
    ~Rig();

    // Starts the daemon and waits until it serves: its CSI subscription has arrived (with a network daemon), or its
    // command thread runs. Throws when the daemon does not come up.
    void start();
    // Starts it, again while there is no queue room, and returns when it has its queues or has ended.
    void launch();
    void openNetworkDaemon();
    // Everything sent to the radio queue before has been handled, and its packets are in the other queue.
    void settle();
    // Shutdown by the debug record; the exit status.
    std::optional<int> shutDown();

    // A CSI message of that command ("CN", "CU", ...), handled and acknowledged when it returns. `terminator` follows
    // the command and the name of the queue for the acknowledgement.
    TlvMessage notifyCsi(const std::string& command, const Bytes& records, const std::string& terminator = "");
    // The next message to the network daemon; throws when none comes.
    TlvMessage receiveNet();

    Camera camera;
    std::optional<RadioStack> radio;
    std::optional<Queue> network;
    DaemonProcess daemon;

  private:
    Queue m_replies;
    uint32_t m_fence = 0;
};

// One CSI record: key, length, value.
Bytes csiRecord(uint8_t key, const Bytes& value);
Bytes csiRecord(uint8_t key, uint32_t value);

}  // namespace e2e
