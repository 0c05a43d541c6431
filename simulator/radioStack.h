// The radio-stack daemon: carries packets between connected devices (radioWire.h) and the BLE daemon's two queues.
//
// Nothing here blocks. Towards the daemon records wait in order until its queue has room; a device with many records
// waiting is not read meanwhile. Towards a device a bounded number of packets wait; what comes on top is lost, as on a
// bad link.
#pragma once

#include <deque>
#include <map>
#include <nlohmann/json.hpp>

#include "eventLoop.h"
#include "localSocket.h"
#include "messageQueue.h"
#include "radioTap.h"
#include "skylark/bleMessage.h"
#include "skylark/radioWire.h"

namespace kzsim {

class RadioStack {
  public:
    struct Options {
        long inboundDepth = 100;   // of "/Mq_to_BleSdk"
        long outboundDepth = 100;  // of "/Mq_to_Skylark"
    };

    RadioStack(EventLoop& loop, const Options& options, RadioTap& tap);
    RadioStack(const RadioStack&) = delete;
    RadioStack& operator=(const RadioStack&) = delete;
    ~RadioStack();

    // Told of every new and every ended connection, with the number of those that remain and the device type.
    std::function<void(size_t connections, uint8_t deviceType, bool opened)> onConnections = [](size_t, uint8_t, bool) {
    };

    // Takes at most this many packets a second (up to 1000) from the daemon; 0 means as many as come.
    void setRate(uint32_t packetsPerSecond);
    // Takes nothing from the daemon until go().
    void stopReading();
    void go();
    uint32_t rate() const { return m_rate; }
    bool reading() const { return m_reading; }
    // Hangs, so that it neither carries packets nor welcomes devices, or wakes again.
    void setHung(bool hung);
    // Ends the connection once `packets` more have been sent to its device; connection 0 means every one. False when
    // there is no such connection.
    bool dropAfter(uint32_t connectionId, uint32_t packets);

    // Puts a record of any content before the daemon, and a debug record.
    void inject(const ble_message_t& record);
    void sendDebug(uint32_t command, uint32_t argument);

    nlohmann::json state() const;

  private:
    struct Device {
        Descriptor socket;
        uint32_t connectionId = 0;  // 0 until it said hello
        uint8_t type = 0;
        bool cameraIsCentral = false;
        std::deque<kzradio::Record> outbound;
        size_t inboundWaiting = 0;
        uint64_t received = 0;  // packets delivered to the device
        uint64_t lost = 0;
        int64_t dropAfter = -1;  // packets left; -1 for ever
    };

    void accepted(Descriptor socket);
    void deviceReady(int fd, short events);
    // False when the record ends the connection.
    bool handleRecord(Device& device, const kzradio::Record& record);
    bool welcome(Device& device, const kzradio::Record& hello);
    void endThoseWhoLeft(const Device& newcomer);
    void disconnect(int fd);
    void updateEvents(const Device& device);

    void queueInbound(const ble_message_t& record, Device* device);
    void flushInbound();

    void takeOutbound();
    void takeOne();
    void deliver(Device& device, const kzradio::Record& record);
    void flushOutbound(Device& device);
    void scheduleNextTake();
    Device* findConnection(uint32_t connectionId);

    EventLoop& m_loop;
    RadioTap& m_tap;
    MessageQueue m_toDaemon;
    MessageQueue m_fromDaemon;
    std::map<int, Device> m_devices;  // by descriptor
    std::deque<ble_message_t> m_inbound;
    uint32_t m_lastConnectionId = 0;
    uint32_t m_rate = 0;
    bool m_reading = true;
    bool m_hung = false;
    EventLoop::TimerId m_takeTimer = 0;
    uint64_t m_packetsTaken = 0;
    uint64_t m_packetsForNobody = 0;
    Listener m_listener;
};

}  // namespace kzsim
