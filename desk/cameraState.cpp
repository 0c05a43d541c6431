#include "cameraState.h"

#include "consoleClient.h"
#include "doCommand.h"
#include "eventLog.h"

namespace kzdesk {

using Json = nlohmann::ordered_json;

Json CameraState::with(const Json& camera) {
    Json devices = Json::array();
    for (const auto& device : m_devices.all()) {
        devices.push_back(device->state());
    }
    // A part that was killed is null in the state.
    const bool hasRadio = camera.is_object() && camera.contains("radio") && camera["radio"].is_object();
    return {{"camera", camera},
            {"devices", devices},
            {"connections", hasRadio ? camera["radio"]["connections"] : Json::array()}};
}

Json CameraState::now() {
    return with(askCamera({"state"}));
}

std::string CameraState::recentEvent() {
    const std::lock_guard lock(m_mutex);
    const auto time = std::chrono::steady_clock::now();
    if (m_event.empty() || time - m_taken >= kAge) {
        const kzsim::ConsoleResult result = kzsim::askConsole({"state"});
        m_event = eventText(0, "state", with(result.outcome == kzsim::Outcome::Done ? result.value : Json()));
        m_taken = time;
    }
    return m_event;
}

}  // namespace kzdesk
