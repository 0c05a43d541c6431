// A camera with the sample catalogue, as the simulator starts with it, and what it announced.
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cameraModel.h"

inline std::string sampleFile(const std::string& name) {
    std::ifstream file(std::string(KZ_SAMPLE_CATALOGUE) + "/" + name);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class SampleCamera {
  public:
    SampleCamera() : camera(kzsim::Catalogue::parse(sampleFile("settings.json")), 58) {
        camera.applyState(sampleFile("state.json"));
        camera.onSetting = [this](uint32_t id) { settings.push_back(id); };
        camera.onStatus = [this](uint32_t id) { statuses.push_back(id); };
        camera.onCsi = [this](uint8_t key) { keys.push_back(key); };
    }
    SampleCamera(const SampleCamera&) = delete;
    SampleCamera& operator=(const SampleCamera&) = delete;

    kzsim::CameraModel camera;
    // Announced so far, in order.
    std::vector<uint32_t> settings;
    std::vector<uint32_t> statuses;
    std::vector<uint8_t> keys;
};
