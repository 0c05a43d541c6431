// String helpers, the id of a memory card, and the readers of JSON members.
#include <cjson/cJSON.h>
#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "fileCloser.h"
#include "utils.h"

namespace {

constexpr const char* kInternalStorage = "/tmp/fuse_i/MISC/";
constexpr const char* kCardStorage = "/tmp/fuse_d/MISC/";
constexpr const char* kMessagesPath = "/tmp/fuse_d/messages.txt";
constexpr int kInternalStorageId = 1;
constexpr int kCardIdLength = 30;  // characters read of a stored id
constexpr size_t kCardIdSize = 32;
constexpr int kRandomTries = 10;

// The value of a hexadecimal digit, or -1.
int hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    return -1;
}

int clampToInt(long value) {
    return static_cast<int>(std::clamp(value, static_cast<long>(INT_MIN), static_cast<long>(INT_MAX)));
}

bool makeCardFolder(const char* folder) {
    struct stat status = {};
    const bool exists = stat(folder, &status) == 0;
    if ((exists && S_ISDIR(status.st_mode)) || (!exists && mkdir(folder, 0777) == 0)) {
        return true;
    }
    // The path ends with a slash, so stat fails when a file has this name, and only mkdir says that the name is taken.
    if (exists || errno == EEXIST) {
        std::fprintf(stderr, "Path:%s exists and is a NOT folder\n", folder);
    } else {
        std::fprintf(stderr, "Failed to create folder:%s\n", folder);
    }
    return false;
}

// Reads a stored id that is a number into `buffer`.
bool readCardId(const char* path, char* buffer) {
    const FileHandle file{std::fopen(path, "r")};
    if (!file) {
        return false;
    }
    const size_t length = std::fread(buffer, 1, kCardIdLength, file.get());
    buffer[length] = '\0';
    return length > 0 && validateCardID(buffer, static_cast<int>(length));
}

// A random number between 1 and INT_MAX; 0 when all tries gave 0.
int nonZeroRandom() {
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    for (int i = 0; i < kRandomTries; ++i) {
        if (const int value = std::rand(); value != 0) {
            return value;
        }
    }
    return 0;
}

bool writeCardId(const char* path, const char* id) {
    FileHandle file{std::fopen(path, "w")};
    if (!file) {
        std::fprintf(stderr, "Failed to create file  %s\n", path);
        return false;
    }
    const bool written = std::fputs(id, file.get()) >= 0;
    // A full card may show only when the file is closed.
    if (std::fclose(file.release()) != 0 || !written) {
        std::fprintf(stderr, "Failed to get write card_id to file\n");
        std::remove(path);  // a part of the id is a number too and would be taken for a whole one
        return false;
    }
    return true;
}

bool makeCardId(const char* path, char* buffer) {
    const long long random = nonZeroRandom();
    if (random == 0) {
        std::fprintf(stderr, "Failed to get random number\n");
        return false;
    }
    std::snprintf(buffer, kCardIdSize, "%lld", random * random - 1);
    return writeCardId(path, buffer);
}

}  // namespace

char* trim(char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    char* first = text + std::strspn(text, " \t");
    return *first != '\0' ? first : nullptr;
}

void unescapeUrl(char* text, int* length) {
    if (text == nullptr || length == nullptr) {
        std::fprintf(stderr, "Cannot escape url, pointer is null\n");
        return;
    }
    int decoded = 0;
    for (int i = 0; i < *length; ++i) {
        char character = text[i];
        if (character == '%') {
            if (*length - i < 3) {
                break;
            }
            const int high = hexDigit(text[i + 1]);
            const int low = hexDigit(text[i + 2]);
            if (high >= 0 && low >= 0) {
                character = static_cast<char>(high << 4 | low);
                i += 2;
            }
        }
        text[decoded++] = character;
    }
    text[decoded] = '\0';
    *length = decoded;
}

bool validateCardID(const char* text, int length) {
    if (text == nullptr) {
        return false;
    }
    for (int i = 0; i < length && text[i] != '\0'; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
    }
    return true;
}

int getCardIDStr(char* buffer) {
    return getCardIDStrFromCard(buffer, 0);
}

int getCardIDStrFromCard(char* buffer, int which) {
    if (buffer == nullptr) {
        std::fprintf(stderr, "Cannot call with null pointer\n");
        return -1;
    }
    const char* folder = which == kInternalStorageId ? kInternalStorage : kCardStorage;
    const std::string path = std::string(folder) + "card";
    if (makeCardFolder(folder)) {
        if (readCardId(path.c_str(), buffer)) {
            return 0;
        }
        std::remove(path.c_str());
        if (makeCardId(path.c_str(), buffer)) {
            return 0;
        }
    }
    buffer[0] = '0';
    buffer[1] = '\0';
    return -1;
}

bool messages_txt_exists() {
    struct stat status = {};
    return stat(kMessagesPath, &status) == 0;
}

namespace Utils {

int cjson_parse_int(const cJSON* object, const char* key, int* out, int required) {
    if (object == nullptr || key == nullptr || out == nullptr) {
        return KZ_ERR_INVALID_PARAM;
    }
    const cJSON* member = cJSON_GetObjectItem(object, key);
    if (member == nullptr || cJSON_IsNull(member)) {
        return required != 0 ? KZ_ERR : KZ_OK;
    }
    if (cJSON_IsNumber(member)) {
        *out = member->valueint;  // cJSON brings numbers beyond int to the nearest int
        return KZ_OK;
    }
    if (cJSON_IsBool(member)) {
        *out = cJSON_IsTrue(member) ? 1 : 0;
        return KZ_OK;
    }
    if (cJSON_IsString(member)) {
        char* end = nullptr;
        *out = clampToInt(std::strtol(member->valuestring, &end, 10));
        return *end == '\0' ? KZ_OK : KZ_ERR;
    }
    return KZ_ERR;
}

int cjson_parse_string(const cJSON* object, const char* key, const char** out, int required) {
    if (object == nullptr || key == nullptr || out == nullptr) {
        return KZ_ERR_INVALID_PARAM;
    }
    const cJSON* member = cJSON_GetObjectItem(object, key);
    if (member == nullptr) {
        return required != 0 ? KZ_ERR : KZ_OK;
    }
    if (cJSON_IsNull(member)) {
        *out = nullptr;
        return KZ_OK;
    }
    if (cJSON_IsString(member)) {
        *out = member->valuestring;
        return KZ_OK;
    }
    return KZ_ERR;
}

}  // namespace Utils
