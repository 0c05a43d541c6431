// BleSDK: the process-wide entry to the settings and status model. Not locked: called from the main thread during start
// and stop and from the command thread in between, never at the same time.
#pragma once

#include <string>

class SettingsStatusMapping;

class BleSDK {
  public:
    // Creates the instance on first use and tries to load the catalogue once; never null, also when that failed.
    static BleSDK* GetInstance();
    // Deletes the catalogue and the instance; harmless without one.
    static void Destroy();

    // Loads the catalogue if none is loaded. A failure is logged and leaves m_pSettingsMapping null; it may be retried.
    void LoadSettingsStatus();

    // The result byte of an answer to a client: 0 stays 0, KZ_ERR_INVALID_PARAM becomes 2, 1 to 14 stay, all else is 1.
    static int SetKZErrNo(int error);

    // The loaded model, loading it if needed; null while it is unavailable.
    static SettingsStatusMapping* LoadedMapping();

    static BleSDK* m_pInstance;
    SettingsStatusMapping* m_pSettingsMapping = nullptr;  // owned
    std::string m_settingsPath;                           // formed by the first load

  private:
    BleSDK() = default;
    ~BleSDK();
};
