#include "plainQueries.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "bleResponses.h"
#include "bleSDK.h"
#include "idSet.h"
#include "queryEntries.h"
#include "queryKinds.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleQueryMessage.cpp";

// ---------------------------------------------------------------- the reads

void LogCount(size_t count) {
    LOG_INFO("Got %d values back", static_cast<int>(count));
}

// What a query of one category's values reads. Find gives null for an id without a value; Get gives it an empty one.
struct SettingValues {
    static const FlexValue* Find(const SettingsStatusMapping& model, int id) { return model.FindSettingValue(id); }
    static const FlexValue& Get(SettingsStatusMapping& model, int id) { return model.GetSettingValue(id); }
};
struct StatusValues {
    static const FlexValue* Find(const SettingsStatusMapping& model, int id) { return model.FindStatusValue(id); }
    static const FlexValue& Get(SettingsStatusMapping& model, int id) { return model.GetStatusValue(id); }
};

// The ids of the answer: those asked for, or all that have a value.
template <typename Values>
IdSet IdsToRead(const PlainRead& read) {
    IdSet ids(read.query.m_ids);
    if (!read.query.m_idsGiven) {
        for (int id = 0; id < IdSet::kSize; ++id) {
            if (Values::Find(read.model, id) != nullptr) {
                ids.Add(id);
            }
        }
    }
    return ids;
}

// Writes the answer straight from the model, in the layout of BleQueryCurrentValueResponse. Many clients ask for
// values, so nothing is allocated.
template <typename Values>
void WriteValues(const PlainRead& read, const IdSet& ids, int result) {
    EntryAnswer answer(read.stream,
                       BleQueryResponse(read.query.m_category, read.query.m_type, static_cast<uint32_t>(result)));
    ids.ForEach([&](int id) { answer.Count(AppendValueEntry(read.stream, id, Values::Get(read.model, id))); });
}

void ReadSettingValues(const PlainRead& read) {
    const IdSet ids = IdsToRead<SettingValues>(read);
    int result = BleSDK::SetKZErrNo(KZ_OK);
    if (!read.query.m_ids.empty() && ids.Count() != read.query.m_ids.size()) {
        LOG_ERROR("Possible request for setting with invalid id");
        result = BleSDK::SetKZErrNo(KZ_ERR_INVALID_PARAM);
    }
    LogCount(ids.Count());
    WriteValues<SettingValues>(read, ids, result);
}

void ReadStatusValues(const PlainRead& read) {
    const IdSet ids = IdsToRead<StatusValues>(read);
    LogCount(ids.Count());
    WriteValues<StatusValues>(read, ids, BleSDK::SetKZErrNo(KZ_OK));
}

void ReadSettingNames(const PlainRead& read) {
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
void ReadCapabilities(const PlainRead& read) {
    Response response(read.query.m_category, read.query.m_type, static_cast<uint32_t>(BleSDK::SetKZErrNo(KZ_OK)));
    if (!read.ReadsNothing()) {
        read.model.GetTheseSettingsCapabilityValues(read.query.m_ids, response.m_capabilities);
    }
    LogCount(response.m_capabilities.size());
    read.stream << response;
}

// Answers a removal of interest, which reads nothing, with the header alone.
void ReadNothing(const PlainRead& read) {
    read.stream << BleQueryCurrentCapabilitiesAndNamesResponse(read.query.m_category, read.query.m_type,
                                                               static_cast<uint32_t>(BleSDK::SetKZErrNo(KZ_OK)));
}

// ---------------------------------------------------------------- the queries

constexpr auto kReadCapabilities = ReadCapabilities<BleQueryCurrentCapabilitiesResponse>;
constexpr auto kReadCapabilitiesAndNames = ReadCapabilities<BleQueryCurrentCapabilitiesAndNamesResponse>;

constexpr PlainQuery kPlainQueries[] = {
    {kCategorySettings,
     kQueryTypeValues,
     [](int count) { LOG_INFO("Get settings values. Count %d", count); },
     InterestChange::kNone,
     {},
     ReadSettingValues},
    {kCategorySettings,
     kQueryTypeNames,
     [](int) { LOG_INFO("Get Name of settings"); },
     InterestChange::kNone,
     {},
     ReadSettingNames},
    {kCategorySettings,
     kQueryTypeCapabilities,
     [](int) { LOG_INFO("Get Settings Capability Values"); },
     InterestChange::kNone,
     {},
     kReadCapabilities},
    {kCategorySettings,
     kQueryTypeCapabilitiesAndNames,
     [](int) { LOG_INFO("Get Settings Capability Values and Names"); },
     InterestChange::kNone,
     {},
     kReadCapabilitiesAndNames},
    {kCategorySettings, kQueryTypeRegisterValues, [](int) { LOG_INFO("Settings Register When Value Changes"); },
     InterestChange::kAdd, NotificationClient::eNotifySettings, ReadSettingValues},
    {kCategorySettings, kQueryTypeRegisterCapabilities,
     [](int) { LOG_INFO("Settings Register When Capabilities Changes"); }, InterestChange::kAdd,
     NotificationClient::eNotifyCapabilities, kReadCapabilities},
    {kCategorySettings, kQueryTypeUnregisterValues,
     [](int) { LOG_INFO("Settings Unegister When Settings Value Changes"); }, InterestChange::kRemove,
     NotificationClient::eNotifySettings, ReadNothing},
    {kCategorySettings, kQueryTypeUnregisterCapabilities,
     [](int) { LOG_INFO("Settings Unegister When settings capabilities Changes"); }, InterestChange::kRemove,
     NotificationClient::eNotifyCapabilities, ReadNothing},
    {kCategoryStatus,
     kQueryTypeValues,
     [](int) { LOG_INFO("Get Value of Status"); },
     InterestChange::kNone,
     {},
     ReadStatusValues},
    {kCategoryStatus, kQueryTypeRegisterValues, [](int) { LOG_INFO("Status Register When Value Changes"); },
     InterestChange::kAdd, NotificationClient::eNotifyStatus, ReadStatusValues},
    {kCategoryStatus, kQueryTypeUnregisterValues, [](int) { LOG_INFO("Settings Unegister When Status Value Changes"); },
     InterestChange::kRemove, NotificationClient::eNotifyStatus, ReadNothing},
};

// ---------------------------------------------------------------- interests

void Register(Interests& interests, const PlainQuery& row, const BleQueryMessage& query) {
    if (!query.m_idsGiven) {
        if (row.notification == NotificationClient::eNotifySettings) {
            LOG_INFO("Registering interest in all settings as no ids specified in command");
        } else if (row.notification == NotificationClient::eNotifyStatus) {
            LOG_INFO("Adding interest in all as no id's specified");
        }
        interests.AddAll(row.notification);
        return;
    }
    if (row.notification == NotificationClient::eNotifyStatus) {
        LOG_INFO("Registering interest in %d ids", static_cast<int>(query.m_ids.size()));
    }
    interests.Add(row.notification, query.m_ids);
}

void Unregister(Interests& interests, const PlainQuery& row, const BleQueryMessage& query) {
    if (query.m_idsGiven) {
        interests.Remove(row.notification, query.m_ids);
    } else {
        interests.RemoveAll(row.notification);
    }
}

}  // namespace

const PlainQuery* FindPlainQuery(uint32_t category, uint32_t type) {
    const auto* row =
        std::find_if(std::begin(kPlainQueries), std::end(kPlainQueries), [category, type](const PlainQuery& candidate) {
            return candidate.category == category && candidate.type == type;
        });
    return row != std::end(kPlainQueries) ? row : nullptr;
}

void ChangeInterest(Interests& interests, const PlainQuery& row, const BleQueryMessage& query) {
    switch (row.interest) {
        case InterestChange::kNone:
            return;
        case InterestChange::kAdd:
            return Register(interests, row, query);
        case InterestChange::kRemove:
            return Unregister(interests, row, query);
    }
}
