// The control daemon: executes the commands of its client library on the camera, and pushes changed values as JSON to
// those who registered a queue.
//
// Commands are a table, controlCommands.cpp. A push never blocks: what does not fit the listener's queue is kept, each
// value once, and follows when there is room.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "cameraModel.h"
#include "eventLoop.h"
#include "messageQueue.h"
#include "requestServer.h"
#include "statePush.h"

namespace kzsim {

class ControlDaemon {
  public:
    ControlDaemon(EventLoop& loop, CameraModel& camera);
    ControlDaemon(const ControlDaemon&) = delete;
    ControlDaemon& operator=(const ControlDaemon&) = delete;
    ~ControlDaemon();

    // Marks a value to be told to every listener at the end of this turn of the loop.
    void settingChanged(uint32_t settingId);
    void statusChanged(uint32_t statusId);

    // From now on command `id` is refused with `code` before anything is done; code 0 ends that.
    void refuse(uint32_t id, int32_t code);
    const std::map<uint32_t, int32_t>& refused() const { return m_refused; }

    // Hangs, so that it neither answers nor pushes, or wakes again.
    void setHung(bool hung);

    // Listeners, and the last commands with their parameters, callers and results.
    nlohmann::json state() const;

    // One command as the client library would send it; the reply's bytes go to `reply`.
    int32_t execute(uint32_t id, ByteView parameter, Bytes& reply);

  private:
    struct Listener {
        MessageQueue queue;
        PendingPush pending;
    };
    struct Executed {
        uint32_t id;
        uint32_t callerId;
        std::string parameter;  // hexadecimal, without the zero bytes at its end
        size_t parameterSize;
        int32_t result;
    };

    ServiceReply handle(const ServiceRequest& request);
    ServiceReply handleCommand(const ServiceRequest& request);
    int32_t registerListener(ByteView record);
    void flush();
    void flush(Listener& listener);

    EventLoop& m_loop;
    CameraModel& m_camera;
    std::map<std::string, std::unique_ptr<Listener>> m_listeners;  // by queue name
    std::map<uint32_t, int32_t> m_refused;                         // code by command id
    std::deque<Executed> m_executed;
    uint64_t m_executedCount = 0;
    uint32_t m_lastCallerId = 0;
    bool m_hung = false;
    EventLoop::TimerId m_flush;
    RequestServer m_server;
};

}  // namespace kzsim
