// BleSDK: the process-wide entry to the settings and status model. It has no lock: the main thread uses it while the
// daemon starts and stops, the command thread in between, never both at a time.
#pragma once

#include <string>

class SettingsStatusMapping;

class BleSDK {
  public:
    // The instance. The first call makes it and tries to load the catalogue once; a failure of that leaves an instance
    // without a catalogue. Never null.
    static BleSDK* GetInstance();
    // Deletes the catalogue and the instance. Does nothing when there is no instance.
    static void Destroy();

    // Loads the catalogue if none is loaded. A failure is logged and leaves m_pSettingsMapping null; it may be retried.
    void LoadSettingsStatus();

    // The result byte that answers a client for an error code: 0 to 14 stay as they are, KZ_ERR_INVALID_PARAM becomes
    // 2, anything else 1.
    static int SetKZErrNo(int error);

    // The model, which is loaded if it is not yet; null when that fails.
    static SettingsStatusMapping* LoadedMapping() {
        const bool isLoaded = m_pInstance != nullptr && m_pInstance->m_pSettingsMapping != nullptr;
        return isLoaded ? m_pInstance->m_pSettingsMapping : LoadMapping();
    }

    static BleSDK* m_pInstance;
    SettingsStatusMapping* m_pSettingsMapping = nullptr;  // owned
    std::string m_settingsPath;                           // empty before the first load, then kept for the next tries

  private:
    BleSDK() = default;
    ~BleSDK();
    static SettingsStatusMapping* LoadMapping();
};
