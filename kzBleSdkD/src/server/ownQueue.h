// The two queues that belong to this daemon: created at start, removed at the end.
#pragma once

#include "posixHandle.h"

class OwnQueue {
  public:
    // `name` must outlive the queue. `depth` is the number of messages, of kEventMessageSize bytes, that it holds.
    OwnQueue(const char* name, long depth) : m_name(name), m_depth(depth) {}
    OwnQueue(const OwnQueue&) = delete;
    OwnQueue& operator=(const OwnQueue&) = delete;
    ~OwnQueue() { Close(); }

    // Creates the queue for reading, non-blocking. False, with a line in the log, when that fails: a queue that exists
    // already is another daemon's.
    bool Open();
    // Closes and removes the queue. Does nothing when it is closed.
    void Close();
    bool IsOpen() const { return m_handle.IsOpen(); }
    const QueueHandle& Handle() const { return m_handle; }

  private:
    const char* m_name;
    long m_depth;
    QueueHandle m_handle;
};
