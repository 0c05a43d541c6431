// Stores: what lies in the areas of a stream after them, byte for byte.
#include <array>
#include <vector>

#include "testStream.h"

namespace {

constexpr const char* kOneSampleCounted = "54 53 4D 50 4C 04 00 01 00 00 00 01";

// ---------------------------------------------------------------- types

struct TypeCase {
    char type;
    int size;
    int swapUnit;
    const char* stored;  // data and padding of one value given as the bytes 01, 02, ...
};
void PrintTo(const TypeCase& row, std::ostream* out) {
    *out << row.type;
}
constexpr TypeCase kTypeCases[] = {
    {'b', 1, 1, "01 00 00 00"},
    {'B', 1, 1, "01 00 00 00"},
    {'c', 1, 1, "01 00 00 00"},
    {'u', 1, 1, "01 00 00 00"},
    {'s', 2, 2, "02 01 00 00"},
    {'S', 2, 2, "02 01 00 00"},
    {'l', 4, 4, "04 03 02 01"},
    {'L', 4, 4, "04 03 02 01"},
    {'h', 4, 4, "04 03 02 01"},
    {'H', 4, 4, "04 03 02 01"},
    {'f', 4, 4, "04 03 02 01"},
    {'F', 4, 4, "04 03 02 01"},
    {'q', 4, 4, "04 03 02 01"},
    {'Q', 8, 8, "08 07 06 05 04 03 02 01"},
    {'j', 8, 8, "08 07 06 05 04 03 02 01"},
    {'J', 8, 8, "08 07 06 05 04 03 02 01"},
    {'d', 8, 8, "08 07 06 05 04 03 02 01"},
    {'G', 16, 1, "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10"},
    {'U', 16, 1, "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10"},
    {'1', 1, 1, "01 00 00 00"},
    {'2', 2, 1, "01 02 00 00"},
    {'3', 3, 1, "01 02 03 00"},
    {'4', 4, 1, "01 02 03 04"},
    {'8', 8, 1, "01 02 03 04 05 06 07 08"},
};

std::vector<uint8_t> Counting(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i + 1);
    }
    return bytes;
}

class KzmfTypes : public testing::TestWithParam<TypeCase> {};

TEST_P(KzmfTypes, AreStoredBigEndianInTheirSwapUnit) {
    const TypeCase& type = GetParam();
    const TestStream stream;
    const auto size = static_cast<uint32_t>(type.size);
    const auto header = std::array<uint8_t, 8>{
        'K', 'E', 'Y', '1', static_cast<uint8_t>(type.type), static_cast<uint8_t>(type.size), 0, 1};

    const uint32_t result = stream.Write("KEY1", type.type, size, 1, Counting(size));

    EXPECT_EQ(result, kKzmfDone);
    EXPECT_EQ(stream.Payload(), Hex(header) + " " + type.stored);
    EXPECT_EQ(MetadataTypeSize(static_cast<uint8_t>(type.type)), type.size);
    EXPECT_EQ(MetadataEndianSize(static_cast<uint8_t>(type.type)), type.swapUnit);
}

INSTANTIATE_TEST_SUITE_P(Table, KzmfTypes, testing::ValuesIn(kTypeCases), [](const auto& row) {
    return std::string(1, row.param.type) + (row.param.type >= 'a' ? "Lower" : "");
});

TEST(KzmfTypeTable, HasNoOtherTypes) {
    int valid = 0;
    for (uint32_t type = 0; type <= 0x1FF; ++type) {
        valid += MetadataTypeSize(type) != -1 && MetadataEndianSize(type) != -1 ? 1 : 0;
    }
    EXPECT_EQ(valid, static_cast<int>(std::size(kTypeCases)));
}

TEST(KzmfStore, SwapsEachValueOfAStructureAndLeavesAPartOfAValueAlone) {
    const TestStream stream;

    stream.Write("TWO ", 'S', 4, 1, Counting(4));
    stream.Write("PART", 'L', 5, 1, Counting(5));

    EXPECT_EQ(stream.Payload(),
              "54 57 4F 20 53 04 00 01 02 01 04 03 "
              "50 41 52 54 4C 05 00 01 04 03 02 01 05 00 00 00");
}

// ---------------------------------------------------------------- complex types

struct ComplexCase {
    const char* name;
    const char* typeText;
    uint32_t structureSize;
    const char* stored;  // of one sample 01, 02, ...
};
void PrintTo(const ComplexCase& row, std::ostream* out) {
    *out << row.name;
}
constexpr ComplexCase kComplexCases[] = {
    {"FieldsByTheirTypes", "SLb", 7, "02 01 06 05 04 03 07 00"},
    {"TextShorterThanTheSample", "S", 6, "02 01 03 04 05 06 00 00"},
    {"TextLongerThanTheSample", "SSSS", 4, "02 01 04 03"},
    {"FieldThatDoesNotFit", "SJ", 4, "02 01 03 04"},
    {"CharacterThatIsNoType", "S!S", 4, "02 01 03 04"},
    {"ComplexInComplex", "?S", 4, "01 02 03 04"},
    {"NoText", "", 4, "01 02 03 04"},
    {"TextOf63Characters", "SBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBB", 4, "02 01 03 04"},
    {"TextOf64CharactersIsForgotten", "SBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBB", 4,
     "01 02 03 04"},
};

class KzmfComplexTypes : public testing::TestWithParam<ComplexCase> {};

TEST_P(KzmfComplexTypes, AreSwappedFieldByField) {
    const TestStream stream;
    ASSERT_EQ(stream.WriteText("TYPE", "SS", kKzmfSticky), kKzmfDone);
    ASSERT_EQ(stream.WriteText("TYPE", GetParam().typeText), kKzmfDone);
    const std::string before = stream.Payload();
    const std::array<uint8_t, 8> header{'C', 'P', 'L', 'X', '?', static_cast<uint8_t>(GetParam().structureSize), 0, 1};

    const uint32_t result = stream.Write("CPLX", '?', GetParam().structureSize, 1, Counting(GetParam().structureSize));

    EXPECT_EQ(result, kKzmfDone);
    EXPECT_EQ(stream.Payload(), before + " " + Hex(header) + " " + GetParam().stored);
}

INSTANTIATE_TEST_SUITE_P(Table, KzmfComplexTypes, testing::ValuesIn(kComplexCases),
                         [](const auto& row) { return row.param.name; });

TEST(KzmfStore, SwapsEverySampleOfAComplexRecord) {
    const TestStream stream;
    stream.WriteText("TYPE", "SB", kKzmfSticky);

    stream.Write("CPLX", '?', 3, 2, Counting(6));

    EXPECT_EQ(stream.Payload(), "43 50 4C 58 3F 03 00 02 02 01 03 05 04 06 00 00");
}

// ---------------------------------------------------------------- payload records

TEST(KzmfStore, AddsSamplesToTheRecordOfTheirKeyAndCountsThem) {
    const TestStream stream;

    stream.WriteS("HRAT", 72);
    const std::string one = stream.Payload();
    const std::string oneCounted = stream.Sticky();
    stream.WriteS("HRAT", 73);

    EXPECT_EQ(one, "48 52 41 54 53 02 00 01 00 48 00 00");
    EXPECT_EQ(oneCounted, kOneSampleCounted);
    EXPECT_EQ(stream.Payload(), "48 52 41 54 53 02 00 02 00 48 00 49");
    EXPECT_EQ(stream.Sticky(), "54 53 4D 50 4C 04 00 01 00 00 00 02");
}

TEST(KzmfStore, MovesTheRecordsBehindTheGrowingOneAndPadsWithZeroes) {
    const TestStream stream;
    stream.Write("AAAA", 'B', 1, 3, std::array<uint8_t, 3>{1, 2, 3});
    stream.WriteS("BBBB", 0x0405);

    stream.Write("AAAA", 'B', 1, 2, std::array<uint8_t, 2>{0xA4, 0xA5});

    EXPECT_EQ(stream.Payload(), "41 41 41 41 42 01 00 05 01 02 03 A4 A5 00 00 00 42 42 42 42 53 02 00 01 04 05 00 00");
    EXPECT_EQ(stream.Sticky(), "54 53 4D 50 4C 04 00 01 00 00 00 06");
}

TEST(KzmfStore, KeepsAnotherLayoutUnderTheSameKeyApart) {
    const TestStream stream;
    stream.WriteS("HRAT", 1);
    stream.WriteL("HRAT", 2);

    stream.WriteS("HRAT", 3);

    EXPECT_EQ(stream.Payload(), "48 52 41 54 53 02 00 02 00 01 00 03 48 52 41 54 4C 04 00 01 00 00 00 02");
}

struct FlagCase {
    const char* name;
    uint32_t flags;
    const char* payload;  // after 0x0102 under "OLD1" and 0x0304 under "NEW1", the latter with the flags
    const char* sticky;
};
void PrintTo(const FlagCase& row, std::ostream* out) {
    *out << row.name;
}
constexpr FlagCase kFlagCases[] = {
    {"None", 0, "4F 4C 44 31 53 02 00 01 01 02 00 00 4E 45 57 31 53 02 00 01 03 04 00 00",
     "54 53 4D 50 4C 04 00 01 00 00 00 02"},
    {"Sticky", kKzmfSticky, "4F 4C 44 31 53 02 00 01 01 02 00 00",
     "54 53 4D 50 4C 04 00 01 00 00 00 01 4E 45 57 31 53 02 00 01 03 04 00 00"},
    {"BigEndian", kKzmfBigEndian, "4F 4C 44 31 53 02 00 01 01 02 00 00 4E 45 57 31 53 02 00 01 04 03 00 00",
     "54 53 4D 50 4C 04 00 01 00 00 00 02"},
    {"Accumulate", kKzmfAccumulate, "4E 45 57 31 53 02 00 01 03 04 00 00 4F 4C 44 31 53 02 00 01 01 02 00 00",
     "54 53 4D 50 4C 04 00 01 00 00 00 02"},
    {"StickyAccumulate", kKzmfSticky | kKzmfAccumulate, "4F 4C 44 31 53 02 00 01 01 02 00 00",
     "4E 45 57 31 53 02 00 01 03 04 00 00 54 53 4D 50 4C 04 00 01 00 00 00 01"},
    {"StickyBigEndian", kKzmfSticky | kKzmfBigEndian, "4F 4C 44 31 53 02 00 01 01 02 00 00",
     "54 53 4D 50 4C 04 00 01 00 00 00 01 4E 45 57 31 53 02 00 01 04 03 00 00"},
};

class KzmfFlags : public testing::TestWithParam<FlagCase> {};

TEST_P(KzmfFlags, DecideWhereAndHowARecordIsStored) {
    const TestStream stream;
    stream.WriteS("OLD1", 0x0102);

    const uint32_t result = stream.WriteS("NEW1", 0x0304, GetParam().flags);

    EXPECT_EQ(result, kKzmfDone);
    EXPECT_EQ(stream.Payload(), GetParam().payload);
    EXPECT_EQ(stream.Sticky(), GetParam().sticky);
}

INSTANTIATE_TEST_SUITE_P(Table, KzmfFlags, testing::ValuesIn(kFlagCases),
                         [](const auto& row) { return row.param.name; });

TEST(KzmfStore, TakesTheMutexOfItsStreamUnlessTheCallerHasIt) {
    const TestStream stream;
    auto* mutex = const_cast<pthread_mutex_t*>(&stream.record().mutex);

    pthread_mutex_lock(mutex);
    const uint32_t result = stream.WriteS("HRAT", 72, kKzmfMutexHeld);
    const int stillLocked = pthread_mutex_trylock(mutex);
    pthread_mutex_unlock(mutex);
    stream.WriteS("HRAT", 73);
    const int freeAgain = pthread_mutex_trylock(mutex);
    pthread_mutex_unlock(mutex);

    EXPECT_EQ(result, kKzmfDone);
    EXPECT_EQ(stillLocked, EBUSY);
    EXPECT_EQ(freeAgain, 0);
}

// ---------------------------------------------------------------- sticky records

TEST(KzmfSticky, ValueIsReplacedWhenTheNewOneTakesTheSameRoom) {
    const TestStream stream;
    stream.WriteText("NAME", "abcd", kKzmfSticky);

    stream.WriteText("NAME", "xyz", kKzmfSticky);  // three bytes take the room of four
    const std::string replaced = stream.Sticky();
    stream.WriteText("NAME", "too long", kKzmfSticky);

    EXPECT_EQ(replaced, "4E 41 4D 45 63 01 00 03 78 79 7A 00");
    EXPECT_EQ(stream.Sticky(), replaced);
}

TEST(KzmfSticky, CountersAreAddedUpForTypesLAndHOnly) {
    const TestStream stream;
    const uint32_t flags = kKzmfSticky | kKzmfAccumulate;
    const std::array<uint8_t, 4> five{5, 0, 0, 0};

    for (int i = 0; i < 3; ++i) {
        stream.Write("CNTL", 'L', 4, 1, five, flags);
        stream.Write("CNTh", 'h', 4, 1, five, flags);
        stream.Write("CNTl", 'l', 4, 1, five, flags);
    }
    stream.WriteL("CNTL", 0xFFFFFFFF, flags);  // wraps

    EXPECT_EQ(stream.Sticky(),
              "43 4E 54 6C 6C 04 00 01 00 00 00 05 "
              "43 4E 54 68 68 04 00 01 00 00 00 0F "
              "43 4E 54 4C 4C 04 00 01 00 00 00 0E");
}

TEST(KzmfSticky, TimeOffsetIsKeptBesideTheSample) {
    const TestStream stream;

    stream.WriteS("HRAT", 72, 0, 1.5F);
    const std::string first = stream.Sticky();
    stream.WriteS("HRAT", 0x4900, kKzmfBigEndian, 2.0F);

    EXPECT_EQ(first, "54 53 4D 50 4C 04 00 01 00 00 00 01 54 49 4D 4F 66 04 00 01 3F C0 00 00");
    EXPECT_EQ(stream.Sticky(), "54 53 4D 50 4C 04 00 01 00 00 00 02 54 49 4D 4F 66 04 00 01 00 00 00 40");
    EXPECT_EQ(stream.Payload(), "48 52 41 54 53 02 00 02 00 48 00 49");
}

TEST(KzmfSticky, SampleWithoutRoomForItsCounterOrTimeOffsetIsRefusedWhole) {
    const TestStream stream;
    stream.WriteText("FILL", std::string(200, 'x'), kKzmfSticky);
    ASSERT_EQ(stream.WriteText("MORE", std::string(24, 'x'), kKzmfSticky), kKzmfDone);
    const std::string sticky = stream.Sticky();

    const uint32_t sample = stream.WriteS("HRAT", 72);
    const uint32_t withOffset = stream.WriteS("STIC", 1, kKzmfSticky, 1.0F);

    EXPECT_EQ(sample, kKzmfNoRoom);
    EXPECT_EQ(withOffset, kKzmfNoRoom);
    EXPECT_EQ(stream.Payload(), "");
    EXPECT_EQ(stream.Sticky(), sticky);
}

// ---------------------------------------------------------------- what is refused

TEST(KzmfStore, InvalidKeysAreDroppedWithoutAWord) {
    const TestStream stream;
    for (const char* key : {"HR-T", "HRA_", "\x80RAT", "HRA\x1F", "[RAT", "`RAT", "/RAT", ":RAT", "@RAT", "{RAT"}) {
        EXPECT_EQ(stream.WriteS(key, 72), kKzmfDone) << key;
        EXPECT_EQ(stream.WriteS(key, 72, kKzmfSticky), kKzmfDone) << key;
    }
    EXPECT_EQ(stream.Payload(), "");
    EXPECT_EQ(stream.Sticky(), "");

    for (const char* key : {"AZaz", "09 Z"}) {
        EXPECT_EQ(stream.WriteS(key, 72), kKzmfDone) << key;
    }
    EXPECT_EQ(stream.record().payload.used, 24u);
}

TEST(KzmfStore, ContainersMustHoldWholeRecords) {
    const TestStream stream;
    const std::array<uint8_t, 12> inner{'H', 'R', 'A', 'T', 'S', 2, 0, 1, 0, 72, 0, 0};
    const std::span<const uint8_t> whole(inner);

    stream.Write("NEST", '\0', 1, 11, whole);
    stream.Write("NEST", '\0', 1, 3, whole);
    EXPECT_EQ(stream.Payload(), "");
    stream.Write("NEST", '\0', 1, 12, whole);

    EXPECT_EQ(stream.Payload(), "4E 45 53 54 00 01 00 0C 48 52 41 54 53 02 00 01 00 48 00 00");
    EXPECT_EQ(MetadataStreamWrite(stream.handle(), Key("NEST"), 256, 1, 3, inner.data(), 0, 0.0F), kKzmfDone);
    EXPECT_EQ(stream.record().payload.used, 20u);
}

TEST(KzmfStore, HandleAndSizesAreChecked) {
    const TestStream stream;
    const std::vector<uint8_t> data(70000);

    EXPECT_EQ(MetadataStreamWrite(nullptr, Key("HRAT"), 'S', 2, 1, data.data(), 0, 0.0F), kKzmfNoHandle);
    EXPECT_EQ(AppendFormattedMetadata(nullptr, data.data(), 12, 0, 1), kKzmfNoHandle);
    EXPECT_EQ(stream.Write("HRAT", 'B', 256, 1, data), kKzmfNoRoom);
    EXPECT_EQ(stream.Write("HRAT", 'B', 1, 65536, data), kKzmfNoRoom);
    EXPECT_EQ(stream.Write("HRAT", 'B', 0x10000, 0x10000, data), kKzmfNoRoom);
    EXPECT_EQ(stream.Write("HRAT", 'B', 255, 65535, data), kKzmfNoRoom);
    EXPECT_EQ(stream.Payload(), "");
}

// A record is placed directly while twice its need is less than what is free, otherwise only by way of a work buffer.
TEST(KzmfStore, FillsAnAreaHalfByHalfAndAllOfItWithAWorkBuffer) {
    const TestStream stream(1025, "HRM", 776);  // 256 bytes of payload
    const std::vector<uint8_t> data(256, 0xAB);

    EXPECT_EQ(stream.Write("BIG1", 'B', 1, 116, data), kKzmfNoRoom);  // 2 * 128 is not below 256
    EXPECT_EQ(stream.Write("BIG1", 'B', 1, 115, data), kKzmfDone);
    EXPECT_EQ(stream.record().payload.used, 124u);
    EXPECT_EQ(stream.Write("BIG2", 'B', 1, 54, data), kKzmfNoRoom);  // 2 * 66 is not below 132

    std::vector<uint8_t> work(200);
    EXPECT_EQ(MetadataSetWorkBuf(nullptr, 200), kKzmfNoRoom);
    EXPECT_EQ(MetadataSetWorkBuf(work.data(), 0), kKzmfNoRoom);
    EXPECT_EQ(MetadataSetWorkBuf(work.data(), 200), kKzmfDone);
    EXPECT_EQ(stream.Write("BIG2", 'S', 2, 60, data), kKzmfNoRoom);  // fills the area to its last byte
    EXPECT_EQ(stream.Write("BIG2", 'S', 2, 58, data, 0, 1.0F), kKzmfNoRoom);
    EXPECT_EQ(stream.record().sticky.used, 12u);  // and no time offset of a refused sample
    EXPECT_EQ(stream.Write("BIG2", 'S', 2, 59, data), kKzmfDone);
    EXPECT_EQ(MetadataSetWorkBuf(work.data(), 1), kKzmfDone);  // as good as none

    EXPECT_EQ(stream.record().payload.used, 252u);
    EXPECT_TRUE(IsValidKZMF(stream.record().payload.data, 252, true, 2));
    EXPECT_EQ(stream.WriteS("HRAT", 1), kKzmfNoRoom);
}

TEST(KzmfStore, RecordThatCannotSayItsSamplesAnyMoreIsFull) {
    const TestStream stream(1025, "HRM", 300000);
    const std::vector<uint8_t> data(65535);

    ASSERT_EQ(stream.Write("BYTE", 'B', 1, 65534, data), kKzmfDone);
    ASSERT_EQ(stream.Write("BYTE", 'B', 1, 1, data), kKzmfDone);
    EXPECT_EQ(stream.Write("BYTE", 'B', 1, 1, data), kKzmfNoRoom);
    EXPECT_TRUE(IsValidKZMF(stream.record().payload.data, stream.record().payload.used, true, 2));
}

TEST(KzmfStore, FormattedRecordMustSayItsOwnLength) {
    const TestStream stream;
    const std::array<uint8_t, 12> record{'H', 'R', 'A', 'T', 'S', 2, 0, 1, 0, 72, 9, 9};

    for (const uint32_t length : {0u, 7u, 8u, 9u, 11u, 12u}) {
        EXPECT_EQ(AppendFormattedMetadata(stream.handle(), record.data(), length, 0, 1), kKzmfDone) << length;
    }
    EXPECT_EQ(stream.Payload(), "");
    EXPECT_EQ(AppendFormattedMetadata(stream.handle(), record.data(), 10, 0, 1), kKzmfDone);

    EXPECT_EQ(stream.Payload(), "48 52 41 54 53 02 00 01 00 48 00 00");
    EXPECT_EQ(stream.Sticky(), kOneSampleCounted);
}

// ---------------------------------------------------------------- streams

TEST(KzmfStreams, LieInTheirCallersBuffer) {
    std::vector<uint8_t> buffer(3000, 0xEE);
    const std::string longName(200, 'n');

    ASSERT_EQ(MetadataStreamOpen(7, longName.c_str(), buffer.data(), 3000), buffer.data());
    const auto& record = *reinterpret_cast<const kzmfStream*>(buffer.data());

    EXPECT_EQ(record.payload.data, buffer.data() + 520);
    EXPECT_EQ(record.payload.size, 2480u);
    EXPECT_EQ(record.sticky.data, buffer.data() + 264);
    EXPECT_EQ(record.sticky.size, 256u);
    EXPECT_EQ(std::string(record.name, sizeof(record.name)), std::string(80, 'n'));
    EXPECT_EQ(buffer[519], 0);
    EXPECT_EQ(buffer[520], 0xEE);
    EXPECT_EQ(MetadataStreamClose(buffer.data()), buffer.data());
}

TEST(KzmfStreams, UnusableBuffersAndHandlesGiveNull) {
    alignas(16) std::array<uint8_t, 800> buffer{};

    EXPECT_EQ(MetadataStreamOpen(7, "HRM", buffer.data(), 775), nullptr);
    EXPECT_EQ(MetadataStreamOpen(7, "HRM", nullptr, 3000), nullptr);
    EXPECT_EQ(MetadataStreamOpen(7, "HRM", buffer.data() + 1, 776), nullptr);
    EXPECT_FALSE(MetadataHasStreams());
    EXPECT_EQ(MetadataStreamOpen(7, nullptr, buffer.data(), 776), buffer.data());
    EXPECT_TRUE(MetadataHasStreams());
    EXPECT_EQ(MetadataStreamOpen(7, "HRM", buffer.data(), 776), nullptr);  // a stream already
    EXPECT_EQ(MetadataStreamClose(buffer.data() + 8), nullptr);
    EXPECT_EQ(MetadataStreamClose(nullptr), nullptr);
    EXPECT_EQ(MetadataStreamClose(buffer.data()), buffer.data());
    EXPECT_EQ(MetadataStreamClose(buffer.data()), nullptr);
    EXPECT_FALSE(MetadataHasStreams());
}

TEST(KzmfStreams, AreListedInOpeningOrderAndUnlinkedAnywhere) {
    auto first = std::make_unique<TestStream>(1);
    auto second = std::make_unique<TestStream>(2);
    auto third = std::make_unique<TestStream>(3);
    const auto order = [] {
        std::string ids;
        for (const kzmfStream* stream = g_metadata_devices; stream != nullptr; stream = stream->next) {
            EXPECT_EQ(stream->next == nullptr || stream->next->prev == stream, true);
            ids += std::to_string(stream->deviceId);
        }
        return ids;
    };

    EXPECT_EQ(order(), "123");
    second.reset();
    EXPECT_EQ(order(), "13");
    first.reset();
    EXPECT_EQ(order(), "3");
    const TestStream fourth(4);
    EXPECT_EQ(order(), "34");
    third.reset();
    EXPECT_EQ(order(), "4");
}

TEST(KzmfStreams, DeviceIdZeroTakesTheNextNumberEvenAfterTheFirstStreamClosed) {
    auto first = std::make_unique<TestStream>(0);
    const TestStream second(0);
    EXPECT_EQ(first->record().deviceId, 1u);
    EXPECT_EQ(second.record().deviceId, 2u);

    first.reset();

    EXPECT_EQ(TestStream(0).record().deviceId, 3u);
}

TEST(KzmfStreams, ResetEmptiesThePayloadAndZeroesTheCountersAlone) {
    const TestStream stream;
    stream.WriteS("HRAT", 72);
    stream.WriteS("UNIT", 5, kKzmfSticky);
    TakePayload();
    TakePayload();  // counts an empty payload
    stream.WriteS("HRAT", 72);

    MetadataStreamReset(stream.handle());
    MetadataStreamReset(nullptr);

    EXPECT_EQ(stream.Payload(), "");
    EXPECT_EQ(stream.Sticky(),
              "45 4D 50 54 4C 04 00 01 00 00 00 00 "
              "54 53 4D 50 4C 04 00 01 00 00 00 00 "
              "55 4E 49 54 53 02 00 01 00 05 00 00");
}

TEST(KzmfStreams, ServiceMayBeClosedAndStartedAgain) {
    MetadataServiceInit();
    MetadataServiceInit();
    MetadataServiceClose();
    MetadataServiceClose();
    MetadataServiceInit();

    const TestStream stream;

    EXPECT_EQ(stream.WriteS("HRAT", 72), kKzmfDone);
}

}  // namespace
