// The signals of the process. SIGTERM and SIGINT ask for an orderly stop; SIGHUP and SIGPIPE change nothing.
//
// All four are caught. A program that the daemon starts inherits what is blocked and what is ignored, and could then
// not be ended by others; what is caught is at its default again there.
#pragma once

#include <chrono>

// From now on the signals do what is said above; before, and in a program that never calls this, what they do to every
// process. To be called before there is a second thread.
void CatchSignals();

// Whether a stop was asked for. It stays so.
bool IsStopAsked();

// Waits until a stop is asked for or the time is over; true when one is. Any thread may call it.
bool WaitForStop(std::chrono::milliseconds time);
