// Recorded metadata as people and programs read it.
#include "kzmfDump.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

#include "testStream.h"

namespace {

// Two streams of one device: counted samples, a complex record and hostile text.
std::vector<uint8_t> Recording() {
    const TestStream first(1025, "Strap, \"left\"");
    const TestStream second(1025, "Strap, \"left\"");
    first.WriteS("HRAT", 72);
    first.WriteS("HRAT", 73);
    second.WriteText("TYPE", "sf", kKzmfSticky);
    std::vector<uint8_t> sample(6);
    const int16_t number = -2;
    const float fraction = 0.5F;
    std::memcpy(sample.data(), &number, 2);
    std::memcpy(sample.data() + 2, &fraction, 4);
    second.Write("CPLX", '?', 6, 1, sample);
    second.WriteText("TEXT", "a\x1B[2J\\\xFF");
    second.Write("RAWB", '3', 3, 1, std::array<uint8_t, 3>{0xAB, 0, 1});
    return TakePayload();
}

std::string Tree(const std::vector<uint8_t>& bytes, size_t shown = 8) {
    std::ostringstream out;
    PrintKzmfTree(ReadKzmf(bytes), out, shown);
    return out.str();
}

class TemporaryFile {
  public:
    explicit TemporaryFile(const std::vector<uint8_t>& bytes)
        : m_path(std::filesystem::temp_directory_path() / ("kzmfDumpTest." + std::to_string(getpid()))) {
        std::ofstream(m_path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    ~TemporaryFile() { std::filesystem::remove(m_path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    std::string path() const { return m_path; }

  private:
    std::filesystem::path m_path;
};

TEST(KzmfDump, TreeShowsEveryRecordWithItsValues) {
    EXPECT_EQ(Tree(Recording()),
              "DEVC  144 bytes\n"
              "  DVID  'L'  1 x 4  1025\n"
              "  DVNM  'c'  13 x 1  \"Strap, \"left\"\"\n"
              "  STRM  24 bytes\n"
              "    TSMP  'L'  1 x 4  2 samples\n"
              "    HRAT  'S'  2 x 2  72, 73 bpm\n"
              "  STRM  68 bytes\n"
              "    TSMP  'L'  1 x 4  9 samples\n"
              "    TYPE  'c'  2 x 1  \"sf\"\n"
              "    CPLX  '?'  1 x 6  -2 0.5\n"
              "    TEXT  'c'  7 x 1  \"a\\x1B[2J\\\\\\xFF\"\n"
              "    RAWB  '3'  1 x 3  AB0001\n");
}

TEST(KzmfDump, TreeShortensLongRecordsAndShowsEmptyOnes) {
    const TestStream stream;
    for (uint16_t sample = 0; sample < 5; ++sample) {
        stream.WriteS("HRAT", sample);
    }

    EXPECT_NE(Tree(TakePayload(), 2).find("HRAT  'S'  5 x 2  0, 1, ... 3 more bpm\n"), std::string::npos);
    EXPECT_NE(Tree(TakePayload()).find("HRAT  'S'  0 x 2\n"), std::string::npos);
}

TEST(KzmfDump, JsonHoldsTheSameTree) {
    const auto json = KzmfAsJson(ReadKzmf(Recording()));

    const auto& device = json.at("records").at(0);
    EXPECT_EQ(device.at("key"), "DEVC");
    EXPECT_EQ(device.at("records").at(2).at("records").at(1).dump(),
              R"({"key":"HRAT","type":"S","structureSize":2,"repeat":2,"unit":"bpm","samples":[72,73]})");
    EXPECT_EQ(device.at("records").at(3).at("records").at(2).at("samples").dump(), "[[-2,0.5]]");
    EXPECT_FALSE(json.contains("error"));
    EXPECT_NO_THROW(json.dump());
}

TEST(KzmfDump, CsvHasOneRowASample) {
    std::ostringstream out;

    PrintKzmfCsv(ReadKzmf(Recording()), out);

    const std::string device = "1025,\"Strap, \"\"left\"\"\",";
    EXPECT_EQ(out.str(), "device,name,stream,key,unit,sample,value1,value2\n" + device + "0,TSMP,samples,0,2,\n" +
                             device + "0,HRAT,bpm,0,72,\n" + device + "0,HRAT,bpm,1,73,\n" + device +
                             "1,TSMP,samples,0,9,\n" + device + "1,TYPE,,0,sf,\n" + device + "1,CPLX,,0,-2,0.5\n" +
                             device + "1,TEXT,,0,a\\x1B[2J\\\\\\xFF,\n" + device + "1,RAWB,,0,AB0001,\n");
}

TEST(KzmfDump, FileIsPrintedAndItsFaultsAreSaid) {
    std::vector<uint8_t> bytes = Recording();
    std::ostringstream out;
    std::ostringstream errors;
    {
        const TemporaryFile whole(bytes);
        for (const KzmfForm form : {KzmfForm::kTree, KzmfForm::kJson, KzmfForm::kCsv}) {
            EXPECT_EQ(DumpKzmfFile(whole.path(), form, out, errors), 0);
        }
    }
    EXPECT_EQ(errors.str(), "");

    bytes.resize(bytes.size() - 4);
    const TemporaryFile cut(bytes);
    EXPECT_EQ(DumpKzmfFile(cut.path(), KzmfForm::kJson, out, errors), 2);
    EXPECT_EQ(errors.str(), cut.path() + " is not sound KZMF at byte 0: the record runs past the end\n");
    errors.str("");
    EXPECT_EQ(DumpKzmfFile("/nonexistent/file", KzmfForm::kTree, out, errors), 1);
    EXPECT_EQ(errors.str(), "cannot read /nonexistent/file: No such file or directory\n");
    EXPECT_EQ(DumpKzmfFile("/", KzmfForm::kTree, out, errors), 1);
}

TEST(KzmfDump, UnusualNumbersHaveAText) {
    const TestStream stream;
    for (const double value :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), -0.0, 1e300}) {
        MetadataStreamWrite(stream.handle(), Key("NUMB"), 'd', 8, 1, &value, 0, 0.0F);
    }
    const std::vector<uint8_t> payload = TakePayload();

    EXPECT_NE(Tree(payload).find("nan, inf, -0, 1e+300"), std::string::npos);
    EXPECT_NO_THROW(KzmfAsJson(ReadKzmf(payload)).dump());
}

}  // namespace
