// NotificationClient: anything that can be notified of changes. The daemon's only kind is BleNotificationClient.
#pragma once

#include <sstream>
#include <vector>

class NotificationClient {
  public:
    enum eNotificationType_t : int {
        eNotifyStatus = 0,        // status values changed; ids are status ids
        eNotifySettings = 1,      // setting values changed; ids are setting ids
        eNotifyCapabilities = 3,  // allowed options of settings changed; ids are setting ids
        eNotifyCSI = 5,           // feature notification; ids are CSI keys
        eNotifyLcd = 6,           // LCD buffer for sensor clients; ids are connection ids
        eNotifyLed = 7,           // LED buffer; ids are connection ids
    };

    virtual ~NotificationClient() = default;
    // Pausing and Notify are kept because they belong to the public interface; the daemon calls none of them.
    virtual void Pause(bool paused) {
        m_paused = paused;
        m_notifyPending = m_notifyPending || paused;
    }
    virtual bool IsPaused() const { return m_paused; }
    virtual bool Notify(eNotificationType_t, std::stringstream&) {
        m_notifyPending = false;
        return true;
    }
    virtual bool AddInterest(eNotificationType_t type, int id) = 0;
    virtual bool AddInterest(eNotificationType_t type, std::vector<int> ids) = 0;
    virtual bool AddInterestAll(eNotificationType_t type) = 0;
    virtual bool RemoveInterest(eNotificationType_t type, int id) = 0;
    virtual bool RemoveInterest(eNotificationType_t type, std::vector<int> ids) = 0;
    virtual bool RemoveInterestAll(eNotificationType_t type) = 0;

    bool m_notifyPending = true;
    bool m_paused = true;
};
