#include "protocolTable.h"

#include <algorithm>

namespace kzprotocol {
namespace {

constexpr uint8_t kSensorAnswer = 19;
constexpr uint8_t kAnswerBit = 0x80;  // of the action in the answer to a protobuf request

template <typename Fits>
const Row* find(Fits fits) {
    const auto all = rows();
    const auto row = std::find_if(all.begin(), all.end(), fits);
    return row == all.end() ? nullptr : &*row;
}

bool begins(const Row& row, Message message, uint8_t bitsOfSecond) {
    return !message.empty() && row.first == message[0] &&
           (row.second < 0 || (message.size() > 1 && (row.second | bitsOfSecond) == message[1]));
}

const Row* exchange(uint8_t stream, uint8_t Row::*side, Message message, uint8_t bitsOfSecond) {
    const auto isOn = [&](const Row& row) { return row.requestStream != 0 && row.*side == stream; };
    const Row* exact = find([&](const Row& row) { return isOn(row) && begins(row, message, bitsOfSecond); });
    // Any byte that is nothing else is the id of a setting.
    const bool isProtobuf = message.empty() || message[0] >= 0xf0;
    return exact != nullptr || isProtobuf ? exact : find([&](const Row& row) { return isOn(row) && row.first < 0; });
}

std::string_view nameOf(std::span<const generated::Name> names, uint8_t number) {
    for (const generated::Name& name : names) {
        if (name.number == number) {
            return name.name;
        }
    }
    return {};
}

}  // namespace

std::span<const Row> rows() {
    return {generated::kRows, generated::kRowCount};
}

const Row* requestOf(uint8_t stream, Message message) {
    return exchange(stream, &Row::requestStream, message, 0);
}

const Row* answerOf(uint8_t stream, Message message) {
    return exchange(stream, &Row::answerStream, message, kAnswerBit);
}

const Row* pushOf(uint8_t stream, Message message) {
    return find([&](const Row& row) {
        return row.requestStream == 0 && row.answerStream == stream && begins(row, message, 0);
    });
}

std::string_view streamName(uint8_t stream) {
    return nameOf({generated::kStreams, generated::kStreamCount}, stream);
}

std::string_view resultName(uint8_t answerStream, uint8_t code) {
    return answerStream == kSensorAnswer ? nameOf({generated::kSensorResults, generated::kSensorResultCount}, code)
                                         : nameOf({generated::kResults, generated::kResultCount}, code);
}

std::optional<int> valueWidth(ValueKind kind, unsigned id) {
    const bool isSetting = kind == ValueKind::kSetting;
    const size_t count = isSetting ? generated::kSettingWidthCount : generated::kStatusWidthCount;
    if (id >= count) {
        return std::nullopt;
    }
    return isSetting ? generated::kSettingWidths[id] : generated::kStatusWidths[id];
}

}  // namespace kzprotocol
