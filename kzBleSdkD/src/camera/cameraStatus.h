// CameraStatus: what the camera last said of itself. The last value of every CSI key, what is derived from them, and
// the status byte that the daemon publishes for remote devices. Pushes and most answers are made from it; the queries
// of the cloud account and upload ask the CSI service itself.
//
// Command thread only.
#pragma once

#include <array>
#include <cstdint>

#include "csiPort.h"
#include "statusByte.h"

class CameraStatus {
  public:
    struct CahUploadProgress {
        int32_t currentFile = 0;
        int32_t totalFiles = 0;
        int32_t percentage = 0;
    };

    // ---- notifications

    // Remembers a notified value. A value of more than four bytes is logged and not kept; a shorter one leaves the
    // other bytes of its slot as they were. The upload progress is a text and has no slot. `record` holds the whole
    // value.
    void Store(const csiStruct& record);
    // Reads "current:total:percent". True when all three numbers were found; those before the first bad one are kept.
    bool StoreCAHUploadProgress(const csiStruct* record);

    // Bring what is derived from a key up to date with its stored value.
    void TakeModelNumber();
    void TakePaused();
    void TakeSdCard();
    void TakeNewMedia();
    // The first notification of external power ends the set-up of the status byte: from now on it is published.
    void EndStatusSetUp() { m_stNotificationReady = true; }

    // Computes CSI_ST_STATE anew. True when the value changed and was published.
    bool SetCsiStStatus();

    // ---- readers

    uint32_t GetCsiValue(uint8_t key) const { return m_csiCache[key]; }  // 0 before the first notification
    uint32_t GetLastCsiKey() const { return m_lastCsiKey; }              // of the last notification
    const CahUploadProgress& GetCahUploadProgress() const { return m_cahProgress; }
    uint8_t GetModelNumber() const { return m_modelNumber; }
    bool IsSuspended() const;     // suspended or still resuming
    bool IsForcedUpdate() const;  // an update is being forced: accessories are left alone
    bool IsBusy() const { return m_stInputs.busy == 1; }

    // ---- what clients and accessories are doing to the camera

    // The last event that a client announced; reported to the clients that ask for the state of mobile offload.
    uint32_t GetLastSystemNotifyEvent() const { return m_lastSystemNotifyEvent; }
    void SetLastSystemNotifyEvent(uint32_t event) { m_lastSystemNotifyEvent = event; }
    // Whether an accessory that got new firmware is expected to come back.
    bool GetWaitingAccReconnect() const { return m_waitingAccReconnect; }
    void SetWaitingAccReconnect(bool waiting) { m_waitingAccReconnect = waiting; }
    // The preset that was active before a live stream began; 0 until there was one.
    uint32_t GetPresetBeforeStream() const { return m_presetBeforeStream; }
    void SetPresetBeforeStream(uint32_t presetId) { m_presetBeforeStream = presetId; }

  private:
    static constexpr uint8_t kDefaultModelNumber = 58;

    std::array<uint32_t, 256> m_csiCache{};  // last value notified for each CSI key
    uint32_t m_lastCsiKey = 0;
    CahUploadProgress m_cahProgress;
    uint8_t m_modelNumber = kDefaultModelNumber;
    StInputs m_stInputs;
    uint8_t m_lastStState = 0;  // CSI_ST_STATE as published
    bool m_stNotificationReady = false;
    uint32_t m_lastSystemNotifyEvent = 0;
    bool m_waitingAccReconnect = false;
    uint32_t m_presetBeforeStream = 0;
};
