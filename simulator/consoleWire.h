// Between kzcamctl and the simulator: one SOCK_SEQPACKET record with the words of a command, each ended by a zero byte;
// one record back, a byte that is 0 for success and then a text.
#pragma once

#include "cameraWire.h"

namespace kzsim {

constexpr kzwire::Endpoint kConsoleEndpoint{"KZ_CONSOLE_SOCKET", "/tmp/kzcamera/console"};
constexpr size_t kConsoleRecordLimit = 64 * 1024;

}  // namespace kzsim
