// How talking to the camera can fail, in words for the user. Each kind has the exit code that a script sees.
#pragma once

#include <stdexcept>
#include <string>

namespace kzclient {

enum class Outcome : int {
    Done = 0,
    Failed = 1,    // anything that is none of the others
    Refused = 2,   // by the camera
    TimedOut = 3,  // or a wanted count was not reached
    NoCamera = 4,  // no radio, no daemon, or it went away
    WrongUse = 64,
    Interrupted = 130,
};
// For programs, for example "timed out"; kzcamctl uses the same.
const char* nameOf(Outcome outcome);

class Error : public std::runtime_error {
  public:
    explicit Error(const std::string& what, Outcome outcome = Outcome::Failed)
        : std::runtime_error(what), m_outcome(outcome) {}
    Outcome outcome() const { return m_outcome; }

  private:
    Outcome m_outcome;
};

// The camera answered, but not with success. `result` is the answer's result byte, or the result of a protobuf answer.
class Refused : public Error {
  public:
    Refused(const std::string& why, int code) : Error("refused: " + why, Outcome::Refused), result(code) {}
    int result;
};

class TimedOut : public Error {
  public:
    explicit TimedOut(const std::string& what) : Error(what, Outcome::TimedOut) {}
};

class NoCamera : public Error {
  public:
    explicit NoCamera(const std::string& what) : Error(what, Outcome::NoCamera) {}
};

// Words, numbers or dates that make no sense whatever the camera is.
class WrongUse : public Error {
  public:
    explicit WrongUse(const std::string& what) : Error(what, Outcome::WrongUse) {}
};

// `outcome` is Done for what only an interrupt ends.
class Interrupted : public Error {
  public:
    explicit Interrupted(Outcome outcome = Outcome::Interrupted) : Error("interrupted", outcome) {}
};

// From now on SIGINT and SIGTERM end a wait with Interrupted instead of ending the process.
void catchInterrupts();
// Throws Interrupted when such a signal came, and forgets it.
void checkInterrupt();
// Whether SIGINT came, which is then forgotten: for a prompt, where it ends the line alone.
bool forgetInterrupt();

}  // namespace kzclient
