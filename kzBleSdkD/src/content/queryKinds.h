// Category and type of the messages of the query interface: requests, their answers, and pushes, which have the same
// header (BleQueryResponse).
#pragma once

#include <cstdint>

enum : uint32_t {
    kCategorySettings = 2,
    kCategoryStatus = 3,
};

// Types 1 to 8 are requests; settings have all of them, status fields those of values. A push has a type of its own.
enum : uint32_t {
    kQueryTypeValues = 1,
    kQueryTypeNames = 2,
    kQueryTypeCapabilities = 3,
    kQueryTypeCapabilitiesAndNames = 4,
    kQueryTypeRegisterValues = 5,
    kQueryTypeRegisterCapabilities = 6,
    kQueryTypeUnregisterValues = 7,
    kQueryTypeUnregisterCapabilities = 8,
    kQueryTypeValuePush = 9,
    kQueryTypeCapabilityPush = 10,
};

// The feature id of protobuf messages of this interface: the first byte of their requests, answers and notifications,
// where the others have category and type.
constexpr uint8_t kQueryFeatureId = 245;
