// The camera's three client libraries, played inside a test program: every function of their headers, defined in the
// executable, so that they stand before the shared libraries. Each call is recorded in order with its argument bytes;
// results and replies are scripted. CSI keys behave: what was set is what is read.
//
// The shell is played too, as "system": a test runs none. Thread-safe.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace fakes {

using Bytes = std::vector<uint8_t>;

// The little-endian bytes of numbers, in order.
Bytes Le32(std::initializer_list<uint32_t> numbers);
Bytes Le32(uint32_t number);
Bytes BytesOf(std::string_view text);
// "0a ff", and back.
Bytes FromHex(const std::string& hex);
std::string ToHex(const Bytes& bytes);

// One call of the code under test.
struct Call {
    std::string operation;  // "command", "csi_set", "csi_get", "system", or the function's name
    uint32_t id = 0;        // command, key or caller id; 0 where there is none
    Bytes argument;         // parameter, value, name, record or shell command; empty where there is none

    friend bool operator==(const Call&, const Call&) = default;
};
std::ostream& operator<<(std::ostream& out, const Call& call);  // "command 30: 02 00", "csi_get 97", "kzIpcDestroy"

// The calls a test expects, in the words of the code under test.
Call Command(uint32_t id, Bytes argument = {});
Call CsiSet(uint8_t key, Bytes value);

// ---- the script; Reset brings back an accepting camera without values and forgets the calls
void Reset();
// While off, calls are answered but not recorded: for programs that run long. On after Reset.
void Record(bool on);

void OnCommand(uint32_t id, int result, Bytes reply = {});  // from now on
void OnCsiSet(uint8_t key, int result);                     // a refused value is not stored
void OnCsiGet(uint8_t key, int result);
void SetCsi(uint8_t key, Bytes value);
void SetCameraInfo(int result, Bytes record);  // 434 bytes; a shorter record is filled up with zeros
void SetModelNumber(int result, uint8_t model);
void SetOptionExists(std::function<bool(uint32_t model, uint32_t setting, uint32_t option)> exists);
void SetIpcResults(int init, int send, int destroy);
void SetSystemResult(int result);  // with errno ENOMEM

// ---- the record
std::vector<Call> Calls();
std::vector<Call> Calls(std::string_view operation);  // only these
void ForgetCalls();

}  // namespace fakes
