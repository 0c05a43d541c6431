// BleSDK: owner of the model.
#include "bleSDK.h"

#include <cstdio>
#include <memory>

#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleSDK.cpp";

constexpr size_t kPathSize = 256;

std::string PathOfModel(uint8_t model) {
    const char* name = get_model_name(model);
    char path[kPathSize];
    std::snprintf(path, sizeof(path), "/usr/local/zorvik/etc/%s/settings.json", name != nullptr ? name : "unknown");
    return path;
}

}  // namespace

BleSDK* BleSDK::m_pInstance = nullptr;

BleSDK* BleSDK::GetInstance() {
    if (m_pInstance == nullptr) {
        m_pInstance = new BleSDK();
        m_pInstance->LoadSettingsStatus();
    }
    return m_pInstance;
}

void BleSDK::Destroy() {
    delete m_pInstance;
    m_pInstance = nullptr;
}

BleSDK::~BleSDK() {
    delete m_pSettingsMapping;
}

void BleSDK::LoadSettingsStatus() {
    if (m_pSettingsMapping != nullptr) {
        LOG_ERROR("Already loaded settings mapping");
        return;
    }
    auto mapping = std::make_unique<SettingsStatusMapping>();
    if (m_settingsPath.empty()) {
        m_settingsPath = PathOfModel(mapping->modelNumber);
    }
    if (!mapping->ParseJsonFile(m_settingsPath)) {
        LOG_ERROR(" failed to parse settings.json");
        return;
    }
    m_pSettingsMapping = mapping.release();
}

SettingsStatusMapping* BleSDK::LoadMapping() {
    BleSDK* sdk = GetInstance();
    if (sdk->m_pSettingsMapping == nullptr) {
        sdk->LoadSettingsStatus();
    }
    return sdk->m_pSettingsMapping;
}

int BleSDK::SetKZErrNo(int error) {
    constexpr int kLastPassedOn = 14;
    constexpr int kResultInvalidParameter = 2;
    constexpr int kResultError = 1;
    if (error >= KZ_OK && error <= kLastPassedOn) {
        return error;
    }
    return error == KZ_ERR_INVALID_PARAM ? kResultInvalidParameter : kResultError;
}
