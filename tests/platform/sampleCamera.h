// A camera with the sample catalogue, as the simulator starts with it, and what it announced.
#pragma once

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cameraModel.h"

struct SampleCamera {
    SampleCamera() {
        camera.applyState(file("state.json"));
        camera.onSetting = [this](uint32_t id) { settings.push_back(id); };
        camera.onStatus = [this](uint32_t id) { statuses.push_back(id); };
    }
    SampleCamera(const SampleCamera&) = delete;
    SampleCamera& operator=(const SampleCamera&) = delete;

    static std::string file(const std::string& name) {
        std::ifstream stream(std::string(KZ_SAMPLE_CATALOGUE) + "/" + name);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    kzsim::CameraModel camera{kzsim::Catalogue::parse(file("settings.json")), 58};
    // Announced so far, in order.
    std::vector<uint32_t> settings;
    std::vector<uint32_t> statuses;
};
