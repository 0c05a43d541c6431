// Stores: what lies in the areas of a stream after them, byte for byte.
#include <array>

#include "testStream.h"

namespace {

TEST(KzmfTypes, AreStoredBigEndianInTheirSwapUnit) {
    const struct {
        std::string types;
        int size;
        int swapUnit;
        const char* stored;  // the data of one value given as the bytes 01, 02, ...
    } rows[] = {
        {"bBcu1", 1, 1, "01000000"},
        {"sS", 2, 2, "02010000"},
        {"2", 2, 1, "01020000"},
        {"3", 3, 1, "01020300"},
        {"lLhHfFq", 4, 4, "04030201"},
        {"4", 4, 1, "01020304"},
        {"QjJd", 8, 8, "0807060504030201"},
        {"8", 8, 1, "0102030405060708"},
        {"GU", 16, 1, "0102030405060708090A0B0C0D0E0F10"},
    };
    std::string known;
    for (const auto& row : rows) {
        for (const char type : row.types) {
            SCOPED_TRACE(type);
            const TestStream stream;
            const auto size = static_cast<uint32_t>(row.size);

            EXPECT_EQ(stream.Write({"KEY1", type, size, Counting(size)}), kKzmfDone);

            EXPECT_EQ(stream.Payload(), std::string("KEY1:") + type + std::to_string(size) + "x1:" + row.stored);
            EXPECT_EQ(MetadataTypeSize(static_cast<uint8_t>(type)), row.size);
            EXPECT_EQ(MetadataEndianSize(static_cast<uint8_t>(type)), row.swapUnit);
        }
        known += row.types;
    }
    for (uint32_t type = 0; type <= 0x1FF; ++type) {
        const bool exists = type != 0 && type < 256 && known.find(static_cast<char>(type)) != std::string::npos;
        EXPECT_EQ(MetadataTypeSize(type) != -1, exists) << type;
        EXPECT_EQ(MetadataEndianSize(type) != -1, exists) << type;
    }
}

// Both areas of a stream after these stores, all of which are accepted.
std::string AreasAfter(const std::vector<Store>& stores) {
    const TestStream stream;
    for (const Store& store : stores) {
        EXPECT_EQ(stream.Write(store), kKzmfDone) << store.key;
    }
    return stream.Payload() + " | " + stream.Sticky();
}

TEST(KzmfTypes, ComplexSamplesAreSwappedFieldByField) {
    // One sample 01, 02, ... after the description `typeText`, which replaced an earlier one.
    const auto stored = [](const std::string& typeText, uint32_t size = 4) {
        const TestStream stream;
        stream.Write(Text("TYPE", "SS"));
        stream.Write(Text("TYPE", typeText));
        TakePayload();
        stream.Write({"CPLX", '?', size, Counting(size)});
        return stream.Payload();
    };
    const std::string sixtyTwo(62, 'B');

    EXPECT_EQ(stored("SLb", 7), "CPLX:?7x1:0201060504030700");
    EXPECT_EQ(stored("SSSS"), "CPLX:?4x1:02010403") << "a text longer than the sample";
    EXPECT_EQ(stored("SJ"), "CPLX:?4x1:02010304") << "a field that does not fit";
    EXPECT_EQ(stored("S!S"), "CPLX:?4x1:02010304") << "a character that is no type";
    EXPECT_EQ(stored("?S"), "CPLX:?4x1:01020304") << "complex in complex";
    EXPECT_EQ(stored(""), "CPLX:?4x1:01020304");
    EXPECT_EQ(stored("S" + sixtyTwo), "CPLX:?4x1:02010304") << "63 characters";
    EXPECT_EQ(stored("SB" + sixtyTwo), "CPLX:?4x1:01020304") << "64 characters are forgotten";
    EXPECT_EQ(AreasAfter({Text("TYPE", "SB", kKzmfSticky), {"CPLX", '?', 3, Counting(6)}}),
              "CPLX:?3x2:0201030504060000 | TSMP:L4x1:00000002 TYPE:c1x2:53420000");
}

TEST(KzmfStore, FlagsDecideWhereAndHowARecordIsStored) {
    const auto after = [](uint32_t flags) {
        return AreasAfter({Sample("OLD1", 0x0102), Sample("NEW1", 0x0304, flags)});
    };

    EXPECT_EQ(after(0), "OLD1:S2x1:01020000 NEW1:S2x1:03040000 | TSMP:L4x1:00000002");
    EXPECT_EQ(after(kKzmfBigEndian), "OLD1:S2x1:01020000 NEW1:S2x1:04030000 | TSMP:L4x1:00000002");
    EXPECT_EQ(after(kKzmfAccumulate), "NEW1:S2x1:03040000 OLD1:S2x1:01020000 | TSMP:L4x1:00000002");
    EXPECT_EQ(after(kKzmfSticky), "OLD1:S2x1:01020000 | TSMP:L4x1:00000001 NEW1:S2x1:03040000");
    EXPECT_EQ(after(kKzmfSticky | kKzmfBigEndian), "OLD1:S2x1:01020000 | TSMP:L4x1:00000001 NEW1:S2x1:04030000");
    EXPECT_EQ(after(kKzmfSticky | kKzmfAccumulate), "OLD1:S2x1:01020000 | NEW1:S2x1:03040000 TSMP:L4x1:00000001");
}

TEST(KzmfStore, SamplesJoinTheRecordOfTheirKeyAndLayoutAndAreCounted) {
    EXPECT_EQ(AreasAfter({Sample("HRAT", 72), Sample("HRAT", 73)}), "HRAT:S2x2:00480049 | TSMP:L4x1:00000002");
    EXPECT_EQ(AreasAfter({Sample("HRAT", 1), {"HRAT", 'L', 4, {5, 0, 0, 0}}, Sample("HRAT", 3)}),
              "HRAT:S2x2:00010003 HRAT:L4x1:00000005 | TSMP:L4x1:00000003");
    EXPECT_EQ(AreasAfter({{"AAAA", 'B', 1, {1, 2, 3}}, Sample("BBBB", 0x0405), {"AAAA", 'B', 1, {0xA4, 0xA5}}}),
              "AAAA:B1x5:010203A4A5000000 BBBB:S2x1:04050000 | TSMP:L4x1:00000006")
        << "records behind a growing one move; padding is zero";
    EXPECT_EQ(AreasAfter({{"TWO ", 'S', 4, Counting(4)}, {"PART", 'L', 5, Counting(5)}}),
              "TWO :S4x1:02010403 PART:L5x1:0403020105000000 | TSMP:L4x1:00000002")
        << "each value of a structure is swapped, a part of a value is not";
    EXPECT_EQ(AreasAfter({Sample("HRAT", 72), Sample("HRAT", 0x4900, kKzmfBigEndian, 2.0F)}),
              "HRAT:S2x2:00480049 | TSMP:L4x1:00000002 TIMO:f4x1:00000040")
        << "a time offset is kept beside its sample, in its byte order";
}

TEST(KzmfStore, SampleIsStoredAlsoWhenTheStickyAreaIsFull) {
    const std::string areas =
        AreasAfter({Text("FULL", std::string(240, 'x'), kKzmfSticky), Sample("HRAT", 72, 0, 2.0F), Sample("HRAT", 73)});

    EXPECT_EQ(areas.substr(0, 34), "HRAT:S2x2:00480049 | FULL:c1x240:7");
    EXPECT_EQ(areas.find("TSMP"), std::string::npos);
    EXPECT_EQ(areas.find("TIMO"), std::string::npos);
}

TEST(KzmfStore, StickyValueIsReplacedByOneOfTheSameRoomOrAddedToACounterOfTypeLOrH) {
    EXPECT_EQ(AreasAfter({Text("NAME", "abcd", kKzmfSticky), Text("NAME", "xyz", kKzmfSticky)}),
              " | NAME:c1x3:78797A00");
    EXPECT_EQ(AreasAfter({Text("NAME", "abcd", kKzmfSticky), Text("NAME", "too long", kKzmfSticky)}),
              " | NAME:c1x4:61626364");
    const auto counted = [](char type, uint8_t lowByte) {
        const Store store{"CNT1", type, 4, {lowByte, 0xFF, 0xFF, 0xFF}, kKzmfSticky | kKzmfAccumulate};
        return AreasAfter({store, store});
    };
    EXPECT_EQ(counted('L', 0xFF), " | CNT1:L4x1:FFFFFFFE");
    EXPECT_EQ(counted('h', 0xFE), " | CNT1:h4x1:FFFFFFFC");
    EXPECT_EQ(counted('l', 0xFD), " | CNT1:l4x1:FFFFFFFD");
}

TEST(KzmfStore, InvalidKeysAndContainersAreDroppedWithoutAWord) {
    const std::vector<uint8_t> inner{'H', 'R', 'A', 'T', 'S', 2, 0, 1, 0, 72, 0, 0};

    for (const char* key : {"HRA\x1F", "\x80RAT", "[RAT", "`RAT", "/RAT", ":RAT", "@RAT", "{RAT"}) {
        EXPECT_EQ(AreasAfter({Sample(key, 72), Sample(key, 72, kKzmfSticky)}), " | ") << key;
    }
    EXPECT_EQ(AreasAfter({Sample("AZaz", 1), Sample("09 Z", 1)}),
              "AZaz:S2x1:00010000 09 Z:S2x1:00010000 | TSMP:L4x1:00000002");
    EXPECT_EQ(AreasAfter({{"NEST", 0, 1, {inner.begin(), inner.end() - 1}}, {"NEST", 0, 1, {1, 2, 3}}}), " | ");
    EXPECT_EQ(AreasAfter({{"NEST", 0, 1, {'D', 'E', 'E', 'P', 0, 1, 0, 4, 1, 2, 3, 4}}}), " | ");
    EXPECT_EQ(AreasAfter({{"NEST", 0, 1, inner}}), "NEST:1x12{HRAT:S2x1:00480000} | TSMP:L4x1:0000000C");
}

TEST(KzmfStore, FormattedRecordMustSayItsOwnLength) {
    const TestStream stream;
    const std::vector<uint8_t> record{'H', 'R', 'A', 'T', 'S', 2, 0, 1, 0, 72, 9, 9};

    for (const uint32_t length : {0u, 7u, 8u, 9u, 11u, 12u, 10u}) {  // the last one is right
        EXPECT_EQ(AppendFormattedMetadata(stream.handle(), record.data(), length, 0, 1), kKzmfDone) << length;
    }

    EXPECT_EQ(stream.Payload(), "HRAT:S2x1:00480000");
    EXPECT_EQ(stream.Sticky(), "TSMP:L4x1:00000001");
}

TEST(KzmfStore, TakesTheMutexOfItsStreamUnlessTheCallerHasIt) {
    const TestStream stream;
    auto* mutex = const_cast<pthread_mutex_t*>(&stream.record().mutex);

    pthread_mutex_lock(mutex);
    EXPECT_EQ(stream.Write(Sample("HRAT", 72, kKzmfMutexHeld)), kKzmfDone);
    EXPECT_EQ(pthread_mutex_trylock(mutex), EBUSY);
    pthread_mutex_unlock(mutex);
    EXPECT_EQ(stream.Write(Sample("HRAT", 73)), kKzmfDone);
    EXPECT_EQ(pthread_mutex_trylock(mutex), 0);
    pthread_mutex_unlock(mutex);
}

// ---------------------------------------------------------------- what is refused

TEST(KzmfStore, HandleAndSizesAreChecked) {
    const TestStream stream(1025, "HRM", 300000);
    const std::vector<uint8_t> data(70000);
    const auto write = [&](void* handle, uint32_t size, uint32_t repeat) {
        return MetadataStreamWrite(handle, Key("BYTE"), 'B', size, repeat, data.data(), 0, static_cast<float>(repeat));
    };

    EXPECT_EQ(write(nullptr, 1, 1), kKzmfNoHandle);
    EXPECT_EQ(AppendFormattedMetadata(nullptr, data.data(), 12, 0, 1), kKzmfNoHandle);
    EXPECT_EQ(write(stream.handle(), 256, 1), kKzmfNoRoom);
    EXPECT_EQ(write(stream.handle(), 1, 65536), kKzmfNoRoom);
    EXPECT_EQ(write(stream.handle(), 0x10000, 0x10000), kKzmfNoRoom);
    EXPECT_EQ(write(stream.handle(), 1, 65535), kKzmfDone);
    EXPECT_EQ(write(stream.handle(), 1, 1), kKzmfNoRoom);  // the record cannot say more samples
    EXPECT_EQ(stream.Sticky(), "TSMP:L4x1:0000FFFF TIMO:f4x1:477FFF00") << "the refused sample's time offset is gone";
}

// A record is placed directly while twice its need is less than what is free, otherwise only by way of a work buffer.
TEST(KzmfStore, FillsAnAreaHalfByHalfAndAllOfItWithAWorkBuffer) {
    const TestStream stream(1025, "HRM", 776);  // 256 bytes of payload
    std::vector<uint8_t> work(200);

    EXPECT_EQ(stream.Write({"BIG1", 'B', 1, Counting(116)}), kKzmfNoRoom);  // 2 * 128 is not below 256
    EXPECT_EQ(stream.Write({"BIG1", 'B', 1, Counting(115)}), kKzmfDone);    // takes 124
    EXPECT_EQ(stream.Write({"BIG2", 'B', 1, Counting(54)}), kKzmfNoRoom);   // 2 * 66 is not below 132

    EXPECT_EQ(MetadataSetWorkBuf(work.data(), 200), kKzmfDone);
    EXPECT_EQ(stream.Write({"BIG2", 'S', 2, Counting(120)}), kKzmfNoRoom);  // would fill the area to its last byte
    EXPECT_EQ(stream.Write({"BIG2", 'S', 2, Counting(118)}), kKzmfDone);
    EXPECT_EQ(MetadataSetWorkBuf(work.data(), 1), kKzmfDone);  // as good as none

    EXPECT_EQ(stream.record().payload.used, 252u);
    EXPECT_EQ(stream.Payload().substr(0, 18), "BIG1:B1x115:010203");
    EXPECT_NE(stream.Payload().find(" BIG2:S2x59:02010403"), std::string::npos);
}

// ---------------------------------------------------------------- streams

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
    EXPECT_EQ(MetadataStreamClose(buffer.data()), buffer.data());
    EXPECT_EQ(MetadataStreamClose(buffer.data()), nullptr);
}

TEST(KzmfStreams, WithoutANumberTakeTheNextOneAlsoWhenTheFirstIsGone) {
    auto first = std::make_unique<TestStream>(0);
    const TestStream second(9);
    first.reset();
    const TestStream third(0);

    EXPECT_EQ(g_metadata_devices, &second.record());
    EXPECT_EQ(third.record().prev, &second.record());
    EXPECT_EQ(third.record().deviceId, 2u);
}

TEST(KzmfStreams, ResetEmptiesThePayloadAndZeroesTheCountersAlone) {
    const TestStream stream;
    stream.Write(Sample("HRAT", 72));
    stream.Write(Sample("UNIT", 5, kKzmfSticky));
    TakePayload();
    TakePayload();  // counts an empty payload
    stream.Write(Sample("HRAT", 72));

    MetadataStreamReset(stream.handle());
    MetadataStreamReset(nullptr);

    EXPECT_EQ(stream.Payload(), "");
    EXPECT_EQ(stream.Sticky(), "EMPT:L4x1:00000000 TSMP:L4x1:00000000 UNIT:S2x1:00050000");
}

}  // namespace
