// kzble: a phone on the command line. It connects to the camera over the simulated radio, does one thing, or the lines
// of a script or shell, says what came of it and exits with a code that says how it ended (errors.h).
#include <csignal>
#include <iostream>

#include "closedStreams.h"
#include "lines.h"

int main(int argc, char** argv) {
    kzsim::occupyClosedStreams();
    kzclient::catchInterrupts();
    kzclient::Outcome outcome{};
    {
        kzble::Session session;
        outcome = kzble::runCommandLine(session, {argv + 1, argv + argc});
    }
    if (!std::cout.flush() && outcome == kzclient::Outcome::Done) {
        std::cerr << "kzble: cannot write to standard output\n";
        outcome = kzclient::Outcome::Failed;
    }
    if (outcome == kzclient::Outcome::Interrupted) {
        std::signal(SIGINT, SIG_DFL);  // whoever started us sees that we were interrupted
        std::raise(SIGINT);
    }
    return static_cast<int>(outcome);
}
