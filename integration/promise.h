// A promise is one thing that the daemon relies on, with the check that finds out whether a camera keeps it. The tables
// of promises lie in *Promises.cpp, one file a subject; adding a promise is adding a row and a check.
//
// A check runs in a process of its own (trial.h), so it may change the process and need not clean up.
#pragma once

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ownQueue.h"
#include "platform.h"

namespace kzcheck {

enum class Result { Kept, Broken, NotTried };

struct Outcome {
    Result result;
    std::string seen;  // the value, or the reason
};

// Outcomes with a text as of printf.
[[gnu::format(printf, 1, 2)]] Outcome kept(const char* format, ...);
[[gnu::format(printf, 1, 2)]] Outcome broken(const char* format, ...);
[[gnu::format(printf, 1, 2)]] Outcome notTried(const char* format, ...);

// What the services behind the libraries are doing while a promise is checked.
enum class Services { Running, Absent, Hung };

struct Scene {
    const Platform& platform;
    const OwnQueue& queue;  // the one that the promise names, made for the check; else closed
};

struct Promise {
    const char* name;
    const char* text;       // what is promised
    const char* functions;  // that the check calls, separated by blanks
    const char* ownQueue;   // of the daemon's queues, or null
    Outcome (*check)(const Scene& scene);
    Services services = Services::Running;
};

std::span<const Promise> libraryPromises();  // loading, and what the libraries do to the process
std::span<const Promise> controlPromises();
std::span<const Promise> csiPromises();
std::span<const Promise> ipcPromises();
std::span<const Promise> queuePromises();         // the radio stack's queues, and the control daemon's pushes
std::span<const Promise> subscriptionPromises();  // the CSI service's notifications
std::span<const Promise> failurePromises();       // when the services are absent or hang

// ---- what the checks share

// A call of a library: what it gave, what errno said, how long it took.
struct Call {
    int result = 0;
    int error = 0;
    double milliseconds = 0;
};

template <typename Function>
Call timed(const Function& function) {
    using std::chrono::steady_clock;
    const auto start = steady_clock::now();
    errno = 0;
    Call call;
    call.result = function();
    call.error = errno;
    call.milliseconds = std::chrono::duration<double, std::milli>(steady_clock::now() - start).count();
    return call;
}

// "-1 (Connection refused) after 0.1 ms"
std::string describe(const Call& call);

// A reply must come within two seconds; the rest is for a busy machine.
constexpr double kReplyDeadlineMs = 2500;

// A channel record of libkzipc.so, with room behind it for a library that takes too much.
struct Channel {
    unsigned char record[KZIPC_CHANNEL_SIZE] = {};
    unsigned char behind[4096] = {};
};

// Whether the call gave 0 in time.
bool answered(const Call& call);

// A buffer of a library's reply. Its call is made twice, over two different fillings: a byte that both calls leave the
// same was written.
class ReplyBuffer {
  public:
    explicit ReplyBuffer(size_t size);

    // Makes the call twice; gives the first that was not answered, else the second. `ask` takes the buffer's address,
    // which has no alignment.
    template <typename Ask>
    Call ask(const Ask& ask) {
        Call call;
        for (size_t filling = 0; filling < 2; ++filling) {
            fill(filling);
            call = timed([&] { return ask(static_cast<void*>(at(filling))); });
            if (!answered(call)) {
                break;
            }
        }
        return call;
    }

    const uint8_t* bytes() const { return m_storage[1].data() + kMargin; }
    bool written(size_t offset, size_t length = 1) const;
    bool writtenOutside() const;  // in front of the buffer or behind it
    // As a record of the libraries.
    template <typename Record>
    const Record& as() const {
        static_assert(alignof(Record) == 1);
        return *reinterpret_cast<const Record*>(bytes());
    }

  private:
    static constexpr size_t kMargin = 4097;

    void fill(size_t filling);
    uint8_t* at(size_t filling) { return m_storage[filling].data() + kMargin; }

    size_t m_size;
    std::vector<uint8_t> m_storage[2];
};

}  // namespace kzcheck
