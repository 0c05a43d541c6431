// The network daemon with the CSI service: the key/value store's two doors (the CSI client library and the queue
// "/to_kznet"), and the notifications of changed keys to whoever subscribed.
//
// Notifications never block: they wait in order for room in the subscriber's queue; when very many wait, an older value
// of the same key gives way.
#pragma once

#include <bitset>
#include <deque>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>

#include "cameraModel.h"
#include "eventLoop.h"
#include "messageQueue.h"
#include "requestServer.h"

namespace kzsim {

class NetworkDaemon {
  public:
    NetworkDaemon(EventLoop& loop, CameraModel& camera, long queueDepth);
    NetworkDaemon(const NetworkDaemon&) = delete;
    NetworkDaemon& operator=(const NetworkDaemon&) = delete;
    ~NetworkDaemon();

    // Told when somebody outside wrote a key, after it is stored.
    std::function<void(uint8_t key)> onWritten = [](uint8_t) {};

    // Queues the key's value for its subscribers; it leaves at the end of this turn of the loop, with what else
    // changed.
    void csiChanged(uint8_t key);

    // Sends an accessory buffer command ("LB" display, "AL" LED) to the BLE daemon. False when its queue is absent or
    // full.
    bool sendBuffer(std::string_view command, ByteView data);

    // Hangs, so that it neither answers nor takes messages nor notifies, or wakes again.
    void setHung(bool hung);

    nlohmann::json state() const;

  private:
    struct Record {
        uint8_t key;
        Bytes value;
    };
    struct Subscriber {
        MessageQueue queue;
        std::bitset<256> keys;
        std::deque<Record> outbox;
        bool initial = true;  // its first values are still to be sent
    };

    ServiceReply handle(const ServiceRequest& request);
    void drainQueue();
    void handleMessage(const Bytes& message);
    void subscribe(const std::string& queueName, ByteView keys);
    void unsubscribe(const std::string& queueName);
    void store(ByteView record);
    void enqueue(Subscriber& subscriber, uint8_t key);
    void flush();
    void flush(Subscriber& subscriber);

    EventLoop& m_loop;
    CameraModel& m_camera;
    MessageQueue m_queue;
    std::map<std::string, std::unique_ptr<Subscriber>> m_subscribers;  // by queue name
    uint64_t m_acknowledged = 0;
    uint64_t m_notified = 0;
    uint64_t m_refused = 0;
    bool m_hung = false;
    EventLoop::TimerId m_flush;
    RequestServer m_server;
};

}  // namespace kzsim
