#include "radioStack.h"

#include <fcntl.h>

#include <algorithm>

#include "report.h"

namespace kzsim {
namespace {

using kzradio::Kind;
using kzradio::Record;

constexpr size_t kMaxDevices = 64;
constexpr size_t kMaxOutbound = 256;       // packets that wait for a slow device
constexpr size_t kMaxInboundWaiting = 64;  // records of one device that wait for the daemon, before it is read no more
constexpr int kTakenAtOnce = 64;           // packets taken from the daemon before the others get their turn

ble_message_t connectionRecord(uint8_t eventType, uint32_t connectionId) {
    ble_message_t record{};
    record.eventType = eventType;
    record.connectionId = connectionId;
    return record;
}

ByteView asBytes(const ble_message_t& record) {
    return {reinterpret_cast<const uint8_t*>(&record), sizeof record};
}

ByteView asBytes(const Record& record) {
    return {reinterpret_cast<const uint8_t*>(&record), sizeof record};
}

}  // namespace

RadioStack::RadioStack(EventLoop& loop, const Options& options, RadioTap& tap)
    : m_loop(loop),
      m_tap(tap),
      m_toDaemon(MessageQueue::create(kMqToBleSdk, options.inboundDepth, kBleRecordSize, O_WRONLY)),
      m_fromDaemon(MessageQueue::create(kMqToSkylark, options.outboundDepth, kBleRecordSize, O_RDONLY)),
      m_listener(loop, kzradio::kRadioEndpoint.address(), [this](Descriptor socket) { accepted(std::move(socket)); }) {
    m_loop.watch(m_toDaemon.fd(), 0, [this](short) { flushInbound(); });
    m_loop.watch(m_fromDaemon.fd(), POLLIN, [this](short) { takeOutbound(); });
}

RadioStack::~RadioStack() {
    for (const auto& [fd, device] : m_devices) {
        m_loop.forget(fd);
        if (device.connectionId != 0) {
            m_tap.ended(device.connectionId);
        }
    }
    m_loop.cancel(m_takeTimer);
    m_loop.forget(m_toDaemon.fd());
    m_loop.forget(m_fromDaemon.fd());
}

// ---------------------------------------------------------------- devices

void RadioStack::accepted(Descriptor socket) {
    if (m_devices.size() >= kMaxDevices) {
        warn("radio", "too many devices, one more is turned away");
        return;
    }
    const int fd = socket.get();
    m_devices[fd].socket = std::move(socket);
    m_loop.watch(fd, m_hung ? 0 : POLLIN, [this, fd](short events) { deviceReady(fd, events); });
}

void RadioStack::deviceReady(int fd, short events) {
    Device& device = m_devices.at(fd);
    if ((events & POLLOUT) != 0) {
        flushOutbound(device);
    }
    if (m_devices.count(fd) == 0 || (events & (POLLIN | POLLHUP | POLLERR)) == 0) {
        return;
    }
    Bytes bytes;
    const Received received = receiveRecord(fd, sizeof(Record), bytes);
    if (received == Received::Nothing) {
        return;
    }
    const bool goesOn =
        received == Received::Record && bytes.size() == sizeof(Record) && handleRecord(device, numberAt<Record>(bytes));
    if (!goesOn) {
        disconnect(fd);
    }
}

bool RadioStack::handleRecord(Device& device, const Record& record) {
    if (record.kind == Kind::Debug) {
        sendDebug(record.argument0, record.argument1);
        return true;
    }
    if (record.kind == Kind::Hello) {
        return device.connectionId == 0 && welcome(device, record);
    }
    if (device.connectionId == 0) {
        return false;
    }
    m_tap.fromDevice(device.connectionId, record);
    ble_message_t message{};
    message.connectionId = device.connectionId;
    message.streamId = record.streamId;
    message.dataLength = record.length;
    if (record.kind == Kind::Packet) {
        message.eventType = KZBLE_SDK_MESSAGE_Data;
        std::memcpy(message.data, record.data, sizeof message.data);
    } else if (record.kind == Kind::Ccc) {
        message.eventType = device.cameraIsCentral ? KZBLE_SDK_EVENT_SensorCCC : KZBLE_SDK_EVENT_CCC;
    } else {
        return false;
    }
    queueInbound(message, &device);
    return true;
}

// Who connects anew left before, also when both are noticed at once: then the daemon has room for the newcomer.
void RadioStack::endThoseWhoLeft(const Device& newcomer) {
    std::vector<int> left;
    for (const auto& [fd, device] : m_devices) {
        pollfd state{fd, 0, 0};
        if (&device != &newcomer && poll(&state, 1, 0) > 0 && (state.revents & POLLHUP) != 0) {
            left.push_back(fd);
        }
    }
    std::for_each(left.begin(), left.end(), [this](int fd) { disconnect(fd); });
}

bool RadioStack::welcome(Device& device, const Record& hello) {
    endThoseWhoLeft(device);
    device.connectionId = ++m_lastConnectionId;
    device.type = static_cast<uint8_t>(hello.argument0);
    device.cameraIsCentral = hello.argument1 != 0;
    m_tap.fromDevice(device.connectionId, hello);
    report("radio", "connection %u opens: type %u, address %s", device.connectionId, device.type,
           toHex({hello.data, kzradio::kAddressSize}).c_str());

    ble_message_t message = connectionRecord(KZBLE_SDK_EVENT_Conn, device.connectionId);
    auto* const bytes = reinterpret_cast<uint8_t*>(&message);
    std::memcpy(bytes + kConnAddressOffset, hello.data, kBleAddressSize);
    bytes[kConnDeviceTypeOffset] = device.type;
    queueInbound(message, &device);
    if (device.cameraIsCentral) {  // then the camera asks for the device's notifications, all at once
        queueInbound(connectionRecord(KZBLE_SDK_EVENT_SensorCCC, device.connectionId), &device);
    }

    Record answer{};
    answer.kind = Kind::Welcome;
    answer.argument0 = device.connectionId;
    if (!sendRecord(device.socket.get(), asBytes(answer))) {
        return false;
    }
    const auto connected =
        std::count_if(m_devices.begin(), m_devices.end(), [](const auto& one) { return one.second.connectionId != 0; });
    onConnections(static_cast<size_t>(connected), device.type, true);
    return true;
}

void RadioStack::disconnect(int fd) {
    const Device device = std::move(m_devices.at(fd));
    m_loop.forget(fd);
    m_devices.erase(fd);
    if (device.connectionId == 0) {
        return;
    }
    m_tap.ended(device.connectionId);
    report("radio", "connection %u ends, %llu packets were lost", device.connectionId,
           static_cast<unsigned long long>(device.lost));
    queueInbound(connectionRecord(KZBLE_SDK_EVENT_Disconn, device.connectionId), nullptr);
    const auto connected =
        std::count_if(m_devices.begin(), m_devices.end(), [](const auto& one) { return one.second.connectionId != 0; });
    onConnections(static_cast<size_t>(connected), device.type, false);
}

void RadioStack::updateEvents(const Device& device) {
    const bool readMore = !m_hung && device.inboundWaiting < kMaxInboundWaiting;
    const bool sendMore = !m_hung && !device.outbound.empty();
    m_loop.setEvents(device.socket.get(), static_cast<short>((readMore ? POLLIN : 0) | (sendMore ? POLLOUT : 0)));
}

RadioStack::Device* RadioStack::findConnection(uint32_t connectionId) {
    const auto found = std::find_if(m_devices.begin(), m_devices.end(), [connectionId](const auto& one) {
        return one.second.connectionId == connectionId;
    });
    return found == m_devices.end() || connectionId == 0 ? nullptr : &found->second;
}

// ---------------------------------------------------------------- towards the daemon

void RadioStack::queueInbound(const ble_message_t& record, Device* device) {
    m_inbound.push_back(record);
    if (device != nullptr) {
        ++device->inboundWaiting;
    }
    flushInbound();
    if (device != nullptr) {
        updateEvents(*device);
    }
}

void RadioStack::flushInbound() {
    while (!m_inbound.empty()) {
        const ble_message_t record = m_inbound.front();
        if (m_toDaemon.send(asBytes(record)) == MessageQueue::Sent::Full) {
            break;
        }
        m_inbound.pop_front();
        Device* const device = findConnection(record.connectionId);
        if (device != nullptr && device->inboundWaiting > 0) {
            --device->inboundWaiting;
            updateEvents(*device);
        }
    }
    m_loop.setEvents(m_toDaemon.fd(), m_hung || m_inbound.empty() ? 0 : POLLOUT);
}

void RadioStack::inject(const ble_message_t& record) {
    queueInbound(record, nullptr);
}

void RadioStack::sendDebug(uint32_t command, uint32_t argument) {
    ble_message_t record{};
    auto* const bytes = reinterpret_cast<uint8_t*>(&record);
    record.eventType = KZBLE_SDK_EVENT_Debug;
    std::memcpy(bytes + kDebugCommandOffset, &command, sizeof command);
    std::memcpy(bytes + kDebugArgumentOffset, &argument, sizeof argument);
    queueInbound(record, nullptr);
}

// ---------------------------------------------------------------- from the daemon

void RadioStack::setRate(uint32_t packetsPerSecond) {
    m_rate = packetsPerSecond;
    go();
}

void RadioStack::stopReading() {
    m_reading = false;
    m_loop.cancel(m_takeTimer);
    m_takeTimer = 0;
    m_loop.setEvents(m_fromDaemon.fd(), 0);
}

void RadioStack::setHung(bool hung) {
    m_hung = hung;
    hung ? stopReading() : go();
    for (const auto& [fd, device] : m_devices) {
        updateEvents(device);
    }
    m_loop.setEvents(m_toDaemon.fd(), m_hung || m_inbound.empty() ? 0 : POLLOUT);
}

void RadioStack::go() {
    m_reading = true;
    m_loop.cancel(m_takeTimer);
    m_takeTimer = 0;
    m_loop.setEvents(m_fromDaemon.fd(), POLLIN);
}

void RadioStack::takeOutbound() {
    if (m_rate != 0) {
        takeOne();
        scheduleNextTake();
        return;
    }
    for (int taken = 0; taken < kTakenAtOnce && m_fromDaemon.waiting() > 0; ++taken) {
        takeOne();
    }
}

// With a rate, the queue is looked at again only after the time one packet takes.
void RadioStack::scheduleNextTake() {
    m_loop.setEvents(m_fromDaemon.fd(), 0);
    const auto onAir = std::chrono::milliseconds(std::max(1000 / m_rate, 1u));
    m_takeTimer = m_loop.callAfter(onAir, [this] {
        m_takeTimer = 0;
        m_loop.setEvents(m_fromDaemon.fd(), m_reading ? POLLIN : 0);
    });
}

void RadioStack::takeOne() {
    const auto bytes = m_fromDaemon.receive();
    if (!bytes.has_value()) {
        return;
    }
    ++m_packetsTaken;
    const auto message = numberAt<ble_message_t>(*bytes);
    Device* const device = findConnection(message.connectionId);
    if (message.eventType != KZBLE_SDK_MESSAGE_Data || device == nullptr) {
        ++m_packetsForNobody;
        report("radio", "a record of type %u for connection %u, which is nobody's", message.eventType,
               message.connectionId);
        return;
    }
    Record record{};
    record.kind = Kind::Packet;
    record.streamId = message.streamId;
    record.length = message.dataLength;
    std::memcpy(record.data, message.data, sizeof record.data);
    deliver(*device, record);
}

void RadioStack::deliver(Device& device, const Record& record) {
    if (device.outbound.size() >= kMaxOutbound) {
        ++device.lost;
        return;
    }
    device.outbound.push_back(record);
    flushOutbound(device);
}

void RadioStack::flushOutbound(Device& device) {
    while (!device.outbound.empty() && device.dropAfter != 0) {
        bool full = false;
        if (!sendRecord(device.socket.get(), asBytes(device.outbound.front()), &full)) {
            if (!full) {
                device.outbound.clear();  // gone; its end is on its way
            }
            break;
        }
        m_tap.toDevice(device.connectionId, device.outbound.front());
        device.outbound.pop_front();
        ++device.received;
        device.dropAfter -= device.dropAfter > 0 ? 1 : 0;
    }
    if (device.dropAfter == 0) {
        disconnect(device.socket.get());
        return;
    }
    updateEvents(device);
}

bool RadioStack::dropAfter(uint32_t connectionId, uint32_t packets) {
    std::vector<int> chosen;
    for (auto& [fd, device] : m_devices) {
        if (device.connectionId != 0 && (connectionId == 0 || device.connectionId == connectionId)) {
            device.dropAfter = packets;
            chosen.push_back(fd);
        }
    }
    for (const int fd : chosen) {
        if (packets == 0) {
            disconnect(fd);
        }
    }
    return !chosen.empty();
}

nlohmann::json RadioStack::state() const {
    auto connections = nlohmann::json::array();
    for (const auto& [fd, device] : m_devices) {
        if (device.connectionId != 0) {
            connections.push_back({{"id", device.connectionId},
                                   {"type", device.type},
                                   {"packets", device.received},
                                   {"waiting", device.outbound.size()},
                                   {"lost", device.lost}});
        }
    }
    return {{"connections", connections},
            {"packetsTaken", m_packetsTaken},
            {"packetsForNobody", m_packetsForNobody},
            {"waitingForDaemon", m_inbound.size()},
            {"inDaemonQueue", m_toDaemon.waiting()},
            {"inRadioQueue", m_fromDaemon.waiting()},
            {"packetsPerSecond", m_rate},
            {"reading", m_reading}};
}

}  // namespace kzsim
