// What the handlers of the protobuf queries share. Inside the query interface only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "MemStream.h"
#include "peer.h"

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
void ChangeInterest(Interests& interests, std::span<const RegisterKey> keys, std::span<const int> added,
                    std::span<const int> removed);

// The entries of a repeated enumeration.
template <typename Entries>
std::span<const int> Numbers(const Entries& entries) {
    return {entries.data(), static_cast<size_t>(entries.size())};
}

// Handlers with a source file of their own (queryCloud.cpp). Each returns KZ_OK, or the code whose answer the client
// gets.
int GetCahSticky(const ProtobufQuery& query);
int GetCahStatus(const ProtobufQuery& query);
int GetAssociationState(const ProtobufQuery& query);
int GetClientId(const ProtobufQuery& query);
