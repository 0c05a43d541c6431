// Opening files in directories that others write to. A handle closes its file.
#pragma once

#include <string>

#include "fileCloser.h"

// Opens a regular file for reading. Returns null, with errno, when there is none or `path` names anything else, and
// never blocks, not even at a pipe without a writer.
FileHandle OpenRegularFile(const char* path);

// The same for a file beneath a directory, and nowhere else: whoever may write there, and whatever they change at that
// moment, no link leads outside. Links that stay beneath the directory are followed. Fails with EXDEV when the name
// leads outside. On a system that cannot confine links none is followed: a file that is one fails with ELOOP.
FileHandle OpenBeneath(const std::string& directory, const std::string& name);
