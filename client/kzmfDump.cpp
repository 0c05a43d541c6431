#include "kzmfDump.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <sstream>
#include <tuple>
#include <utility>

namespace {

using nlohmann::ordered_json;
using Samples = std::vector<std::vector<KzmfValue>>;

constexpr std::pair<const char*, const char*> kUnits[] = {
    {"TSMP", "samples"},
    {"EMPT", "payloads"},
    {"TIMO", "s"},
    {"HRAT", "bpm"},
};

// ---------------------------------------------------------------- values as text

std::string HexByte(uint8_t byte) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    return {kDigits[byte >> 4], kDigits[byte & 15]};
}

std::string HexText(const std::vector<uint8_t>& bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += HexByte(byte);
    }
    return text;
}

// Printable ASCII stays, anything else becomes \xNN.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\') {
            escaped += "\\\\";
        } else if (c >= ' ' && c <= '~') {
            escaped += c;
        } else {
            escaped += "\\x" + HexByte(static_cast<uint8_t>(c));
        }
    }
    return escaped;
}

// The shortest text that reads back as the same number.
std::string NumberText(double value) {
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    return {digits.data(), end.ptr};
}

std::string ValueText(const KzmfValue& value) {
    struct Visitor {
        std::string operator()(int64_t number) const { return std::to_string(number); }
        std::string operator()(uint64_t number) const { return std::to_string(number); }
        std::string operator()(double number) const { return NumberText(number); }
        std::string operator()(const std::string& text) const { return Escaped(text); }
        std::string operator()(const std::vector<uint8_t>& bytes) const { return HexText(bytes); }
    };
    return std::visit(Visitor{}, value);
}

std::string TypeText(char type) {
    return "'" + Escaped(std::string(1, type)) + "'";
}

// ---------------------------------------------------------------- tree

std::string SampleText(const std::vector<KzmfValue>& sample) {
    std::string text;
    for (const KzmfValue& value : sample) {
        const bool quoted = std::holds_alternative<std::string>(value);
        text += text.empty() ? "" : " ";
        text += quoted ? "\"" + ValueText(value) + "\"" : ValueText(value);
    }
    return text;
}

std::string SamplesText(const Samples& samples, size_t shown) {
    std::string text;
    for (size_t i = 0; i < std::min(samples.size(), shown); ++i) {
        text += (i == 0 ? "" : ", ") + SampleText(samples[i]);
    }
    if (samples.size() > shown) {
        text += ", ... " + std::to_string(samples.size() - shown) + " more";
    }
    return text;
}

// `typeText` is that of the stream the records are in.
void PrintRecords(const std::vector<KzmfRecord>& records, const std::string& typeText, size_t depth, size_t shown,
                  std::ostream& out) {
    for (const KzmfRecord& record : records) {
        out << std::string(depth * 2, ' ') << record.key;
        if (record.IsContainer()) {
            out << "  " << size_t{record.structureSize} * record.repeat << " bytes\n";
            PrintRecords(record.children, KzmfTypeText(record), depth + 1, shown, out);
            continue;
        }
        out << "  " << TypeText(record.type) << "  " << record.repeat << " x " << record.structureSize;
        const std::string values = SamplesText(DecodeKzmfSamples(record, typeText), shown);
        const std::string unit = KzmfUnit(record.key);
        if (!values.empty()) {
            out << "  " << values << (unit.empty() ? "" : " ") << unit;
        }
        out << '\n';
    }
}

// ---------------------------------------------------------------- JSON

ordered_json ValueJson(const KzmfValue& value) {
    struct Visitor {
        ordered_json operator()(const std::vector<uint8_t>& bytes) const { return HexText(bytes); }
        ordered_json operator()(const std::string& text) const { return Escaped(text); }
        ordered_json operator()(int64_t number) const { return number; }
        ordered_json operator()(uint64_t number) const { return number; }
        ordered_json operator()(double number) const { return number; }
    };
    return std::visit(Visitor{}, value);
}

ordered_json SampleJson(const std::vector<KzmfValue>& sample) {
    if (sample.size() == 1) {
        return ValueJson(sample.front());
    }
    ordered_json values = ordered_json::array();
    for (const KzmfValue& value : sample) {
        values.push_back(ValueJson(value));
    }
    return values;
}

// ---------------------------------------------------------------- streams

std::string DeviceName(const KzmfRecord& device) {
    const KzmfRecord* name = device.Child("DVNM");
    if (name == nullptr || name->data.empty()) {
        return {};
    }
    return ValueText(DecodeKzmfSamples(*name, "").front().front());
}

// What the stream says under `key` about the samples of a record, if it says something.
std::optional<KzmfValue> SaidInStream(const KzmfRecord& stream, const KzmfRecord& record, const char* key) {
    const bool isAboutOthers = record.key == "UNIT" || record.key == "SCAL" || record.key == "EMPT";
    const KzmfRecord* about = stream.Child(key);
    if (isAboutOthers || about == nullptr || about->data.empty()) {
        return std::nullopt;
    }
    return DecodeKzmfSamples(*about, "").front().front();
}

std::string UnitInStream(const KzmfRecord& stream, const KzmfRecord& record) {
    const std::string known = KzmfUnit(record.key);
    const auto unit = known.empty() ? SaidInStream(stream, record, "UNIT") : std::nullopt;
    return unit ? ValueText(*unit) : known;
}

// A record of a stream, with its place in the whole recording.
struct StreamRecord {
    uint64_t device;
    std::string name;
    size_t stream;  // number in its device
    const KzmfRecord& record;
    std::string unit;
    KzmfValue scale;  // samples are stored multiplied by it
    size_t index;     // of the first sample among all of this key in this stream
    size_t payload;   // how many payloads of this device came before
    Samples samples;

    // Seconds since the device's first payload: one payload is handed over a second, with the samples of that second.
    double TimeOf(size_t sample) const {
        const double place = static_cast<double>(sample) / static_cast<double>(samples.size());
        return static_cast<double>(payload) + std::round(place * 1000) / 1000;
    }
};

template <typename Action>
void ForEachStreamRecord(const KzmfDocument& document, Action action) {
    std::map<uint64_t, size_t> payloads;                                       // by device
    std::map<std::tuple<uint64_t, size_t, std::string>, size_t> samplesSoFar;  // by device, stream and key
    for (const KzmfRecord& device : document.devices) {
        const uint64_t id = KzmfNumber(device, "DVID", 0);
        const size_t payload = payloads[id]++;
        size_t number = 0;
        for (const KzmfRecord& stream : device.children) {
            if (stream.key != "STRM" || !stream.IsContainer()) {
                continue;
            }
            const std::string typeText = KzmfTypeText(stream);
            for (const KzmfRecord& record : stream.children) {
                size_t& soFar = samplesSoFar[{id, number, record.key}];
                Samples samples = DecodeKzmfSamples(record, typeText);
                const size_t index = std::exchange(soFar, soFar + samples.size());
                action(StreamRecord{id, DeviceName(device), number, record, UnitInStream(stream, record),
                                    SaidInStream(stream, record, "SCAL").value_or(int64_t{1}), index, payload,
                                    std::move(samples)});
            }
            ++number;
        }
    }
}

// ---------------------------------------------------------------- CSV

std::string CsvField(const std::string& text) {
    if (text.find_first_of("\",") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

}  // namespace

std::string KzmfUnit(const std::string& key) {
    for (const auto& [known, unit] : kUnits) {
        if (key == known) {
            return unit;
        }
    }
    return {};
}

void PrintKzmfTree(const KzmfDocument& document, std::ostream& out, size_t samplesShown) {
    PrintRecords(document.devices, "", 0, samplesShown, out);
}

void PrintKzmfJson(const KzmfDocument& document, std::ostream& out) {
    ForEachStreamRecord(document, [&](const StreamRecord& row) {
        ordered_json json{{"device", row.device},
                          {"name", row.name},
                          {"stream", row.stream},
                          {"key", row.record.key},
                          {"type", Escaped(std::string(1, row.record.type))},
                          {"unit", row.unit},
                          {"scale", ValueJson(row.scale)},
                          {"index", row.index},
                          {"time", row.payload},
                          {"samples", ordered_json::array()}};
        for (const auto& sample : row.samples) {
            json["samples"].push_back(SampleJson(sample));
        }
        out << json.dump() << '\n';
    });
}

void PrintKzmfCsv(const KzmfDocument& document, std::ostream& out) {
    size_t columns = 1;
    ForEachStreamRecord(document, [&](const StreamRecord& row) {
        for (const auto& sample : row.samples) {
            columns = std::max(columns, sample.size());
        }
    });
    out << "device,name,stream,key,unit,scale,index,time";
    for (size_t i = 1; i <= columns; ++i) {
        out << ",value" << i;
    }
    out << '\n';
    ForEachStreamRecord(document, [&](const StreamRecord& row) {
        const std::string front = std::to_string(row.device) + ',' + CsvField(row.name) + ',' +
                                  std::to_string(row.stream) + ',' + row.record.key + ',' + CsvField(row.unit) + ',' +
                                  ValueText(row.scale) + ',';
        for (size_t i = 0; i < row.samples.size(); ++i) {
            out << front << row.index + i << ',' << NumberText(row.TimeOf(i));
            for (size_t column = 0; column < columns; ++column) {
                out << ',' << (column < row.samples[i].size() ? CsvField(ValueText(row.samples[i][column])) : "");
            }
            out << '\n';
        }
    });
}

int DumpKzmfFile(const std::string& path, KzmfForm form, std::ostream& out, std::ostream& errors) {
    std::ifstream file(path, std::ios::binary);
    file.peek();  // an empty file is at its end; a directory is bad
    if (!file.is_open() || file.bad()) {
        errors << "cannot read " << path << ": " << std::strerror(errno) << '\n';
        return 1;
    }
    std::ostringstream content;
    content << file.rdbuf();
    const std::string_view bytes = content.view();
    const KzmfDocument document = ReadKzmf({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    switch (form) {
        case KzmfForm::kTree:
            PrintKzmfTree(document, out);
            break;
        case KzmfForm::kJson:
            PrintKzmfJson(document, out);
            break;
        case KzmfForm::kCsv:
            PrintKzmfCsv(document, out);
            break;
    }
    if (document.error.empty()) {
        return 0;
    }
    errors << path << " is not sound KZMF at byte " << document.errorOffset << ": " << document.error << '\n';
    return 2;
}
