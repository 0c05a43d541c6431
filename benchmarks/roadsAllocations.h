// The packet path allocates nothing once it is warm.
#pragma once

#include <cstdint>

namespace roads {

// Heap allocations of a program that runs with KZ_ALLOCATION_COUNTER preloaded: eight bytes of the world, host order.
constexpr const char* kAllocationCount = "/tmp/allocationCount";

// Prints what each kind of traffic makes an unchanged daemon allocate. `logLevel` is that of the daemon.
void MeasureAllocations(uint32_t logLevel);

}  // namespace roads
