// Reads JSON text that cJSON has accepted, so it follows cJSON's grammar, which is a little wider than the standard's:
// every character from 1 to the blank separates.
#include "jsonText.h"

#include <cjson/cJSON.h>

#include <array>
#include <cstring>

namespace {

constexpr int kMaxPrintedJson = 2048;  // far more than a log line holds

bool IsSeparating(char c) {
    return c != '\0' && static_cast<unsigned char>(c) <= ' ';
}

const char* SkipBlanks(const char* text) {
    while (IsSeparating(*text)) {
        ++text;
    }
    return text;
}

// `text` is at an opening quote. Returns the character behind the closing one.
const char* SkipString(const char* text) {
    for (++text; *text != '"' && *text != '\0'; ++text) {
        if (*text == '\\' && text[1] != '\0') {
            ++text;
        }
    }
    return *text == '"' ? text + 1 : text;
}

// `text` is at the first character of a value. Returns the comma or the closing brace behind the value, whatever is
// nested in it.
const char* SkipValue(const char* text) {
    int depth = 0;
    while (*text != '\0') {
        switch (*text) {
            case '"':
                text = SkipString(text);
                continue;
            case '{':
            case '[':
                ++depth;
                break;
            case '}':
            case ']':
                if (depth == 0) {
                    return text;
                }
                --depth;
                break;
            case ',':
                if (depth == 0) {
                    return text;
                }
                break;
            default:
                break;
        }
        ++text;
    }
    return text;
}

// `text` is behind a brace or a comma. Returns the first character of the value of the member that follows.
const char* SkipName(const char* text) {
    text = SkipBlanks(SkipString(SkipBlanks(text)));
    return *text == ':' ? SkipBlanks(text + 1) : text;
}

bool HasExponent(const char* json, char letter) {
    for (const char* at = std::strchr(json, letter); at != nullptr; at = std::strchr(at + 1, letter)) {
        if (at != json && ((at[-1] >= '0' && at[-1] <= '9') || at[-1] == '.')) {
            return true;
        }
    }
    return false;
}

}  // namespace

void JsonTreeDeleter::operator()(cJSON* root) const {
    cJSON_Delete(root);
}

std::string PrintJson(const cJSON* item) {
    // An item that is too long is printed as far as it fits. The printer may need a few bytes more than it is given.
    std::array<char, kMaxPrintedJson + 16> text{};
    cJSON_PrintPreallocated(const_cast<cJSON*>(item), text.data(), kMaxPrintedJson, true);
    return text.data();
}

bool HasFractionOrExponent(const char* json) {
    return std::strchr(json, '.') != nullptr || HasExponent(json, 'e') || HasExponent(json, 'E');
}

ObjectText::ObjectText(const char* json, const cJSON* object) : m_member(object->child) {
    constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
    if (std::strncmp(json, kByteOrderMark, sizeof(kByteOrderMark) - 1) == 0) {
        json += sizeof(kByteOrderMark) - 1;
    }
    json = SkipBlanks(json);
    m_text = *json == '{' ? json + 1 : json;
}

const char* ObjectText::ValueOf(const cJSON* member) {
    while (m_member != member && m_member != nullptr) {
        const char* behind = SkipValue(SkipName(m_text));
        m_text = *behind == ',' ? behind + 1 : behind;
        m_member = m_member->next;
    }
    return SkipName(m_text);
}
