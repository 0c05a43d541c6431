#include "kzBleServer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include "bleSDK.h"
#include "eventLoop.h"
#include "kzCtrlD/kzCtrlD.h"
#include "serviceGuard.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";
constexpr const char* kAssertPath = "kzBleSdkD/src/kzBleServer";

constexpr timespec kTick = {0, 500000000};

void DiscardExpirations(int timer) {
    uint64_t expirations = 0;
    [[maybe_unused]] const ssize_t length = read(timer, &expirations, sizeof(expirations));
}

}  // namespace

// ---------------------------------------------------------------- life cycle

KzBleServer* KzBleServer::m_pInstance = nullptr;

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
        m_thread = kNoThread;
        LOG_ERROR("pthread_create error, %d\n", error);
        InterfaceClose();
        return -1;
    }
    return 0;
}

int KzBleServer::InterfaceOpen() {
    if (m_controlEvents.Queue().IsOpen() || m_csiInbox.Queue().IsOpen()) {
        LOG_ERROR("Interface must be closed before reuse!\n");
        return -1;
    }
    if (!m_controlEvents.Queue().Open() || !m_csiInbox.Queue().Open() || !m_radio.Open()) {
        InterfaceClose();
        return -1;
    }
    m_services.longestResponse = m_radio.GetLongestResponse();
    if (kzcontrol_interface_open() != 0) {
        LOG_ERROR("Unable to open interface to kzControl Daemon\n");
        InterfaceClose();
        return -1;
    }
    m_kzControlOpen = true;
    return 0;
}

int KzBleServer::InterfaceClose() {
    if (m_kzControlOpen) {
        UnregisterForKzControlNotifications();
        kzcontrol_interface_close();
        m_kzControlOpen = false;
    }
    m_controlEvents.Queue().Close();
    m_csiInbox.Queue().Close();
    m_radio.Close();
    m_services.longestResponse = m_radio.GetLongestResponse();
    m_tick_fd.Close();
    return 0;
}

// ---------------------------------------------------------------- loop

void* KzBleServer::sThreadLoop(void* pThis) {
    static_cast<KzBleServer*>(pThis)->Run();
    return nullptr;
}

void KzBleServer::Run() {
    m_running = !m_stopRequested;
    m_hasRun = true;
    LOG_INFO("Command handling thread running!");
    m_radio.StartPacketTimer();
    KZ_DEBUG_PRINT(kDebugThresholdStart, "Starting kzBleSdkD\n");
    m_csiInbox.KeepSubscribed();
    StartTick();
    Loop();
    LOG_INFO("Command handling thread exiting!");
}

void KzBleServer::StartTick() {
    m_tick_fd = FileDescriptor(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    const itimerspec period{kTick, kTick};
    const int armed = timerfd_settime(m_tick_fd, 0, &period, nullptr);
    KZ_ASSERT(armed != -1, kAssertPath, "timerfd_settime(m_tick_fd, 0, &period, NULL) != -1");
}

// Waits and dispatches until it is stopped. The tick is a descriptor like the others, so it is handled in time however
// much there is to receive. The packet timer runs only while packets are held, so it is watched only then.
void KzBleServer::Loop() {
    EventLoop loop;
    const auto add = [&loop](int descriptor, auto handle) {
        return loop.Add(descriptor, [handle] {
            ServiceGuard::BeginTurn();
            handle();
        });
    };
    add(m_controlEvents.Queue().Handle(), [this] { HandleEvent(); });
    const size_t radio = add(m_radio.ReceiveDescriptor(), [this] { m_packetDispatch.HandleRecords(); });
    add(m_csiInbox.Queue().Handle(), [this] { HandleCSINotification(); });
    loop.Add(m_radio.TimerDescriptor(), [this] { DiscardExpirations(m_radio.TimerDescriptor()); });
    add(m_tick_fd, [this] {
        DiscardExpirations(m_tick_fd);
        HandlePeriodicTimer();
    });
    bool watchesTimer = true;
    while (m_running && !m_stopRequested) {
        loop.Replace(radio, m_radio.ReceiveDescriptor());
        if (watchesTimer != m_radio.IsHolding()) {
            watchesTimer = m_radio.IsHolding();
            loop.SetWatched(m_radio.TimerDescriptor(), watchesTimer);
        }
        loop.RunOnce();
    }
}

void KzBleServer::HandlePeriodicTimer() {
    ++m_tick;
    KeepRadio();
    if (TrackBleQStats(m_tick)) {
        ReportBleQStats();
    }
    m_csiInbox.KeepSubscribed();
    m_registration.KeepRegistered(GetClientCount() > 0);
    m_transfers.KeepMoving();
    CheckClientsStoredResponses();
    CheckClientsForFileTransfer();
    CheckClientsForLarchOTA();
    if (SensorHandOver::IsSessionOver(m_tick)) {
        writeSession();
    }
}

// A radio-stack daemon that is started anew knows nothing of its connections; everything else goes on meanwhile.
void KzBleServer::KeepRadio() {
    if (m_radio.IsGone()) {
        LOG_ERROR("The radio-stack daemon has removed its queues, its clients are gone");
        m_radio.CloseQueues();
        m_packetDispatch.DisconnectAll();
    }
    if (!m_radio.IsOpen() && m_radio.Reopen()) {
        LOG_WARN("The radio-stack daemon's queues are open again");
        m_services.longestResponse = m_radio.GetLongestResponse();
    }
}

void KzBleServer::writeSession() {
    const Lock lock(m_clients.Mutex());
    m_sensorHandOver.writeSession();
}
