// Parameters of the answer to a command. Inside the command interface only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "commandTable.h"

constexpr size_t kMaxParameter = 255;  // what a parameter's one-byte length can say

// Append one parameter. A text that is longer than a parameter can be is cut.
inline void AnswerByte(CommandCall& call, uint8_t value) {
    call.answer.m_params.emplace_back(eValueWidth1Byte, 1).SetValue(value);
}

inline void AnswerNumber(CommandCall& call, uint32_t value) {
    call.answer.m_params.emplace_back(eValueWidth4Bytes, 4).SetValue(value);
}

inline void AnswerText(CommandCall& call, std::string_view text) {
    text = text.substr(0, kMaxParameter);
    FlexValue& value = call.answer.m_params.emplace_back(eValueWidthString, static_cast<int>(text.size()));
    value.SetValue(reinterpret_cast<const uint8_t*>(text.data()));
}
