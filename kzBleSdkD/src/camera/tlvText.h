// The text that an element of a TLV message holds.
#pragma once

#include <string_view>

#include "kzTlv.h"

// The data of `element` as text; empty when there is no element. It points into the message. A sender may count one
// terminating zero, which is no part of the text.
inline std::string_view TextOf(const unsigned char* element) {
    if (element == nullptr) {
        return {};
    }
    std::string_view text(reinterpret_cast<const char*>(tlv_data(element)), tlv_length(element));
    if (text.ends_with('\0')) {
        text.remove_suffix(1);
    }
    return text;
}
