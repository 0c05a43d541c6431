#include "rig.h"

#include <filesystem>
#include <fstream>
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

constexpr long kMessageSize = 1500;  // of the queues between daemons
constexpr long kNetworkDepth = 10;
constexpr const char* kEventQueue = "/to_kzBleD";
constexpr const char* kCsiQueue = "/to_blesdk";
constexpr const char* kNetworkQueue = "/to_kznet";
constexpr uint8_t kCategoryNotification = 18;
constexpr uint8_t kCategoryEvent = 22;
constexpr uint8_t kFirstFence = 200;  // event types the daemon knows nothing of: handled, logged and nothing else
constexpr uint8_t kFences = 50;
constexpr const char* kReplyQueue = "/to_e2e";  // where notifications of the tests are acknowledged

// What a rig needs room for, in the order in which it is reserved.
enum : size_t { kEventRoom, kCsiRoom, kToDaemonRoom, kFromDaemonRoom, kNetworkRoom, kReplyRoom };
constexpr QueueSize kEventSize{10, kMessageSize};
constexpr QueueSize kCsiSize{40, kMessageSize};
constexpr QueueSize kReplySize{1, kMessageSize};

}  // namespace

void writeFile(const std::string& path, const Bytes& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

void writeFile(const std::string& path, const std::string& content) {
    writeFile(path, textBytes(content));
}

Bytes csiRecord(uint8_t key, const Bytes& value) {
    return Bytes{key} + little32(static_cast<uint32_t>(value.size())) + value;
}

Bytes csiRecord(uint8_t key, uint32_t value) {
    return csiRecord(key, little32(value));
}

Rig::Rig(const Options& options) : m_options(options) {
    // The world may have served another test of this process before.
    for (const char* directory : {"/usr/local/zorvik/etc", "/usr/local/zorvik/tftp", "/tmp/fuse_d"}) {
        std::filesystem::remove_all(directory);
    }
    writeFile(kSettingsPath, options.catalogue);
    m_room.reserve({kEventSize,
                    kCsiSize,
                    {RadioStack::kDepth, kBleRecordSize},
                    {options.transmitDepth, kBleRecordSize},
                    {kNetworkDepth, kMessageSize},
                    kReplySize});
    {
        const RoomLock lock;
        m_room.release(kReplyRoom);
        m_replies.emplace(Queue::create(kReplyQueue, kReplySize.depth, kReplySize.messageSize));
    }
    if (options.radioStack) {
        openRadio();
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

void Rig::giveBackRadioRoom() {
    m_room.release(kToDaemonRoom);
    m_room.release(kFromDaemonRoom);
}

void Rig::openRadio() {
    const RoomLock lock;
    giveBackRadioRoom();
    radio.emplace(m_options.transmitDepth);
}

void Rig::openNetworkDaemon() {
    const RoomLock lock;
    m_room.release(kNetworkRoom);
    network.emplace(Queue::create(kNetworkQueue, kNetworkDepth, kMessageSize));
}

void Rig::launch(bool detach) {
    if (!m_room.holds(kEventRoom)) {
        m_room.reserve({kEventSize, kCsiSize});  // a daemon before this one used it up
    }
    DaemonProcess::Options options;
    options.detach = detach;
    for (const auto& [name, value] : m_options.environment) {
        options.environment[name] = value;
    }
    const RoomLock lock;
    m_room.release(kEventRoom);
    m_room.release(kCsiRoom);
    daemon.start(options);
    waitUntil([&] { return queueExists(kCsiQueue) || !daemon.running(); });
}

void Rig::start() {
    launch();
    const bool serving =
        waitUntil([&] { return !daemon.running() || (network ? network->waiting() > 0 : queueExists(kCsiQueue)); });
    if (!serving || !daemon.running()) {
        throw std::runtime_error("the daemon did not come up; its log:\n" + daemon.log());
    }
    if (network) {
        receiveNet();
    }
    settle();
    camera.takeCalls();
}

void Rig::settle() {
    const auto eventType = static_cast<uint8_t>(kFirstFence + m_fence++ % kFences);
    ble_message_t fence = {};
    fence.eventType = eventType;
    const std::string text = "Unhandled event_type " + std::to_string(eventType) + " ";
    const size_t before = daemon.logSize();
    radio->send(fence);
    const auto handled = [&] { return daemon.log(before).find(text) != std::string::npos; };
    if (!waitUntil([&] { return handled() || !daemon.running(); }) || !handled()) {
        throw std::runtime_error("the daemon handles no records any more; its log:\n" + daemon.log());
    }
}

std::optional<int> Rig::shutDown() {
    radio->debug(KZBLE_DEBUG_SHUTDOWN);
    return daemon.waitForExit();
}

void Rig::setLogLevel(unsigned level) {
    radio->debug(KZBLE_SET_LOG_LEVEL, level);
}

void Rig::pushJson(const std::string& json) {
    settle();  // the daemon takes events before waiting radio records
    TlvMessage message;
    message.category = kCategoryEvent;
    message.elements = {{kTlvResponse, textBytes(json)}};
    Queue::openForSending(kEventQueue).send(message.encode());
    // The loop looks at the event queue before the radio queue, one message of each a pass.
    settle();
}

TlvMessage Rig::notifyCsi(const std::string& command, const Bytes& records) {
    settle();
    TlvMessage message;
    message.category = kCategoryNotification;
    message.elements = {{kTlvCommand, textBytes(command)},
                        {kTlvArgument, records},
                        {kTlvSource, textBytes(kReplyQueue)},
                        {kTlvDestination, textBytes(kCsiQueue)}};
    Queue::openForSending(kCsiQueue).send(message.encode());
    const std::optional<Bytes> reply = m_replies->receive();
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
