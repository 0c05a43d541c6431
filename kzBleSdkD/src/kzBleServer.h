// KzBleServer: the one server object. Its command thread waits on three queues and a timer and does all the work: connection
// events, request dispatch, the fan-out of changes, file transfers, accessory updates. Main only starts, watches and stops it.
//
// Sources: kzBleServer.cpp (life cycle, loop, dispatch), kzBleServerClients.cpp (client table, push registration, CSI_ST_STATE),
// kzBleServerTransmit.cpp (radio queue), kzBleServerChanges.cpp (changes to clients), kzBleServerFileTransfer.cpp (slot and
// pumps), kzBleServerAccessory.cpp (firmware updates), kzBleServerMetadata.cpp (metadata hand-over).
//
// Threads: everything but Start, Shutdown, Destroy, IsRunning and SetRunning runs on the command thread.
#pragma once

#include <mqueue.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "bleDevice.h"
#include "skylark/bleMessage.h"

class BleSDK;
class Msg;
class SettingsStatusMapping;

constexpr const char* kMqEvents = "/to_kzBleD";   // control daemon to this daemon
constexpr const char* kMqCsi = "/to_blesdk";      // CSI service and network daemon to this daemon
constexpr const char* kMqKzNet = "/to_kznet";     // this daemon to the network daemon

constexpr unsigned kMessageBufferSize = 8188;  // receive and response buffer; the longest extended-header message
constexpr unsigned kPushBufferSize = 1500;     // longest push
constexpr unsigned kEventMessageSize = 1500;   // message size of the two created queues
constexpr unsigned kLedBufferSize = 19;        // a marker byte and 18 data bytes
constexpr size_t kMaxClients = 20;             // what the radio can hold
constexpr long kMaxRadioBacklog = 90;          // of 100 records; above it data packets are shed, events never

// One CSI key with its value as it travels in messages: packed, length little-endian, `length` value bytes follow.
struct __attribute__((packed)) csiStruct {
    uint8_t key;
    uint32_t length;
    uint8_t value[];
};
constexpr size_t kCsiHeaderSize = 5;
static_assert(sizeof(csiStruct) == kCsiHeaderSize);

// A device and the small id it keeps across reconnections.
struct __attribute__((packed)) deviceInfo_t {
    uint8_t deviceId;
    uint8_t address[kBleAddressSize];
};
static_assert(sizeof(deviceInfo_t) == 7);

// Sends the CSI subscription. 0 sent, -1 when the network daemon's queue could not take it (logged; tried again on each tick).
int subscribeCSIbleSdk();
// Sends the end of the subscription, at exit.
int unsubscribeCSIbleSdk();

class KzBleServer {
  public:
    // Locks a mutex for its own life; a failure is logged and the work goes on.
    class Lock {
      public:
        explicit Lock(pthread_mutex_t* mutex);
        virtual ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

      private:
        pthread_mutex_t* m_mutex;
    };

    struct CahUploadProgress {
        int32_t currentFile = 0;
        int32_t totalFiles = 0;
        int32_t percentage = 0;
    };

    // ---- life cycle (kzBleServer.cpp)
    static KzBleServer* GetInstance();
    static void Destroy();
    int Start();           // 0 or -1
    int InterfaceOpen();   // queues, buffers and control interface alone; 0 or -1
    int InterfaceClose();  // 0; safe on a partly opened server
    int Shutdown();        // stops the thread and closes everything but keeps the object; 0
    bool IsRunning() const { return m_running; }
    void SetRunning(bool running) { m_running = running; }

    // ---- loop and dispatch (kzBleServer.cpp)
    static void* sThreadLoop(void* pThis);
    bool HandleBleMessage();
    bool ReceiveBLEMsg(ble_message_t& record);
    bool HandleSDKMessage(ble_message_t& record, int* kzErrno);
    bool HandleEvent();
    bool ReceiveEventMsg(Msg& message);
    void HandlePeriodicTimer();

    // ---- client table (kzBleServerClients.cpp)
    bool UpdateBleDeviceStatus(ble_message_t& record);
    BleNotificationClient* FindBleDeviceByConnectionID(uint32_t connectionId);  // the caller holds m_clientMutex
    size_t GetClientCount();
    int RegisterForKzControlNotifications();
    int UnregisterForKzControlNotifications();
    bool SetCsiStStatus();
    bool DumpBleDeviceStatus();

    // ---- radio queue (kzBleServerTransmit.cpp)
    bool PostPacket(ble_message_t& record);
    // False only when the response was not started for lack of queue room.
    bool PostResponse(ble_message_t& record, const unsigned char* data, unsigned short length);
    bool CheckClientsStoredResponses();
    int GetBleTxQueueAvailability(int* capacity = nullptr);
    bool TrackBleQStats(uint32_t tick);
    void ReportBleQStats();
    bool SetPacketTimer(bool on);
    void QueuePacket(const ble_message_t& record);
    bool sendLCDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length);
    bool sendLEDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length);

    // ---- changes (kzBleServerChanges.cpp)
    bool HandleCSINotification();
    bool NotifyClientsOfCSIChanges(const csiStruct* record);
    bool NotifyClientsOfSettingsChanges();
    bool NotifyClientsOfStatusChanges();
    bool NotifyClientsOfSettingsCapabilitiesChanges();
    bool StoreCAHUploadProgress(const csiStruct* record);
    // Sends a set message for one CSI key to the network daemon without waiting. 0, or -1 when it could not be sent.
    int csi_set_no_rsp(uint8_t key, const void* value, uint32_t length);

    // ---- file transfer (kzBleServerFileTransfer.cpp)
    bool IsFileTransferSlotAvailable();
    bool ReleaseFileTransferSlot();
    bool StartSettingsJSONFileTransfer(BleNotificationClient* client);
    bool StartLarchFileTransfer(BleNotificationClient* client);
    bool StopTransfer(BleNotificationClient* client);
    bool CheckClientsForFileTransfer();
    bool SendFileChunk(BleNotificationClient* client);
    void SetWaitingAccReconnect(bool waiting) { m_waitingAccReconnect = waiting; }
    bool GetWaitingAccReconnect() const { return m_waitingAccReconnect; }

    // ---- accessory firmware (kzBleServerAccessory.cpp)
    bool GetLarchUpdate(unsigned char deviceType, std::string* path);
    bool LarchUpdateCheck(unsigned char deviceType, std::string* path, unsigned char major, unsigned char minor,
                          unsigned char patch);
    bool CheckClientsForLarchOTA();
    // Stream 27: an accessory asks for its image, for its next block, or reports an error. Called with the lock held.
    void HandleAccessoryUpdateMessage(BleNotificationClient& client, ble_message_t& record);

    // ---- metadata (kzBleServerMetadata.cpp)
    void writeSession();  // takes the lock
    // Called by the tick; hands over on every second one while a stream is open. Takes the lock.
    void HandOverMetadataOnTick(uint32_t tick);
    // Called with the lock held after a stored sample, and before a disconnecting client's streams are closed.
    void HandOverMetadataIfNearLimit();
    void HandOverMetadata();

    // ---- what the handlers read
    uint32_t GetCsiValue(uint8_t key) const { return m_csiCache[key]; }
    uint32_t GetLastCsiKey() const { return m_lastCsiKey; }
    const CahUploadProgress& GetCahUploadProgress() const { return m_cahProgress; }
    uint8_t GetModelNumber() const { return m_modelNumber; }
    bool IsSuspended() const;     // suspended or still resuming
    bool IsForcedUpdate() const;  // an update is being forced: accessories are left alone
    bool IsBusy() const { return m_stInputs.busy == 1; }
    uint32_t GetLastSystemNotifyEvent() const { return m_lastSystemNotifyEvent; }
    void SetLastSystemNotifyEvent(uint32_t event) { m_lastSystemNotifyEvent = event; }

  private:
    friend struct KzBleServerTestAccess;  // unit tests of one concern reach its state through this

    // Inputs of the CSI_ST_STATE byte.
    struct StInputs {
        uint8_t batteryGood = 0;
        uint8_t sdCardGood = 0;
        uint8_t busy = 0;
        uint8_t paused = 0;
        uint8_t newMedia = 0;
        uint8_t st = 0;
    };

    KzBleServer();
    ~KzBleServer();
    KzBleServer(const KzBleServer&) = delete;
    KzBleServer& operator=(const KzBleServer&) = delete;

    static KzBleServer* m_pInstance;

    std::array<uint32_t, 256> m_csiCache{};  // last value notified for each CSI key
    uint32_t m_lastCsiKey = 0;
    CahUploadProgress m_cahProgress;
    mqd_t m_eventMq = -1;
    mqd_t m_csiMq = -1;
    mqd_t m_bleRxMq = -1;
    mqd_t m_bleTxMq = -1;
    std::unique_ptr<unsigned char[]> m_msgBuffer;
    pthread_t m_thread{};
    bool m_threadStarted = false;
    std::atomic<bool> m_running{false};
    pthread_mutex_t m_clientMutex;
    std::vector<std::unique_ptr<BleNotificationClient>> m_clients;  // in order of connection, at stable addresses
    std::vector<deviceInfo_t> m_deviceHistory;
    std::deque<ble_message_t> m_packetQueue;
    bool m_packetHolding = false;
    bool m_kzControlOpen = false;
    int64_t m_maxRxQueueDepth = 0;
    int64_t m_maxTxQueueDepth = 0;
    BleSDK* m_bleSdk = nullptr;
    uint32_t m_fileTransferSlots = 0;  // transfers running; a new one needs 0
    bool m_registeredForPush = false;
    bool m_waitingAccReconnect = false;
    StInputs m_stInputs;
    uint8_t m_modelNumber = 58;
    int m_timer_fd = -1;
    bool m_stNotificationReady = false;
    std::unique_ptr<unsigned char[]> m_lcdBuffer;
    std::unique_ptr<unsigned char[]> m_ledBuffer;
    uint16_t m_lcdLength = 0;
    uint16_t m_ledLength = 0;
    uint32_t m_lastSystemNotifyEvent = 0;
    bool m_csiSubscribed = false;
};
