// The daemon runs for as long as the camera does, and most of the memory it touches while starting it never needs
// again: registering the protobuf schemas runs through most of that library, and a catalogue is parsed once.
#pragma once

// Makes all threads share one heap. Before the first thread starts.
void UseOneHeap();

// Hands back to the system what the start left behind: free heap pages, and the code and constants in memory. These are
// read from their files again when they are needed. Any thread, at any time.
void ReleaseStartUpMemory();
