// A C stream with an owner: closed when its handle goes.
#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<FILE, FileCloser>;
