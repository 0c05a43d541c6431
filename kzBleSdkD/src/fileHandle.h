// Files that are read from directories others write to. A handle closes its file.
#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
using FileHandle = std::unique_ptr<FILE, FileCloser>;

// Opens a regular file for reading; null with errno for anything else. Never blocks, whatever stands at `path`.
FileHandle OpenRegularFile(const char* path);
