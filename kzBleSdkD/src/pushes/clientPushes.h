// ClientPushes: builds the pushes of one client, and keeps what of them could not be sent yet.
//
// Unsent pushes of values wait in two ways. The newest push of a type waits as bytes in the entry of its type (peer's
// answers). What a client is owed beyond that is kept as ids, not as bytes: the push is built from the values of the
// moment when its turn comes, so it is never stale. Ids come to be owed when one change set takes several pushes, and
// when a stored push is overtaken by a shorter one.
#pragma once

#include <algorithm>
#include <array>
#include <vector>

#include "answers.h"
#include "blePacketHeader.h"
#include "notificationClient.h"
#include "valuePush.h"

class CameraStatus;
struct Peer;

constexpr unsigned kPushBufferSize = 1500;  // longest push

// Bytes that one push may have: kPushBufferSize, less where the radio queue could never take as much, but one packet in
// any case. `longestResponse` is what the empty queue takes.
constexpr unsigned short PushRoom(unsigned longestResponse) {
    return static_cast<unsigned short>(std::clamp<unsigned>(longestResponse, kMaxSimpleLength, kPushBufferSize));
}

class ClientPushes {
  public:
    using Type = NotificationClient::eNotificationType_t;

    // `peer` and `camera` must outlive it.
    ClientPushes(Peer& peer, const CameraStatus& camera) : m_peer(peer), m_camera(camera) {}

    // Builds the push for the changed `ids` into `response`, which has *responseLength bytes. Returns true when there
    // is a push; *responseLength is then its length, but for types 6 and 7, which leave it alone. *kzErrno becomes 0.
    //
    // A push holds whole entries, in ascending id. Ids whose entries do not fit any more are left for another push:
    // PushRemainder lists them, and is empty after a push that holds everything. A setting with more options than any
    // push holds is left out with a level-2 text; a client reads it with a query. A preset notification that does not
    // fit carries fewer presets in full, down to their ids alone.
    bool ExecutePush(Type type, std::vector<int>& ids, unsigned char* response, unsigned short* responseLength,
                     int* kzErrno);
    const std::vector<int>& PushRemainder() const { return m_pushRemainder; }

    // The entry in which an unsent push of the type waits; null for a type without one.
    StoredResponse* StoredPush(Type type);
    // Keeps the newest unsent push of type 0, 1 or 3; what it replaces is logged. Any other type is logged and dropped.
    void StorePushResponse(Type type, const unsigned char* data, int length);

    // Adds ids to what the client is owed of type 0, 1 or 3; other types are ignored.
    void DeferPush(Type type, const std::vector<int>& ids);
    // Turns a stored push of values into owed ids. A stored feature notification stays as it is.
    void DeferStoredPush(Type type);
    // Builds the next owed push, of at most `room` bytes, of every type whose entry is empty and enabled, and stores it
    // there.
    void RefillStoredPushes(unsigned short room);

    // Forgets what is owed.
    void Reset();

  private:
    // What the client is owed of one push type.
    struct OwedPush {
        std::vector<int> ids;  // ascending, each once
        bool stored = false;   // the stored push was built from owed ids
    };

    OwedPush& Owed(const ValuePush& push);
    bool ExecuteValuePush(const ValuePush& push, const SettingsStatusMapping& model, const std::vector<int>& ids,
                          MemoryStream& stream);
    bool ExecuteFeaturePush(const SettingsStatusMapping& model, const std::vector<int>& ids, MemoryStream& stream);
    bool ExecuteBufferPush(Type type, const std::vector<int>& ids, unsigned char* response);

    Peer& m_peer;
    const CameraStatus& m_camera;
    std::vector<int> m_pushRemainder;
    std::array<OwedPush, kValuePushTypes> m_owed;
};
