// Recorded metadata as people and programs read it.
#include "kzmfDump.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "testStream.h"

namespace {

// Two streams of one device: counted samples, a complex record, hostile text, raw bytes.
std::vector<uint8_t> Recording() {
    const TestStream first(1025, "Strap, \"left\"");
    const TestStream second(1025, "Strap, \"left\"");
    first.Write(Sample("HRAT", 72));
    first.Write(Sample("HRAT", 73));
    second.Write(Text("TYPE", "sf", kKzmfSticky));
    second.Write({"CPLX", '?', 6, {0xFE, 0xFF, 0, 0, 0, 0x3F}});
    second.Write(Text("TEXT", "a\x1B[2J\\\xFF"));
    second.Write({"RAWB", '3', 3, {0xAB, 0, 1}});
    return TakePayload();
}

TEST(KzmfDump, TreeShowsEveryRecordWithItsValues) {
    std::ostringstream out;

    PrintKzmfTree(ReadKzmf(Recording()), out, 1);

    EXPECT_EQ(out.str(), R"(DEVC  144 bytes
  DVID  'L'  1 x 4  1025
  DVNM  'c'  13 x 1  "Strap, "left""
  STRM  24 bytes
    TSMP  'L'  1 x 4  2 samples
    HRAT  'S'  2 x 2  72, ... 1 more bpm
  STRM  68 bytes
    TSMP  'L'  1 x 4  9 samples
    TYPE  'c'  2 x 1  "sf"
    CPLX  '?'  1 x 6  -2 0.5
    TEXT  'c'  7 x 1  "a\x1B[2J\\\xFF"
    RAWB  '3'  1 x 3  AB0001
)");
}

TEST(KzmfDump, FilesArePrintedInTheFormAskedForAndTheirFaultsAreSaid) {
    const std::string path = testing::TempDir() + "kzmfDumpTest." + std::to_string(getpid());
    const auto dump = [&path](size_t missing, KzmfForm form, int result) {
        const std::vector<uint8_t> bytes = Recording();
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size() - missing));
        std::ostringstream out;
        std::ostringstream errors;
        EXPECT_EQ(DumpKzmfFile(path, form, out, errors), result);
        std::remove(path.c_str());
        return missing != 0 ? errors.str() : out.str();
    };

    EXPECT_EQ(dump(0, KzmfForm::kCsv, 0), R"(device,name,stream,key,unit,sample,value1,value2
1025,"Strap, ""left""",0,TSMP,samples,0,2,
1025,"Strap, ""left""",0,HRAT,bpm,0,72,
1025,"Strap, ""left""",0,HRAT,bpm,1,73,
1025,"Strap, ""left""",1,TSMP,samples,0,9,
1025,"Strap, ""left""",1,TYPE,,0,sf,
1025,"Strap, ""left""",1,CPLX,,0,-2,0.5
1025,"Strap, ""left""",1,TEXT,,0,a\x1B[2J\\\xFF,
1025,"Strap, ""left""",1,RAWB,,0,AB0001,
)");
    const auto json = nlohmann::ordered_json::parse(dump(0, KzmfForm::kJson, 0));
    EXPECT_EQ(json.at("records").at(0).at("records").at(2).at("records").at(1).dump(),
              R"({"key":"HRAT","type":"S","structureSize":2,"repeat":2,"unit":"bpm","samples":[72,73]})");
    EXPECT_EQ(dump(4, KzmfForm::kJson, 2), path + " is not sound KZMF at byte 0: the record runs past the end\n");
}

}  // namespace
