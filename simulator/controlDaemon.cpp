#include "controlDaemon.h"

#include "controlCommands.h"
#include "kzControlCommands.h"
#include "kzTlv.h"
#include "report.h"
#include "utils.h"

namespace kzsim {
namespace {

constexpr const char* kOwnQueue = "/to_kzCtrl";  // named as the source of pushes; nobody answers them
constexpr const char* kPushCommand = "EV";
constexpr size_t kMaxListeners = 8;
constexpr size_t kExecutedKept = 64;

// The registration record of EVENT_REGISTER_MQUEUE.
constexpr size_t kRegistrationSize = 264;
constexpr size_t kRegistrationNameOffset = 4;
constexpr size_t kRegistrationNameSize = 256;

// Commands carry records of a fixed size, most of which is padding.
ByteView withoutTrailingZeros(ByteView bytes) {
    while (!bytes.empty() && bytes.back() == 0) {
        bytes = bytes.first(bytes.size() - 1);
    }
    return bytes;
}

// Everything of a push message but the JSON text and the end marker.
Bytes startPushMessage(const std::string& queueName) {
    Bytes message(kTlvMaxMessageSize);
    const uint8_t noArgument = 0;
    sntlv_msg_init(message.data(), kTlvMaxMessageSize, CAT_KZCONTROL_EVENT);
    sntlv_add_bin(message.data(), kTlvMaxMessageSize, TLV_CMD, 2, kPushCommand);
    sntlv_add_bin(message.data(), kTlvMaxMessageSize, TLV_CMDARG, sizeof noArgument, &noArgument);
    sntlv_add_bin(message.data(), kTlvMaxMessageSize, TLV_SRC, static_cast<uint32_t>(std::strlen(kOwnQueue)),
                  kOwnQueue);
    sntlv_add_bin(message.data(), kTlvMaxMessageSize, TLV_DST, static_cast<uint32_t>(queueName.size()),
                  queueName.data());
    return message;
}

// The JSON bytes that still fit behind `message`.
size_t roomForJson(const Bytes& message) {
    return kTlvMaxMessageSize - sntlv_msg_len(message.data()) - 2 * TLV_ELEM_HDR_SIZE;
}

void finishPushMessage(Bytes& message, const std::string& json) {
    sntlv_add_bin(message.data(), kTlvMaxMessageSize, TLV_RSPARG, static_cast<uint32_t>(json.size()), json.data());
    sntlv_add_bin(message.data(), kTlvMaxMessageSize, TLV_END, 0, nullptr);
    message.resize(sntlv_msg_len(message.data()));
}

}  // namespace

ControlDaemon::ControlDaemon(EventLoop& loop, CameraModel& camera)
    : m_loop(loop),
      m_camera(camera),
      m_server(loop, kzwire::kControlEndpoint, [this](const ServiceRequest& request) { return handle(request); }) {
    m_flush = m_loop.atEndOfTurn([this] { flush(); });
}

ControlDaemon::~ControlDaemon() {
    m_loop.cancel(m_flush);
    for (const auto& [name, listener] : m_listeners) {
        m_loop.forget(listener->queue.fd());
    }
}

// ---------------------------------------------------------------- requests

ServiceReply ControlDaemon::handle(const ServiceRequest& request) {
    m_lastCallerId = request.header.callerId;
    switch (request.header.operation) {
        case kzwire::Operation::ControlOpen:
            return {KZ_OK};
        case kzwire::Operation::ControlCommand:
            return handleCommand(request);
        case kzwire::Operation::ControlCameraInfo: {
            const auto record = m_camera.information();
            return {KZ_OK, Bytes(record.begin(), record.end())};
        }
        case kzwire::Operation::ControlModelNumber:
            return {KZ_OK, {m_camera.modelNumber()}};
        case kzwire::Operation::ControlOptionExists: {
            const auto query = numberAt<kzwire::OptionQuery>(request.payload);
            const bool accepted =
                query.model == m_camera.modelNumber() && m_camera.accepts(query.settingId, query.optionId);
            return {KZ_OK, {static_cast<uint8_t>(accepted)}};
        }
        default:
            return {KZ_ERR_NOT_SUPPORTED};
    }
}

ServiceReply ControlDaemon::handleCommand(const ServiceRequest& request) {
    ServiceReply reply;
    const uint32_t id = request.header.target;
    reply.result = execute(id, request.payload, reply.payload);
    report("control", "%s(%s) from caller %u gives %d, %zu bytes", kzControlCommandName(id),
           toHex(request.payload).c_str(), request.header.callerId, reply.result, reply.payload.size());
    ++m_executedCount;
    m_executed.push_back({id, request.header.callerId, toHex(withoutTrailingZeros(request.payload)),
                          request.payload.size(), reply.result});
    if (m_executed.size() > kExecutedKept) {
        m_executed.pop_front();
    }
    return reply;
}

int32_t ControlDaemon::execute(uint32_t id, ByteView parameter, Bytes& reply) {
    const auto refused = m_refused.find(id);
    if (refused != m_refused.end()) {
        return refused->second;
    }
    if (id == KZCONTROL_EVENT_REGISTER_MQUEUE) {
        return registerListener(parameter);
    }
    return executeControlCommand(m_camera, id, parameter, reply);
}

void ControlDaemon::refuse(uint32_t id, int32_t code) {
    if (code == 0) {
        m_refused.erase(id);
    } else {
        m_refused[id] = code;
    }
}

// offset width field
//      0     4 1 register, 0 unregister
//      4   256 queue name, zero-padded
//    260     4 zero
int32_t ControlDaemon::registerListener(ByteView record) {
    if (record.size() != kRegistrationSize) {
        return KZ_ERR_INVALID_PARAM;
    }
    const auto* const text = reinterpret_cast<const char*>(record.data() + kRegistrationNameOffset);
    const std::string name(text, strnlen(text, kRegistrationNameSize));
    if (name.size() == kRegistrationNameSize || name.size() < 2 || name.front() != '/') {
        return KZ_ERR_INVALID_PARAM;
    }
    const auto former = m_listeners.find(name);
    if (former != m_listeners.end()) {
        m_loop.forget(former->second->queue.fd());
        m_listeners.erase(former);
    }
    if (numberAt<uint32_t>(record) == 0) {
        return KZ_OK;
    }
    auto queue = MessageQueue::openForSending(name);
    if (!queue.has_value() || m_listeners.size() >= kMaxListeners) {
        return KZ_ERR_MQ_FAIL;
    }
    auto listener = std::make_unique<Listener>(Listener{std::move(*queue), {}});
    for (const auto& [id, value] : m_camera.settings()) {
        listener->pending.settings.insert(id);
    }
    for (const auto& [id, value] : m_camera.statuses()) {
        listener->pending.statuses.insert(id);
    }
    m_loop.watch(listener->queue.fd(), 0, [](short) {});  // room again; flush() runs at the end of the turn
    m_listeners[name] = std::move(listener);
    return KZ_OK;
}

// ---------------------------------------------------------------- pushes

void ControlDaemon::settingChanged(uint32_t settingId) {
    for (const auto& [name, listener] : m_listeners) {
        listener->pending.settings.insert(settingId);
    }
}

void ControlDaemon::statusChanged(uint32_t statusId) {
    for (const auto& [name, listener] : m_listeners) {
        listener->pending.statuses.insert(statusId);
    }
}

void ControlDaemon::setHung(bool hung) {
    m_hung = hung;
    m_server.setHung(hung);
    for (const auto& [name, listener] : m_listeners) {
        m_loop.setEvents(listener->queue.fd(), 0);
    }
}

void ControlDaemon::flush() {
    if (m_hung) {
        return;
    }
    for (const auto& [name, listener] : m_listeners) {
        flush(*listener);
    }
}

void ControlDaemon::flush(Listener& listener) {
    while (!listener.pending.empty()) {
        const PendingPush before = listener.pending;
        Bytes message = startPushMessage(listener.queue.name());
        const std::string json = takePush(listener.pending, m_camera, roomForJson(message));
        if (json.empty()) {
            break;
        }
        finishPushMessage(message, json);
        const auto sent = listener.queue.send(message);
        if (sent == MessageQueue::Sent::Full) {
            listener.pending = before;
            break;
        }
        if (sent == MessageQueue::Sent::Failed) {
            warn("control", "a push to %s failed", listener.queue.name().c_str());
            break;
        }
        report("control", "pushed %s", json.c_str());
    }
    m_loop.setEvents(listener.queue.fd(), listener.pending.empty() ? 0 : POLLOUT);
}

nlohmann::json ControlDaemon::state() const {
    auto listeners = nlohmann::json::array();
    for (const auto& [name, listener] : m_listeners) {
        listeners.push_back({{"queue", name},
                             {"pendingSettings", listener->pending.settings.size()},
                             {"pendingStatuses", listener->pending.statuses.size()}});
    }
    auto commands = nlohmann::json::array();
    for (const Executed& one : m_executed) {
        commands.push_back({{"name", kzControlCommandName(one.id)},
                            {"id", one.id},
                            {"caller", one.callerId},
                            {"parameter", one.parameter},
                            {"parameterSize", one.parameterSize},
                            {"result", one.result}});
    }
    return {{"listeners", listeners},
            {"commands", commands},
            {"commandCount", m_executedCount},
            {"lastCaller", m_lastCallerId}};
}

}  // namespace kzsim
