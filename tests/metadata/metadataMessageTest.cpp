// The sensor interface: what each request is answered, and what it does to the client's record and streams.
#include <array>

#include "bleDevice.h"
#include "cameraFakes.h"
#include "kzmfReader.h"
#include "logCapture.h"
#include "testStream.h"
#include "utils.h"

// Opening can be made to fail: the linker puts this in the place of the writer's function.
extern "C" {
void* RealStreamOpen(uint32_t, const char*, void*, uint32_t) asm("__real__Z18MetadataStreamOpenjPKcPvj");
void* WrappedStreamOpen(uint32_t, const char*, void*, uint32_t) asm("__wrap__Z18MetadataStreamOpenjPKcPvj");
}

namespace {

int g_opensBeforeFailure = 1000;

using Request = std::vector<uint8_t>;

Request operator+(Request request, const std::string& text) {
    request.insert(request.end(), text.begin(), text.end());
    return request;
}

Request RegisterDevice(uint8_t streams, const std::string& name) {
    return Request{2, streams} + name;
}
Request RegisterKey(const std::string& key, uint8_t index, uint8_t stream, char type, uint8_t size, uint8_t repeat = 1,
                    uint8_t flags = 0) {
    Request request = Request{3} + key;
    request.insert(request.end(), {index, stream, static_cast<uint8_t>(type), size, repeat, flags});
    return request;
}
Request Sample(uint8_t index, size_t size) {
    Request request{1, index};
    for (size_t i = 0; i < size; ++i) {
        request.push_back(static_cast<uint8_t>(i + 1));
    }
    return request;
}

// What a client is sent back, and the code its session reports.
struct Outcome {
    std::string answer;  // empty when nothing is sent
    int code;
};

class MetadataMessage : public testing::Test {
  protected:
    MetadataMessage() {
        fakes::Reset();
        g_opensBeforeFailure = 1000;
    }
    ~MetadataMessage() override { m_client.RemoveStreams(); }

    // Sends the request in packets, as an accessory does.
    Outcome Send(const Request& request) {
        const bool simple = request.size() <= kMaxSimpleLength;
        std::vector<uint8_t> header{static_cast<uint8_t>(request.size())};
        if (!simple) {
            header = {static_cast<uint8_t>(0x20 | request.size() >> 8), static_cast<uint8_t>(request.size())};
        }
        std::vector<uint8_t> response(8188);
        unsigned short length = 0;
        int code = 0;
        bool answered = false;
        for (size_t at = 0; at == 0 || at < request.size();) {
            std::array<unsigned char, 20> packet{};
            std::copy(header.begin(), header.end(), packet.begin());
            const size_t part = std::min(request.size() - at, packet.size() - header.size());
            std::copy_n(request.begin() + static_cast<std::ptrdiff_t>(at), part,
                        packet.begin() + static_cast<std::ptrdiff_t>(header.size()));
            length = 8188;
            answered = m_client.ProcessMetadataMessage(packet.data(), response.data(), &length, &code);
            at += std::max<size_t>(part, 1);
            header = {0x80};
        }
        return {answered ? Hex({response.data(), length}) : "", code};
    }
    void Register(uint8_t streams) { ASSERT_EQ(Send(RegisterDevice(streams, "HRM")).answer, "02 00"); }

    const kzmfStream& Stream(size_t index) { return *static_cast<const kzmfStream*>(m_client.MetadataStream(index)); }

    BleNotificationClient m_client{7, 1, 12};
};

// ---------------------------------------------------------------- answers

struct AnswerCase {
    const char* name;
    std::vector<Request> before;
    Request request;
    const char* answer;
    int code;
    const char* log;  // at level 2; null for none
};
void PrintTo(const AnswerCase& row, std::ostream* out) {
    *out << row.name;
}
const Request kDevice = RegisterDevice(2, "HRM");
const Request kHeartRate = RegisterKey("HRAT", 0, 0, 'S', 2);
const AnswerCase kAnswerCases[] = {
    {"DeviceIsRegistered", {}, kDevice, "02 00", 0, nullptr},
    {"DeviceWithTheLongestName", {}, RegisterDevice(3, "12345678901234567"), "02 00", 0, nullptr},
    {"DeviceTwice", {kDevice}, kDevice, "02 03", 3, "This device already registered 2 streams"},
    {"DeviceWithoutStreams", {}, RegisterDevice(0, "HRM"), "02 04", 4, "Need at least one stream"},
    {"DeviceWithFourStreams", {}, RegisterDevice(4, "HRM"), "02 05", 5, "Too many streams"},
    {"NameTooShort", {}, RegisterDevice(1, "HR"), "02 02", -3, "Name too short"},
    {"NameTooLong", {}, RegisterDevice(1, "123456789012345678"), "02 02", -3, "Register name is max 1 packet"},
    {"KeyIsRegistered", {kDevice}, kHeartRate, "03 00", 0, nullptr},
    {"LastKeyIndex", {kDevice}, RegisterKey("HRAT", 19, 1, 'S', 2), "03 00", 0, nullptr},
    {"KeyIndexTooHigh",
     {kDevice},
     RegisterKey("HRAT", 20, 0, 'S', 2),
     "03 0C",
     12,
     "Register 4CC failed, greater than no of 4CC for device"},
    {"KeyIndexAndStreamTooHigh",
     {},
     RegisterKey("HRAT", 255, 255, 'S', 2),
     "03 0C",
     12,
     "Register 4CC failed, greater than no of 4CC for device"},
    {"StreamIndexTooHigh",
     {kDevice},
     RegisterKey("HRAT", 0, 2, 'S', 2),
     "03 07",
     7,
     "Register 4CC failed, greater than no of streams for device"},
    {"KeyWithoutDevice", {}, kHeartRate, "03 07", 7, "Register 4CC failed, greater than no of streams for device"},
    {"KeyTwice",
     {kDevice, kHeartRate},
     RegisterKey("CADE", 0, 1, 'S', 2),
     "03 08",
     8,
     "Register 4CC failed, this 4CC already present"},
    {"KeyTooShort", {kDevice}, Request{3} + "HRAT12345", "03 02", -3, "Register 4CC parser error"},
    {"KeyTooLong", {kDevice}, Request{3} + "HRAT1234567", "03 02", -3, "Register 4CC parser error"},
    {"SampleIsNotAnswered", {kDevice, kHeartRate}, Sample(0, 2), "", 0, nullptr},
    {"LongestSampleIsNotAnswered", {kDevice, kHeartRate}, Sample(0, 35), "", 0, nullptr},
    {"SampleTooLong", {kDevice, kHeartRate}, Sample(0, 36), "01 02", -3, "Max size of metadata exceeded"},
    {"SampleShorterThanItsKey",
     {kDevice, kHeartRate},
     Sample(0, 1),
     "01 02",
     -3,
     "Metadata sample of 1 bytes is too short, its key takes 2"},
    {"SampleWithoutIndex", {kDevice, kHeartRate}, Request{1}, "01 02", -3, nullptr},
    {"SampleOfAFreeKey", {kDevice, kHeartRate}, Sample(1, 2), "01 0A", 10, "Error - Metadata 4CC lookup"},
    {"SampleOfAKeyOfNoSize",
     {kDevice, RegisterKey("NONE", 0, 0, 'S', 0)},
     Sample(0, 2),
     "01 0A",
     10,
     "Error - Metadata 4CC lookup"},
    {"SampleOfAnImpossibleKey", {}, Sample(255, 2), "01 0A", 10, "Error - Metadata 4CC lookup"},
    {"DisplayOn", {}, {80, 1}, "50 00", 0, nullptr},
    {"DisplayOff", {}, {80, 2}, "50 00", 0, nullptr},
    {"DisplayInvalid", {}, {80, 3}, "50 0D", 13, "Invalid Multek Display parameter 3"},
    {"DisplayWithoutParameter", {}, {80}, "50 02", -3, nullptr},
    {"LedOn", {}, {82, 1}, "52 00", 0, nullptr},
    {"LedInvalid", {}, {82, 3}, "52 02", 2, "Invalid Birch Register parameter 3"},
    {"LedWithoutParameter", {}, {82}, "52 02", -3, nullptr},
    {"UnknownCommand", {}, {7}, "07 0B", 11, "Unrecognized/unhandled metadata cmd from ble. command_id:7"},
    {"NoCommand", {}, {}, "00 02", -3, nullptr},
};

class MetadataAnswers : public MetadataMessage, public testing::WithParamInterface<AnswerCase> {};

TEST_P(MetadataAnswers, AreTheCommandAndItsStatus) {
    for (const Request& request : GetParam().before) {
        Send(request);
    }
    const fakes::LogCapture log(2);

    const Outcome outcome = Send(GetParam().request);

    EXPECT_EQ(outcome.answer, GetParam().answer);
    EXPECT_EQ(outcome.code, GetParam().code);
    if (GetParam().log != nullptr) {
        EXPECT_TRUE(log.Has(GetParam().log, 2)) << testing::PrintToString(log.Texts());
    } else if (GetParam().code == 0) {
        EXPECT_EQ(log.Texts(), std::vector<std::string>{});
    }
}

INSTANTIATE_TEST_SUITE_P(Table, MetadataAnswers, testing::ValuesIn(kAnswerCases),
                         [](const auto& row) { return row.param.name; });

TEST_F(MetadataMessage, AnswerNeedsTwoBytesOfRoom) {
    std::array<unsigned char, 2> response{0xEE, 0xEE};
    unsigned short length = 1;

    m_client.m_metadataMessage.HandleError(5, response.data(), &length);

    EXPECT_EQ(length, 0);
    EXPECT_EQ(response[0], 0xEE);
}

// ---------------------------------------------------------------- effects

TEST_F(MetadataMessage, RegisteredDeviceHasItsStreamsOpen) {
    const fakes::LogCapture log(5);

    Send(RegisterDevice(2, std::string("HR\0M", 4)));

    EXPECT_EQ(m_client.m_metadataDeviceName, "HR");
    ASSERT_EQ(m_client.m_metadataStreamCount, 2);
    EXPECT_EQ(Stream(0).deviceId, 1025u);
    EXPECT_STREQ(Stream(1).name, "HR");
    EXPECT_EQ(Stream(0).next, &Stream(1));
    EXPECT_EQ(Stream(1).payload.size, 2480u);
    EXPECT_EQ(m_client.MetadataStream(2), nullptr);
    EXPECT_TRUE(log.Has("Metadata Register no. streams = 2", 5));
    EXPECT_TRUE(log.Has("STREAM OPEN deviceId=1 len=2 name=HR bufferHdl=" +
                            std::to_string(static_cast<int>(reinterpret_cast<uintptr_t>(&Stream(0)))) +
                            " bufferSize=3000",
                        5));
}

TEST_F(MetadataMessage, FailedOpenStopsAndLeavesTheStreamsBeforeIt) {
    const fakes::LogCapture log(2);
    g_opensBeforeFailure = 1;

    const Outcome outcome = Send(RegisterDevice(3, "HRM"));

    EXPECT_EQ(outcome.answer, "02 06");
    EXPECT_TRUE(log.Has("Error Openening metadata stream", 2));
    EXPECT_EQ(g_metadata_devices, m_client.MetadataStream(0));
    EXPECT_EQ(Stream(0).next, nullptr);
    Send(RegisterKey("HRAT", 0, 0, 'S', 2));
    Send(RegisterKey("HRAT", 1, 1, 'S', 2));
    Send(RegisterKey("HRAT", 2, 2, 'S', 2));
    EXPECT_EQ(Send(Sample(0, 2)).answer, "");
    EXPECT_EQ(Send(Sample(1, 2)).answer, "01 09");  // its open failed
    EXPECT_EQ(Send(Sample(2, 2)).answer, "01 09");  // never opened
    EXPECT_TRUE(log.Has("Error - Metadata stream write", 2));
}

TEST_F(MetadataMessage, KeyOfAStreamThatIsGoneIsRefused) {
    Register(1);
    Send(kHeartRate);
    m_client.m_metadataKeys[0].streamIndex = 1;
    const fakes::LogCapture log(2);

    EXPECT_EQ(Send(Sample(0, 2)).answer, "01 05");
    EXPECT_TRUE(log.Has("stream handle invalid\n", 2));
}

TEST_F(MetadataMessage, SamplesAreStoredUnderTheirKeyInTheirStream) {
    Register(2);
    Send(RegisterKey("HRAT", 4, 1, 'S', 2, 2));
    Send(RegisterKey("UNIT", 5, 1, 'c', 1, 3, 1));
    Send(RegisterKey("RAWB", 6, 0, 'S', 2, 1, 2));

    Send(Sample(4, 4));
    Send(Sample(5, 3));
    Send(Sample(6, 35));  // more than the key takes

    EXPECT_EQ(Hex({Stream(1).payload.data, Stream(1).payload.used}), "48 52 41 54 53 02 00 02 02 01 04 03");
    EXPECT_EQ(Hex({Stream(1).sticky.data, Stream(1).sticky.used}),
              "54 53 4D 50 4C 04 00 01 00 00 00 02 55 4E 49 54 63 01 00 03 01 02 03 00");
    EXPECT_EQ(Hex({Stream(0).payload.data, Stream(0).payload.used}), "52 41 57 42 53 02 00 01 01 02 00 00");
}

TEST_F(MetadataMessage, RefusedKeyLeavesTheRegisteredOne) {
    Register(1);
    Send(kHeartRate);

    Send(RegisterKey("CADE", 0, 0, 'L', 4));
    Send(Sample(0, 4));

    EXPECT_EQ(Hex({Stream(0).payload.data, Stream(0).payload.used}), "48 52 41 54 53 02 00 01 02 01 00 00");
}

TEST_F(MetadataMessage, InterestsFollowTheirParameter) {
    Send({80, 1});
    Send({82, 1});
    EXPECT_EQ(m_client.m_lcdInterest, std::vector<int>{7});
    EXPECT_EQ(m_client.m_ledInterest, std::vector<int>{7});

    Send({80, 2});
    Send({82, 3});
    EXPECT_EQ(m_client.m_lcdInterest, std::vector<int>{});
    EXPECT_EQ(m_client.m_ledInterest, std::vector<int>{7});
}

TEST_F(MetadataMessage, FullStreamIsReportedOnceUntilItHasRoomAgain) {
    static constexpr std::string_view kReport = "Metadata stream 0 is full, its samples are lost until there is room";
    Register(1);
    Send(kHeartRate);
    for (uint8_t index = 1; index < 12; ++index) {
        Send(RegisterKey("ST" + std::to_string(10 + index), index, 0, 'B', 30, 1, 1));  // sticky values fill their area
    }
    const auto sendAll = [this] {
        const fakes::LogCapture log(3);
        for (uint8_t index = 1; index < 12; ++index) {
            EXPECT_EQ(Send(Sample(index, 30)).answer, "");
        }
        const auto texts = log.Texts();
        return std::count(texts.begin(), texts.end(), kReport);
    };

    Send(Sample(0, 2));
    EXPECT_EQ(sendAll(), 1);  // the first that is lost
    EXPECT_EQ(sendAll(), 0);
    Send(Sample(0, 2));  // stored
    EXPECT_EQ(sendAll(), 1);
}

TEST_F(MetadataMessage, RequestsAreTracedWithTheirFields) {
    const fakes::LogCapture log(6);
    Register(1);
    Send(RegisterKey("HRAT", 3, 0, 'c', 1, 6));

    Send(Request{1, 3} + "abcdef");
    m_client.m_metadataMessage.Dump();
    m_client.m_metadataMessage.WriteSession();

    EXPECT_TRUE(log.Has("tbytes = 5 name = HRM\n", 5));
    EXPECT_TRUE(log.Has("string device name = HRM\n", 5));
    EXPECT_TRUE(log.Has("MetadataStreamOpen HRM\n", 5));
    EXPECT_TRUE(log.Has("4CC=HRAT ID=3 strm=0 tp=99 sz=1 ct=6 fg=0", 5));
    EXPECT_TRUE(log.Has("Register 4CC DeviceID: 1", 5));
    EXPECT_TRUE(log.Has("Index=3", 5));
    EXPECT_TRUE(log.Has("4CC=<HRAT>", 5));
    EXPECT_TRUE(log.Has("4CC ID: 3\n", 5));
    EXPECT_TRUE(log.Has("Metadata  hdl=" + std::to_string(static_cast<int>(reinterpret_cast<uintptr_t>(&Stream(0)))) +
                            " tp=c sz=1 ct=6, d= a:b:c:d:e:f",
                        5));
    EXPECT_TRUE(log.Has("command_id: 1", 6));
    EXPECT_TRUE(log.Has("param count:0", 6));
    EXPECT_TRUE(log.Has("Write Session", 5));
}

}  // namespace

void* WrappedStreamOpen(uint32_t deviceId, const char* name, void* buffer, uint32_t bufferSize) {
    return g_opensBeforeFailure-- > 0 ? RealStreamOpen(deviceId, name, buffer, bufferSize) : nullptr;
}
