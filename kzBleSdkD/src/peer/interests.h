// Interests: the ids that one client wants to be notified of, one list a notification type. Kept for the life of the
// connection; no operation fails, and an unknown type is ignored.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "idSet.h"
#include "notificationClient.h"

class Interests {
  public:
    using Type = NotificationClient::eNotificationType_t;

    // The ids of a type, in the order in which they came until ids are added or removed several at a time, which sorts
    // them. Empty for an unknown type.
    const std::vector<int>& Of(Type type) const;
    // The same as a set, of the types whose ids are those of settings or of status fields; empty for the others.
    const IdSet& SetOf(Type type) const;

    void Add(Type type, int id);
    void Add(Type type, const std::vector<int>& ids);
    // Status, settings, capabilities: all ids that the catalogue has. Display and LED buffers: the list is emptied,
    // since there is no "all" of connection ids. CSI: nothing happens.
    void AddAll(Type type);
    void Remove(Type type, int id);
    void Remove(Type type, const std::vector<int>& ids);
    // Empties the list; that of the CSI keys stays.
    void RemoveAll(Type type);

    // Empties the list of CSI keys, which a copied record does not carry over.
    void ForgetCsiKeys() { m_interestedCSIs.clear(); }

  private:
    template <typename Self>
    static auto* ListOf(Self& self, Type type);
    std::vector<int>* List(Type type);  // null for an unknown type
    void UpdateSet(Type type);          // after its list was changed

    std::vector<int> m_capabilitiesInterest;
    std::vector<int> m_settingsInterest;
    std::vector<int> m_statusInterest;
    std::vector<int> m_interestedCSIs;
    std::vector<int> m_lcdInterest;
    std::vector<int> m_ledInterest;
    std::array<IdSet, NotificationClient::eNotifyCapabilities + 1> m_sets;  // by type
};
