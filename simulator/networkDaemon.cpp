#include "networkDaemon.h"

#include <fcntl.h>

#include <algorithm>

#include "kzMbox.h"
#include "kzTlv.h"
#include "report.h"
#include "utils.h"

namespace kzsim {
namespace {

constexpr const char* kOwnQueue = "/to_kznet";
constexpr const char* kBleDaemonQueue = "/to_blesdk";
constexpr uint8_t kCategoryAcknowledgement = CAT_KZNET_CMD + 1;
constexpr size_t kMaxSubscribers = 8;
constexpr size_t kMaxOutbox = 512;   // records that wait in order
constexpr size_t kMaxValue = 1400;   // bytes of a CSI value
constexpr size_t kRecordHeader = 5;  // key, 32-bit length

std::optional<ByteView> element(const Bytes& message, uint8_t type) {
    const unsigned char* const found = tlv_find(message.data(), type);
    if (found == nullptr) {
        return std::nullopt;
    }
    return ByteView(tlv_data(found), tlv_length(found));
}

// A complete message from this daemon; a reply carries its result byte too.
Bytes makeMessage(uint8_t category, std::string_view command, ByteView argument, const std::string& destination,
                  std::optional<uint8_t> result = std::nullopt) {
    Bytes message(kTlvMaxMessageSize);
    uint8_t* const data = message.data();
    sntlv_msg_init(data, kTlvMaxMessageSize, category);
    sntlv_add_bin(data, kTlvMaxMessageSize, TLV_CMD, static_cast<uint32_t>(command.size()), command.data());
    sntlv_add_bin(data, kTlvMaxMessageSize, TLV_CMDARG, static_cast<uint32_t>(argument.size()), argument.data());
    sntlv_add_bin(data, kTlvMaxMessageSize, TLV_SRC, static_cast<uint32_t>(std::strlen(kOwnQueue)), kOwnQueue);
    sntlv_add_bin(data, kTlvMaxMessageSize, TLV_DST, static_cast<uint32_t>(destination.size()), destination.data());
    if (result.has_value()) {
        sntlv_add_bin(data, kTlvMaxMessageSize, TLV_RSPARG, sizeof *result, &*result);
    }
    sntlv_add_bin(data, kTlvMaxMessageSize, TLV_END, 0, nullptr);
    message.resize(sntlv_msg_len(data));
    return message;
}

// Argument bytes that fit a notification to `destination`.
size_t roomForRecords(const std::string& destination) {
    return kTlvMaxMessageSize - makeMessage(CAT_KZNET_CMD, "CU", {}, destination).size();
}

}  // namespace

NetworkDaemon::NetworkDaemon(EventLoop& loop, CameraModel& camera, long queueDepth)
    : m_loop(loop),
      m_camera(camera),
      m_queue(MessageQueue::create(kOwnQueue, queueDepth, KZMSG_MAX, O_RDONLY)),
      m_server(loop, kzwire::kCsiEndpoint, [this](const ServiceRequest& request) { return handle(request); }) {
    m_loop.watch(m_queue.fd(), POLLIN, [this](short) { drainQueue(); });
    m_flush = m_loop.atEndOfTurn([this] { flush(); });
}

NetworkDaemon::~NetworkDaemon() {
    m_loop.cancel(m_flush);
    m_loop.forget(m_queue.fd());
    for (const auto& [name, subscriber] : m_subscribers) {
        m_loop.forget(subscriber->queue.fd());
    }
}

// ---------------------------------------------------------------- the client library's door

ServiceReply NetworkDaemon::handle(const ServiceRequest& request) {
    if (request.header.target > UINT8_MAX) {
        return {KZ_ERR_INVALID_PARAM};
    }
    const auto key = static_cast<uint8_t>(request.header.target);
    if (request.header.operation == kzwire::Operation::CsiGet) {
        auto value = m_camera.csi(key);
        return value.has_value() ? ServiceReply{KZ_OK, std::move(*value)} : ServiceReply{KZ_ERR};
    }
    if (request.header.operation != kzwire::Operation::CsiSet || request.payload.size() > kMaxValue) {
        return {KZ_ERR_INVALID_PARAM};
    }
    report("network", "csi %u = %s", key, toHex(request.payload).c_str());
    m_camera.setCsi(key, Bytes(request.payload.begin(), request.payload.end()));
    onWritten(key);
    return {KZ_OK};
}

// ---------------------------------------------------------------- the queue's door

void NetworkDaemon::drainQueue() {
    while (const auto message = m_queue.receive()) {
        if (message->size() >= kTlvMinMessageSize &&
            tlv_validate_received(message->data(), static_cast<uint32_t>(message->size())) == 0) {
            handleMessage(*message);
        } else {
            ++m_refused;
            warn("network", "a message of %zu bytes on %s makes no sense", message->size(), kOwnQueue);
        }
    }
}

void NetworkDaemon::handleMessage(const Bytes& message) {
    const uint8_t category = message[3];
    if (category == kCategoryAcknowledgement) {
        ++m_acknowledged;
        return;
    }
    const auto text = [&message](uint8_t type) {
        const auto bytes = element(message, type).value_or(ByteView());
        return std::string(bytes.begin(), bytes.end());
    };
    const std::string command = text(TLV_CMD);
    const std::string source = text(TLV_SRC);
    const ByteView argument = element(message, TLV_CMDARG).value_or(ByteView());
    if (category == CAT_KZNET_CMD && command == "CR") {
        subscribe(source, argument);
    } else if (category == CAT_KZNET_UNSUB && command == "CR") {
        unsubscribe(source);
    } else if (category == CAT_KZNET_CMD && command == "CI") {
        store(argument);
    } else {
        ++m_refused;
        warn("network", "a message of category %u, command %s, is not for this daemon", category, command.c_str());
    }
}

// Record: key, 32-bit length, value.
void NetworkDaemon::store(ByteView record) {
    const auto length = numberAt<uint32_t>(record, 1);
    if (record.size() < kRecordHeader || record.size() - kRecordHeader < length || length > kMaxValue) {
        ++m_refused;
        warn("network", "a set message whose record is cut short");
        return;
    }
    const ByteView value = record.subspan(kRecordHeader, length);
    report("network", "csi %u = %s by message", record[0], toHex(value).c_str());
    m_camera.setCsi(record[0], Bytes(value.begin(), value.end()));
    onWritten(record[0]);
}

void NetworkDaemon::subscribe(const std::string& queueName, ByteView keys) {
    unsubscribe(queueName);
    auto queue = MessageQueue::openForSending(queueName);
    if (!queue.has_value() || m_subscribers.size() >= kMaxSubscribers) {
        warn("network", "cannot take %s as a subscriber", queueName.c_str());
        return;
    }
    const Bytes reply = makeMessage(CAT_KZNET_RSP, "CR", keys, queueName, uint8_t{0});
    if (queue->send(reply) != MessageQueue::Sent::Yes) {
        warn("network", "the answer to the subscription of %s is lost: its queue is full", queueName.c_str());
    }
    auto subscriber = std::make_unique<Subscriber>(Subscriber{std::move(*queue), {}, {}});
    for (const uint8_t key : keys) {
        if (!subscriber->keys[key] && m_camera.csi(key).has_value()) {
            enqueue(*subscriber, key);
        }
        subscriber->keys[key] = true;
    }
    report("network", "%s subscribes to %zu keys", queueName.c_str(), subscriber->keys.count());
    m_loop.watch(subscriber->queue.fd(), 0, [](short) {});  // room again; flush() runs at the end of the turn
    m_subscribers[queueName] = std::move(subscriber);
}

void NetworkDaemon::unsubscribe(const std::string& queueName) {
    const auto found = m_subscribers.find(queueName);
    if (found != m_subscribers.end()) {
        report("network", "%s is no subscriber any more", queueName.c_str());
        m_loop.forget(found->second->queue.fd());
        m_subscribers.erase(found);
    }
}

// ---------------------------------------------------------------- notifications

void NetworkDaemon::csiChanged(uint8_t key) {
    for (const auto& [name, subscriber] : m_subscribers) {
        if (subscriber->keys[key]) {
            enqueue(*subscriber, key);
        }
    }
}

void NetworkDaemon::enqueue(Subscriber& subscriber, uint8_t key) {
    auto& outbox = subscriber.outbox;
    if (outbox.size() >= kMaxOutbox) {
        const auto older =
            std::find_if(outbox.begin(), outbox.end(), [key](const Record& one) { return one.key == key; });
        outbox.erase(older == outbox.end() ? outbox.begin() : older);
    }
    outbox.push_back({key, m_camera.csi(key).value_or(Bytes())});
}

void NetworkDaemon::setHung(bool hung) {
    m_hung = hung;
    m_server.setHung(hung);
    m_loop.setEvents(m_queue.fd(), hung ? 0 : POLLIN);
    for (const auto& [name, subscriber] : m_subscribers) {
        m_loop.setEvents(subscriber->queue.fd(), 0);
    }
}

void NetworkDaemon::flush() {
    if (m_hung) {
        return;
    }
    for (const auto& [name, subscriber] : m_subscribers) {
        flush(*subscriber);
    }
}

// One record goes as "CN", several as "CU"; the first values always as "CU".
void NetworkDaemon::flush(Subscriber& subscriber) {
    const size_t room = roomForRecords(subscriber.queue.name());
    while (!subscriber.outbox.empty()) {
        Bytes records;
        size_t count = 0;
        for (const Record& one : subscriber.outbox) {
            if (count > 0 && records.size() + kRecordHeader + one.value.size() > room) {
                break;
            }
            records.push_back(one.key);
            append(records, static_cast<uint32_t>(one.value.size()));
            appendBytes(records, one.value);
            ++count;
        }
        const bool several = count > 1 || subscriber.initial;
        const Bytes message = makeMessage(CAT_KZNET_CMD, several ? "CU" : "CN", records, subscriber.queue.name());
        if (subscriber.queue.send(message) == MessageQueue::Sent::Full) {
            break;
        }
        report("network", "notified %s of %zu keys: %s", subscriber.queue.name().c_str(), count,
               toHex(records).c_str());
        subscriber.outbox.erase(subscriber.outbox.begin(), subscriber.outbox.begin() + static_cast<long>(count));
        m_notified += count;
    }
    subscriber.initial = subscriber.initial && !subscriber.outbox.empty();
    m_loop.setEvents(subscriber.queue.fd(), subscriber.outbox.empty() ? 0 : POLLOUT);
}

bool NetworkDaemon::sendBuffer(std::string_view command, ByteView data) {
    auto queue = MessageQueue::openForSending(kBleDaemonQueue);
    return queue.has_value() && data.size() <= roomForRecords(kBleDaemonQueue) &&
           queue->send(makeMessage(CAT_RTOS_CMD, command, data, kBleDaemonQueue)) == MessageQueue::Sent::Yes;
}

nlohmann::json NetworkDaemon::state() const {
    auto subscribers = nlohmann::json::array();
    for (const auto& [name, subscriber] : m_subscribers) {
        subscribers.push_back(
            {{"queue", name}, {"keys", subscriber->keys.count()}, {"waiting", subscriber->outbox.size()}});
    }
    return {{"subscribers", subscribers},
            {"notified", m_notified},
            {"acknowledged", m_acknowledged},
            {"refusedMessages", m_refused}};
}

}  // namespace kzsim
