#include "packedSetting.h"

#include <algorithm>
#include <cstring>

PackedSetting::PackedSetting(const char* settingName, std::vector<Option> options) : m_name(settingName) {
    // std::unique keeps the first of several options with one id, so the last must come first.
    std::reverse(options.begin(), options.end());
    std::stable_sort(options.begin(), options.end(), [](const Option& a, const Option& b) { return a.id < b.id; });
    const auto end =
        std::unique(options.begin(), options.end(), [](const Option& a, const Option& b) { return a.id == b.id; });
    m_options.assign(options.begin(), end);

    size_t namesSize = 0;
    for (const Option& option : m_options) {
        namesSize += std::strlen(option.name) + 1;
    }
    m_optionNames = std::make_unique<char[]>(namesSize);
    char* at = m_optionNames.get();
    for (Option& option : m_options) {
        const size_t size = std::strlen(option.name) + 1;
        option.name = static_cast<const char*>(std::memcpy(at, option.name, size));
        at += size;
    }
}
