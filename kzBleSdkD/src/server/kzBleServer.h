// KzBleServer: the daemon's one server. It owns one of each part and runs the command thread, which waits on three
// queues and two timers and does all the work; main only starts, watches and stops it. Its operations pass on to the
// parts, whose headers say what they do: they are the interface that other programs know, and inside the daemon the
// parts are used directly.
//
// Threads: everything but Start, Shutdown, Destroy, IsRunning, HasRun and SetRunning runs on the command thread.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "accessoryBuffers.h"
#include "accessoryUpdates.h"
#include "cameraStatus.h"
#include "changeFanOut.h"
#include "clientTable.h"
#include "connectionEvents.h"
#include "controlEvents.h"
#include "csiInbox.h"
#include "csiPort.h"
#include "delivery.h"
#include "fileTransfers.h"
#include "firmwareImages.h"
#include "messageBuffer.h"
#include "packetDispatch.h"
#include "posixHandle.h"
#include "pushRegistration.h"
#include "radioPort.h"
#include "sensorHandOver.h"
#include "services.h"
#include "transferSlot.h"

class BleSDK;
class Msg;

class KzBleServer {
  public:
    using Lock = ClientLock;

    // ---- life cycle; main thread

    // For main and for programs that embed the server: constructs it on first use, which main makes before there is a
    // second thread.
    static KzBleServer* GetInstance();
    // Stops the thread, closes everything and deletes the server. Does nothing when there is no server.
    static void Destroy();
    // Opens the interfaces, loads the settings model and starts the command thread. Returns 0, or -1 with the reason
    // logged. Waits 12 seconds for the radio-stack daemon's queue to this daemon, and without limit for the queue in
    // the other direction.
    int Start();
    // Opens the queues and the control interface alone. Returns 0, or -1 with everything closed again.
    int InterfaceOpen();
    // Closes what InterfaceOpen opened, also when it opened only a part. Returns 0.
    int InterfaceClose();
    // Stops the thread and closes everything; the server can be started again. Returns 0.
    int Shutdown();
    bool IsRunning() const { return m_running; }
    // Whether the thread has begun to run since Start, also if it was stopped right away.
    bool HasRun() const { return m_hasRun; }
    void SetRunning(bool running) { m_running = running; }

    // ---- loop

    // The command thread; `pThis` is the server. Returns null.
    static void* sThreadLoop(void* pThis);
    // The tick, about every 500 ms.
    void HandlePeriodicTimer();

    // ---- packetDispatch.h, radioPort.h: the radio-stack daemon's records
    bool HandleBleMessage() { return m_packetDispatch.HandleBleMessage(); }
    bool ReceiveBLEMsg(ble_message_t& record) { return m_radio.ReceiveBLEMsg(record); }
    bool HandleSDKMessage(ble_message_t& record, int* kzErrno) {
        return m_packetDispatch.HandleSDKMessage(record, kzErrno);
    }
    bool DumpBleDeviceStatus() { return m_packetDispatch.DumpBleDeviceStatus(); }
    bool PostPacket(ble_message_t& record) { return m_radio.PostPacket(record); }
    bool PostResponse(ble_message_t& record, const unsigned char* data, unsigned short length) {
        return m_radio.PostResponse(record, data, length);
    }
    unsigned GetBleTxQueueAvailability(int* capacity = nullptr) { return m_radio.GetBleTxQueueAvailability(capacity); }
    bool TrackBleQStats(uint32_t tick) { return m_radio.TrackBleQStats(tick); }
    void ReportBleQStats() { m_radio.ReportBleQStats(); }
    bool SetPacketTimer(bool on) { return m_radio.SetPacketTimer(on); }
    void QueuePacket(const ble_message_t& record) { m_radio.QueuePacket(record); }

    // ---- connectionEvents.h, clientTable.h, pushRegistration.h: clients and what follows them
    bool UpdateBleDeviceStatus(ble_message_t& record) { return m_connectionEvents.UpdateBleDeviceStatus(record); }
    BleNotificationClient* FindBleDeviceByConnectionID(uint32_t connectionId) {
        return m_clients.FindBleDeviceByConnectionID(connectionId);
    }
    size_t GetClientCount() { return m_clients.GetClientCount(); }
    int RegisterForKzControlNotifications() { return m_registration.RegisterForKzControlNotifications(); }
    int UnregisterForKzControlNotifications() { return m_registration.UnregisterForKzControlNotifications(); }

    // ---- delivery.h: stored answers, display and LED buffers
    bool CheckClientsStoredResponses() { return m_delivery.CheckClientsStoredResponses(); }
    bool sendLCDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length) {
        return m_buffers.sendLCDBuffer(client, buffer, length);
    }
    bool sendLEDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length) {
        return m_buffers.sendLEDBuffer(client, buffer, length);
    }

    // ---- controlEvents.h, csiInbox.h, changeFanOut.h, cameraStatus.h: what changes on the camera
    bool HandleEvent() { return m_controlEvents.HandleEvent(); }
    bool ReceiveEventMsg(Msg& message) { return m_controlEvents.ReceiveEventMsg(message); }
    bool HandleCSINotification() { return m_csiInbox.HandleCSINotification(); }
    bool NotifyClientsOfCSIChanges(const csiStruct* record) { return m_csiInbox.NotifyClientsOfCSIChanges(record); }
    bool NotifyClientsOfSettingsChanges() { return m_changeFanOut.NotifyClientsOfSettingsChanges(); }
    bool NotifyClientsOfStatusChanges() { return m_changeFanOut.NotifyClientsOfStatusChanges(); }
    bool NotifyClientsOfSettingsCapabilitiesChanges() {
        return m_changeFanOut.NotifyClientsOfSettingsCapabilitiesChanges();
    }
    bool StoreCAHUploadProgress(const csiStruct* record) { return m_camera.StoreCAHUploadProgress(record); }
    bool SetCsiStStatus() { return m_camera.SetCsiStStatus(); }
    int csi_set_no_rsp(uint8_t key, const void* value, uint32_t length) { return ::csi_set_no_rsp(key, value, length); }

    // ---- fileTransfers.h, transferSlot.h, accessoryUpdates.h, firmwareImages.h. The caller of the starts,
    // StopTransfer and SendFileChunk holds the lock.
    bool IsFileTransferSlotAvailable() { return m_transferSlot.IsFileTransferSlotAvailable(); }
    bool ReleaseFileTransferSlot() { return m_transferSlot.ReleaseFileTransferSlot(); }
    bool StartSettingsJSONFileTransfer(BleNotificationClient* client) {
        return m_transferSlot.StartSettingsJSONFileTransfer(client->m_file);
    }
    bool StartLarchFileTransfer(BleNotificationClient* client) { return m_transfers.StartLarchFileTransfer(client); }
    bool StopTransfer(BleNotificationClient* client) { return m_transfers.StopTransfer(client); }
    bool CheckClientsForFileTransfer() { return m_transfers.CheckClientsForFileTransfer(); }
    bool SendFileChunk(BleNotificationClient* client) { return m_transfers.SendFileChunk(client); }
    bool CheckClientsForLarchOTA() { return m_accessories.CheckClientsForLarchOTA(); }
    bool GetLarchUpdate(unsigned char deviceType, std::string* path) { return ::GetLarchUpdate(deviceType, path); }
    bool LarchUpdateCheck(unsigned char deviceType, std::string* path, unsigned char major, unsigned char minor,
                          unsigned char patch) {
        return ::LarchUpdateCheck(deviceType, path, major, minor, patch);
    }
    void SetWaitingAccReconnect(bool waiting) { m_camera.SetWaitingAccReconnect(waiting); }
    bool GetWaitingAccReconnect() const { return m_camera.GetWaitingAccReconnect(); }

    // ---- sensorHandOver.h
    void writeSession();  // takes the lock

  private:
    KzBleServer() = default;
    ~KzBleServer() = default;  // everything is closed
    KzBleServer(const KzBleServer&) = delete;
    KzBleServer& operator=(const KzBleServer&) = delete;

    void StopThread();
    void Run();
    void StartTick();
    void Loop();
    void KeepRadio();

    static KzBleServer* m_pInstance;  // null before the first GetInstance and after Destroy
    static constexpr pthread_t kNoThread = static_cast<pthread_t>(-1);

    // A later part uses earlier ones.
    MessageBuffer m_msgBuffer{};
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_hasRun{false};
    std::atomic<bool> m_stopRequested{false};  // a thread that is late to start must not run once it is being joined
    pthread_t m_thread = kNoThread;
    CameraStatus m_camera;
    PushRegistration m_registration{m_camera};
    SensorHandOver m_sensorHandOver;
    TransferSlot m_transferSlot;
    Services m_services{m_camera, m_sensorHandOver, m_transferSlot};
    RadioPort m_radio;
    ClientTable m_clients{m_services};
    AccessoryBuffers m_buffers{m_clients, m_radio};
    Delivery m_delivery{m_clients, m_radio, m_buffers};
    ChangeFanOut m_changeFanOut{m_clients, m_radio, m_msgBuffer};
    ControlEvents m_controlEvents{m_changeFanOut, m_msgBuffer};
    CsiInbox m_csiInbox{{m_clients, m_camera, m_registration, m_buffers, m_changeFanOut}};
    FileTransfers m_transfers{m_clients, m_radio, m_transferSlot, m_camera};
    AccessoryUpdates m_accessories{m_clients, m_radio, m_transfers, m_camera};
    ConnectionEvents m_connectionEvents{{m_clients, m_registration, m_radio, m_transfers, m_sensorHandOver}};
    PacketDispatch m_packetDispatch{
        {m_radio, m_clients, m_camera, m_connectionEvents, m_delivery, m_accessories, m_msgBuffer, m_running}};
    bool m_kzControlOpen = false;
    BleSDK* m_bleSdk = nullptr;
    FileDescriptor m_tick_fd;  // readable about every 500 ms
    uint32_t m_tick = 0;
};
