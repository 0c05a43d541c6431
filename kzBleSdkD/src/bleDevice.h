// BleNotificationClient: everything the daemon knows of one BLE connection. Who the peer is, the reassembly state of its four
// interfaces, one notification gate per response stream, the answers that found the radio queue full, what it wants to be told
// of, its sensor streams, and a running file transfer.
//
// A record lives from its connection event to its disconnection event, in the server's client table, at a stable address.
// It is touched by the command thread only, with the table's lock held. No operation throws.
//
// Sources: bleDevice.cpp (record, gates, stored responses, message processing), bleDevicePush.cpp (interests and pushes),
// bleDeviceFileTransfer.cpp (cutting files into packets).
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "bleCommandMessage.h"
#include "bleMetadataMessage.h"
#include "bleQueryMessage.h"
#include "bleSettingsMessage.h"

// Anything that can be told of changes.
class NotificationClient {
  public:
    enum eNotificationType_t : int {
        eNotifyStatus = 0,            // status values changed; ids are status ids
        eNotifySettings = 1,          // setting values changed; ids are setting ids
        eNotifyCapabilities = 3,      // allowed options of settings changed; ids are setting ids
        eNotifyCSI = 5,               // feature notification; ids are CSI keys
        eNotifyLcd = 6,               // LCD buffer for sensor clients; ids are connection ids
        eNotifyLed = 7,               // LED buffer; ids are connection ids
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

    // A response or push that waits for room in the radio queue, and the gate of its stream.
    class StoredResponse {
      public:
        StoredResponse() = default;
        explicit StoredResponse(int streamId) : m_streamId(streamId) {}

        // Replaces the held data by a copy; a `length` of 0 leaves it empty.
        void Store(const unsigned char* data, int length);
        void Clear();

        int m_length = 0;  // bytes held; 0 means empty
        std::unique_ptr<unsigned char[]> m_data;
        bool m_enabled = false;  // the notification gate
        int m_streamId = 0;      // request stream whose answers this entry gates: 2, 7, 12 or 17

      private:
        int m_capacity = 0;
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
    // A copy keeps the identity, block size, bytes remaining, interests (not the CSI keys) and metadata state, and each entry's
    // stream; everything else starts as new. The server never copies a record in use.
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
    // The first entry in priority order that is enabled and holds data; null if none.
    StoredResponse* GetHighestPriorityStoredResponse();

    // ---- message processing, one per interface. `packet` is the record's 20-byte data area, `response` the server's buffer of
    // *responseLength bytes (also the reassembly's). True when `response` holds *responseLength bytes to be sent. *kzErrno: 0, the
    // code of Execute, or KZ_ERR_INVALID_PARAM.
    bool ProcessCommandMessage(unsigned char* packet, unsigned char* response, unsigned short* responseLength, int* kzErrno);
    bool ProcessSettingMessage(unsigned char* packet, unsigned char* response, unsigned short* responseLength, int* kzErrno);
    bool ProcessQueryMessage(unsigned char* packet, unsigned char* response, unsigned short* responseLength, int* kzErrno);
    bool ProcessMetadataMessage(unsigned char* packet, unsigned char* response, unsigned short* responseLength, int* kzErrno);

    // ---- interests; each returns true
    bool AddInterest(eNotificationType_t type, int id) override;
    bool AddInterest(eNotificationType_t type, std::vector<int> ids) override;
    bool AddInterestAll(eNotificationType_t type) override;
    bool RemoveInterest(eNotificationType_t type, int id) override;
    bool RemoveInterest(eNotificationType_t type, std::vector<int> ids) override;
    bool RemoveInterestAll(eNotificationType_t type) override;

    // Builds this client's push for the changed `ids` into `response` (*responseLength bytes on entry, the push's length on a
    // true result; types 6 and 7 leave it). False when there is nothing to send.
    bool ExecutePush(eNotificationType_t type, std::vector<int>& ids, unsigned char* response, unsigned short* responseLength,
                     int* kzErrno);

    // ---- sensor streams
    bool StoreMetadataDeviceName(std::string name);
    void AddStreamBuffer(unsigned char index);  // a zero-filled buffer as handle `index`
    void RemoveStreams();                       // on disconnection
    void ResetAllMetadataStreams();

    // ---- file transfer; at most one per client
    bool IsTransferringSettingsJSON() const { return m_transferringSettingsJSON; }
    bool IsTransferringLarch() const { return m_transferringLarch; }
    bool SetTransferringSettingsJSON(bool on);
    bool SetTransferringLarch(bool on);
    // Cuts the next packet into `out`; true when more follow.
    bool GetSettingsJSONResponse(StoredResponse& out);
    bool GetLarchResponse(StoredResponse& out);
    uint8_t GetPercentDone() const;

    void Dump() const;

    uint32_t m_inCount = 0;    // data packets received
    uint32_t m_outCount = 0;   // reported by Dump
    uint32_t m_pushCount = 0;  // pushes sent
    std::string m_metadataDeviceName;
    uint8_t m_metadataStreamCount = 0;
    std::array<void*, kMaxMetadataStreams> m_metadataStreams{};  // owned buffers, freed by RemoveStreams or the destructor
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
    struct FileCloser {
        void operator()(FILE* file) const { fclose(file); }
    };
    std::unique_ptr<FILE, FileCloser> m_file;
    uint32_t m_fileSize = 0;  // whole file, header included

  private:
    std::vector<int>* InterestList(eNotificationType_t type);
};
