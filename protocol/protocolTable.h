// The names of the protocol for programs: requests, pushes and their bytes, streams, results, and how wide a value is.
// The rows are generated from protocol.json when the project is built.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kzprotocol {

using Message = std::span<const uint8_t>;

struct Row {
    const char* kind;       // "command", "setting", "query", "protobuf", "push", "sensor", "buffer", "update" or "key"
    const char* name;       // not always unique: some queries have two actions
    const char* does;       // a phrase
    int first;              // first byte of the request or push; -1: any, or none
    int second;             // second byte, where it selects too; else -1
    uint8_t requestStream;  // 0: there is no request
    uint8_t answerStream;   // 0: nothing is answered
    const char* details;    // lines to read
    const char* json;       // the same as one JSON object without line breaks
};

std::span<const Row> rows();

// What a whole message on a stream is: a request by its own bytes, an answer by the request that it repeats. Null when
// the protocol does not know it.
const Row* requestOf(uint8_t stream, Message message);
const Row* answerOf(uint8_t stream, Message message);
// A push or a buffer. An answer of some protobuf queries has the same first bytes as a push: who knows that such a
// request is open asks for the answer first.
const Row* pushOf(uint8_t stream, Message message);

// "command-request"; empty when there is no such stream.
std::string_view streamName(uint8_t stream);
// A result byte in words; the sensor interface (stream 19) has codes of its own. Codes of the camera's own have no
// name.
std::string_view resultName(uint8_t answerStream, uint8_t code);

enum class ValueKind { kSetting, kStatus };
// Bytes of a value of this id; nothing for an id that the protocol does not have. -1 is a text.
std::optional<int> valueWidth(ValueKind kind, unsigned id);

// Of the generated file.
namespace generated {

struct Name {
    uint8_t number;
    const char* name;
};

extern const Row kRows[];
extern const size_t kRowCount;
extern const Name kStreams[];
extern const size_t kStreamCount;
extern const Name kResults[];
extern const size_t kResultCount;
extern const Name kSensorResults[];
extern const size_t kSensorResultCount;
extern const signed char kSettingWidths[];  // by id
extern const size_t kSettingWidthCount;
extern const signed char kStatusWidths[];
extern const size_t kStatusWidthCount;

}  // namespace generated
}  // namespace kzprotocol
