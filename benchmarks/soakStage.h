// Whether the clients of a soak work.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

namespace soak {

// While the clients do not work, they stay connected, take what comes, and say that they rest.
class Stage {
  public:
    enum class Scene { Connecting, Working, Resting, Over };

    Scene scene() const { return m_scene; }
    bool over() const { return m_scene == Scene::Over; }
    void change(Scene scene) {
        m_resting = 0;
        m_scene = scene;
    }
    // A client's word that it rests, once in a scene of rest.
    void rests() { ++m_resting; }
    // False when somebody still works after that time.
    bool awaitRest(unsigned clients, std::chrono::seconds patience) const {
        const auto until = std::chrono::steady_clock::now() + patience;
        while (m_resting < clients) {
            if (std::chrono::steady_clock::now() > until) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return true;
    }

  private:
    std::atomic<Scene> m_scene{Scene::Connecting};
    std::atomic<unsigned> m_resting{0};
};

}  // namespace soak
