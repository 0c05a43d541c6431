#include "queryMessage.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "bleResponses.h"
#include "bleSDK.h"
#include "idSet.h"
#include "peer.h"
#include "queryEntries.h"
#include "queryKinds.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleQueryMessage.cpp";

constexpr unsigned kHeaderSize = 2;  // of every answer

bool IsKnownId(const SettingsStatusMapping& model, uint32_t category, int id) {
    const auto number = static_cast<unsigned>(id);
    switch (category) {
        case kCategorySettings:
            return model.IsValidSettingsId(number);
        case kCategoryStatus:
            return model.IsValidStatusId(number);
        default:
            return false;
    }
}

int MaxIds(const SettingsStatusMapping& model, uint32_t category) {
    return category == kCategorySettings ? model.GetMaxSettingsId() : model.GetMaxStatusId();
}

// ---------------------------------------------------------------- the reads

// What a read gets. A query that named ids, all of them unknown, reads nothing.
struct Read {
    const BleQueryMessage& query;
    SettingsStatusMapping& model;
    MemoryStream& stream;

    bool ReadsNothing() const { return query.m_idsGiven && query.m_ids.empty(); }
};

void LogCount(size_t count) {
    LOG_INFO("Got %d values back", static_cast<int>(count));
}

// What a query of one category's values reads.
struct ValueSource {
    const FlexValue* (SettingsStatusMapping::*find)(int id) const;  // null for an id without a value
    const FlexValue& (SettingsStatusMapping::*get)(int id);         // an id without a value gets an empty one
};
constexpr ValueSource kSettingValues = {&SettingsStatusMapping::FindSettingValue,
                                        &SettingsStatusMapping::GetSettingValue};
constexpr ValueSource kStatusValues = {&SettingsStatusMapping::FindStatusValue, &SettingsStatusMapping::GetStatusValue};

// The ids of the answer: those asked for, or all that have a value.
IdSet IdsToRead(const Read& read, const ValueSource& source) {
    IdSet ids(read.query.m_ids);
    if (!read.query.m_idsGiven) {
        for (int id = 0; id < IdSet::kSize; ++id) {
            if ((read.model.*source.find)(id) != nullptr) {
                ids.Add(id);
            }
        }
    }
    return ids;
}

// Writes the answer straight from the model, in the layout of BleQueryCurrentValueResponse. Many clients ask for
// values, so nothing is allocated.
void WriteValues(const Read& read, const ValueSource& source, const IdSet& ids, int result) {
    EntryAnswer answer(read.stream,
                       BleQueryResponse(read.query.m_category, read.query.m_type, static_cast<uint32_t>(result)));
    ids.ForEach([&](int id) { answer.Count(AppendValueEntry(read.stream, id, (read.model.*source.get)(id))); });
}

void ReadSettingValues(const Read& read) {
    const IdSet ids = IdsToRead(read, kSettingValues);
    int result = BleSDK::SetKZErrNo(KZ_OK);
    if (!read.query.m_ids.empty() && ids.Count() != read.query.m_ids.size()) {
        LOG_ERROR("Possible request for setting with invalid id");
        result = BleSDK::SetKZErrNo(KZ_ERR_INVALID_PARAM);
    }
    LogCount(ids.Count());
    WriteValues(read, kSettingValues, ids, result);
}

void ReadStatusValues(const Read& read) {
    const IdSet ids = IdsToRead(read, kStatusValues);
    LogCount(ids.Count());
    WriteValues(read, kStatusValues, ids, BleSDK::SetKZErrNo(KZ_OK));
}

void ReadSettingNames(const Read& read) {
    BleQueryCurrentValueResponse response(read.query.m_category, read.query.m_type,
                                          static_cast<uint32_t>(BleSDK::SetKZErrNo(KZ_OK)));
    for (int id : read.query.m_ids) {
        const std::string name = read.model.GetSettingName(std::to_string(id));
        LOG_INFO("Got name[%s] back", name.c_str());
        FlexValue value(eValueWidthString, static_cast<int>(std::min(name.size(), kMaxEntryValue)));
        value.SetValue(reinterpret_cast<const uint8_t*>(name.data()));
        response.m_values[id] = value;
    }
    read.stream << response;
}

template <typename Response>
void ReadCapabilities(const Read& read) {
    Response response(read.query.m_category, read.query.m_type, static_cast<uint32_t>(BleSDK::SetKZErrNo(KZ_OK)));
    if (!read.ReadsNothing()) {
        read.model.GetTheseSettingsCapabilityValues(read.query.m_ids, response.m_capabilities);
    }
    LogCount(response.m_capabilities.size());
    read.stream << response;
}

// Answers a removal of interest, which reads nothing, with the header alone.
void ReadNothing(const Read& read) {
    read.stream << BleQueryCurrentCapabilitiesAndNamesResponse(read.query.m_category, read.query.m_type,
                                                               static_cast<uint32_t>(BleSDK::SetKZErrNo(KZ_OK)));
}

// ---------------------------------------------------------------- the queries

enum class Interest { kKeep, kAdd, kRemove };

struct PlainQuery {
    uint32_t category;
    uint32_t type;
    void (*logName)(int idCount);
    Interest interest;
    NotificationClient::eNotificationType_t notification;  // whose interest changes
    void (*read)(const Read& read);
};

constexpr auto kReadCapabilities = ReadCapabilities<BleQueryCurrentCapabilitiesResponse>;
constexpr auto kReadCapabilitiesAndNames = ReadCapabilities<BleQueryCurrentCapabilitiesAndNamesResponse>;

constexpr PlainQuery kPlainQueries[] = {
    {kCategorySettings,
     kQueryTypeValues,
     [](int count) { LOG_INFO("Get settings values. Count %d", count); },
     Interest::kKeep,
     {},
     ReadSettingValues},
    {kCategorySettings,
     kQueryTypeNames,
     [](int) { LOG_INFO("Get Name of settings"); },
     Interest::kKeep,
     {},
     ReadSettingNames},
    {kCategorySettings,
     kQueryTypeCapabilities,
     [](int) { LOG_INFO("Get Settings Capability Values"); },
     Interest::kKeep,
     {},
     kReadCapabilities},
    {kCategorySettings,
     kQueryTypeCapabilitiesAndNames,
     [](int) { LOG_INFO("Get Settings Capability Values and Names"); },
     Interest::kKeep,
     {},
     kReadCapabilitiesAndNames},
    {kCategorySettings, kQueryTypeRegisterValues, [](int) { LOG_INFO("Settings Register When Value Changes"); },
     Interest::kAdd, NotificationClient::eNotifySettings, ReadSettingValues},
    {kCategorySettings, kQueryTypeRegisterCapabilities,
     [](int) { LOG_INFO("Settings Register When Capabilities Changes"); }, Interest::kAdd,
     NotificationClient::eNotifyCapabilities, kReadCapabilities},
    {kCategorySettings, kQueryTypeUnregisterValues,
     [](int) { LOG_INFO("Settings Unegister When Settings Value Changes"); }, Interest::kRemove,
     NotificationClient::eNotifySettings, ReadNothing},
    {kCategorySettings, kQueryTypeUnregisterCapabilities,
     [](int) { LOG_INFO("Settings Unegister When settings capabilities Changes"); }, Interest::kRemove,
     NotificationClient::eNotifyCapabilities, ReadNothing},
    {kCategoryStatus,
     kQueryTypeValues,
     [](int) { LOG_INFO("Get Value of Status"); },
     Interest::kKeep,
     {},
     ReadStatusValues},
    {kCategoryStatus, kQueryTypeRegisterValues, [](int) { LOG_INFO("Status Register When Value Changes"); },
     Interest::kAdd, NotificationClient::eNotifyStatus, ReadStatusValues},
    {kCategoryStatus, kQueryTypeUnregisterValues, [](int) { LOG_INFO("Settings Unegister When Status Value Changes"); },
     Interest::kRemove, NotificationClient::eNotifyStatus, ReadNothing},
};

const PlainQuery* FindPlainQuery(uint32_t category, uint32_t type) {
    const auto* row =
        std::find_if(std::begin(kPlainQueries), std::end(kPlainQueries), [category, type](const PlainQuery& candidate) {
            return candidate.category == category && candidate.type == type;
        });
    return row != std::end(kPlainQueries) ? row : nullptr;
}

void Register(Peer& client, const PlainQuery& row, const BleQueryMessage& query) {
    if (!query.m_idsGiven) {
        if (row.notification == NotificationClient::eNotifySettings) {
            LOG_INFO("Registering interest in all settings as no ids specified in command");
        } else if (row.notification == NotificationClient::eNotifyStatus) {
            LOG_INFO("Adding interest in all as no id's specified");
        }
        client.m_interests.AddAll(row.notification);
        return;
    }
    if (row.notification == NotificationClient::eNotifyStatus) {
        LOG_INFO("Registering interest in %d ids", static_cast<int>(query.m_ids.size()));
    }
    client.m_interests.Add(row.notification, query.m_ids);
}

void Unregister(Peer& client, const PlainQuery& row, const BleQueryMessage& query) {
    if (query.m_idsGiven) {
        client.m_interests.Remove(row.notification, query.m_ids);
    } else {
        client.m_interests.RemoveAll(row.notification);
    }
}

}  // namespace

// ---------------------------------------------------------------- parsing

void BleQueryMessage::Reset(int length) {
    m_category = 0;
    m_type = 0;
    m_ids.clear();
    m_idsGiven = false;
    m_actionId = 0;
    m_payload.clear();
    SetLength(length);
}

int BleQueryMessage::Deserialize() {
    if (m_stream.getRemainder() == 0) {
        LOG_ERROR("Query message without a first byte");
        return 1;
    }
    unsigned char first = 0;
    m_stream >> first;
    if (first == kQueryFeatureId) {
        m_category = first;
        LOG_INFO("Query Feature ID=%d", first);
        return DeserializeProtobuf();
    }
    m_category = first & 0x0F;
    m_type = first >> 4;
    LOG_INFO("Query first byte = %d", first);
    LOG_INFO("Parsed category:%d type:%d", m_category, m_type);
    return DeserializeIds();
}

int BleQueryMessage::DeserializeProtobuf() {
    if (m_stream.getRemainder() == 0) {
        LOG_ERROR("Protobuf query without an action id");
        return 1;
    }
    m_stream >> m_actionId;
    const unsigned short size = m_stream.getRemainder();
    LOG_INFO("Query Protobuf ID=%d size=%d", m_actionId, size);
    m_payload.resize(size);
    m_stream.readArray(m_payload.data(), size);
    const auto byte = [this](size_t index) { return index < m_payload.size() ? m_payload[index] : 0; };
    LOG_INFO("pb={%02x %02x %02x %02x %02x}", byte(0), byte(1), byte(2), byte(3), byte(4));
    return 0;
}

int BleQueryMessage::DeserializeIds() {
    const SettingsStatusMapping* model = BleSDK::LoadedMapping();
    while (m_stream.getRemainder() > 0) {
        unsigned char id = 0;
        m_stream >> id;
        m_idsGiven = true;
        if (model == nullptr || !IsKnownId(*model, m_category, id)) {
            LOG_ERROR("Skipping invalid id:%d passed by user", id);
            continue;
        }
        const int limit = MaxIds(*model, m_category);
        if (m_ids.size() >= static_cast<size_t>(limit)) {
            LOG_ERROR("Max %d ids already parsed from this message.", limit);
            return 1;
        }
        m_ids.push_back(id);
    }
    return 0;
}

// ---------------------------------------------------------------- execution

int BleQueryMessage::Execute(Peer* client, uint8_t* response, uint16_t* responseLength) {
    // No answer is longer than what the radio queue takes when it is empty: a longer one could never be sent, and would
    // hold up what is stored behind it.
    MemoryStream stream(response, std::min(*responseLength, services().longestResponse));
    const int error = m_category == kQueryFeatureId ? ExecuteProtobuf(*client, stream) : ExecutePlain(*client, stream);
    *responseLength = error == KZ_OK ? stream.getLength() : uint16_t{0};
    return error;
}

int BleQueryMessage::ExecutePlain(Peer& client, MemoryStream& stream) {
    LOG_INFO("Executing Query Category:%d type:%d", m_category, m_type);
    if (m_category != kCategorySettings && m_category != kCategoryStatus) {
        LOG_ERROR("Unsupported query category:%d", m_category);
        return KZ_ERR_INVALID_PARAM;
    }
    const PlainQuery* row = FindPlainQuery(m_category, m_type);
    if (row == nullptr) {
        LOG_ERROR("Invalid category:%d and type:%d", m_category, m_type);
        return KZ_ERR_INVALID_PARAM;
    }
    if (stream.getRemainder() < kHeaderSize) {
        LOG_ERROR("No room for an answer in %d bytes", stream.getRemainder());
        return KZ_ERR;
    }
    row->logName(static_cast<int>(m_ids.size()));
    SettingsStatusMapping* model = BleSDK::LoadedMapping();
    if (model == nullptr) {
        LOG_ERROR("Query without a settings model");
        return KZ_ERR;
    }
    if (row->interest != Interest::kKeep) {
        std::erase_if(m_ids, [&](int id) { return !IsKnownId(*model, m_category, id); });
    }
    if (row->interest == Interest::kAdd) {
        Register(client, *row, *this);
    } else if (row->interest == Interest::kRemove) {
        Unregister(client, *row, *this);
    }
    row->read(Read{*this, *model, stream});
    return KZ_OK;
}

int BleQueryMessage::HandleError(int error, uint8_t* response, uint16_t* responseLength) {
    MemoryStream stream(response, *responseLength);
    if (stream.getRemainder() < kHeaderSize) {
        *responseLength = 0;
        return 0;
    }
    stream << BleQueryResponse(m_category, m_type, static_cast<uint32_t>(BleSDK::SetKZErrNo(error)));
    *responseLength = stream.getLength();
    return 0;
}

void BleQueryMessage::Dump() const {
    LOG_TRACE("Category:%u", m_category);
    LOG_TRACE("Type:%u", m_type);
    LOG_TRACE("Protobuf ID:%u size:%d", m_actionId, static_cast<int>(m_payload.size()));
    for (int id : m_ids) {
        LOG_TRACE("Id:%d", id);
    }
}
