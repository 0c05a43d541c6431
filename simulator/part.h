// A part of the camera, such as the radio stack, that can be killed and started anew while the others go on.
#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

namespace kzsim {

template <typename Role>
class Part {
  public:
    using Maker = std::function<std::unique_ptr<Role>()>;

    // Starts the part, and later starts it anew, by `make`.
    Part(const char* name, Maker make) : m_name(name), m_make(std::move(make)), m_role(m_make()) {}

    const char* name() const { return m_name; }
    bool running() const { return m_role != nullptr; }
    // Throws std::runtime_error while the part is killed.
    Role* operator->() const {
        if (!running()) {
            throw std::runtime_error(std::string("the part ") + m_name + " does not run");
        }
        return m_role.get();
    }

    // Whatever the part held is gone with it: connections, queues, and what it was told.
    void kill() { m_role.reset(); }
    void start() {
        if (!running()) {
            m_role = m_make();
        }
    }

    // Null while the part is killed.
    nlohmann::json state() const { return running() ? m_role->state() : nlohmann::json(); }

  private:
    const char* m_name;
    Maker m_make;
    std::unique_ptr<Role> m_role;
};

}  // namespace kzsim
