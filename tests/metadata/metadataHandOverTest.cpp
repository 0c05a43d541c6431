// The hand-over to the metadata service: when it happens, what each record holds, and that no sample is lost under
// load.
#include <map>
#include <random>

#include "bleDevice.h"
#include "cameraFakes.h"
#include "kzBleServer.h"
#include "kzmfReader.h"
#include "logCapture.h"
#include "testStream.h"
#include "utils.h"

namespace {

constexpr size_t kSequenceSize = 4;
constexpr size_t kLongestPayload = 1400;

class MetadataHandOver : public testing::Test {
  protected:
    MetadataHandOver() { fakes::Reset(); }
    ~MetadataHandOver() override { KzBleServer::Destroy(); }

    static KzBleServer& Server() { return *KzBleServer::GetInstance(); }
    // The records sent since the last call.
    static std::vector<fakes::Bytes> Records() {
        std::vector<fakes::Bytes> records;
        for (const fakes::Call& call : fakes::Calls("kzIpcSend")) {
            records.push_back(call.argument);
        }
        fakes::ForgetCalls();
        return records;
    }
    static std::span<const uint8_t> Payload(const fakes::Bytes& record) {
        return std::span(record).subspan(kSequenceSize);
    }
};

// An accessory with three streams and one key in each.
class Accessory {
  public:
    explicit Accessory(uint8_t deviceId) : m_client(deviceId, deviceId, 12) {
        Send({2, 3, 'S', 'e', 'n', 's', 'o', 'r', 'W', 'i', 't', 'h', 'L', 'o', 'n', 'g', 'N', 'a', 'm'});
        for (uint8_t stream = 0; stream < 3; ++stream) {
            Send({3, 'K', 'E', 'Y', static_cast<uint8_t>('A' + stream), stream, stream, 'B', 35, 1, 0});
        }
    }
    ~Accessory() { m_client.RemoveStreams(); }
    Accessory(const Accessory&) = delete;
    Accessory& operator=(const Accessory&) = delete;

    void SendSample(uint8_t stream) {
        std::vector<uint8_t> request(2 + 35, 0x55);
        request[0] = 1;
        request[1] = stream;
        Send(request);
        ++sent[stream];
    }

    std::array<uint64_t, 3> sent{};

  private:
    void Send(std::vector<uint8_t> request) {
        BleMetadataMessage& message = m_client.m_metadataMessage;
        std::array<unsigned char, 20> response{};
        unsigned short length = 20;
        message.Reset(static_cast<int>(request.size()));
        message.m_stream.attach(request.data(), static_cast<unsigned short>(request.size()));
        ASSERT_EQ(message.Deserialize(), 0);
        ASSERT_EQ(message.Execute(&m_client, response.data(), &length), 0);
    }

    BleNotificationClient m_client;
};

// ---------------------------------------------------------------- records

// The process-wide numbers are checked first, before another test takes some.
TEST_F(MetadataHandOver, SequenceNumbersRunFrom49To64AndOnFrom48) {
    const TestStream stream;
    stream.WriteS("HRAT", 72);
    std::vector<uint32_t> numbers;

    for (int i = 0; i < 40; ++i) {
        Server().writeSession();
    }

    for (const fakes::Bytes& record : Records()) {
        EXPECT_EQ(record[1] | record[2] | record[3], 0);
        numbers.push_back(record[0]);
    }
    ASSERT_EQ(numbers.size(), 40u);
    EXPECT_EQ(numbers[0], 49u);
    for (size_t i = 1; i < numbers.size(); ++i) {
        EXPECT_EQ(numbers[i], numbers[i - 1] == 64 ? 48 : numbers[i - 1] + 1);
    }
}

TEST_F(MetadataHandOver, RecordIsASequenceNumberAndThePayload) {
    const TestStream stream;
    stream.WriteS("HRAT", 72);
    const fakes::LogCapture log(5);

    Server().writeSession();

    const auto calls = fakes::Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0], (fakes::Call{"kzIpcInit", 0, fakes::BytesOf("metadata")}));
    EXPECT_EQ(calls[1].operation, "kzIpcSend");
    EXPECT_EQ(Hex(calls[1].argument).substr(12),
              "44 45 56 43 00 01 00 38 44 56 49 44 4C 04 00 01 00 00 04 01 44 56 4E 4D 63 01 00 03 48 52 4D 00 "
              "53 54 52 4D 00 01 00 18 54 53 4D 50 4C 04 00 01 00 00 00 01 48 52 41 54 53 02 00 01 00 48 00 00");
    EXPECT_EQ(calls[2].operation, "kzIpcDestroy");
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"IPC size = 64"});
}

TEST_F(MetadataHandOver, NothingIsSentWithoutContent) {
    const TestStream silent;
    const fakes::LogCapture log(5);

    Server().writeSession();
    Server().HandOverMetadata();

    EXPECT_EQ(fakes::Calls().size(), 0u);
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"IPC size = 0"});
}

TEST_F(MetadataHandOver, FailuresOfTheServiceAreLogged) {
    const TestStream stream;
    stream.WriteS("HRAT", 72);
    const fakes::LogCapture log(2);

    fakes::SetIpcResults(-5, 0, 0);
    Server().writeSession();
    const size_t callsAfterInit = fakes::Calls().size();
    fakes::SetIpcResults(0, -1, 0);
    Server().writeSession();

    EXPECT_EQ(callsAfterInit, 1u);
    EXPECT_EQ(fakes::Calls("kzIpcDestroy").size(), 1u);
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"IPC Failed to Init IPC -5", "IPC Failed to send IPC data"}));
}

TEST_F(MetadataHandOver, StreamTooLongForARecordIsLoggedAndTheOthersAreSent) {
    const TestStream tooLong;
    const TestStream longerThanTheBudget(1026, "HRM", 9000);
    const TestStream small(1027);
    const std::vector<uint8_t> data(1400, 1);
    tooLong.Write("DATA", 'B', 1, 1200, data);
    tooLong.Write("MORE", 'B', 1, 200, data);
    for (const char* key : {"DAT1", "DAT2", "DAT3"}) {
        longerThanTheBudget.Write(key, 'B', 1, 1400, data);
    }
    small.WriteS("HRAT", 72);
    const fakes::LogCapture log(2);

    Server().writeSession();

    EXPECT_EQ(Records().size(), 1u);
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"IPC write size exceeded", "IPC write size exceeded"}));
}

// ---------------------------------------------------------------- when

TEST_F(MetadataHandOver, HappensOnEverySecondTickWhileAStreamIsOpen) {
    size_t records = 0;
    {
        const TestStream stream;
        stream.WriteS("HRAT", 72);
        for (uint32_t tick = 1; tick <= 6; ++tick) {
            Server().HandOverMetadataOnTick(tick);
            records += Records().size();
            EXPECT_EQ(records, tick / 2);
        }
    }
    const fakes::LogCapture log(5);
    Server().HandOverMetadataOnTick(8);
    EXPECT_EQ(log.Texts().size(), 0u);
}

TEST_F(MetadataHandOver, HappensAtOnceNearTheLimitOfARecord) {
    Accessory accessory(1);
    int samples = 0;
    std::vector<fakes::Bytes> records;

    for (; records.empty() && samples < 100; ++samples) {
        accessory.SendSample(0);
        records = Records();
    }

    ASSERT_EQ(records.size(), 1u);
    EXPECT_LE(Payload(records[0]).size(), kLongestPayload);
    EXPECT_GT(Payload(records[0]).size(), kLongestPayload * 2 / 3);
    const KzmfDocument document = ReadKzmf(Payload(records[0]));
    EXPECT_EQ(document.devices.at(0).Child("STRM")->Child("KEYA")->repeat, static_cast<uint32_t>(samples));
}

TEST_F(MetadataHandOver, BeforeAClientGoesSendsTheUnsentSamplesAlone) {
    const TestStream idle(1025);
    const TestStream leaving(1026);
    idle.WriteS("HRAT", 1);
    Server().writeSession();
    Records();
    leaving.WriteS("HRAT", 2);

    Server().HandOverMetadata();

    const auto records = Records();
    ASSERT_EQ(records.size(), 1u);
    const KzmfDocument document = ReadKzmf(Payload(records[0]));
    ASSERT_EQ(document.devices.size(), 1u);
    EXPECT_EQ(KzmfNumber(document.devices[0], "DVID", 0), 1026u);
}

// ---------------------------------------------------------------- load

TEST_F(MetadataHandOver, SixtyBusyStreamsFlowInWholeRecordsWithoutALostSample) {
    const fakes::LogCapture log(3);
    std::vector<std::unique_ptr<Accessory>> accessories;
    for (uint8_t id = 1; id <= 20; ++id) {
        accessories.push_back(std::make_unique<Accessory>(id));
    }
    std::mt19937 random(42);
    std::vector<fakes::Bytes> records;

    for (uint32_t tick = 1; tick <= 40; ++tick) {
        for (int i = 0; i < 200; ++i) {
            // some accessories are far busier than others
            accessories[std::min(random() % 20, random() % 20)]->SendSample(static_cast<uint8_t>(random() % 3));
        }
        Server().HandOverMetadataOnTick(tick);
        const auto sent = Records();
        records.insert(records.end(), sent.begin(), sent.end());
    }

    std::map<uint64_t, std::map<std::string, uint64_t>> received;
    for (const fakes::Bytes& record : records) {
        ASSERT_LE(Payload(record).size(), kLongestPayload);
        ASSERT_TRUE(MetadataIsValidKZMF(Payload(record).data(), static_cast<uint32_t>(Payload(record).size()), true));
        const KzmfDocument document = ReadKzmf(Payload(record));
        for (const KzmfRecord& device : document.devices) {
            for (const KzmfRecord& stream : device.children) {
                for (const KzmfRecord& samples : stream.children) {
                    received[KzmfNumber(device, "DVID", 0)][samples.key] += samples.repeat;
                }
            }
        }
    }
    for (uint8_t id = 1; id <= 20; ++id) {
        for (size_t stream = 0; stream < 3; ++stream) {
            const std::string key = std::string("KEY") + static_cast<char>('A' + stream);
            EXPECT_EQ(received[1024u + id][key], accessories[id - 1u]->sent[stream]) << int{id} << key;
        }
    }
    EXPECT_EQ(log.Texts(), std::vector<std::string>{});
    EXPECT_LT(records.size(), 8000u / 8);  // samples share records
}

}  // namespace
