#include "camera.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "../fakes/paths.h"
#include "deadline.h"

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
    std::filesystem::remove_all(fakes::kCameraReplies);
    std::filesystem::create_directory(fakes::kCameraReplies);
    writeFile(fakes::kCameraCalls, Bytes());
}

void Camera::reply(const std::string& call, int result, const Bytes& bytes) {
    writeFile(fakes::kCameraReplies + call, little32(static_cast<uint32_t>(result)) + bytes);
}

void Camera::hold(const std::string& call) {
    mkfifo((fakes::kCameraReplies + call).c_str(), 0600);
}

void Camera::waitHeld(const std::string& call) {
    const std::string pipe = fakes::kCameraReplies + call;
    if (!waitUntil([&] { return (m_held = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) >= 0; })) {
        throw std::runtime_error("not called: " + call);
    }
}

void Camera::release(const std::string& call) {
    unlink((fakes::kCameraReplies + call).c_str());
    close(m_held);  // an empty reply
}

std::string Camera::takeCalls(bool withCallers) {
    std::ifstream file(fakes::kCameraCalls);
    file.seekg(m_taken);
    std::string calls;
    for (std::string line; std::getline(file, line);) {
        m_taken += static_cast<long>(line.size()) + 1;
        if (withCallers || !line.starts_with("caller ")) {
            calls += (calls.empty() ? "" : ", ") + line;
        }
    }
    return calls;
}

}  // namespace e2e
