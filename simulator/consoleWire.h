// Between kzcamctl and the simulator: one SOCK_SEQPACKET record with the words of a command, each ended by a zero byte;
// one record back, a byte that is the outcome and then JSON: what was asked for, or a text that says why not.
#pragma once

#include <cstdint>

#include "cameraWire.h"

namespace kzsim {

constexpr kzwire::Endpoint kConsoleEndpoint{"KZ_CONSOLE_SOCKET", "/tmp/kzcamera/console"};
constexpr size_t kConsoleRecordLimit = 128 * 1024;

// How a command ended; kzcamctl's exit status.
enum class Outcome : uint8_t { Done = 0, Failed = 1, Refused = 2, TimedOut = 3, NoCamera = 4, WrongUse = 64 };

}  // namespace kzsim
