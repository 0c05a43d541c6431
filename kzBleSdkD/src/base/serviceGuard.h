// ServiceGuard: keeps a service of the camera that hangs from holding up everybody else.
//
// Every call of a client library that asks a service and waits for its answer is made through the service's guard. A
// call that fails late was ended by the library's deadline, whatever that is: after a second when errno says so, after
// a second and a half in any case. An answer that is slow, or refuses slowly, counts as one. From the deadline on:
//   - in the same turn of the loop the service is not asked again, so nothing waits for it twice;
//   - after two such calls in a row it is not asked for two seconds, then one call tries it again.
// What is not asked fails at once, with the result that the deadline gave.
//
// A service that was started anew has hung up: the first call finds the connection broken, before anything was sent,
// and is made again.
//
// Command thread only (and the main thread before there is one).
#pragma once

#include <cerrno>
#include <cstdint>

#include "monotonicTime.h"

class ServiceGuard {
  public:
    explicit constexpr ServiceGuard(const char* name) : m_name(name) {}
    ServiceGuard(const ServiceGuard&) = delete;
    ServiceGuard& operator=(const ServiceGuard&) = delete;

    // A new turn: the work on one record, message or tick begins.
    static void BeginTurn() { ++s_turn; }

    // Makes `call` unless the service hangs. `call` gives 0 for success; gives its result.
    template <typename Call>
    int Ask(const Call& call) {
        if (m_hangs != 0 && Refuses()) {
            return m_hungResult;
        }
        const int result = Try(call);
        const bool hungUp = result != 0 && errno == EPIPE && m_hangs == 0;
        return hungUp ? Try(call) : result;
    }

    // Whether the last call was not ended by its deadline.
    bool Answers() const { return m_hangs == 0; }
    // Counts how often the service hung or was gone; it may have forgotten what it was told before.
    uint32_t Losses() const { return m_losses; }

  private:
    static constexpr int kHangsInARow = 2;

    // After a failure errno says why, 0 for the service's own refusal.
    template <typename Call>
    int Try(const Call& call) {
        const int64_t start = MonotonicMs();
        errno = 0;
        const int result = call();
        if (result != 0) {
            NoteFailure(result, start);
        } else if (m_hangs != 0) {
            NoteAnswer();
        }
        return result;
    }
    bool Refuses() const;
    void NoteFailure(int result, int64_t start);
    void NoteAnswer();

    static inline uint32_t s_turn = 0;

    const char* m_name;
    int m_hangs = 0;  // calls in a row that were ended by their deadline
    int m_hungResult = 0;
    int64_t m_hungUntilMs = 0;  // when the last of them ended
    uint32_t m_hungTurn = 0;
    uint32_t m_losses = 0;
};

// One for each library: its service is the same for all who ask.
namespace guards {

inline constinit ServiceGuard control{"The control daemon"};
inline constinit ServiceGuard csi{"The CSI service"};
inline constinit ServiceGuard metadata{"The metadata service"};

inline bool AllAnswer() {
    return control.Answers() && csi.Answers() && metadata.Answers();
}

}  // namespace guards
