// The text that an element of a TLV message holds.
#pragma once

#include <string_view>

#include "kzTlv.h"

// The data of `element` as text; empty when there is no element. It points into the message.
inline std::string_view ElementText(const unsigned char* element) {
    return element != nullptr ? std::string_view(reinterpret_cast<const char*>(tlv_data(element)), tlv_length(element))
                              : std::string_view();
}
