// Recorded KZMF metadata in readable forms: a tree for people, JSON with one line a record, and CSV with one row a
// sample.
//
// What comes from a file is not trusted: characters that a terminal might obey are shown as escapes. A buffer that is
// not sound is shown as far as it could be read. The functions do not throw, except for what the stream throws.
#pragma once

#include <iosfwd>
#include <string>

#include "kzmfReader.h"

enum class KzmfForm { kTree, kJson, kCsv };

// One line a record: key, type, samples x structure size, values with the unit of known keys. At most `samplesShown`
// samples.
void PrintKzmfTree(const KzmfDocument& document, std::ostream& out, size_t samplesShown = 8);

// One line a record of a stream, as one object: "device", "name", "stream", "key", "type", "unit", "scale", "index",
// "time" (of the first sample, see below), "samples". A sample of one value is that value, any other an array; raw
// bytes are hexadecimal text.
void PrintKzmfJson(const KzmfDocument& document, std::ostream& out);

// A header row, then one row a sample of every stream record: device id, device name, number of the stream in its
// device, key, unit, scale (values are stored multiplied by it), number of the sample among all of its stream and key,
// seconds since the device's first payload, values. Recorded payloads bear no time: one is taken to hold a second,
// which its samples share evenly. Rows have as many columns as the widest sample needs.
void PrintKzmfCsv(const KzmfDocument& document, std::ostream& out);

// The unit of a known key's values; empty for any other.
std::string KzmfUnit(const std::string& key);

// Reads a file of payloads and prints it. 0; 1 when the file cannot be read; 2 when it is not sound (its readable part
// is printed). What went wrong is said on `errors`.
int DumpKzmfFile(const std::string& path, KzmfForm form, std::ostream& out, std::ostream& errors);
