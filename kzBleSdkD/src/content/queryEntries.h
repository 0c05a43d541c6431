// The entries of query answers and pushes, as bytes. Each layout is written here once, for the response classes and for
// the pushes that are packed straight from the model.
//
//   value            id, L, L value bytes
//   capability       per allowed option: id, L, the option as a number of the setting's width; no option: id, 0
//   ... with names   per allowed option: id, L, the option, the option's name without a length; no option: id, 0, 0
//
// An entry is written whole or not at all: every Append returns false, with the stream untouched, when the stream has
// no room for all of it. A value longer than its one-byte length can say is cut to 255 bytes, with a level-2 text.
// Nothing allocates but the names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FlexValue.h"
#include "settingsStatusMapping.h"

class MemoryStream;

constexpr size_t kMaxEntryValue = 255;  // what the length byte of an entry can say

bool AppendValueEntry(MemoryStream& stream, int id, const FlexValue& value);
bool AppendCapabilityEntry(MemoryStream& stream, int id, const SettingsStatusMapping::IdNums& capability);
// The names come from the loaded model; without one they are empty.
bool AppendCapabilityAndNamesEntry(MemoryStream& stream, int id, const SettingsStatusMapping::IdNums& capability);

// Adds the ids of the value or capability entries in `length` bytes at `entries` to `ids`, each run of one id once.
// Stops at the first entry that is not whole.
void CollectEntryIds(const unsigned char* entries, size_t length, std::vector<int>& ids);
