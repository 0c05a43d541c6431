#include "protocolTable.h"

#include <algorithm>
#include <cctype>

namespace kzprotocol {
namespace {

constexpr uint8_t kSensorAnswer = 19;
constexpr uint8_t kAnswerBit = 0x80;  // of the action in the answer to a protobuf request

std::string normalised(std::string_view name) {
    std::string text;
    for (const char c : name) {
        text += c == '_' || c == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// The number of characters to change, insert or leave out.
size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j < row.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

// How unlike a name is to what was typed: a name that begins so is the likeliest.
size_t unlikeness(const std::string& typed, const std::string& name) {
    return name.starts_with(typed) ? 0 : distance(typed, name);
}

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

std::vector<const Row*> named(std::string_view name) {
    std::vector<const Row*> found;
    for (const Row& row : rows()) {
        if (normalised(row.name) == normalised(name)) {
            found.push_back(&row);
        }
    }
    return found;
}

std::string nearestName(std::string_view name, const std::vector<std::string>& others) {
    std::vector<std::string> names = others;
    for (const Row& row : rows()) {
        names.emplace_back(row.name);
    }
    const std::string typed = normalised(name);
    const auto nearest = std::min_element(names.begin(), names.end(), [&](const auto& a, const auto& b) {
        return unlikeness(typed, normalised(a)) < unlikeness(typed, normalised(b));
    });
    // More than half of the characters wrong is another word.
    return typed.empty() || unlikeness(typed, normalised(*nearest)) * 2 > typed.size() ? std::string() : *nearest;
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
