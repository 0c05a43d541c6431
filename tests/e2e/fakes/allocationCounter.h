// Where the preloaded counter keeps its count: eight bytes, host order.
#pragma once

#include <cstdint>

namespace fakes {

constexpr const char* kAllocationCountPath = "/tmp/kzAllocationCount";

}  // namespace fakes
