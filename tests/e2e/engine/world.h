// The private world of an end-to-end test or benchmark: its own queues, files and processes.
#pragma once

namespace e2e {

// Starts the program again as process 1 of a world of its own (scripts/world) and does not return, unless it already
// is. Where the system refuses, the process ends with a message and status 125. Every process left behind ends with the
// world.
void enterWorld(char** argv);

}  // namespace e2e
