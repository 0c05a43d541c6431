// The entries of query answers and pushes, as bytes. Each layout is written here once, for the response classes and for
// the pushes that are packed straight from the model.
//
//   value            id, L, L value bytes
//   capability       per allowed option: id, L, the option as a number of the setting's width; no option: id, 0
//   ... with names   per allowed option: id, L, the option, the option's name without a length; no option: id, 0, 0
//
// An entry is written whole or not at all: every Append function returns false and leaves the stream as it is when
// there is no room for all of it. A value of more than 255 bytes, which its length byte could not announce, is cut to
// them and logged at level 2. Only the names allocate memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FlexValue.h"
#include "settingsStatusMapping.h"

class MemoryStream;

constexpr size_t kMaxEntryValue = 255;  // bytes of the longest value that an entry's length byte can announce

bool AppendValueEntry(MemoryStream& stream, int id, const FlexValue& value);
bool AppendCapabilityEntry(MemoryStream& stream, int id, const SettingsStatusMapping::IdNums& capability);
// The names come from the loaded model; while none is loaded they are empty.
bool AppendCapabilityAndNamesEntry(MemoryStream& stream, int id, const SettingsStatusMapping::IdNums& capability);

// Appends to `ids` the ids of the value or capability entries in the `length` bytes at `entries`. Consecutive entries
// of one id add it once. Reading ends at the first entry that is not whole.
void CollectEntryIds(const unsigned char* entries, size_t length, std::vector<int>& ids);
