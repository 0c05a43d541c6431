// The metadata service's check of the KZMF form.
#include <gtest/gtest.h>

#include "metadataService.h"

using namespace kzsim;

namespace {

Bytes klv(const std::string& key, uint8_t type, uint8_t size, uint16_t repeat, Bytes data) {
    Bytes bytes = bytesOfText(key);
    for (const int byte : {int{type}, int{size}, repeat >> 8, repeat & 0xff}) {
        bytes.push_back(static_cast<uint8_t>(byte));
    }
    appendBytes(bytes, data);
    bytes.resize((bytes.size() + 3) & ~size_t{3});
    return bytes;
}

Bytes container(const std::string& key, const Bytes& content) {
    return klv(key, 0, 1, static_cast<uint16_t>(content.size()), content);
}

const Bytes kHeartRate = klv("HRAT", 'S', 2, 1, {0, 72});

}  // namespace

TEST(KzmfForm, DevicesWithStreamsOfRecordsAreAccepted) {
    const Bytes device = container("DEVC", container("STRM", kHeartRate));
    Bytes two = device;
    appendBytes(two, device);

    EXPECT_TRUE(isKzmf(device));
    EXPECT_TRUE(isKzmf(two));
}

TEST(KzmfForm, AnythingElseIsRefused) {
    const Bytes device = container("DEVC", container("STRM", kHeartRate));
    Bytes nested = kHeartRate;
    for (int level = 0; level < 8; ++level) {
        nested = container("DEVC", nested);
    }
    const ByteView shortened = ByteView(device).first(device.size() - 1);
    Bytes innerTooLong = device;
    innerTooLong[15] = 0xff;  // the stream container reaches past its device

    EXPECT_FALSE(isKzmf({}));
    EXPECT_FALSE(isKzmf(kHeartRate));
    EXPECT_FALSE(isKzmf(shortened));
    EXPECT_FALSE(isKzmf(innerTooLong));
    EXPECT_FALSE(isKzmf(container("DEVC", klv("H\x01"
                                              "AT",
                                              'S', 2, 1, {0, 72}))));
    EXPECT_FALSE(isKzmf(nested));
    EXPECT_FALSE(isKzmf(Bytes(7, 'D')));
}
