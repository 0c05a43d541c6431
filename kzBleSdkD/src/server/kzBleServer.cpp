// The server's life cycle and its loop. What the loop receives goes to kzBleServerDispatch.cpp and kzBleServerCsi.cpp.
#include "kzBleServer.h"

#include <fcntl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "bleSDK.h"
#include "csi/csiKeys.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzMsg.h"
#include "kzTlv.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";
constexpr const char* kAssertPath = "kzBleSdkD/src/kzBleServer";

constexpr mode_t kQueueMode = 0664;
constexpr long kEventQueueDepth = 10;
constexpr long kCsiQueueDepth = 40;
constexpr long kRadioQueueDepth = 100;
constexpr int kRadioOpenAttempts = 12;  // a second apart

constexpr timespec kTick = {0, 500000000};
constexpr int kMaxShedAtOnce = 16;  // records, before the other queues are looked at

// The CSI keys this daemon asks to be told of, as the payload of the subscription.
constexpr uint8_t kSubscribedKeys[] = {
    4,  // like 39 asked for only: nothing here depends on it
    CSI_MODEL_NUMBER,
    CSI_DEVICE_MGR_STATE,
    CSI_WOM_STATE,
    CSI_CAHA_STATE,
    CSI_CAH_FEATURE_ENABLE,
    CSI_CAH_ACTIVE,
    CSI_CAH_AUTH_STATE,
    CSI_CAH_UPLOAD_PROGRESS,
    CSI_CAMERA_BUSY,
    CSI_NEW_MEDIA,
    CSI_SD_CARD_STATE,
    CSI_ST_PAUSED,
    CSI_OTA_ERROR,
    CSI_OTA_STATE,
    CSI_OTA_PERCENTAGE,
    CSI_FORCED_UPDATE,
    CSI_WMS_STATE,
    CSI_LIVE_STREAM_ERROR,
    CSI_LIVE_STREAM_ENCODE,
    CSI_LIVE_STREAM_BITRATE,
    CSI_BATTERY_LEVEL,
    CSI_BATTERY_EXTERNAL_POWER,
    CSI_PRESETS_MODIFIED,
    39,
    CSI_BOOT_COUNT_BT,
    CSI_BOOT_COUNT_RC,
    CSI_BOOT_COUNT_AP,
    CSI_WAKEUP_REASON,
    CSI_SYSTEM_NOTIFY_EVENT,
    CSI_SYSTEM_STATE,
    CSI_CAH_AUTO_CLEAR,
};
static_assert(sizeof(kSubscribedKeys) == 32);
constexpr uint8_t kEndOfSubscription = 3;  // payload of the message that ends it

int SendToNetworkDaemon(uint8_t category, const void* payload, uint32_t length) {
    kzmsg message;
    kzmsg_build(&message, "CR", payload, length, category);
    return kzmsg_try_send(&message, kMqCsi, kMqKzNet, nullptr, 0) == KZ_SEND_OK ? 0 : -1;
}

}  // namespace

KzBleServer* KzBleServer::m_pInstance = nullptr;

int subscribeCSIbleSdk() {
    return SendToNetworkDaemon(CAT_KZNET_CMD, kSubscribedKeys, sizeof(kSubscribedKeys));
}

int unsubscribeCSIbleSdk() {
    return SendToNetworkDaemon(CAT_KZNET_UNSUB, &kEndOfSubscription, sizeof(kEndOfSubscription));
}

// ---------------------------------------------------------------- lock

KzBleServer::Lock::Lock(pthread_mutex_t* mutex) : m_mutex(mutex) {
    const int error = pthread_mutex_lock(m_mutex);
    if (error != 0) {
        LOG_ERROR("LOCK failed %d, %s", error, strerror(error));
    }
}

KzBleServer::Lock::~Lock() {
    const int error = pthread_mutex_unlock(m_mutex);
    if (error != 0) {
        LOG_ERROR("UNLOCK failed %d, %s", error, strerror(error));
    }
}

// ---------------------------------------------------------------- life cycle

KzBleServer::KzBleServer() {
    if (pthread_mutex_init(&m_clientMutex, nullptr) != 0) {
        LOG_ERROR("\n mutex init failed\n");
    }
}

KzBleServer::~KzBleServer() {
    pthread_mutex_destroy(&m_clientMutex);
}

KzBleServer* KzBleServer::GetInstance() {
    if (m_pInstance == nullptr) {
        m_pInstance = new KzBleServer();
    }
    return m_pInstance;
}

void KzBleServer::Destroy() {
    if (m_pInstance == nullptr) {
        return;
    }
    m_pInstance->Shutdown();
    delete m_pInstance;
    m_pInstance = nullptr;
}

int KzBleServer::Shutdown() {
    StopThread();
    BleSDK::Destroy();
    m_bleSdk = nullptr;
    InterfaceClose();
    return 0;
}

void KzBleServer::StopThread() {
    m_stopRequested = true;
    m_running = false;
    if (m_thread != kNoThread) {
        pthread_join(m_thread, nullptr);
        m_thread = kNoThread;
    }
}

int KzBleServer::Start() {
    if (InterfaceOpen() != 0) {
        return -1;
    }
    m_bleSdk = BleSDK::GetInstance();
    if (m_bleSdk->m_pSettingsMapping == nullptr) {
        m_bleSdk->LoadSettingsStatus();
    }
    if (m_bleSdk->m_pSettingsMapping == nullptr) {
        LOG_ERROR("Unable to start BLESDK Daemon because could not parse settings.json file!");
        return -1;
    }
    m_stopRequested = false;
    m_hasRun = false;
    const int error = pthread_create(&m_thread, nullptr, sThreadLoop, this);
    if (error != 0) {
        m_thread = kNoThread;  // a failed attempt may leave anything there
        LOG_ERROR("pthread_create error, %d\n", error);
        InterfaceClose();
        return -1;
    }
    return 0;
}

int KzBleServer::InterfaceOpen() {
    if (m_eventMq.IsOpen() || m_csiMq.IsOpen()) {
        LOG_ERROR("Interface must be closed before reuse!\n");
        return -1;
    }
    if (!OpenOwnQueue(kMqEvents, kEventQueueDepth, m_eventMq) || !OpenOwnQueue(kMqCsi, kCsiQueueDepth, m_csiMq) ||
        !OpenRadioQueues()) {
        InterfaceClose();
        return -1;
    }
    m_msgBuffer = std::make_unique<unsigned char[]>(kMessageBufferSize);
    m_lcdBuffer = std::make_unique<unsigned char[]>(kMessageBufferSize);
    m_ledBuffer = std::make_unique<unsigned char[]>(kLedBufferSize);
    if (kzcontrol_interface_open() != 0) {
        LOG_ERROR("Unable to open interface to kzControl Daemon\n");
        InterfaceClose();
        return -1;
    }
    m_kzControlOpen = true;
    return 0;
}

// Creates one of the two queues that belong to this daemon. A queue that exists already is another daemon's.
bool KzBleServer::OpenOwnQueue(const char* name, long depth, QueueHandle& queue) {
    mq_attr attributes{};
    attributes.mq_maxmsg = depth;
    attributes.mq_msgsize = kEventMessageSize;
    queue = QueueHandle(mq_open(name, O_RDONLY | O_CREAT | O_EXCL | O_NONBLOCK, kQueueMode, &attributes));
    if (!queue.IsOpen()) {
        LOG_ERROR("mq_open() failed for '%s': %s\n", name, strerror(errno));
    }
    return queue.IsOpen();
}

// Opens the two queues that the radio-stack daemon makes. Its receive side is expected soon; without its transmit side
// there is nothing to do but wait.
bool KzBleServer::OpenRadioQueues() {
    mq_attr attributes{};
    attributes.mq_maxmsg = kRadioQueueDepth;
    attributes.mq_msgsize = kBleRecordSize;
    for (int attempt = 0; attempt < kRadioOpenAttempts && !m_bleRxMq.IsOpen(); ++attempt) {
        m_bleRxMq = QueueHandle(mq_open(kMqToBleSdk, O_RDONLY | O_NONBLOCK, kQueueMode, &attributes));
        if (!m_bleRxMq.IsOpen()) {
            LOG_ERROR("mq_open() failed for '%s': %s\n", kMqToBleSdk, strerror(errno));
            sleep(1);
        }
    }
    while (m_bleRxMq.IsOpen() && !m_bleTxMq.IsOpen()) {
        m_bleTxMq = QueueHandle(mq_open(kMqToSkylark, O_WRONLY));
        if (!m_bleTxMq.IsOpen()) {
            LOG_ERROR("mq_open() failed for '%s': %s\n", kMqToSkylark, strerror(errno));
            sleep(1);
        }
    }
    return m_bleTxMq.IsOpen();
}

int KzBleServer::InterfaceClose() {
    if (m_kzControlOpen) {
        UnregisterForKzControlNotifications();
        kzcontrol_interface_close();
        m_kzControlOpen = false;
    }
    if (m_eventMq.IsOpen()) {
        m_eventMq.Close();
        mq_unlink(kMqEvents);
    }
    if (m_csiMq.IsOpen()) {
        m_csiMq.Close();
        mq_unlink(kMqCsi);
    }
    m_bleRxMq.Close();
    m_bleTxMq.Close();
    m_radioDepth = 0;
    m_timer_fd.Close();
    m_tick_fd.Close();
    m_msgBuffer.reset();
    m_lcdBuffer.reset();
    m_ledBuffer.reset();
    return 0;
}

// ---------------------------------------------------------------- loop

void* KzBleServer::sThreadLoop(void* server) {
    auto* pThis = static_cast<KzBleServer*>(server);
    pThis->m_running = !pThis->m_stopRequested;
    pThis->m_hasRun = true;
    LOG_INFO("Command handling thread running!");
    pThis->m_timer_fd = FileDescriptor(timerfd_create(CLOCK_MONOTONIC, 0));
    KZ_ASSERT(pThis->m_timer_fd.IsOpen(), kAssertPath,
              "(pThis->m_timer_fd = timerfd_create(CLOCK_MONOTONIC, 0)) != -1");
    g_timerspec = {};
    const int armed = timerfd_settime(pThis->m_timer_fd, 0, &g_timerspec, nullptr);
    KZ_ASSERT(armed != -1, kAssertPath, "timerfd_settime(pThis->m_timer_fd, 0, &g_timerspec, NULL) != -1");
    fcntl(pThis->m_timer_fd, F_SETFL, O_NONBLOCK);
    fcntl(pThis->m_timer_fd, F_SETFD, FD_CLOEXEC);
    KZ_DEBUG_PRINT(kDebugThresholdStart, "Starting kzBleSdkD\n");
    pThis->m_csiSubscribed = subscribeCSIbleSdk() == 0;
    pThis->StartTick();
    pThis->Loop();
    LOG_INFO("Command handling thread exiting!");
    return nullptr;
}

namespace {

void DiscardExpirations(int timer) {
    uint64_t expirations = 0;
    [[maybe_unused]] const ssize_t length = read(timer, &expirations, sizeof(expirations));
}

}  // namespace

void KzBleServer::StartTick() {
    m_tick_fd = FileDescriptor(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    const itimerspec period{kTick, kTick};
    const int armed = timerfd_settime(m_tick_fd, 0, &period, nullptr);
    KZ_ASSERT(armed != -1, kAssertPath, "timerfd_settime(m_tick_fd, 0, &period, NULL) != -1");
}

// Waits and dispatches until it is stopped. The tick is a descriptor like the others: it comes when its time is over,
// however much there is to receive, and a wait needs no timeout of its own.
void KzBleServer::Loop() {
    fd_set descriptors;
    FD_ZERO(&descriptors);
    int nfds = 0;
    for (const int descriptor : {int(m_eventMq), int(m_csiMq), int(m_bleRxMq), int(m_tick_fd)}) {
        FD_SET(descriptor, &descriptors);
        nfds = std::max(nfds, descriptor + 1);
    }
    nfds = std::max(nfds, m_timer_fd + 1);
    while (m_running && !m_stopRequested) {
        fd_set readable = descriptors;
        if (m_packetHolding) {  // the only time at which the packet timer runs
            FD_SET(m_timer_fd, &readable);
        }
        if (select(nfds, &readable, nullptr, nullptr, nullptr) < 0) {
            LOG_ERROR("Select failed and not handled");
        } else {
            HandleReadable(readable);
        }
    }
}

void KzBleServer::HandleReadable(const fd_set& readable) {
    if (FD_ISSET(m_eventMq, &readable)) {
        HandleEvent();
    }
    if (FD_ISSET(m_bleRxMq, &readable)) {
        HandleBleMessage();
        // A record is shed while many more wait: these need no select each.
        for (int i = 1; i < kMaxShedAtOnce && m_shedding; ++i) {
            HandleBleMessage();
        }
    }
    if (FD_ISSET(m_csiMq, &readable)) {
        HandleCSINotification();
    }
    if (FD_ISSET(m_timer_fd, &readable)) {
        DiscardExpirations(m_timer_fd);
    }
    if (FD_ISSET(m_tick_fd, &readable)) {
        DiscardExpirations(m_tick_fd);
        HandlePeriodicTimer();
    }
}

void KzBleServer::HandlePeriodicTimer() {
    ++m_tick;
    if (TrackBleQStats(m_tick)) {
        ReportBleQStats();
    }
    if (!m_csiSubscribed) {
        m_csiSubscribed = subscribeCSIbleSdk() == 0;
    }
    CheckClientsStoredResponses();
    CheckClientsForFileTransfer();
    CheckClientsForLarchOTA();
    HandOverMetadataOnTick(m_tick);
}
