// The hand-over to the metadata service: when it happens, what each record holds, and that no sample is lost under
// load.
#include <map>
#include <random>

#include "accessory.h"
#include "cameraFakes.h"
#include "kzBleServer.h"
#include "kzmfReader.h"

namespace {

using Texts = std::vector<std::string>;

class MetadataHandOver : public testing::Test {
  protected:
    MetadataHandOver() { fakes::Reset(); }
    ~MetadataHandOver() override { KzBleServer::Destroy(); }

    // Counts in what was sent since the last call: whole payloads of the size that the service takes.
    void Receive() {
        for (const fakes::Call& call : fakes::Calls("kzIpcSend")) {
            const KzmfDocument document = ReadKzmf(std::span(call.argument).subspan(4));
            EXPECT_EQ(document.error, "");
            EXPECT_LE(call.argument.size(), 4u + 1400u);
            ++records;
            for (const KzmfRecord& device : document.devices) {
                for (const KzmfRecord& stream : device.children) {
                    for (const KzmfRecord& record : stream.children) {
                        samples[record.key] += record.repeat;
                    }
                }
            }
        }
        fakes::ForgetCalls();
    }

    KzBleServer& server = *KzBleServer::GetInstance();
    size_t records = 0;
    std::map<std::string, uint64_t> samples;  // by key
};

// ---------------------------------------------------------------- records

// The process-wide numbers are checked first, before another test takes some.
TEST_F(MetadataHandOver, RecordIsASequenceNumberFrom49To64AndOnFrom48BeforeThePayload) {
    const TestStream stream;
    stream.Write(Sample("HRAT", 72));
    const fakes::LogCapture log(5);

    server.writeSession();

    const auto calls = fakes::Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0], (fakes::Call{"kzIpcInit", 0, fakes::BytesOf("metadata")}));
    EXPECT_EQ(Hex(std::span(calls[1].argument).first(4)), "31000000");
    EXPECT_EQ(Records(std::span(calls[1].argument).subspan(4)),
              "DEVC:1x56{DVID:L4x1:00000401 DVNM:c1x3:48524D00 STRM:1x24{TSMP:L4x1:00000001 HRAT:S2x1:00480000}}");
    EXPECT_EQ(calls[2].operation, "kzIpcDestroy");
    EXPECT_EQ(log.Texts(), Texts{"IPC size = 64"});
    for (int i = 0; i < 16; ++i) {
        server.writeSession();
    }
    const auto sent = fakes::Calls("kzIpcSend");
    EXPECT_EQ(Hex(std::span(sent.at(15).argument).first(4)), "40000000");
    EXPECT_EQ(Hex(std::span(sent.at(16).argument).first(4)), "30000000");
}

TEST_F(MetadataHandOver, NothingIsSentWithoutContent) {
    const TestStream silent;
    const fakes::LogCapture log(5);

    server.writeSession();
    server.HandOverMetadata();

    EXPECT_EQ(fakes::Calls().size(), 0u);
    EXPECT_EQ(log.Texts(), Texts{"IPC size = 0"});
}

TEST_F(MetadataHandOver, FailuresOfTheServiceAreLogged) {
    const TestStream stream;
    stream.Write(Sample("HRAT", 72));
    const fakes::LogCapture log(2);

    fakes::SetIpcResults(-5, 0, 0);
    server.writeSession();
    EXPECT_EQ(fakes::Calls().size(), 1u);
    fakes::SetIpcResults(0, -1, 0);
    server.writeSession();

    EXPECT_EQ(fakes::Calls("kzIpcDestroy").size(), 1u);
    EXPECT_EQ(log.Texts(), (Texts{"IPC Failed to Init IPC -5", "IPC Failed to send IPC data"}));
}

TEST_F(MetadataHandOver, StreamTooLongForARecordIsLoggedAndTheOthersAreSent) {
    const TestStream tooLong;
    const TestStream longerThanTheBuffer(1026, "HRM", 9000);
    const TestStream small(1027);
    tooLong.Write({"DATA", 'B', 1, Counting(1200)});
    tooLong.Write({"MORE", 'B', 1, Counting(200)});
    longerThanTheBuffer.Write({"DATA", 'B', 1, Counting(4000)});
    small.Write(Sample("HRAT", 72));
    const fakes::LogCapture log(2);

    server.writeSession();

    Receive();
    EXPECT_EQ(records, 1u);
    EXPECT_EQ(log.Texts(), (Texts{"IPC write size exceeded", "IPC write size exceeded"}));
}

// ---------------------------------------------------------------- when

TEST_F(MetadataHandOver, HappensOnEverySecondTickWhileAStreamIsOpen) {
    {
        const TestStream stream;
        stream.Write(Sample("HRAT", 72));
        for (uint32_t tick = 1; tick <= 6; ++tick) {
            server.HandOverMetadataOnTick(tick);
            Receive();
            EXPECT_EQ(records, tick / 2);
        }
    }
    const fakes::LogCapture log(5);
    server.HandOverMetadataOnTick(8);
    EXPECT_EQ(log.Texts(), Texts{});
}

TEST_F(MetadataHandOver, BeforeAClientGoesSendsTheUnsentSamplesAlone) {
    const TestStream idle(1025);
    const TestStream leaving(1026);
    idle.Write(Sample("IDLE", 1));
    server.writeSession();
    fakes::ForgetCalls();
    leaving.Write(Sample("LEFT", 2));

    server.HandOverMetadata();

    Receive();
    EXPECT_EQ(records, 1u);
    EXPECT_EQ(samples.count("IDLE"), 0u);
    EXPECT_EQ(samples["LEFT"], 1u);
}

// ---------------------------------------------------------------- load

// An accessory with the longest name, three streams and one key of the longest samples in each.
std::unique_ptr<Accessory> BusyAccessory(uint8_t id) {
    auto accessory = std::make_unique<Accessory>(id);
    EXPECT_EQ(accessory->Answer(RegisterDevice(3, "SensorWithLongNam")), "0200");
    for (uint8_t stream = 0; stream < 3; ++stream) {
        EXPECT_EQ(accessory->Answer(RegisterKey("KEY" + std::to_string(stream), stream, stream, 'B', 35)), "0300");
    }
    return accessory;
}

TEST_F(MetadataHandOver, HappensAtOnceNearTheLimitOfARecord) {
    const auto accessory = BusyAccessory(1);
    uint64_t written = 0;

    for (; records == 0 && written < 100; ++written) {
        accessory->Answer(WriteSample(0, 35));
        Receive();
    }

    EXPECT_EQ(samples["KEY0"], written);
    EXPECT_GT(written * 35, 1400u * 2 / 3);
}

TEST_F(MetadataHandOver, SixtyBusyStreamsFlowInWholeRecordsWithoutALostSample) {
    const fakes::LogCapture log(3);
    std::vector<std::unique_ptr<Accessory>> accessories;
    for (uint8_t id = 1; id <= 20; ++id) {
        accessories.push_back(BusyAccessory(id));
    }
    std::mt19937 random(42);
    std::map<std::string, uint64_t> written;

    for (uint32_t tick = 1; tick <= 40; ++tick) {
        for (int i = 0; i < 200; ++i) {
            const auto stream = static_cast<uint8_t>(random() % 3);
            // some are far busier than others
            accessories[std::min(random() % 20, random() % 20)]->Answer(WriteSample(stream, 35));
            ++written["KEY" + std::to_string(stream)];
        }
        server.HandOverMetadataOnTick(tick);
        Receive();
    }

    for (const auto& [key, count] : written) {
        EXPECT_EQ(samples[key], count) << key;
    }
    EXPECT_EQ(log.Texts(), Texts{});
    EXPECT_LT(records, 8000u / 8);  // samples share records
}

}  // namespace
