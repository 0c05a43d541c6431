// What the handlers of the protobuf queries share. Inside the query interface only.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "MemStream.h"
#include "notificationClient.h"
#include "peer.h"
#include "utils.h"

class CameraStatus;

// What a handler gets. It writes its answer message to the stream, behind the two header bytes.
struct ProtobufQuery {
    const std::vector<uint8_t>& payload;
    Peer& client;
    const CameraStatus& camera;
    MemoryStream& stream;
};

// A CSI key as a registration names it.
struct RegisterKey {
    int enumerator;
    uint8_t csiKey;
};

// Adds, then removes interest in the CSI keys of the lists' entries; entries outside `keys` are ignored.
template <typename Entries>
void ChangeInterest(Peer& client, std::span<const RegisterKey> keys, const Entries& added, const Entries& removed) {
    constexpr const char* kLogTag = "bleQueryMessage.cpp";
    const auto forEachKey = [keys](const Entries& entries, auto&& change) {
        for (int entry : entries) {
            const auto key = std::find_if(keys.begin(), keys.end(),
                                          [entry](const RegisterKey& row) { return row.enumerator == entry; });
            if (key != keys.end()) {
                change(entry, key->csiKey);
            }
        }
    };
    if (!added.empty()) {
        LOG_INFO("Register for Status Notifications");
    }
    forEachKey(added, [&client](int entry, int key) {
        LOG_INFO("register for ID = %d", entry);
        client.m_interests.Add(NotificationClient::eNotifyCSI, key);
    });
    if (!removed.empty()) {
        LOG_INFO("UnRegister for Status Notifications");
    }
    forEachKey(removed, [&client](int entry, int key) {
        LOG_INFO("unregister for ID = %d", entry);
        client.m_interests.Remove(NotificationClient::eNotifyCSI, key);
    });
}

// Handlers with a source file of their own (queryCloud.cpp). Each returns KZ_OK, or the code whose answer the client
// gets.
int GetCahSticky(const ProtobufQuery& query);
int GetCahStatus(const ProtobufQuery& query);
int GetAssociationState(const ProtobufQuery& query);
int GetClientId(const ProtobufQuery& query);
