// Files that are read from directories others write to. A handle closes its file.
#pragma once

#include "fileCloser.h"

// Opens a regular file for reading; null with errno for anything else. Never blocks, whatever stands at `path`.
FileHandle OpenRegularFile(const char* path);
