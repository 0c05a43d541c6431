// The plain queries: one row a category and type, with what a query reads and how it changes the client's interests.
// Inside the query interface only.
#pragma once

#include <cstdint>

#include "peer.h"
#include "queryMessage.h"

class SettingsStatusMapping;

// What a read gets. A query that named ids, all of them unknown, reads nothing.
struct PlainRead {
    const BleQueryMessage& query;
    SettingsStatusMapping& model;
    MemoryStream& stream;

    bool ReadsNothing() const { return query.m_idsGiven && query.m_ids.empty(); }
};

enum class InterestChange { kNone, kAdd, kRemove };

struct PlainQuery {
    uint32_t category;
    uint32_t type;
    void (*logName)(int idCount);
    InterestChange interest;
    NotificationClient::eNotificationType_t notification;  // whose interest changes
    void (*read)(const PlainRead& read);                   // writes the answer
};

// The row of a query; null when there is none.
const PlainQuery* FindPlainQuery(uint32_t category, uint32_t type);

// Adds or removes the ids of the query, or all when it named none, as its row says.
void ChangeInterest(Interests& interests, const PlainQuery& row, const BleQueryMessage& query);
