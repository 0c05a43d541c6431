#include "rig.h"

#include <filesystem>
#include <stdexcept>

namespace e2e {

const char* const kSmallCatalogue = R"({
  "version": 1.25,
  "modes": [],
  "settings": [
    {"id": 2, "display_name": "resolution", "options": [
      {"id": 1, "display_name": "4K"}, {"id": 4, "display_name": "2.7K"},
      {"id": 5, "display_name": "1440"}, {"id": 9, "display_name": "1080"}]},
    {"id": 3, "display_name": "rate", "options": [
      {"id": 0, "display_name": "240"}, {"id": 1, "display_name": "120"}, {"id": 2, "display_name": "100"}]},
    {"id": 30, "display_name": "interval", "options": [
      {"id": 10, "display_name": "10"}, {"id": 1000, "display_name": "1000"}]}
  ],
  "status": {"groups": [{"fields": [
    {"id": 8, "name": "busy"}, {"id": 10, "name": "encoding"}, {"id": 29, "name": "ssid"},
    {"id": 33, "name": "sd card"}, {"id": 54, "name": "space"}]}]},
  "filters": [
    {"activated_by": [{"setting_id": 2, "ids": [4]}], "blacklist": [{"setting_id": 3, "opt_ids": [1]}]},
    {"activated_by": [{"status_id": 10, "values": [1]}], "blacklist": [{"setting_id": 3, "opt_ids": [2]}]}
  ]
})";

namespace {

constexpr const char* kSettingsPath = "/usr/local/zorvik/etc/58/settings.json";
constexpr const char* kNetworkQueue = "/to_kznet";
constexpr const char* kReplyQueue = "/to_e2e";  // where notifications of the tests are acknowledged
constexpr long kMessageSize = 1500;             // of the queues between daemons
constexpr uint8_t kCategoryNotification = 18;
constexpr uint8_t kFirstFence = 200;  // event types the daemon knows nothing of: handled, logged and nothing else
constexpr uint8_t kFences = 50;
// Connections no test uses; each for itself is far from the number of log lines that one may cause in a second.
constexpr uint32_t kFirstFenceConnection = 1000;
constexpr uint32_t kFenceConnections = 24;

constexpr std::chrono::seconds kRoomPatience{200};

}  // namespace

Bytes csiRecord(uint8_t key, const Bytes& value) {
    return Bytes{key} + little32(static_cast<uint32_t>(value.size())) + value;
}

Bytes csiRecord(uint8_t key, uint32_t value) {
    return csiRecord(key, little32(value));
}

Rig::Rig(const Options& options)
    : daemon("/tmp/daemon.log", options.libraries), m_replies(Queue::create(kReplyQueue, 1, kMessageSize)) {
    // The world may have served another test of this process before.
    for (const char* directory : {"/usr/local/zorvik/etc", "/usr/local/zorvik/tftp", "/tmp/fuse_d"}) {
        std::filesystem::remove_all(directory);
    }
    writeFile(kSettingsPath, textBytes(options.catalogue));
    if (options.radioStack) {
        radio.emplace(options.transmitDepth);
    }
    if (options.networkDaemon) {
        openNetworkDaemon();
    }
}

Rig::~Rig() {
    // A killed daemon leaves its queues; the next rig of this world starts without.
    daemon.kill();
    mq_unlink(kEventQueue);
    mq_unlink(kCsiQueue);
}

void Rig::openNetworkDaemon() {
    network = Queue::create(kNetworkQueue, 10, kMessageSize);
}

void Rig::launch() {
    // The kernel counts the bytes of all message queues of a user: other worlds may hold the room for the daemon's.
    const auto findsRoom = [&] {
        daemon.start();
        waitUntil([&] { return queueExists(kCsiQueue) || !daemon.running(); });
        const bool found = daemon.running() || daemon.count("Too many open files") == 0;
        if (!found) {
            daemon.waitForExit();
            camera.takeCalls();
        }
        return found;
    };
    waitUntil(findsRoom, kRoomPatience);
}

void Rig::start() {
    launch();
    waitUntil([&] { return !daemon.running() || (network ? network->waiting() > 0 : queueExists(kCsiQueue)); });
    if (!daemon.running()) {
        throw std::runtime_error("the daemon did not come up; its log:\n" + daemon.log());
    }
    if (network) {
        receiveNet();
    }
    settle();
    camera.takeCalls();
}

void Rig::settle() {
    const auto eventType = static_cast<uint8_t>(kFirstFence + m_fence % kFences);
    const uint32_t connection = kFirstFenceConnection + m_fence++ % kFenceConnections;
    const std::string text = "Unhandled event_type " + std::to_string(eventType) + " ";
    const size_t before = daemon.logSize();
    radio->send(eventRecord(eventType, connection));
    const auto handled = [&] { return daemon.log(before).find(text) != std::string::npos; };
    if (!waitUntil([&] { return handled() || !daemon.running(); }) || !handled()) {
        throw std::runtime_error("the daemon handles no records any more; its log:\n" + daemon.log());
    }
}

std::optional<int> Rig::shutDown() {
    radio->send(debugRecord(KZBLE_DEBUG_SHUTDOWN));
    return daemon.waitForExit();
}

TlvMessage Rig::notifyCsi(const std::string& command, const Bytes& records, const std::string& terminator) {
    settle();
    Queue::openForSending(kCsiQueue).send(TlvMessage{
        kCategoryNotification,
        {{kTlvCommand, textBytes(command + terminator)},
         {kTlvArgument, records},
         {kTlvSource, textBytes(kReplyQueue + terminator)},
         {kTlvDestination,
          textBytes(kCsiQueue)}}}.encode());
    const std::optional<Bytes> reply = m_replies.receive();
    if (!reply) {
        throw std::runtime_error("a CSI notification was not acknowledged; the log:\n" + daemon.log());
    }
    return TlvMessage::decode(*reply);
}

TlvMessage Rig::receiveNet() {
    const std::optional<Bytes> message = network->receive();
    if (!message) {
        throw std::runtime_error("nothing came for the network daemon");
    }
    return TlvMessage::decode(*message);
}

}  // namespace e2e
