// Opening files in directories that others write to. A handle closes its file.
#pragma once

#include "fileCloser.h"

// Opens a regular file for reading. Returns null, with errno, when there is none or `path` names anything else, and
// never blocks, not even at a pipe without a writer.
FileHandle OpenRegularFile(const char* path);
