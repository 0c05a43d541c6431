#include "queryEntries.h"

#include <algorithm>
#include <string>

#include "MemStream.h"
#include "bleSDK.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "queryEntries.cpp";

constexpr size_t kEntryHeader = 2;  // id and length byte

// Bytes of an option on the wire; the widths of settings are none, one or four bytes.
unsigned OptionSize(eValueWidth width) {
    return static_cast<unsigned>(FlexValue(width, 0).GetDataLength());
}

void WriteByte(MemoryStream& stream, unsigned value) {
    stream << static_cast<unsigned char>(value);
}

// id, L and the low bytes of the option, most significant first.
void WriteOption(MemoryStream& stream, int id, int option, unsigned size) {
    WriteByte(stream, static_cast<unsigned>(id));
    WriteByte(stream, size);
    for (unsigned byte = size; byte-- > 0;) {
        WriteByte(stream, byte < sizeof(option) ? static_cast<unsigned>(option) >> (byte * 8) : 0);
    }
}

std::string OptionName(int id, int option) {
    const SettingsStatusMapping* model = BleSDK::LoadedMapping();
    if (model == nullptr) {
        return {};
    }
    std::string name = model->GetSettingName(std::to_string(id) + ":" + std::to_string(option));
    name.resize(std::min(name.size(), kMaxEntryValue));
    return name;
}

}  // namespace

bool AppendValueEntry(MemoryStream& stream, int id, const FlexValue& value) {
    size_t length = static_cast<size_t>(value.GetDataLength());
    if (length > kMaxEntryValue) {
        LOG_ERROR("Value of id:%d has %d bytes, sending the first %d", id, value.GetDataLength(),
                  static_cast<int>(kMaxEntryValue));
        length = kMaxEntryValue;
    }
    if (kEntryHeader + length > stream.getRemainder()) {
        return false;
    }
    const unsigned char header[kEntryHeader] = {static_cast<unsigned char>(id), static_cast<unsigned char>(length)};
    stream.writeArray(header, sizeof(header));
    stream.writeArray(value.GetDataPointer(), static_cast<unsigned short>(length));
    return true;
}

bool AppendCapabilityEntry(MemoryStream& stream, int id, const SettingsStatusMapping::IdNums& capability) {
    if (capability.numbers.empty()) {
        if (stream.getRemainder() < kEntryHeader) {
            return false;
        }
        WriteOption(stream, id, 0, 0);
        return true;
    }
    const unsigned size = OptionSize(capability.GetWidth());
    if (capability.numbers.size() > stream.getRemainder() / (kEntryHeader + size)) {
        return false;
    }
    for (int option : capability.numbers) {
        WriteOption(stream, id, option, size);
    }
    return true;
}

bool AppendCapabilityAndNamesEntry(MemoryStream& stream, int id, const SettingsStatusMapping::IdNums& capability) {
    const unsigned short start = stream.m_index;
    if (capability.numbers.empty()) {
        if (stream.getRemainder() < kEntryHeader + 1) {
            return false;
        }
        WriteOption(stream, id, 0, 0);
        WriteByte(stream, 0);
        return true;
    }
    const unsigned size = OptionSize(capability.GetWidth());
    for (int option : capability.numbers) {
        const std::string name = OptionName(id, option);
        if (kEntryHeader + size + name.size() > stream.getRemainder()) {
            stream.m_index = start;
            return false;
        }
        WriteOption(stream, id, option, size);
        stream.writeArray(name.data(), static_cast<unsigned short>(name.size()));
    }
    return true;
}

void CollectEntryIds(const unsigned char* entries, size_t length, std::vector<int>& ids) {
    while (length >= kEntryHeader && kEntryHeader + entries[1] <= length) {
        if (ids.empty() || ids.back() != entries[0]) {
            ids.push_back(entries[0]);
        }
        const size_t size = kEntryHeader + entries[1];
        entries += size;
        length -= size;
    }
}
