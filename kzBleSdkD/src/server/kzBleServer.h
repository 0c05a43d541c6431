// KzBleServer: the one server object. Its command thread waits on three queues and a timer and does all the work:
// connection events, request dispatch, the fan-out of changes, file transfers, accessory updates. Main only starts,
// watches and stops it.
//
// Sources: kzBleServer.cpp (life cycle, loop), kzBleServerDispatch.cpp (what the loop receives), kzBleServerClients.cpp
// (client table, push registration, CSI_ST_STATE), kzBleServerTransmit.cpp (radio queue), kzBleServerChanges.cpp
// (fan-out of changes), kzBleServerCsi.cpp (messages of the CSI service), kzBleServerFileTransfer.cpp (slot and pumps),
// kzBleServerAccessory.cpp (firmware updates), kzBleServerMetadata.cpp (metadata hand-over).
//
// Threads: everything but Start, Shutdown, Destroy, IsRunning and SetRunning runs on the command thread.
#pragma once

#include <pthread.h>
#include <sys/select.h>
#include <time.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "bleDevice.h"
#include "cameraState.h"
#include "posixHandle.h"
#include "skylark/bleMessage.h"
#include "transmitPlan.h"

class BleSDK;
class Msg;
class SettingsStatusMapping;
struct RequestInterface;

constexpr const char* kMqEvents = "/to_kzBleD";  // control daemon to this daemon
constexpr const char* kMqCsi = "/to_blesdk";     // CSI service and network daemon to this daemon
constexpr const char* kMqKzNet = "/to_kznet";    // this daemon to the network daemon

constexpr unsigned kMessageBufferSize = 8188;  // receive and response buffer; the longest extended-header message
constexpr unsigned kPushBufferSize = 1500;     // longest push
constexpr unsigned kEventMessageSize = 1500;   // message size of the two created queues
constexpr unsigned kCsiAnswerRoom = 9;         // what the acknowledgement of a CSI message is longer than it
constexpr unsigned kLedBufferSize = 19;        // a marker byte and 18 data bytes
constexpr size_t kMaxDeviceHistory = 4096;     // addresses remembered; a peer may come with a new one each time
constexpr size_t kMaxClients = 20;             // what the radio can hold
constexpr long kMaxRadioBacklog = 90;          // of 100 records; above it data packets are shed, events never
constexpr int kRadioWriteSeconds = 2;          // a write to the radio queue that stays blocked longer has failed

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

// What the packet timer was last set to.
extern itimerspec g_timerspec;

// Sends the CSI subscription. 0 sent, -1 when the network daemon's queue could not take it (logged; tried again on each
// tick).
int subscribeCSIbleSdk();
// Sends the end of the subscription, at exit.
int unsubscribeCSIbleSdk();

class KzBleServer {
  public:
    // Holds a mutex for its own life; a failure is logged and the work goes on.
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

    // ---- life cycle (kzBleServer.cpp); main thread

    // Constructs the server on first use, which main makes before there is a second thread.
    static KzBleServer* GetInstance();
    // Stops the thread, closes everything and deletes the server; harmless without one.
    static void Destroy();
    // Opens the interfaces, loads the settings model and starts the command thread. 0, or -1 with the reason logged.
    // Waits 12 seconds for the radio-stack daemon's queue to this daemon, and without limit for the one from it.
    int Start();
    // The queues, buffers and the control interface alone. 0, or -1 with everything closed again.
    int InterfaceOpen();
    // Releases what InterfaceOpen acquired, as far as it got. 0.
    int InterfaceClose();
    // Destroy without the deletion: the server can be started again. 0.
    int Shutdown();
    bool IsRunning() const { return m_running; }
    // Whether the thread has begun to run since Start; true also when it was told to stop at once.
    bool HasRun() const { return m_hasRun; }
    void SetRunning(bool running) { m_running = running; }

    // ---- loop (kzBleServer.cpp) and dispatch (kzBleServerDispatch.cpp)

    // The command thread; `pThis` is the server. Null.
    static void* sThreadLoop(void* pThis);
    // Receives and dispatches one record of the radio-stack daemon. False for a record that could not be received or is
    // of no known type.
    bool HandleBleMessage();
    // The receive step alone. False when there is no record, or one of a wrong length, which is dropped.
    bool ReceiveBLEMsg(ble_message_t& record);
    // Dispatches one data packet under the lock. True when a response was produced (sent, stored or dropped by its
    // gate) and for a packet of an unknown connection. *kzErrno: the code of the handler. The record is reused for the
    // response.
    bool HandleSDKMessage(ble_message_t& record, int* kzErrno);
    // Takes one push of the control daemon and fans its changes out. False when it was dropped.
    bool HandleEvent();
    // The receive step alone: receives, decodes, checks the category.
    bool ReceiveEventMsg(Msg& message);
    // The tick, about every 500 ms.
    void HandlePeriodicTimer();

    // ---- client table (kzBleServerClients.cpp)

    // Connection, disconnection and notification-enable records. False for an event of an unknown connection and for a
    // connection beyond the limit.
    bool UpdateBleDeviceStatus(ble_message_t& record);
    // Null, and the known clients logged, when there is none. The caller holds the lock.
    BleNotificationClient* FindBleDeviceByConnectionID(uint32_t connectionId);
    size_t GetClientCount();  // takes the lock
    // Ask the control daemon for pushes, and end that. 0, also when that is so already; -1 when it refused, and for
    // registering while the camera is suspended.
    int RegisterForKzControlNotifications();
    int UnregisterForKzControlNotifications();
    // Recomputes CSI_ST_STATE; true when the value changed and was published.
    bool SetCsiStStatus();
    bool DumpBleDeviceStatus();  // true; takes the lock

    // ---- radio queue (kzBleServerTransmit.cpp)

    // Sends one ready record. It does not look for room: a full queue is waited for, kRadioWriteSeconds at most.
    bool PostPacket(ble_message_t& record);
    // Splits `length` bytes into packets on the record's connection and stream. False only when the response was not
    // started because the queue has no room for all of it.
    bool PostResponse(ble_message_t& record, const unsigned char* data, unsigned short length);
    // Retries stored responses, one a client; true when any was sent. Takes the lock.
    bool CheckClientsStoredResponses();
    // Free places; 0 when the queue is closed or unreadable. `capacity`, when given, gets the queue's depth.
    unsigned GetBleTxQueueAvailability(int* capacity = nullptr);
    // Bytes of the longest response that the radio queue takes when it is empty: a longer one could never be sent. The
    // longest message while the queue is closed.
    uint16_t GetLongestResponse();
    // Room for a push: kPushBufferSize, less where the radio queue could never take as much, but one packet in any
    // case.
    uint16_t GetPushRoom();
    // Follows the depth of both radio queues; true when one is more than a third full and `tick` is a multiple of 3.
    bool TrackBleQStats(uint32_t tick);
    void ReportBleQStats();
    // Switches packet holding; packets held are dropped. True.
    bool SetPacketTimer(bool on);
    void QueuePacket(const ble_message_t& record);
    // Send the display or LED buffer to a client that asked for it; the first byte becomes the buffer's marker. False
    // when it did not ask or the queue has no room.
    bool sendLCDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length);
    bool sendLEDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length);

    // ---- changes (kzBleServerChanges.cpp, kzBleServerCsi.cpp)
    //
    // A change is offered to every client in table order; each builds its own push, or none. A change set that does not
    // fit one push goes out as several whole ones. What finds the radio queue full waits in the client: a single push
    // as it is, where the newest replaces the older one of its type; the rest of several as ids, told from the values
    // of the moment once there is room. A push that waits leaves before a later one of its type.

    // Receives and handles one message of the CSI service or the network daemon.
    bool HandleCSINotification();
    // The handling alone, of a message of `received` bytes at the start of `buffer`, which has kCsiAnswerRoom bytes
    // more for the acknowledgement that is made of it. False for a message that was dropped, and for a subscription's
    // answer.
    bool HandleCsiMessage(std::span<unsigned char> buffer, uint32_t received);
    // Caches a CSI value, acts on it and tells clients. `record` holds the whole value. True when any client produced a
    // push. Takes the lock.
    bool NotifyClientsOfCSIChanges(const csiStruct* record);
    // Tell clients of what the model has marked changed. True when any client produced a push. Take the lock.
    bool NotifyClientsOfSettingsChanges();
    bool NotifyClientsOfStatusChanges();
    bool NotifyClientsOfSettingsCapabilitiesChanges();
    // Reads "current:total:percent"; true when all three numbers were found, those before the first bad one are kept.
    bool StoreCAHUploadProgress(const csiStruct* record);
    // Sends a set message for one CSI key to the network daemon without waiting. 0, or -1 (logged) when it could not be
    // sent.
    int csi_set_no_rsp(uint8_t key, const void* value, uint32_t length);

    // ---- file transfer (kzBleServerFileTransfer.cpp). One transfer at a time in the whole daemon; the caller of the
    // starts, StopTransfer and SendFileChunk holds the lock.

    bool IsFileTransferSlotAvailable();
    bool ReleaseFileTransferSlot();  // false when none is taken
    bool StartSettingsJSONFileTransfer(BleNotificationClient* client);
    bool StartLarchFileTransfer(BleNotificationClient* client);
    // Ends the client's firmware transfer and releases the slot, which stays taken when it is another client's. True.
    bool StopTransfer(BleNotificationClient* client);
    // The settings.json pump, on every tick; true when the last packet sent has more to follow. Takes the lock.
    bool CheckClientsForFileTransfer();
    // The firmware pump: sends as many packets of the client's image as there is room for. False when it sends nothing.
    bool SendFileChunk(BleNotificationClient* client);
    void SetWaitingAccReconnect(bool waiting) { m_waitingAccReconnect = waiting; }
    bool GetWaitingAccReconnect() const { return m_waitingAccReconnect; }

    // ---- accessory firmware (kzBleServerAccessory.cpp)

    // Finds the update image of a device type: stores its path, true when there is one.
    bool GetLarchUpdate(unsigned char deviceType, std::string* path);
    // Whether an accessory of this version should be updated now; stores the image's path if so. Reads and checks the
    // image.
    bool LarchUpdateCheck(unsigned char deviceType, std::string* path, unsigned char major, unsigned char minor,
                          unsigned char patch);
    // Update work of the tick: sends image packets, asks accessories with a pending update to reboot. True when a
    // client got something. Takes the lock.
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

    // ---- state. Open like a client's record: while the command thread runs it alone touches this, but for the atomic
    // flags.
    static KzBleServer* m_pInstance;  // null before the first GetInstance and after Destroy

    std::array<uint32_t, 256> m_csiCache{};  // last value notified for each CSI key
    uint32_t m_lastCsiKey = 0;
    CahUploadProgress m_cahProgress;
    QueueHandle m_eventMq;
    QueueHandle m_csiMq;
    QueueHandle m_bleRxMq;
    QueueHandle m_bleTxMq;
    long m_radioDepth = 0;  // of m_bleTxMq, once asked for
    // Receive buffer of three queues, and response buffer of every handler.
    std::unique_ptr<unsigned char[]> m_msgBuffer;
    bool m_shedding = false;  // whether the last radio record was shed
    static constexpr auto kNoThread = static_cast<pthread_t>(-1);
    pthread_t m_thread = kNoThread;  // from a successful Start until the thread is joined
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_hasRun{false};
    std::atomic<bool> m_stopRequested{false};  // a thread that is late to start must not run once it is being joined
    pthread_mutex_t m_clientMutex;             // guards m_clients; taken through Lock
    std::vector<std::unique_ptr<BleNotificationClient>> m_clients;  // in order of connection, at stable addresses
    std::vector<deviceInfo_t> m_deviceHistory;  // one entry an address, kept for the life of the process
    uint8_t m_lastDeviceId = 0;
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
    uint8_t m_lastStState = 0;  // CSI_ST_STATE as published
    FileDescriptor m_timer_fd;
    FileDescriptor m_tick_fd;  // readable about every 500 ms
    uint32_t m_tick = 0;
    bool m_stNotificationReady = false;
    std::unique_ptr<unsigned char[]> m_lcdBuffer;
    std::unique_ptr<unsigned char[]> m_ledBuffer;
    uint16_t m_lcdLength = 0;
    uint16_t m_ledLength = 0;
    uint32_t m_lastSystemNotifyEvent = 0;
    bool m_csiSubscribed = false;
    uint8_t m_rebootDelay = 0;  // ticks since an update became pending or was last requested; shared by all clients

  private:
    KzBleServer();
    ~KzBleServer();  // everything is closed
    KzBleServer(const KzBleServer&) = delete;
    KzBleServer& operator=(const KzBleServer&) = delete;

    // kzBleServer.cpp
    bool OpenOwnQueue(const char* name, long depth, QueueHandle& queue);
    bool OpenRadioQueues();
    void StopThread();
    void StartTick();
    void Loop();
    void HandleReadable(const fd_set& readable);
    void HandleDebugEvent(const ble_message_t& record);
    void HandleDataEvent(ble_message_t& record, int* kzErrno);
    void UpdateDevice(ble_message_t& record);
    bool DispatchPacket(BleNotificationClient& client, ble_message_t& record, int* kzErrno);
    bool DispatchRequest(const RequestInterface& row, BleNotificationClient& client, ble_message_t& record,
                         int* kzErrno);

    // kzBleServerClients.cpp
    BleNotificationClient* LookUpClient(uint32_t connectionId);
    void UpdateClient(BleNotificationClient& client, const ble_message_t& record);
    void RemoveClient(BleNotificationClient& client);
    bool AddClient(const ble_message_t& record);
    uint8_t DeviceIdOfAddress(const uint8_t* address);
    void RegisterAfterConnection();
    void UnregisterAfterLastDisconnection();

    // kzBleServerTransmit.cpp
    enum class WaitForRoom { kNo, kBounded };
    enum class SendResult { kSent, kNoRoom, kFailed };  // no room: only without a wait, and nothing was logged
    SendResult WriteRecord(const ble_message_t& record, WaitForRoom wait);
    SendResult SendOrHold(const ble_message_t& record, WaitForRoom wait);
    QueueFill TxQueueFill() const;  // nothing of nothing when it cannot be read
    bool SendStoredResponse(BleNotificationClient& client);
    void SendStoredBuffers(BleNotificationClient& client);
    bool SendBuffer(NotificationClient::eNotificationType_t type, BleNotificationClient& client, unsigned char* buffer,
                    unsigned short length);

    // kzBleServerChanges.cpp
    struct PushKind;
    enum class PushResult { kSent, kDropped, kNoRoom };
    bool NotifyOfModelChanges(const PushKind& kind);
    bool FanOut(const PushKind& kind, std::vector<int>& ids);
    bool PushToClient(const PushKind& kind, BleNotificationClient& client, std::vector<int>& ids);
    PushResult SendPush(const PushKind& kind, BleNotificationClient& client, unsigned short length);
    void SendWaitingPush(const PushKind& kind, BleNotificationClient& client);
    bool FanOutCsiChange();

    // kzBleServerCsi.cpp
    struct CsiKeyRow;
    static const CsiKeyRow kCsiKeys[];
    bool HandleStateMessage(unsigned char* message, uint32_t size);
    bool HandleBufferMessage(const unsigned char* message);
    void StoreLedBuffer(const unsigned char* data, unsigned short length);
    void StoreLcdBuffer(const unsigned char* data, unsigned short length);
    bool ActOnBusy(const csiStruct& record);
    bool ActOnModelNumber(const csiStruct& record);
    bool ActOnPaused(const csiStruct& record);
    bool ActOnBattery(const csiStruct& record);
    bool ActOnExternalPower(const csiStruct& record);
    bool ActOnSdCard(const csiStruct& record);
    bool ActOnUploadProgress(const csiStruct& record);
    bool ActOnSystemState(const csiStruct& record);
    bool ActOnNewMedia(const csiStruct& record);

    // kzBleServerFileTransfer.cpp
    bool PumpSettingsJSON(BleNotificationClient& client, long budget);
    void EndSettingsJSONTransfer(BleNotificationClient& client);
    long ImageBudget(const BleNotificationClient& client, const QueueFill& queue);
    void FinishImageTransfer(BleNotificationClient& client);
    void PublishAccessoryState(const BleNotificationClient& client, uint8_t percent, eAccessoryUpdate phase);

    // kzBleServerAccessory.cpp
    bool AdvancePendingUpdate(BleNotificationClient& client);
    bool RequestAccessoryReboot(BleNotificationClient& client);
    void HandleStreamedImageRequest(BleNotificationClient& client, ble_message_t& record);
    void HandleBlockMessage(BleNotificationClient& client, const ble_message_t& record);
    void HandleImageRequest(BleNotificationClient& client, const ble_message_t& record);
    void HandleBlockRequest(BleNotificationClient& client);
    void HandleImageError(BleNotificationClient& client);

    // Scratch, kept for its capacity.
    std::vector<int> m_pushIds;                          // of the buffer pushes
    std::string m_eventText;                             // of HandleEvent
    std::vector<int> m_changedIds;                       // the change set of a fan-out
    std::vector<int> m_remainingIds;                     // and what of it is left for one client
    BleNotificationClient::StoredResponse m_filePacket;  // of the transfers
};
