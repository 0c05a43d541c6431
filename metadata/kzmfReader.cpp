#include "kzmfReader.h"

#include <algorithm>
#include <bit>

namespace {

constexpr size_t kHeaderSize = 8;
constexpr int kDeepestContainer = 16;

uint64_t BigEndian(std::span<const uint8_t> bytes) {
    uint64_t value = 0;
    for (const uint8_t byte : bytes) {
        value = value << 8 | byte;
    }
    return value;
}

bool IsKey(std::string_view key) {
    return std::all_of(key.begin(), key.end(), [](char c) {
        return c == ' ' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    });
}

// Reads the records of one sequence; stops at the first that is not sound and says why in the document.
class SequenceReader {
  public:
    SequenceReader(std::span<const uint8_t> whole, KzmfDocument& document) : m_whole(whole), m_document(document) {}

    // The records between two offsets of the buffer. False when reading stopped.
    bool Read(size_t begin, size_t end, int level, std::vector<KzmfRecord>& out) {
        if (level > kDeepestContainer && end - begin >= kHeaderSize) {
            return Stop(begin, "containers are nested too deeply");
        }
        size_t at = begin;
        while (end - at >= kHeaderSize) {
            if (!ReadRecord(at, end, level, out)) {
                return false;
            }
        }
        const bool emptyRest = at == begin && end - at < 4;  // a sequence of 0 to 3 bytes holds no record
        return at == end || emptyRest || Stop(at, "bytes behind the last record");
    }

  private:
    bool ReadRecord(size_t& at, size_t end, int level, std::vector<KzmfRecord>& out) {
        const auto header = m_whole.subspan(at, kHeaderSize);
        KzmfRecord record;
        record.key.assign(header.begin(), header.begin() + 4);
        record.type = static_cast<char>(header[4]);
        record.structureSize = header[5];
        record.repeat = static_cast<uint32_t>(BigEndian(header.subspan(6, 2)));
        record.offset = at;
        if (!IsKey(record.key)) {
            return Stop(at, "the key is not four valid characters");
        }
        if (level == 0 && record.key != "DEVC") {
            return Stop(at, "a payload holds \"DEVC\" records only");
        }
        const size_t dataSize = size_t{record.structureSize} * record.repeat;
        const size_t paddedSize = (dataSize + 3) / 4 * 4;
        if (paddedSize > end - at - kHeaderSize) {
            return Stop(at, "the record runs past the end");
        }
        const size_t dataBegin = at + kHeaderSize;
        bool sound = true;
        if (record.IsContainer()) {
            sound = Read(dataBegin, dataBegin + dataSize, level + 1, record.children);
        } else {
            const auto data = m_whole.subspan(dataBegin, dataSize);
            record.data.assign(data.begin(), data.end());
        }
        out.push_back(std::move(record));
        at = dataBegin + paddedSize;
        return sound;
    }

    bool Stop(size_t offset, const char* reason) {
        m_document.error = reason;
        m_document.errorOffset = offset;
        return false;
    }

    std::span<const uint8_t> m_whole;
    KzmfDocument& m_document;
};

// ---------------------------------------------------------------- values

size_t ValueSize(char type) {
    switch (type) {
        case 'b':
        case 'B':
        case 'c':
        case 'u':
        case '1':
            return 1;
        case 's':
        case 'S':
        case '2':
            return 2;
        case '3':
            return 3;
        case 'l':
        case 'L':
        case 'h':
        case 'H':
        case 'f':
        case 'F':
        case 'q':
        case '4':
            return 4;
        case 'Q':
        case 'j':
        case 'J':
        case 'd':
        case '8':
            return 8;
        case 'G':
        case 'U':
            return 16;
        default:
            return 0;
    }
}

template <typename Signed>
KzmfValue SignedValue(uint64_t bits) {
    return int64_t{static_cast<Signed>(bits)};
}

KzmfValue DecodeValue(char type, std::span<const uint8_t> bytes) {
    switch (type) {
        case 'b':
            return SignedValue<int8_t>(BigEndian(bytes));
        case 's':
            return SignedValue<int16_t>(BigEndian(bytes));
        case 'l':
            return SignedValue<int32_t>(BigEndian(bytes));
        case 'j':
            return SignedValue<int64_t>(BigEndian(bytes));
        case 'B':
        case 'S':
        case 'L':
        case 'J':
        case 'h':
        case 'H':
            return BigEndian(bytes);
        case 'f':
            return double{std::bit_cast<float>(static_cast<uint32_t>(BigEndian(bytes)))};
        case 'd':
            return std::bit_cast<double>(BigEndian(bytes));
        case 'c':
        case 'u':
            return std::string(bytes.begin(), std::find(bytes.begin(), bytes.end(), uint8_t{0}));
        default:
            return std::vector<uint8_t>(bytes.begin(), bytes.end());
    }
}

bool IsText(char type) {
    return type == 'c' || type == 'u';
}

// Splits one sample into values, whose types `next` gives one after the other. Bytes that make no whole value become
// one raw value.
template <typename NextType>
std::vector<KzmfValue> DecodeSample(std::span<const uint8_t> sample, NextType next) {
    std::vector<KzmfValue> values;
    while (!sample.empty()) {
        const char type = next();
        const size_t size = ValueSize(type);
        if (size == 0 || size > sample.size()) {
            values.push_back(std::vector<uint8_t>(sample.begin(), sample.end()));
            break;
        }
        values.push_back(DecodeValue(type, sample.first(size)));
        sample = sample.subspan(size);
    }
    return values;
}

std::vector<KzmfValue> DecodeSample(char type, std::span<const uint8_t> sample, std::string_view typeText) {
    if (IsText(type)) {
        return {DecodeValue(type, sample)};
    }
    if (type == '?') {
        size_t field = 0;
        return DecodeSample(sample, [&] { return field < typeText.size() ? typeText[field++] : '\0'; });
    }
    return DecodeSample(sample, [=] { return type; });
}

}  // namespace

const KzmfRecord* KzmfRecord::Child(std::string_view childKey) const {
    const auto found =
        std::find_if(children.begin(), children.end(), [=](const KzmfRecord& child) { return child.key == childKey; });
    return found != children.end() ? &*found : nullptr;
}

KzmfDocument ReadKzmf(std::span<const uint8_t> buffer) {
    KzmfDocument document;
    SequenceReader(buffer, document).Read(0, buffer.size(), 0, document.devices);
    return document;
}

std::vector<std::vector<KzmfValue>> DecodeKzmfSamples(const KzmfRecord& record, std::string_view typeText) {
    std::vector<std::vector<KzmfValue>> samples;
    const std::span<const uint8_t> data(record.data);
    if (data.empty()) {
        return samples;
    }
    if (IsText(record.type) && record.structureSize == 1) {
        samples.push_back({DecodeValue(record.type, data)});
        return samples;
    }
    for (size_t at = 0; at + record.structureSize <= data.size(); at += record.structureSize) {
        samples.push_back(DecodeSample(record.type, data.subspan(at, record.structureSize), typeText));
    }
    return samples;
}

std::string KzmfTypeText(const KzmfRecord& stream) {
    const KzmfRecord* type = stream.Child("TYPE");
    if (type == nullptr) {
        return {};
    }
    return {type->data.begin(), std::find(type->data.begin(), type->data.end(), uint8_t{0})};
}

uint64_t KzmfNumber(const KzmfRecord& container, std::string_view key, uint64_t fallback) {
    const KzmfRecord* record = container.Child(key);
    if (record == nullptr) {
        return fallback;
    }
    const auto samples = DecodeKzmfSamples(*record, "");
    if (samples.empty() || samples.front().empty()) {
        return fallback;
    }
    const uint64_t* number = std::get_if<uint64_t>(&samples.front().front());
    return number != nullptr ? *number : fallback;
}
