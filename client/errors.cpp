#include "errors.h"

#include <csignal>

namespace kzclient {

namespace {

volatile std::sig_atomic_t interruptCame = 0;  // the signal's number

}  // namespace

const char* nameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::Done:
            return "done";
        case Outcome::Failed:
            return "failed";
        case Outcome::Refused:
            return "refused";
        case Outcome::TimedOut:
            return "timed out";
        case Outcome::NoCamera:
            return "no camera";
        case Outcome::WrongUse:
            return "wrong use";
        case Outcome::Interrupted:
            return "interrupted";
    }
    return "failed";
}

void catchInterrupts() {
    struct sigaction action {};
    action.sa_handler = [](int number) { interruptCame = number; };  // without SA_RESTART: the call that waits returns
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void checkInterrupt() {
    if (interruptCame != 0) {
        interruptCame = 0;
        throw Interrupted();
    }
}

bool forgetInterrupt() {
    const bool came = interruptCame == SIGINT;
    interruptCame = came ? 0 : interruptCame;
    return came;
}

}  // namespace kzclient
