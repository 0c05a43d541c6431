// The functions of the camera's three client libraries, played: each is one call of Answer, which the tests inside a
// program and the end-to-end tests define in their own ways.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fakes {

struct Argument {
    const void* data = nullptr;
    size_t length = 0;
};

struct Reply {
    void* buffer = nullptr;
    size_t capacity = 0;
    size_t length = 0;  // of the whole reply; the buffer gets as much as it holds
};

constexpr int64_t kNoNumber = -1;

// Notes a call ("command" 3, "csi_get" 97, "open" without a number) and gives it the result that the test has put there
// for it, or else `standard`.
int Answer(const char* call, int64_t number, const Argument& argument, int standard, Reply* reply);

}  // namespace fakes
