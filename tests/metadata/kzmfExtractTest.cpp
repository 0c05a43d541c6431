// Extractions: payloads and session copies byte for byte, sizes, idle streams, groups.
#include <array>

#include "kzmfReader.h"
#include "testStream.h"

namespace {

constexpr const char* kDeviceHead = "44 56 49 44 4C 04 00 01 00 00 04 01 44 56 4E 4D 63 01 00 03 48 52 4D 00";

// Payload and session copy of one call.
struct Extracted {
    uint32_t result;
    std::string payload;
    std::string session;
};
Extracted Extract(uint32_t sessionRate, uint32_t bufferSize = 8192) {
    std::vector<uint8_t> buffer(bufferSize);
    void* payload = nullptr;
    void* session = nullptr;
    uint32_t payloadSize = 0;
    uint32_t sessionSize = 0;
    const uint32_t result = MetadataGetPayloadAndSession(buffer.data(), bufferSize, &payload, &payloadSize, &session,
                                                         &sessionSize, sessionRate);
    return {result, Hex({static_cast<uint8_t*>(payload), payloadSize}),
            Hex({static_cast<uint8_t*>(session), sessionSize})};
}

TEST(KzmfPayload, HoldsDevicesWithTheirStreams) {
    const TestStream first;
    const TestStream second;
    const TestStream other(0x01020304, "");
    first.WriteS("HRAT", 72);
    second.WriteS("CADE", 90);
    other.WriteL("TEMP", 21);
    const uint32_t estimate = MetadataEstimateReadBufferSize(0);

    const std::vector<uint8_t> payload = TakePayload();

    EXPECT_EQ(Hex(payload),
              std::string("44 45 56 43 00 01 00 58 ") + kDeviceHead +
                  " 53 54 52 4D 00 01 00 18 54 53 4D 50 4C 04 00 01 00 00 00 01 48 52 41 54 53 02 00 01 00 48 00 00"
                  " 53 54 52 4D 00 01 00 18 54 53 4D 50 4C 04 00 01 00 00 00 01 43 41 44 45 53 02 00 01 00 5A 00 00"
                  " 44 45 56 43 00 01 00 34 44 56 49 44 4C 04 00 01 01 02 03 04 44 56 4E 4D 63 01 00 00"
                  " 53 54 52 4D 00 01 00 18 54 53 4D 50 4C 04 00 01 00 00 00 01 54 45 4D 50 4C 04 00 01 00 00 00 15");
    EXPECT_EQ(estimate, payload.size());
    EXPECT_EQ(first.Payload(), "");
}

TEST(KzmfPayload, IdleStreamGivesAnEmptyRecordOfItsLastKeyAndCounts) {
    const TestStream stream;
    stream.WriteS("HRAT", 72);
    TakePayload();
    const uint32_t estimate = MetadataEstimateReadBufferSize(0);

    const std::vector<uint8_t> once = TakePayload();
    const std::vector<uint8_t> twice = TakePayload();

    EXPECT_EQ(Hex(once), std::string("44 45 56 43 00 01 00 40 ") + kDeviceHead +
                             " 53 54 52 4D 00 01 00 20 45 4D 50 54 4C 04 00 01 00 00 00 01"
                             " 54 53 4D 50 4C 04 00 01 00 00 00 01 48 52 41 54 53 02 00 00");
    EXPECT_EQ(estimate, once.size());
    EXPECT_EQ(Hex(std::span(twice).subspan(40, 12)), "45 4D 50 54 4C 04 00 01 00 00 00 02");
    EXPECT_EQ(stream.Payload(), "");
}

TEST(KzmfPayload, StreamThatNeverHadAnythingGivesNothing) {
    const TestStream silent;
    EXPECT_EQ(TakePayload().size(), 0u);
    EXPECT_EQ(MetadataEstimateReadBufferSize(0), 0u);

    silent.WriteS("UNIT", 1, kKzmfSticky);

    EXPECT_EQ(Hex(TakePayload()), std::string("44 45 56 43 00 01 00 2C ") + kDeviceHead +
                                      " 53 54 52 4D 00 01 00 0C 55 4E 49 54 53 02 00 01 00 01 00 00");
}

TEST(KzmfPayload, BufferThatIsTooSmallChangesNothing) {
    const TestStream stream;
    stream.WriteS("HRAT", 72);
    TakePayload();  // the next one would mark the stream idle
    const std::string sticky = stream.Sticky();
    const uint32_t needed = MetadataEstimateReadBufferSize(0);
    std::vector<uint8_t> buffer(needed);
    void* payload = buffer.data() + 1;
    uint32_t size = 4711;

    EXPECT_EQ(MetadataGetPayload(buffer.data(), needed - 1, &payload, &size), kKzmfNoRoom);
    EXPECT_EQ(payload, buffer.data() + 1);
    EXPECT_EQ(size, 4711u);
    EXPECT_EQ(stream.Sticky(), sticky);
    EXPECT_EQ(MetadataGetPayload(buffer.data(), needed, &payload, &size), kKzmfDone);
    EXPECT_EQ(size, needed);
}

TEST(KzmfPayload, OutParametersAreOptional) {
    const TestStream stream;
    stream.WriteS("HRAT", 72);
    std::vector<uint8_t> buffer(1000);
    void* payload = nullptr;
    uint32_t size = 0;

    EXPECT_EQ(MetadataGetPayloadAndSession(buffer.data(), 1000, nullptr, nullptr, nullptr, nullptr, 10), kKzmfDone);
    EXPECT_NE(stream.Payload(), "");  // nothing was asked for
    EXPECT_EQ(MetadataGetPayload(buffer.data(), 1000, &payload, nullptr), kKzmfDone);
    EXPECT_EQ(payload, buffer.data());
    EXPECT_EQ(stream.Payload(), "");
    EXPECT_EQ(MetadataGetPayload(buffer.data(), 1000, nullptr, &size), kKzmfDone);
    EXPECT_EQ(MetadataIsValidKZMF(buffer.data(), size, true), true);
}

TEST(KzmfPayload, ContainersAbove65535BytesAreMeasuredInFours) {
    const TestStream stream(1025, "HRM", 200000);
    const std::vector<uint8_t> data(60000, 1);
    stream.Write("AAAA", 'B', 1, 60000, data);
    stream.Write("BBBB", 'B', 1, 6000, data);

    const std::vector<uint8_t> payload = TakePayload(200000);

    EXPECT_EQ(Hex(std::span(payload).first(8)), "44 45 56 43 00 04 40 83");  // 66060 / 4
    EXPECT_EQ(Hex(std::span(payload).subspan(32, 8)), "53 54 52 4D 00 04 40 7B");
    EXPECT_EQ(ReadKzmf(payload).error, "");
    EXPECT_TRUE(MetadataIsValidKZMF(payload.data(), static_cast<uint32_t>(payload.size()), true));
}

TEST(KzmfPayload, DeviceThatOutgrowsItsContainerContinuesInAnother) {
    const TestStream first(1025, "HRM", 300000);
    const TestStream second(1025, "HRM", 300000);
    const std::vector<uint8_t> data(65535, 1);
    for (const TestStream* stream : {&first, &second}) {
        for (const char* key : {"AAAA", "BBBB"}) {
            ASSERT_EQ(stream->Write(key, 'B', 1, 65535, data), kKzmfDone);
        }
        ASSERT_EQ(stream->Write("CCCC", 'B', 1, 20000, data), kKzmfDone);
    }
    const uint32_t estimate = MetadataEstimateReadBufferSize(0);

    const std::vector<uint8_t> payload = TakePayload(400000);

    const KzmfDocument document = ReadKzmf(payload);
    EXPECT_EQ(document.error, "");
    ASSERT_EQ(document.devices.size(), 2u);
    EXPECT_EQ(KzmfNumber(document.devices[1], "DVID", 0), 1025u);
    EXPECT_EQ(estimate, payload.size());
}

// ---------------------------------------------------------------- preformatted payloads

TEST(KzmfPreformatted, PayloadIsCopiedWhenItIsValid) {
    const TestStream before;
    const TestStream preformatted(0xFFFFFFFF, "PRE");
    const TestStream after;
    const std::array<uint8_t, 8> empty{'D', 'E', 'V', 'C', 0, 1, 0, 0};
    before.WriteS("HRAT", 1);
    preformatted.Write("PFRM", 'c', 1, 8, empty);
    after.WriteS("HRAT", 2);
    const uint32_t estimate = MetadataEstimateReadBufferSize(0);

    const std::vector<uint8_t> payload = TakePayload();

    EXPECT_EQ(Hex(std::span(payload).subspan(64, 16)), "44 45 56 43 00 01 00 00 44 45 56 43 00 01 00 38");
    EXPECT_EQ(estimate, payload.size());
    EXPECT_EQ(preformatted.Payload(), "");
    EXPECT_EQ(ReadKzmf(TakePayload()).devices.size(), 1u);  // it gives nothing while it is empty
}

TEST(KzmfPreformatted, PayloadThatIsNotValidIsThrownAway) {
    const TestStream preformatted(0xFFFFFFFF, "PRE");
    for (const char* text : {"DEVC", "STRMaaaa", "xx"}) {
        preformatted.WriteText("PFRM", text);

        EXPECT_EQ(TakePayload().size(), 0u) << text;
        EXPECT_EQ(preformatted.Payload(), "") << text;
    }
    preformatted.WriteS("HRAT", 1);  // any other key is an ordinary stream
    EXPECT_EQ(ReadKzmf(TakePayload()).devices.size(), 1u);
}

// ---------------------------------------------------------------- session copies

TEST(KzmfSession, FollowsThePayloadAndThinsRecordsOfTwiceTheRate) {
    const TestStream stream;
    for (uint16_t sample = 0; sample < 8; ++sample) {
        stream.WriteS("FAST", sample);
    }
    for (uint16_t sample = 0; sample < 3; ++sample) {
        stream.WriteS("SLOW", sample);
    }
    const uint32_t both = MetadataEstimateReadBufferSize(0) + MetadataEstimateReadBufferSize(2);

    const Extracted tooSmall = Extract(2, both - 1);
    const Extracted extracted = Extract(2, both);

    EXPECT_EQ(tooSmall.result, kKzmfNoRoom);
    EXPECT_EQ(extracted.result, kKzmfDone);
    const std::string sticky = "54 53 4D 50 4C 04 00 01 00 00 00 0B ";
    EXPECT_EQ(extracted.payload, std::string("44 45 56 43 00 01 00 54 ") + kDeviceHead + " 53 54 52 4D 00 01 00 34 " +
                                     sticky +
                                     "46 41 53 54 53 02 00 08 00 00 00 01 00 02 00 03 00 04 00 05 00 06 00 07 "
                                     "53 4C 4F 57 53 02 00 03 00 00 00 01 00 02 00 00");
    EXPECT_EQ(extracted.session, std::string("44 45 56 43 00 01 00 48 ") + kDeviceHead + " 53 54 52 4D 00 01 00 28 " +
                                     sticky +
                                     "46 41 53 54 53 02 00 02 00 00 00 04 "  // step (8 + 1) / 2
                                     "53 4C 4F 57 53 02 00 03 00 00 00 01 00 02 00 00");
    EXPECT_EQ(stream.Payload(), "");
}

TEST(KzmfSession, GoesOnCountingWhereTheLastOneStopped) {
    const TestStream stream;
    std::string taken;
    uint16_t sample = 0;
    for (int session = 0; session < 4; ++session) {
        for (int i = 0; i < 5; ++i) {
            stream.WriteS("FAST", sample++);
        }
        std::vector<uint8_t> buffer(1000);
        void* copy = nullptr;
        uint32_t size = 0;
        const uint32_t estimate = MetadataEstimateReadBufferSize(2);
        MetadataGetPayloadAndSession(buffer.data(), 1000, nullptr, nullptr, &copy, &size, 2);
        EXPECT_EQ(size, estimate);
        const KzmfDocument document = ReadKzmf({static_cast<uint8_t*>(copy), size});
        for (const auto& values : DecodeKzmfSamples(*document.devices.at(0).Child("STRM")->Child("FAST"), "")) {
            taken += std::to_string(std::get<uint64_t>(values.at(0))) + " ";
        }
    }
    EXPECT_EQ(taken, "0 3 6 9 12 15 18 ");  // step (5 + 1) / 2, through payloads of 5
}

TEST(KzmfSession, KeepsStructuresAndContainersWhole) {
    const TestStream stream;
    const std::array<uint8_t, 24> nested{'A', 'A', 'A', 'A', 'B', 1, 0, 4, 1, 2, 3, 4,
                                         'B', 'B', 'B', 'B', 'B', 1, 0, 4, 5, 6, 7, 8};
    const std::array<uint8_t, 12> xyz{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    stream.Write("NEST", '\0', 1, 24, nested);
    stream.Write("ACCL", 'B', 3, 4, xyz);

    const std::string session = Extract(1).session;

    EXPECT_NE(session.find("4E 45 53 54 00 01 00 18 41 41 41 41"), std::string::npos);
    EXPECT_NE(session.find("41 43 43 4C 42 03 00 01 01 02 03 00"), std::string::npos);
}

TEST(KzmfSession, RateOfZeroThinsNothing) {
    const TestStream stream;
    stream.WriteS("FAST", 1);
    stream.WriteS("FAST", 2);

    const Extracted extracted = Extract(0);

    EXPECT_EQ(extracted.session, extracted.payload);
}

// ---------------------------------------------------------------- sizes

TEST(KzmfSizes, MaximumGrowsWithTheRoomUsed) {
    const TestStream first;
    const TestStream second;
    EXPECT_EQ(MetadataMaximumReadBufferSize(), 68u);  // 4 * 8 * 22 / 10 = 70

    first.WriteS("HRAT", 1);  // 12 bytes in either area

    EXPECT_EQ(MetadataMaximumReadBufferSize(), 120u);  // (32 + 24) * 22 / 10 = 123
    EXPECT_EQ(MetadataEstimateUnsentSize(), 64u);      // of the first stream alone
}

// ---------------------------------------------------------------- groups

std::vector<std::vector<uint8_t>> TakeGroups(uint32_t limit, bool samplesOnly) {
    std::vector<std::vector<uint8_t>> payloads;
    kzmfGroup group{.limit = limit, .samplesOnly = samplesOnly, .position = 0};
    std::vector<uint8_t> buffer(4000);
    for (;;) {
        uint32_t size = 0;
        EXPECT_EQ(MetadataGetPayloadGroup(group, buffer.data(), 4000, nullptr, &size), kKzmfDone);
        if (size == 0) {
            return payloads;
        }
        payloads.emplace_back(buffer.begin(), buffer.begin() + size);
    }
}

TEST(KzmfGroups, TogetherHoldEveryStreamOnceWithinTheLimit) {
    std::vector<std::unique_ptr<TestStream>> streams;
    for (uint16_t i = 0; i < 60; ++i) {
        streams.push_back(std::make_unique<TestStream>(1025 + i / 3u, "SensorWithLongName"));
        streams.back()->WriteS("DATA", i);
    }

    const auto payloads = TakeGroups(1400, false);

    uint64_t next = 0;
    for (const auto& payload : payloads) {
        EXPECT_LE(payload.size(), 1400u);
        const KzmfDocument document = ReadKzmf(payload);
        EXPECT_EQ(document.error, "");
        for (const KzmfRecord& device : document.devices) {
            for (const KzmfRecord& child : device.children) {
                if (child.key == "STRM") {
                    EXPECT_EQ(KzmfNumber(device, "DVID", 0), 1025 + next / 3);
                    EXPECT_EQ(KzmfNumber(child, "DATA", 999), next++);
                }
            }
        }
    }
    EXPECT_EQ(next, 60u);
    EXPECT_LT(payloads.size(), 6u);
}

TEST(KzmfGroups, CanPassOverStreamsWithoutSamples) {
    const TestStream idle;
    const TestStream busy(1026);
    idle.WriteS("HRAT", 1);
    TakePayload();
    busy.WriteS("HRAT", 2);

    const auto payloads = TakeGroups(1400, true);

    ASSERT_EQ(payloads.size(), 1u);
    EXPECT_EQ(payloads[0].size(), 64u);
    EXPECT_EQ(idle.Sticky().find("45 4D 50 54"), std::string::npos);
    EXPECT_EQ(TakeGroups(1400, true).size(), 0u);
    EXPECT_EQ(TakeGroups(1400, false).size(), 1u);
}

TEST(KzmfGroups, StreamLongerThanTheLimitComesAloneAndOneLongerThanTheBufferStays) {
    const TestStream large(1025, "HRM", 10000);
    const TestStream small(1026);
    const std::vector<uint8_t> data(2000, 1);
    large.Write("DATA", 'B', 1, 2000, data);
    small.WriteS("HRAT", 1);

    const auto payloads = TakeGroups(1400, false);

    ASSERT_EQ(payloads.size(), 2u);
    EXPECT_GT(payloads[0].size(), 2000u);
    large.Write("DATA", 'B', 1, 2000, data);
    small.WriteS("HRAT", 2);
    kzmfGroup group{.limit = 1400, .samplesOnly = false, .position = 0};
    std::vector<uint8_t> buffer(1500);
    uint32_t size = 0;
    EXPECT_EQ(MetadataGetPayloadGroup(group, buffer.data(), 1500, nullptr, &size), kKzmfNoRoom);
    EXPECT_EQ(MetadataGetPayloadGroup(group, buffer.data(), 1500, nullptr, &size), kKzmfDone);
    EXPECT_EQ(size, 64u);
    EXPECT_NE(large.Payload(), "");
}

}  // namespace
