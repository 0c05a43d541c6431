// Requests whose answers are always the same, and the states of the features.
#include <algorithm>

#include "skylark/bleMessage.h"
#include "soakRequest.h"
#include "wsdkCommands/WSDK_NotifyCAHStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyOTAStatus.pb.h"

namespace soak {
namespace {

struct Row {
    uint8_t stream;
    const char* message;
    const char* answer;
    unsigned needs;
};

constexpr uint8_t kCommand = KZ_STR_ID_COMMAND;
constexpr uint8_t kSettings = KZ_STR_ID_SETTINGS;
constexpr uint8_t kQuery = KZ_STR_ID_QUERY;

constexpr Row kRows[] = {
    // commands
    {kCommand, "51", "51 00 01 02 01 00", kNoPart},
    {kCommand, "3a", "3a 00 03 31 2e 34", kNoPart},
    {kCommand, "16 01 01", "16 00", kControl},
    {kCommand, "16 01 00", "16 00", kControl},
    {kCommand, "17 04 00 00 01 00", "17 00", kControl},
    {kCommand, "18", "18 00", kControl},
    {kCommand, "19", "19 00", kControl},
    {kCommand, "08", "08 00", kControl},
    {kCommand, "1a", "1a 00", kControl},
    {kCommand, "26", "26 00", kControl},
    {kCommand, "3d 01 05", "3d 00", kControl},
    {kCommand, "16", "16 02", kNoPart},
    {kCommand, "ee", "ee 02", kNoPart},
    // protobuf commands
    {kCommand, "f1 69 08 02", "f1 e9 08 01", kControl},
    {kCommand, "f1 6a 08 01", "f1 ea 08 01", kControl},
    {kCommand, "f1 6b 08 01", "f1 eb 08 01", kNetwork},
    {kCommand, "f1 6c 08 01", "f1 ec 08 01", kControl},
    {kCommand, "f1 6d 08 0c", "f1 ed 08 01", kControl},
    {kCommand, "f1 6f", "f1 ef 08 01", kControl},
    {kCommand, "f1 7b 08 01", "f1 fb 08 01", kControl},
    {kCommand, "f1 7c", "f1 fc 08 01", kNetwork},
    {kCommand, "f1 7d 08 03", "f1 fd 08 01", kNetwork},
    {kCommand, "f1 7f", "f1 ff 08 01", kNoPart},
    // protobuf settings and queries
    {kSettings, "f3 7c 08 02", "f3 fc 08 01", kNetwork},
    {kQuery, "f5 7d", "f5 fd 0a 12 63 61 6d 65 72 61 2d 63 6c 69 65 6e 74 2d 30 30 34 32 10 01", kNetwork},
    {kQuery, "f5 7a", "f5 fa 08 00 10 01", kNetwork},
    // queries
    {kQuery, "32 3b", "32 00 3b 01 00 3b 01 01 3b 01 04 3b 01 06 3b 01 07", kNoPart},
    {kQuery, "13 1e", "13 00 1e 0a 5a 56 2d 35 38 2d 30 30 34 32", kNoPart},
    {kQuery, "13 ff", "13 00", kNoPart},
};

// ---------------------------------------------------------------- features

struct FeatureRow {
    Feature feature;
    const char* message;  // asks for the state and registers for its changes
    uint8_t answerAction;
    unsigned needs;
};
constexpr FeatureRow kFeatures[] = {
    {kStreamBitrate, "f5 74 08 04", 0xf4, kNetwork},
    {kUpdatePercent, "f5 76 08 02", 0xf6, kNetwork},
    {kUploadPermission, "f5 7e 08 07", 0xfe, kNetwork},
};

Request featureRequest(Asker& phone, const FeatureRow& row) {
    Cell* const cell = phone.world().board.find(Kind::Feature, row.feature);
    const auto valueOf = [=](const Bytes& answer) -> std::optional<Bytes> {
        const bool answers = answer.size() > 2 && answer[1] == row.answerAction;
        return answers ? featureValue(row.feature, std::span(answer).subspan(2)) : std::nullopt;
    };
    return {"feature",
            kQuery,
            bytesOf(row.message),
            row.needs,
            [=](const Bytes& answer, auto asked) {
                const auto value = valueOf(answer);
                return value && cell->mayBe(*value, asked);
            },
            [&phone] { mayWatchFeatures(phone); },
            [=, &phone](const Bytes& answer, Outcome) {
                watchFeatures(phone);
                phone.watch(*cell, valueOf(answer).value_or(Bytes()));
            }};
}

template <typename Message>
std::optional<Message> parse(std::span<const uint8_t> bytes) {
    Message message;
    return message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())) ? std::optional(message) : std::nullopt;
}

Bytes number(uint32_t value) {
    return {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 8),
            static_cast<uint8_t>(value)};
}

}  // namespace

void mayWatchFeatures(Asker& phone) {
    for (Cell* cell : phone.world().board.all(Kind::Feature)) {
        phone.mayWatch(*cell);
    }
}

void watchFeatures(Asker& phone) {
    for (Cell* cell : phone.world().board.all(Kind::Feature)) {
        if (!phone.watches(*cell)) {
            phone.watch(*cell, {});
        }
    }
}

std::optional<Bytes> featureValue(Feature feature, std::span<const uint8_t> bytes) {
    if (feature == kStreamBitrate) {
        const auto status = parse<wsdk_commands::WSDK_NotifyLiveStreamStatus>(bytes);
        return status && status->has_live_stream_bitrate()
                   ? std::optional(number(static_cast<uint32_t>(status->live_stream_bitrate())))
                   : std::nullopt;
    }
    if (feature == kUpdatePercent) {
        const auto status = parse<wsdk_commands::WSDK_NotifyOTAStatus>(bytes);
        return status && status->has_ota_percentage()
                   ? std::optional(number(static_cast<uint32_t>(status->ota_percentage())))
                   : std::nullopt;
    }
    const auto status = parse<wsdk_commands::WSDK_NotifyCAHStatus>(bytes);
    return status && status->has_cah_auth_state()
               ? std::optional(number(static_cast<uint32_t>(status->cah_auth_state())))
               : std::nullopt;
}

Bytes bytesOf(const std::string& hex) {
    Bytes bytes;
    for (size_t at = 0; at < hex.size(); at += 3) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

Request exactly(std::string name, uint8_t stream, const std::string& message, const std::string& answer,
                unsigned needs) {
    return {std::move(name), stream, bytesOf(message), needs,
            [expected = bytesOf(answer)](const Bytes& got, auto) { return got == expected; }};
}

Requests askForSomethingFixed(Asker& phone) {
    const Row& row = anyOf(phone.random(), kRows);
    return {exactly("fixed", row.stream, row.message, row.answer, row.needs)};
}

Requests askForFeatures(Asker& phone) {
    return {featureRequest(phone, anyOf(phone.random(), kFeatures))};
}

}  // namespace soak
