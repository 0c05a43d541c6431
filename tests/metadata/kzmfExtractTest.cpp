// Extractions: payloads and session copies byte for byte, their sizes, idle and preformatted streams, groups.
#include <array>

#include "kzmfReader.h"
#include "testStream.h"

namespace {

const std::string kDevice = "DVID:L4x1:00000401 DVNM:c1x3:48524D00 ";

// Payload and session copy of one call. They take exactly the size that was estimated before.
struct Copies {
    std::string payload;
    std::string session;
};
Copies Extract(uint32_t sessionRate) {
    std::vector<uint8_t> buffer(MetadataEstimateReadBufferSize(0) + MetadataEstimateReadBufferSize(sessionRate));
    uint32_t payloadSize = 0;
    uint32_t sessionSize = 0;
    EXPECT_EQ(MetadataGetPayloadAndSession(buffer.data(), static_cast<uint32_t>(buffer.size()), nullptr, &payloadSize,
                                           nullptr, &sessionSize, sessionRate),
              kKzmfDone);
    return {Records(std::span(buffer).first(payloadSize)), Records(std::span(buffer).last(sessionSize))};
}

TEST(KzmfPayload, HoldsDevicesWithTheirStreams) {
    const TestStream first;
    const TestStream second;
    const TestStream other(0x01020304, "");
    first.Write(Sample("HRAT", 72));
    second.Write(Sample("CADE", 90));
    other.Write(Sample("TEMP", 21));

    const Copies copies = Extract(0);

    EXPECT_EQ(copies.payload, "DEVC:1x88{" + kDevice +
                                  "STRM:1x24{TSMP:L4x1:00000001 HRAT:S2x1:00480000} "
                                  "STRM:1x24{TSMP:L4x1:00000001 CADE:S2x1:005A0000}} "
                                  "DEVC:1x52{DVID:L4x1:01020304 DVNM:c1x0: "
                                  "STRM:1x24{TSMP:L4x1:00000001 TEMP:S2x1:00150000}}");
    EXPECT_EQ(copies.session, copies.payload) << "a rate of 0 thins nothing";
    EXPECT_EQ(first.Payload(), "");
}

TEST(KzmfPayload, StreamWithoutSamplesGivesAnEmptyRecordOfItsLastKeyAndCounts) {
    const TestStream stream;
    const Copies never = Extract(2);
    EXPECT_EQ(never.payload, "DEVC:1x32{" + kDevice + "STRM:1x0{}}") << "never had anything";
    EXPECT_EQ(never.session, never.payload);

    stream.Write(Sample("UNIT", 1, kKzmfSticky));
    EXPECT_EQ(Records(TakePayload()), "DEVC:1x44{" + kDevice + "STRM:1x12{UNIT:S2x1:00010000}}");
    stream.Write(Sample("HRAT", 72));
    TakePayload();
    const std::string counters = "TSMP:L4x1:00000001 UNIT:S2x1:00010000 HRAT:S2x0:}}";
    EXPECT_EQ(Extract(0).payload, "DEVC:1x76{" + kDevice + "STRM:1x44{EMPT:L4x1:00000001 " + counters);
    EXPECT_EQ(Records(TakePayload()), "DEVC:1x76{" + kDevice + "STRM:1x44{EMPT:L4x1:00000002 " + counters);
}

TEST(KzmfPayload, NothingChangesWhenTheBufferIsTooSmall) {
    const TestStream stream;
    stream.Write(Sample("HRAT", 72));
    TakePayload();  // the next one marks the stream idle
    std::array<uint8_t, 72> buffer;
    void* payload = nullptr;

    EXPECT_EQ(MetadataGetPayload(buffer.data(), 71, &payload, nullptr), kKzmfNoRoom);
    EXPECT_EQ(stream.Sticky(), "TSMP:L4x1:00000001");
    EXPECT_EQ(MetadataGetPayload(buffer.data(), 72, &payload, nullptr), kKzmfDone);
    EXPECT_EQ(payload, buffer.data());
}

TEST(KzmfPayload, LongContainersAreMeasuredInFoursAndADeviceThatOutgrowsItsOneContinuesInAnother) {
    const TestStream first(1025, "HRM", 300000);
    const TestStream second(1025, "HRM", 300000);
    for (const TestStream* stream : {&first, &second}) {
        for (const char* key : {"AAAA", "BBBB", "CCCC"}) {
            ASSERT_EQ(stream->Write({key, 'B', 1, Counting(60000)}), kKzmfDone);
        }
    }

    const std::string payload = Extract(0).payload;

    const std::string head = "DEVC:4x45017{" + kDevice + "STRM:4x45009{";
    EXPECT_EQ(payload.find(head), 0u);
    EXPECT_NE(payload.find("}} " + head), std::string::npos);
}

TEST(KzmfPayload, PreformattedOneIsCopiedWhenItIsValidAndThrownAwayOtherwise) {
    const TestStream before;
    const TestStream preformatted(0xFFFFFFFF, "PRE");
    const TestStream after;
    before.Write(Sample("HRAT", 1));
    preformatted.Write({"PFRM", 'c', 1, {'D', 'E', 'V', 'C', 0, 1, 0, 0}});
    after.Write(Sample("HRAT", 2));

    const std::string stream = kDevice + "STRM:1x24{TSMP:L4x1:00000001 HRAT:S2x1:000";
    EXPECT_EQ(Extract(0).payload, "DEVC:1x56{" + stream + "10000}} DEVC:1x0{} DEVC:1x56{" + stream + "20000}}");
    for (const char* text : {"DEVC", "STRMaaaa", "xx"}) {
        preformatted.Write(Text("PFRM", text));
        EXPECT_EQ(ReadKzmf(TakePayload()).devices.size(), 2u) << text;  // those around it
    }
    const Copies idle = Extract(0);
    EXPECT_NE(idle.payload.find("DVNM:c1x3:50524500 STRM:1x32{EMPT:L4x1:00000001 TSMP"), std::string::npos);
    EXPECT_EQ(idle.session, idle.payload);
}

// ---------------------------------------------------------------- session copies

TEST(KzmfSession, ThinsRecordsOfTwiceTheRateKeepsStructuresWholeAndGoesOnCounting) {
    const TestStream stream;
    stream.Write({"FAST", 'B', 1, Counting(8)});
    stream.Write({"SLOW", 'B', 1, Counting(3)});
    stream.Write({"ACCL", 'B', 3, Counting(12)});
    stream.Write({"NEST", '\0', 1, {'A', 'A', 'A', 'A', 'B', 1, 0, 4, 1, 2, 3, 4}});

    EXPECT_EQ(Extract(2).session, "DEVC:1x104{" + kDevice +
                                      "STRM:1x72{TSMP:L4x1:0000001B FAST:B1x2:01050000 SLOW:B1x3:01020300 "
                                      "ACCL:B3x2:0102030708090000 NEST:1x12{AAAA:B1x4:01020304}}}");

    const TestStream alone(1026);
    for (const char* taken : {"FAST:B1x2:01040000", "FAST:B1x2:02050000", "FAST:B1x1:03000000"}) {
        alone.Write({"FAST", 'B', 1, Counting(5)});
        EXPECT_NE(Extract(2).session.find(taken), std::string::npos) << taken;  // every third, (5 + 1) / 2
    }
}

TEST(KzmfSizes, MaximumGrowsWithTheRoomUsed) {
    const TestStream first;
    const TestStream second;
    EXPECT_EQ(MetadataMaximumReadBufferSize(), 68u);  // 4 * 8 * 22 / 10 = 70

    first.Write(Sample("HRAT", 1));  // 12 bytes in either area

    EXPECT_EQ(MetadataMaximumReadBufferSize(), 120u);  // (32 + 24) * 22 / 10 = 123
    EXPECT_EQ(MetadataEstimateUnsentSize(), 64u);      // of the first stream alone
}

}  // namespace
