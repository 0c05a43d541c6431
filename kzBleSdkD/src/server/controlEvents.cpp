#include "controlEvents.h"

#include "MemStream.h"
#include "bleSDK.h"
#include "changeFanOut.h"
#include "kzBleMessages.h"
#include "kzTlv.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

}  // namespace

bool ControlEvents::ReceiveEventMsg(Msg& message) {
    const ssize_t length =
        mq_receive(m_eventMq.Handle(), reinterpret_cast<char*>(m_msgBuffer.data()), kEventMessageSize, nullptr);
    if (length < 0) {
        LOG_ERROR("Error receiving on daemon message queue");
        return false;
    }
    MemoryStream stream(m_msgBuffer.data(), static_cast<unsigned short>(length));
    const bool decoded = message.decode(stream);
    if (message.getCategory() != CAT_KZCONTROL_EVENT) {
        LOG_ERROR("Invalid command category received: %d", message.getCategory());
        return false;
    }
    return decoded;
}

bool ControlEvents::HandleEvent() {
    Msg message(0);
    if (!ReceiveEventMsg(message)) {
        return false;
    }
    const MsgElement* element = message.findElement(TLV_RSPARG);
    if (element == nullptr) {
        return true;
    }
    SettingsStatusMapping* model = BleSDK::LoadedMapping();
    if (model == nullptr) {
        LOG_ERROR("No Database!!");
        return false;
    }
    m_text.assign(reinterpret_cast<const char*>(element->getData()), element->getDataLength());
    LOG_TRACE("%s", m_text.c_str());
    bool capabilitiesChanged = false;
    const uint8_t changed = model->CurrentSettingsStatusFromJSON(m_text.c_str(), capabilitiesChanged);
    if ((changed & SettingsStatusMapping::kSettingsChanged) != 0 && m_fanOut.NotifyClientsOfSettingsChanges()) {
        model->ResetSettingsHasChanged();
    }
    if ((changed & SettingsStatusMapping::kStatusChanged) != 0 && m_fanOut.NotifyClientsOfStatusChanges()) {
        model->ResetStatusHasChanged();
    }
    if (capabilitiesChanged) {
        m_fanOut.NotifyClientsOfSettingsCapabilitiesChanges();
    }
    return true;
}
