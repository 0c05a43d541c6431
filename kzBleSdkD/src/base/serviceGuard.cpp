#include "serviceGuard.h"

#include "utils.h"

namespace {

constexpr const char* kLogTag = "serviceGuard.cpp";

constexpr int64_t kPauseMs = 2000;

// Whether a call that failed after this time was ended by its deadline. A service may take a second to refuse.
bool WasEndedByDeadline(int64_t milliseconds, int error) {
    const bool timedOut = error == EAGAIN || error == ETIMEDOUT;
    return milliseconds >= (timedOut ? 1000 : 1500);
}

// Whether a failed call found that the service had hung up, or nobody in its place. A missing socket alone does not
// count: the connection to it broke before.
bool WasGone(int error) {
    return error == EPIPE || error == ECONNRESET || error == ECONNREFUSED || error == ENOTCONN;
}

}  // namespace

bool ServiceGuard::Refuses() const {
    return m_hungTurn == s_turn || (m_hangs >= kHangsInARow && MonotonicMs() < m_hungUntilMs + kPauseMs);
}

void ServiceGuard::NoteFailure(int result, int64_t start) {
    const int error = errno;
    const int64_t now = MonotonicMs();
    if (!WasEndedByDeadline(now - start, error)) {
        m_hangs = 0;
        m_losses += WasGone(error) ? 1u : 0u;
    } else {
        ++m_losses;
        m_hungResult = result;
        m_hungUntilMs = now;
        m_hungTurn = s_turn;
        if (++m_hangs == kHangsInARow) {
            LOG_ERROR("%s does not answer; it is asked once in two seconds until it does", m_name);
        }
    }
    errno = error;
}

void ServiceGuard::NoteAnswer() {
    if (m_hangs >= kHangsInARow) {
        LOG_WARN("%s answers again", m_name);
    }
    m_hangs = 0;
}
