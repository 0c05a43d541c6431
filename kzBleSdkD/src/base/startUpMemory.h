// Keeps the memory of the running daemon small. It runs for as long as the camera does, and most of the memory that it
// touches at its start it never needs again: registering the protobuf schemas runs through most of that library, and
// the catalogue is parsed once.
#pragma once

// Makes all threads share one heap. To be called before the first thread starts.
void UseOneHeap();

// Hands back to the system the free pages of the heap and the pages that hold code and constants; the latter are read
// from their files again where they are still needed. Any thread may call it at any time.
void ReleaseStartUpMemory();
