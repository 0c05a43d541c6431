// BleNotificationClient: everything the daemon knows of one BLE connection. It is made of the parts of a peer (who it
// is, its interests, gates and stored answers, sensor streams, file transfer), one message object an interface, and the
// builder of its pushes. Its operations pass on to them: they are the interface that other programs know, and inside
// the daemon the parts are used directly.
//
// A record lives from its connection event to its disconnection event, in the server's client table, at a stable
// address: what other clients do changes nothing in it. It is touched by the command thread only, with the table's lock
// held. No operation throws; what goes wrong is logged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "clientPushes.h"
#include "commandMessage.h"
#include "metadataMessage.h"
#include "notificationClient.h"
#include "peer.h"
#include "queryMessage.h"
#include "services.h"
#include "settingsMessage.h"

class BleNotificationClient : public NotificationClient, public Peer {
  public:
    using StoredResponse = ::StoredResponse;

    // `services` is what its handlers and pushes may use.
    BleNotificationClient(unsigned int connectionId, unsigned char deviceId, unsigned char deviceType,
                          const Services& services = DetachedServices());
    // A copy keeps the identity, block size, bytes remaining, interests (not the CSI keys), the metadata state (sharing
    // its stream buffers) and each entry's stream; everything else starts as new. A record that is assigned to keeps
    // its own services. The server never copies a record in use.
    BleNotificationClient(const BleNotificationClient& other);
    BleNotificationClient& operator=(const BleNotificationClient& other);

    // ---- gates and stored responses (answers.h)
    bool GetEnabledByStreamId(unsigned char streamId) const { return m_answers.GetEnabledByStreamId(streamId); }
    void SetCCCEnabled(unsigned char cccStreamId, unsigned char value) { m_answers.SetCCCEnabled(cccStreamId, value); }
    void SetSensorCCCEnabled() { m_answers.SetSensorCCCEnabled(); }
    void StoreCommandResponse(const unsigned char* data, int size) {
        m_answers.Entry(eStoredCommand).Store(data, size);
    }
    void StoreSettingsResponse(const unsigned char* data, int size) {
        m_answers.Entry(eStoredSettings).Store(data, size);
    }
    void StoreQueryResponse(const unsigned char* data, int size) { m_answers.Entry(eStoredQuery).Store(data, size); }
    void StoreSensorResponse(const unsigned char* data, int size) { m_answers.Entry(eStoredSensor).Store(data, size); }
    StoredResponse* GetHighestPriorityStoredResponse() { return m_answers.GetHighestPriorityStoredResponse(); }

    // ---- message processing, one operation per interface. `packet` is the record's 20-byte data area, `response` the
    // server's buffer of *responseLength bytes (also the reassembly's).
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

    // ---- interests (interests.h); each returns true
    bool AddInterest(eNotificationType_t type, int id) override;
    bool AddInterest(eNotificationType_t type, std::vector<int> ids) override;
    bool AddInterestAll(eNotificationType_t type) override;
    bool RemoveInterest(eNotificationType_t type, int id) override;
    bool RemoveInterest(eNotificationType_t type, std::vector<int> ids) override;
    bool RemoveInterestAll(eNotificationType_t type) override;

    // ---- pushes (clientPushes.h)
    bool ExecutePush(eNotificationType_t type, std::vector<int>& ids, unsigned char* response,
                     unsigned short* responseLength, int* kzErrno) {
        return m_pushes.ExecutePush(type, ids, response, responseLength, kzErrno);
    }
    void StorePushResponse(eNotificationType_t type, const unsigned char* data, int length) {
        m_pushes.StorePushResponse(type, data, length);
    }

    // ---- sensor streams (sensorStreams.h)
    bool StoreMetadataDeviceName(std::string name);  // returns true
    void* AddStreamBuffer(unsigned char index) { return m_streams.AddStreamBuffer(index); }
    // At a disconnection: closes the streams, and ends the configure mode that the client may have been in.
    void RemoveStreams();
    void ResetAllMetadataStreams() { m_streams.ResetAllMetadataStreams(); }

    // ---- file transfer (fileSender.h)
    bool IsTransferringSettingsJSON() const { return m_file.IsTransferringSettingsJSON(); }
    bool IsTransferringLarch() const { return m_file.IsTransferringLarch(); }
    bool SetTransferringSettingsJSON(bool on) { return m_file.SetTransferringSettingsJSON(on); }
    // Starts (on) or ends the transfer of the device type's firmware image. False when there is no image for it, or it
    // cannot be read, and for ending a transfer that does not run.
    bool SetTransferringLarch(bool on);
    bool GetSettingsJSONResponse(StoredResponse& out) { return m_file.GetSettingsJSONResponse(out); }
    bool GetLarchResponse(StoredResponse& out) { return m_file.GetLarchResponse(out); }
    uint8_t GetPercentDone() const { return m_file.GetPercentDone(); }

    // Logs the record at level 5.
    void Dump() const;

    BleSettingsMessage m_settingsMessage;
    BleQueryMessage m_queryMessage;
    BleCommandMessage m_commandMessage;
    BleMetadataMessage m_metadataMessage;
    ClientPushes m_pushes;

  private:
    void CopyKeptFields(const BleNotificationClient& other);

    const Services& m_services;
};
