// ControlEvents: the control daemon's queue to this daemon. Each message is a JSON text of current values; the settings
// model stores them, and clients are notified of what changed. Command thread only.
#pragma once

#include <string>

#include "messageBuffer.h"
#include "ownQueue.h"
#include "pushRegistration.h"

class ChangeFanOut;
class Msg;

class ControlEvents {
  public:
    // The buffer is where messages are received.
    ControlEvents(ChangeFanOut& fanOut, MessageBuffer& buffer) : m_fanOut(fanOut), m_msgBuffer(buffer) {}

    OwnQueue& Queue() { return m_eventMq; }

    // Takes one message and notifies the clients of its changes. False when it was dropped.
    bool HandleEvent();
    // The receive step alone: receives, decodes and checks the category. False, with a line in the log, when there is
    // no message or it is not one of the control daemon.
    bool ReceiveEventMsg(Msg& message);

  private:
    static constexpr long kQueueDepth = 10;

    ChangeFanOut& m_fanOut;
    MessageBuffer& m_msgBuffer;
    OwnQueue m_eventMq{kMqEvents, kQueueDepth};
    std::string m_text;  // of the last message; kept for its capacity
};
