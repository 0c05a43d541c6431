#include "cameraState.h"

#include "apiError.h"
#include "consoleClient.h"
#include "eventLog.h"

namespace kzdesk {

using Json = nlohmann::ordered_json;

Json CameraState::with(const Json& camera) {
    Json devices = Json::array();
    for (const auto& device : m_devices.all()) {
        devices.push_back(device->state());
    }
    const bool hasRadio = camera.is_object() && camera.contains("radio");
    return {{"camera", camera},
            {"devices", devices},
            {"connections", hasRadio ? camera["radio"]["connections"] : Json::array()}};
}

Json CameraState::now() {
    const kzsim::ConsoleResult result = kzsim::askConsole({"state"});
    if (result.outcome == kzsim::Outcome::NoCamera) {
        throw ApiError(503, "no-camera", result.value.get<std::string>());
    }
    if (result.outcome != kzsim::Outcome::Done) {
        throw ApiError(502, "refused", result.value.is_string() ? result.value.get<std::string>() : "");
    }
    return with(result.value);
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
