// Local SOCK_SEQPACKET sockets: an owned descriptor, a listener, and a server that answers one record with one record.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "bytes.h"
#include "eventLoop.h"

namespace kzsim {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~Descriptor();

    int get() const { return m_fd; }

  private:
    int m_fd = -1;
};

// True when somebody accepts connections at `path`.
bool someoneListensAt(const std::string& path);

// Accepts connections at a path of the file system, whose folder it makes and whose name it removes at the end. Throws
// std::runtime_error when it cannot listen.
class Listener {
  public:
    Listener(EventLoop& loop, std::string path, std::function<void(Descriptor)> accepted);
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener();

  private:
    EventLoop& m_loop;
    std::string m_path;
    Descriptor m_socket;
};

// What a receive gives: a record, nothing yet, or the end (hung up, broken, or a record over the limit).
enum class Received { Record, Nothing, End };
Received receiveRecord(int fd, size_t limit, Bytes& record);

// False when the record did not leave whole: the peer does not read, or is gone. `full` tells the first from the
// second.
bool sendRecord(int fd, ByteView record, bool* full = nullptr);

// Answers every record of every connection by what `handler` makes of it. A connection that sends a record over the
// limit, or does not fetch its answers, is closed; the others do not notice.
class RecordServer {
  public:
    using Handler = std::function<Bytes(ByteView record)>;

    RecordServer(EventLoop& loop, const std::string& path, size_t recordLimit, Handler handler);
    RecordServer(const RecordServer&) = delete;
    RecordServer& operator=(const RecordServer&) = delete;
    ~RecordServer();

    // Stops reading, so that nobody is answered, or goes on with what has come meanwhile. Connections are still
    // accepted.
    void setReading(bool reading);

  private:
    void accepted(Descriptor connection);
    void readable(int fd);

    EventLoop& m_loop;
    size_t m_recordLimit;
    Handler m_handler;
    bool m_reading = true;
    std::map<int, Descriptor> m_connections;
    Listener m_listener;
};

}  // namespace kzsim
