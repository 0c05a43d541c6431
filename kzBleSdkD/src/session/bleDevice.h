// BleNotificationClient: everything the daemon knows of one BLE connection. Who the peer is, the reassembly state of
// its four interfaces, one notification gate per response stream, the answers that found the radio queue full, what it
// wants to be told of, its sensor streams, and a running file transfer.
//
// A record lives from its connection event to its disconnection event, in the server's client table, at a stable
// address: what other clients do changes nothing in it. It is touched by the command thread only, with the table's lock
// held. No operation throws; what goes wrong is logged.
//
// Sources: bleDevice.cpp (record, gates, stored responses, message processing), bleDevicePush.cpp (interests and
// pushes of values), featurePush.cpp (feature notifications), bleDeviceFileTransfer.cpp (cutting files into packets).
#pragma once

#include <time.h>

#include <array>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "commandMessage.h"
#include "fileHandle.h"
#include "metadataMessage.h"
#include "queryMessage.h"
#include "settingsMessage.h"

class MemoryStream;
class SettingsStatusMapping;

// Anything that can be told of changes.
class NotificationClient {
  public:
    enum eNotificationType_t : int {
        eNotifyStatus = 0,        // status values changed; ids are status ids
        eNotifySettings = 1,      // setting values changed; ids are setting ids
        eNotifyCapabilities = 3,  // allowed options of settings changed; ids are setting ids
        eNotifyCSI = 5,           // feature notification; ids are CSI keys
        eNotifyLcd = 6,           // LCD buffer for sensor clients; ids are connection ids
        eNotifyLed = 7,           // LED buffer; ids are connection ids
    };

    virtual ~NotificationClient() = default;
    virtual void Pause(bool paused);
    virtual bool IsPaused() const { return m_paused; }
    virtual bool Notify(eNotificationType_t type, std::stringstream& text);
    virtual bool AddInterest(eNotificationType_t type, int id) = 0;
    virtual bool AddInterest(eNotificationType_t type, std::vector<int> ids) = 0;
    virtual bool AddInterestAll(eNotificationType_t type) = 0;
    virtual bool RemoveInterest(eNotificationType_t type, int id) = 0;
    virtual bool RemoveInterest(eNotificationType_t type, std::vector<int> ids) = 0;
    virtual bool RemoveInterestAll(eNotificationType_t type) = 0;

    bool m_notifyPending = true;
    bool m_paused = true;
};

class BleNotificationClient : public NotificationClient {
  public:
    static constexpr int kMaxMetadataStreams = 3;
    static constexpr int kMaxMetadataKeys = 20;
    static constexpr unsigned kMetadataStreamBufferSize = 3000;
    static constexpr uint16_t kDefaultBlockSize = 500;

    // A response, a push or a packet of a file that waits to be sent, and the gate of its stream.
    class StoredResponse {
      public:
        StoredResponse() = default;
        explicit StoredResponse(int streamId) : m_streamId(streamId) {}

        // Replaces the held data by a copy. The storage is reused when it is large enough.
        void Store(const unsigned char* data, int length);
        // Frees the held data.
        void Clear();

        int m_length = 0;  // bytes held; 0 means empty
        std::unique_ptr<unsigned char[]> m_data;
        bool m_enabled = false;  // the notification gate; closed until the client opens it
        int m_streamId = 0;      // request stream whose answers this entry gates: 2, 7, 12 or 17

      private:
        int m_capacity = 0;  // bytes of m_data
    };

    // Stored responses in priority order.
    enum eStoredResponse : int {
        eStoredCommand = 0,
        eStoredSettingsPush,
        eStoredStatusPush,
        eStoredCapabilitiesPush,
        eStoredSettings,
        eStoredQuery,
        eStoredSensor,
        eStoredCount,
    };

    // A sensor key as registered by the accessory; free while its structure size is 0.
    struct MetadataKey {
        char fourCC[4] = {'N', 'N', 'N', 'N'};
        uint32_t keyIndex = 0;
        uint32_t streamIndex = 0;
        uint32_t type = 0;
        uint32_t structureSize = 0;
        uint32_t repeat = 0;
        uint32_t flags = 0;
    };

    BleNotificationClient(unsigned int connectionId, unsigned char deviceId, unsigned char deviceType);
    // A copy keeps the identity, block size, bytes remaining, interests (not the CSI keys), the metadata state (sharing
    // its stream buffers) and each entry's stream; everything else starts as new. The server never copies a record in
    // use.
    BleNotificationClient(const BleNotificationClient& other);
    BleNotificationClient& operator=(const BleNotificationClient& other);
    ~BleNotificationClient() override;

    // ---- gates
    // Whether responses to this request stream (2, 7, 12, 17) may be sent.
    bool GetEnabledByStreamId(unsigned char streamId) const;
    // The client wrote a notification-enable descriptor (5, 10, 15, 20); 1 enables, anything else disables.
    void SetCCCEnabled(unsigned char cccStreamId, unsigned char value);
    void SetSensorCCCEnabled();  // opens all gates

    // ---- stored responses
    void StoreCommandResponse(const unsigned char* data, int size);
    void StoreSettingsResponse(const unsigned char* data, int size);
    void StoreQueryResponse(const unsigned char* data, int size);
    void StoreSensorResponse(const unsigned char* data, int size);
    // Keeps the newest unsent push of type 0, 1 or 3; what it replaces is logged. Any other type is logged and dropped.
    void StorePushResponse(eNotificationType_t type, const unsigned char* data, int length);

    // ---- pushes of values that are owed
    // What a client is owed beyond its stored pushes is kept as ids per push type (0, 1, 3; other types are ignored),
    // not as bytes: the push is built from the values of the moment when its turn comes, so it is never stale. Pushes
    // come to be owed when one change set takes several of them, and when a stored push is overtaken by a shorter one.
    //
    // Adds ids to what the client is owed.
    void DeferPush(eNotificationType_t type, const std::vector<int>& ids);
    // Turns a stored push of values into owed ids. A stored feature notification stays as it is.
    void DeferStoredPush(eNotificationType_t type);
    // Builds the next owed push of every type whose entry is empty and enabled, and stores it there.
    void RefillStoredPushes();
    // The entry of a push type; null for a type without one.
    StoredResponse* StoredPush(eNotificationType_t type);
    // The first entry in priority order that is enabled and holds data; null if none. Owed pushes take their places
    // first.
    StoredResponse* GetHighestPriorityStoredResponse();

    // ---- message processing, one per interface. `packet` is the record's 20-byte data area, `response` the server's
    // buffer of *responseLength bytes (also the reassembly's).
    //   true   `response` holds *responseLength bytes to be sent: an answer, or a failed message's error answer
    //   false  nothing to send: more packets are needed, or the message has no answer
    // *kzErrno: 0, the code of Execute, or KZ_ERR_INVALID_PARAM when reassembly or parsing failed. A packet on any
    // interface but the sensor's drops that interface's stored response.
    bool ProcessCommandMessage(unsigned char* packet, unsigned char* response, unsigned short* responseLength,
                               int* kzErrno);
    bool ProcessSettingMessage(unsigned char* packet, unsigned char* response, unsigned short* responseLength,
                               int* kzErrno);
    bool ProcessQueryMessage(unsigned char* packet, unsigned char* response, unsigned short* responseLength,
                             int* kzErrno);
    bool ProcessMetadataMessage(unsigned char* packet, unsigned char* response, unsigned short* responseLength,
                                int* kzErrno);

    // ---- interests; each returns true
    bool AddInterest(eNotificationType_t type, int id) override;
    bool AddInterest(eNotificationType_t type, std::vector<int> ids) override;
    bool AddInterestAll(eNotificationType_t type) override;
    bool RemoveInterest(eNotificationType_t type, int id) override;
    bool RemoveInterest(eNotificationType_t type, std::vector<int> ids) override;
    bool RemoveInterestAll(eNotificationType_t type) override;

    // Builds this client's push for the changed `ids` into `response` (*responseLength bytes on entry, the push's
    // length on a true result; types 6 and 7 leave it). False when there is nothing to send.
    //
    // A push holds whole entries, in ascending id. Ids whose entries do not fit any more are left for another push:
    // PushRemainder lists them, and is empty after a push that holds everything. A setting with more options than any
    // push holds is left out with a level-2 text; a client reads it with a query. A preset notification that does not
    // fit carries fewer presets in full, down to their ids alone.
    bool ExecutePush(eNotificationType_t type, std::vector<int>& ids, unsigned char* response,
                     unsigned short* responseLength, int* kzErrno);
    const std::vector<int>& PushRemainder() const { return m_pushRemainder; }

    // ---- sensor streams
    bool StoreMetadataDeviceName(std::string name);  // true
    // Makes a zero-filled buffer of kMetadataStreamBufferSize bytes the handle `index`, closing the stream that was
    // there. Returns it; null for an index outside 0 to 2.
    void* AddStreamBuffer(unsigned char index);
    // The handle `index`, null when there is none.
    void* MetadataStream(size_t index) const {
        return index < m_metadataStreams.size() ? m_metadataStreams[index].get() : nullptr;
    }
    void RemoveStreams();  // on disconnection: closes the streams and frees their buffers; the count stays
    void ResetAllMetadataStreams();

    // ---- file transfer; at most one per client
    bool IsTransferringSettingsJSON() const { return m_transferringSettingsJSON; }
    bool IsTransferringLarch() const { return m_transferringLarch; }
    // Start (on) or end the transfer of settings.json.gz or of the device type's firmware image. False when a transfer
    // could not be started, and for ending one that does not run. A start that fails leaves no file open. With the
    // command gate closed SetTransferringSettingsJSON is false in both directions; an end ends the transfer all the
    // same.
    bool SetTransferringSettingsJSON(bool on);
    bool SetTransferringLarch(bool on);
    // Whether the file is still the one the transfer began with; if not, logged: the transfer is to be ended. Asked
    // before every run of packets. True without a file.
    bool FileIsUnchanged() const;
    // Cut the next packet, at most 20 bytes, into `out`; true when more follow. An empty packet means that there is
    // nothing left: the transfer is to be ended.
    bool GetSettingsJSONResponse(StoredResponse& out);
    bool GetLarchResponse(StoredResponse& out);
    // Progress of a firmware transfer, 0 to 100.
    uint8_t GetPercentDone() const;

    // Logs the record at level 5.
    void Dump() const;

    uint32_t m_inCount = 0;    // data packets received
    uint32_t m_outCount = 0;   // reported by Dump
    uint32_t m_pushCount = 0;  // pushes sent
    std::string m_metadataDeviceName;
    uint8_t m_metadataStreamCount = 0;
    // One buffer per registered stream. The last owner closes the stream before the buffer goes.
    std::array<std::shared_ptr<unsigned char[]>, kMaxMetadataStreams> m_metadataStreams;
    std::array<MetadataKey, kMaxMetadataKeys> m_metadataKeys{};
    uint32_t m_connectionId;
    uint8_t m_deviceId;
    uint8_t m_deviceType;  // also the caller id towards the control daemon, and the analytics caller id
    bool m_accessoryUpdatePending = false;
    uint16_t m_blockSize = kDefaultBlockSize;
    uint16_t m_bytesRemaining = 0;
    std::vector<int> m_capabilitiesInterest;
    std::vector<int> m_settingsInterest;
    std::vector<int> m_statusInterest;
    std::vector<int> m_interestedCSIs;
    std::vector<int> m_lcdInterest;
    std::vector<int> m_ledInterest;

    BleSettingsMessage m_settingsMessage;
    BleQueryMessage m_queryMessage;
    BleCommandMessage m_commandMessage;
    BleMetadataMessage m_metadataMessage;

    std::array<StoredResponse, eStoredCount> m_storedResponses;  // in priority order

    uint32_t m_fileIndex = 0;  // file bytes sent; firmware: counted from the end of the image header
    uint8_t m_counter = 0;     // continuation counter of the settings.json message
    bool m_transferringSettingsJSON = false;
    bool m_transferringLarch = false;
    FileHandle m_file;        // the file of the running transfer
    uint32_t m_fileSize = 0;  // bytes of the whole file, header included

  private:
    // What the client is owed of one push type.
    struct OwedPush {
        std::vector<int> ids;  // ascending, each once
        bool stored = false;   // the stored push was built from owed ids
    };
    static constexpr int kValuePushTypes = 3;  // settings, status, capabilities
    struct ValuePush;                          // a row of their table

    std::vector<int>* InterestList(eNotificationType_t type);
    static const ValuePush* FindValuePush(eNotificationType_t type);
    OwedPush& Owed(const ValuePush& push);
    bool ExecuteValuePush(const ValuePush& push, const SettingsStatusMapping& model, const std::vector<int>& ids,
                          MemoryStream& stream);
    bool ExecuteBufferPush(eNotificationType_t type, const std::vector<int>& ids, unsigned char* response);
    void CopyKeptFields(const BleNotificationClient& other);
    bool OpenSettingsJSON();
    bool OpenFirmwareImage();
    void HoldFile(FileHandle file);
    void CloseFile();
    bool PrepareFilePacket(StoredResponse& out) const;

    std::vector<int> m_pushRemainder;
    std::array<OwedPush, kValuePushTypes> m_owed;
    struct timespec m_fileTime {};  // last change of the file when the transfer began
};
