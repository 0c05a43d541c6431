#include "kzmfDump.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <ostream>
#include <sstream>
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

ordered_json RecordsJson(const std::vector<KzmfRecord>& records, const std::string& typeText) {
    ordered_json array = ordered_json::array();
    for (const KzmfRecord& record : records) {
        ordered_json json{{"key", record.key}};
        if (record.IsContainer()) {
            json["records"] = RecordsJson(record.children, KzmfTypeText(record));
        } else {
            json["type"] = Escaped(std::string(1, record.type));
            json["structureSize"] = record.structureSize;
            json["repeat"] = record.repeat;
            if (const std::string unit = KzmfUnit(record.key); !unit.empty()) {
                json["unit"] = unit;
            }
            json["samples"] = ordered_json::array();
            for (const auto& sample : DecodeKzmfSamples(record, typeText)) {
                json["samples"].push_back(SampleJson(sample));
            }
        }
        array.push_back(std::move(json));
    }
    return array;
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

std::string DeviceName(const KzmfRecord& device) {
    const KzmfRecord* name = device.Child("DVNM");
    if (name == nullptr || name->data.empty()) {
        return {};
    }
    return ValueText(DecodeKzmfSamples(*name, "").front().front());
}

// Calls `action(device, number of the stream, record, samples)` for every record of a stream.
template <typename Action>
void ForEachStreamRecord(const KzmfDocument& document, Action action) {
    for (const KzmfRecord& device : document.devices) {
        size_t number = 0;
        for (const KzmfRecord& stream : device.children) {
            if (stream.key != "STRM" || !stream.IsContainer()) {
                continue;
            }
            const std::string typeText = KzmfTypeText(stream);
            for (const KzmfRecord& record : stream.children) {
                action(device, number, record, DecodeKzmfSamples(record, typeText));
            }
            ++number;
        }
    }
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

ordered_json KzmfAsJson(const KzmfDocument& document) {
    ordered_json json{{"records", RecordsJson(document.devices, "")}};
    if (!document.error.empty()) {
        json["error"] = document.error;
        json["errorOffset"] = document.errorOffset;
    }
    return json;
}

void PrintKzmfCsv(const KzmfDocument& document, std::ostream& out) {
    size_t columns = 1;
    ForEachStreamRecord(document, [&](const auto&, size_t, const auto&, const Samples& samples) {
        for (const auto& sample : samples) {
            columns = std::max(columns, sample.size());
        }
    });
    out << "device,name,stream,key,unit,sample";
    for (size_t i = 1; i <= columns; ++i) {
        out << ",value" << i;
    }
    out << '\n';
    ForEachStreamRecord(document, [&](const KzmfRecord& device, size_t stream, const KzmfRecord& record,
                                      const Samples& samples) {
        const std::string front = std::to_string(KzmfNumber(device, "DVID", 0)) + ',' + CsvField(DeviceName(device)) +
                                  ',' + std::to_string(stream) + ',' + record.key + ',' + KzmfUnit(record.key) + ',';
        for (size_t i = 0; i < samples.size(); ++i) {
            out << front << i;
            for (size_t column = 0; column < columns; ++column) {
                out << ',' << (column < samples[i].size() ? CsvField(ValueText(samples[i][column])) : "");
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
            out << KzmfAsJson(document).dump(2) << '\n';
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
