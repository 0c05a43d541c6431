#include "interests.h"

#include <algorithm>

#include "bleSDK.h"
#include "settingsStatusMapping.h"

namespace {

bool Contains(const std::vector<int>& ids, int id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

}  // namespace

// One function for reading and changing: `self` is the object, const or not.
template <typename Self>
auto* Interests::ListOf(Self& self, Type type) {
    switch (type) {
        case NotificationClient::eNotifyStatus:
            return &self.m_statusInterest;
        case NotificationClient::eNotifySettings:
            return &self.m_settingsInterest;
        case NotificationClient::eNotifyCapabilities:
            return &self.m_capabilitiesInterest;
        case NotificationClient::eNotifyCSI:
            return &self.m_interestedCSIs;
        case NotificationClient::eNotifyLcd:
            return &self.m_lcdInterest;
        case NotificationClient::eNotifyLed:
            return &self.m_ledInterest;
    }
    return decltype(&self.m_statusInterest){};
}

std::vector<int>* Interests::List(Type type) {
    return ListOf(*this, type);
}

const std::vector<int>& Interests::Of(Type type) const {
    static const std::vector<int> kNone;
    const std::vector<int>* list = ListOf(*this, type);
    return list != nullptr ? *list : kNone;
}

const IdSet& Interests::SetOf(Type type) const {
    static const IdSet kNone;
    const auto index = static_cast<size_t>(type);
    return index < m_sets.size() ? m_sets[index] : kNone;
}

void Interests::UpdateSet(Type type) {
    const auto index = static_cast<size_t>(type);
    if (index < m_sets.size()) {
        m_sets[index] = IdSet(Of(type));
    }
}

void Interests::Add(Type type, int id) {
    std::vector<int>* list = List(type);
    if (list != nullptr && !Contains(*list, id)) {
        list->push_back(id);
        UpdateSet(type);
    }
}

void Interests::Add(Type type, const std::vector<int>& ids) {
    std::vector<int>* list = List(type);
    if (list != nullptr) {
        list->insert(list->end(), ids.begin(), ids.end());
        std::sort(list->begin(), list->end());
        list->erase(std::unique(list->begin(), list->end()), list->end());
        UpdateSet(type);
    }
}

void Interests::AddAll(Type type) {
    switch (type) {
        case NotificationClient::eNotifyLcd:
        case NotificationClient::eNotifyLed:
            List(type)->clear();
            return;
        case NotificationClient::eNotifyStatus:
            if (const SettingsStatusMapping* model = BleSDK::LoadedMapping(); model != nullptr) {
                model->GetValidStatusIds(*List(type));
                UpdateSet(type);
            }
            return;
        case NotificationClient::eNotifySettings:
        case NotificationClient::eNotifyCapabilities:
            if (const SettingsStatusMapping* model = BleSDK::LoadedMapping(); model != nullptr) {
                model->GetValidSettingsIds(*List(type));
                UpdateSet(type);
            }
            return;
        case NotificationClient::eNotifyCSI:
            return;
    }
}

void Interests::Remove(Type type, int id) {
    std::vector<int>* list = List(type);
    if (list != nullptr) {
        std::erase(*list, id);
        UpdateSet(type);
    }
}

void Interests::Remove(Type type, const std::vector<int>& ids) {
    std::vector<int>* list = List(type);
    if (list != nullptr) {
        std::erase_if(*list, [&ids](int id) { return Contains(ids, id); });
        std::sort(list->begin(), list->end());
        UpdateSet(type);
    }
}

void Interests::RemoveAll(Type type) {
    std::vector<int>* list = type != NotificationClient::eNotifyCSI ? List(type) : nullptr;
    if (list != nullptr) {
        list->clear();
        UpdateSet(type);
    }
}
