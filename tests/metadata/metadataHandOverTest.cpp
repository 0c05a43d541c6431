// The hand-over to the metadata service: when it happens, what each record holds, and that no sample is lost under
// load.
#include <map>

#include "accessory.h"
#include "cameraFakes.h"
#include "kzmfReader.h"

namespace {

class MetadataHandOver : public testing::Test {
  protected:
    MetadataHandOver() { fakes::Reset(); }

    // Counts in what was sent since the last call: whole payloads of the size that the service takes.
    void Receive() {
        for (const fakes::Call& call : fakes::Calls("ipc-send")) {
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

    TestServices services;
    SensorHandOver& handOver = services.sensorHandOver;
    size_t records = 0;
    std::map<std::string, uint64_t> samples;  // by key
};

// ---------------------------------------------------------------- records

TEST_F(MetadataHandOver, RecordIsASequenceNumberFrom49To64AndOnFrom48BeforeThePayload) {
    const TestStream stream;
    stream.Write(Sample("HRAT", 72));
    const fakes::LogCapture log(5);

    handOver.writeSession();

    const auto calls = fakes::Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0], (fakes::Call{"ipc-init", 0, fakes::BytesOf("metadata")}));
    EXPECT_EQ(Hex(std::span(calls[1].argument).first(4)), "31000000");
    EXPECT_EQ(Records(std::span(calls[1].argument).subspan(4)),
              "DEVC:1x56{DVID:L4x1:00000401 DVNM:c1x3:48524D00 STRM:1x24{TSMP:L4x1:00000001 HRAT:S2x1:00480000}}");
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"IPC size = 64"});
    for (int i = 0; i < 16; ++i) {
        handOver.writeSession();
    }
    const auto sent = fakes::Calls("ipc-send");
    EXPECT_EQ(Hex(std::span(sent.at(15).argument).first(4)), "40000000");
    EXPECT_EQ(Hex(std::span(sent.at(16).argument).first(4)), "30000000");
}

TEST_F(MetadataHandOver, FailuresAreLoggedAndAStreamTooLongForARecordDoesNotStopTheOthers) {
    const TestStream tooLong;
    const TestStream small(1027);
    tooLong.Write({"DATA", 'B', 1, Counting(1200)});
    tooLong.Write({"MORE", 'B', 1, Counting(200)});
    small.Write(Sample("HRAT", 72));
    const fakes::LogCapture log(2);

    fakes::SetIpcResults(-5, 0, 0);
    handOver.writeSession();
    fakes::SetIpcResults(0, -1, 0);
    small.Write(Sample("HRAT", 72));
    handOver.writeSession();

    Receive();
    EXPECT_EQ(samples["HRAT"], 1u);
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"IPC write size exceeded", "IPC Failed to Init IPC -5",
                                                     "IPC Failed to send IPC data"}));
}

TEST_F(MetadataHandOver, HappensOnEverySecondTickWhileAStreamIsOpen) {
    auto stream = std::make_unique<TestStream>();
    stream->Write(Sample("HRAT", 72));
    for (uint32_t tick = 1; tick <= 6; ++tick) {
        EXPECT_EQ(SensorHandOver::IsSessionOver(tick), tick % 2 == 0);
    }

    stream.reset();
    EXPECT_FALSE(SensorHandOver::IsSessionOver(8));
}

TEST_F(MetadataHandOver, BeforeAClientGoesSendsOnceWhatIsUnsent) {
    const TestStream idle(1025);
    const TestStream leaving(1026);
    const TestStream described(1027);
    idle.Write(Sample("IDLE", 1));
    handOver.writeSession();
    fakes::ForgetCalls();
    leaving.Write(Sample("LEFT", 2));
    described.Write(Sample("UNIT", 3, kKzmfSticky));

    handOver.HandOverUnsent();
    handOver.HandOverUnsent();

    Receive();
    EXPECT_EQ(records, 1u);
    EXPECT_EQ(samples.count("IDLE"), 0u);
    EXPECT_EQ(samples["LEFT"], 1u);
    EXPECT_EQ(samples["UNIT"], 1u);
}

// Accessories with the longest name, three streams and one key of the longest samples in each.
TEST_F(MetadataHandOver, HappensAtOnceNearTheLimitSoThatSixtyBusyStreamsFlowWithoutALostSample) {
    const fakes::LogCapture log(3);
    std::vector<std::unique_ptr<Accessory>> accessories;
    for (uint8_t id = 1; id <= 20; ++id) {
        accessories.push_back(std::make_unique<Accessory>(id, services.services));
        EXPECT_EQ(accessories.back()->Answer(RegisterDevice(3, "SensorWithLongNam")), "0200");
        for (uint8_t stream = 0; stream < 3; ++stream) {
            accessories.back()->Answer(RegisterKey("KEY" + std::to_string(stream), stream, stream, 'B', 35));
        }
    }
    uint64_t alone = 0;
    for (; records == 0 && alone < 100; ++alone) {
        accessories[0]->Answer(WriteSample(0, 35));
        Receive();
    }
    EXPECT_EQ(samples["KEY0"], alone);
    EXPECT_GT(alone * 35, 1400u * 2 / 3);

    for (uint32_t sample = 0; sample < 6000; ++sample) {
        const size_t busy = std::min(sample * 7 % 20, sample * 11 % 19);  // some are far busier than others
        accessories[busy]->Answer(WriteSample(static_cast<uint8_t>(sample % 3), 35));
        if (sample % 200 == 199) {
            handOver.writeSession();
            Receive();
        }
    }
    handOver.writeSession();
    Receive();

    EXPECT_EQ(samples["KEY0"], 2000 + alone);
    EXPECT_EQ(samples["KEY1"], 2000u);
    EXPECT_EQ(samples["KEY2"], 2000u);
    EXPECT_TRUE(log.Texts().empty());
    EXPECT_LT(records, 6000u / 8);  // samples share records
}

}  // namespace
