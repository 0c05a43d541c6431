#include "camera.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "../fakes/paths.h"

namespace e2e {

void writeFile(const std::string& path, const Bytes& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

Camera::Camera() {
    forgetReplies();
    writeFile(fakes::kCameraCalls, Bytes());
}

void Camera::reply(const std::string& call, int result, const Bytes& bytes) {
    writeFile(fakes::kCameraReplies + call, little32(static_cast<uint32_t>(result)) + bytes);
}

void Camera::forgetReplies() {
    std::filesystem::remove_all(fakes::kCameraReplies);
    std::filesystem::create_directory(fakes::kCameraReplies);
}

std::string Camera::takeCalls(bool withCallers) {
    std::ifstream file(fakes::kCameraCalls);
    file.seekg(m_taken);
    std::string calls;
    // A line without its end is still being written: it is left for the next look.
    for (std::string line; std::getline(file, line) && !file.eof();) {
        m_taken += static_cast<long>(line.size()) + 1;
        if (withCallers || !line.starts_with("caller ")) {
            calls += (calls.empty() ? "" : ", ") + line;
        }
    }
    return calls;
}

}  // namespace e2e
