// The camera's three client libraries, played inside a test program: every function of their headers, defined in the
// executable, so that they stand before the shared libraries. Each call is recorded in order with its argument bytes;
// results and replies are scripted. What needs a reply fails without one.
//
// The shell is played too, as "system": a test runs none. Thread-safe.
#pragma once

#include <ostream>

#include "bytes.h"

namespace fakes {

// One call of the code under test.
struct Call {
    std::string operation;  // "command", "csi_set", "csi_get", "option", "ipc-send", "system" ... (cameraLibraries.cpp)
    uint32_t id = 0;        // command, key, setting or caller id; 0 where there is none
    Bytes argument;         // parameter, value, name, record or shell command; empty where there is none

    friend bool operator==(const Call&, const Call&) = default;
};
std::ostream& operator<<(std::ostream& out, const Call& call);  // "command 30: 02 00", "csi_get 97", "ipc-destroy"

// ---- the script; Reset brings back an accepting camera without values and forgets the calls
void Reset();
// While off, calls are answered but not recorded: for programs that run long. On after Reset.
void Record(bool on);

void OnCommand(uint32_t id, int result, Bytes reply = {});  // from now on
void OnOption(uint32_t setting, bool exists);
void OnCsiSet(uint8_t key, int result);
void SetCsi(uint8_t key, Bytes value);
void SetCameraInfo(int result, Bytes record);  // 434 bytes
void SetModelNumber(int result, uint8_t model);
void SetIpcResults(int init, int send, int destroy);
void SetSystemResult(int result);  // with errno ENOMEM

// ---- the record
std::vector<Call> Calls();
std::vector<Call> Calls(std::string_view operation);  // only these
void ForgetCalls();

}  // namespace fakes
