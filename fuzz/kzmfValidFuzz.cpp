// IsValidKZMF and the reader: any bytes are judged without harm, and both judge alike.
#include "fuzz.h"
#include "kzmfFormat.h"
#include "kzmfReader.h"

namespace {

void DecodeAll(const std::vector<KzmfRecord>& records, const std::string& typeText) {
    for (const KzmfRecord& record : records) {
        Require(record.data.size() == (record.IsContainer() ? 0 : size_t{record.structureSize} * record.repeat));
        Require(DecodeKzmfSamples(record, typeText).size() <= record.data.size());
        DecodeAll(record.children, KzmfTypeText(record));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto length = static_cast<uint32_t>(size);
    const KzmfDocument document = ReadKzmf({data, size});
    const bool valid = MetadataIsValidKZMF(data, length, true);

    Require(valid == document.error.empty());
    Require(!valid || MetadataIsValidKZMF(data, length, false));
    IsValidKZMF(data, length, true, 3);
    DecodeAll(document.devices, "");
    return 0;
}
