#include "scenario.h"

#include "cameraIds.h"
#include "report.h"

namespace kzsim {
namespace {

constexpr uint32_t kScriptSeconds = 60;
constexpr uint32_t kLowBattery = 5;

void drain(CameraModel& camera) {
    const uint32_t percent = camera.statusNumber(status::kBatteryPercent);
    camera.setBattery(percent <= kLowBattery ? 100 : percent - 1);
}

struct Step {
    uint32_t at;  // second of the script
    const char* what;
    void (*act)(CameraModel&);
};

constexpr Step kScript[] = {
    {4, "battery drains", drain},
    {8, "recording starts", [](CameraModel& camera) { camera.startCapture(); }},
    {14, "battery drains", drain},
    {18, "recording stops", [](CameraModel& camera) { camera.stopCapture(); }},
    {22, "charger plugged in", [](CameraModel& camera) { camera.setExternalPower(true); }},
    {26, "charger unplugged", [](CameraModel& camera) { camera.setExternalPower(false); }},
    {30, "card pulled", [](CameraModel& camera) { camera.setCard(kCardRemoved); }},
    {34, "card put back", [](CameraModel& camera) { camera.setCard(kCardUsable); }},
    {38, "photo mode", [](CameraModel& camera) { camera.setMode(kModePhoto); }},
    {40, "photo taken", [](CameraModel& camera) { camera.startCapture(); }},
    {44, "video mode", [](CameraModel& camera) { camera.setMode(kModeVideo); }},
    {48, "camera sleeps", [](CameraModel& camera) { camera.suspend(); }},
    {52, "camera wakes", [](CameraModel& camera) { camera.resume(); }},
    {56, "battery drains", drain},
};

}  // namespace

Scenario::Scenario(EventLoop& loop, CameraModel& camera, bool scripted, std::chrono::milliseconds secondLength)
    : m_loop(loop), m_camera(camera), m_scripted(scripted), m_secondLength(secondLength) {
    m_timer = m_loop.callAfter(m_secondLength, [this] { second(); });
}

Scenario::~Scenario() {
    m_loop.cancel(m_timer);
}

void Scenario::second() {
    m_timer = m_loop.callAfter(m_secondLength, [this] { second(); });
    m_camera.second();
    m_second = (m_second + 1) % kScriptSeconds;
    for (const Step& step : kScript) {
        if (m_scripted && step.at == m_second) {
            report("camera", "life: %s", step.what);
            step.act(m_camera);
        }
    }
}

}  // namespace kzsim
