// The hand on the camera: commands of kzcamctl, one table row each, done on the model and the roles.
#pragma once

#include <string>
#include <vector>

#include "cameraModel.h"
#include "controlDaemon.h"
#include "localSocket.h"
#include "metadataService.h"
#include "networkDaemon.h"
#include "radioStack.h"

namespace kzsim {

struct Roles {
    CameraModel& camera;
    RadioStack& radio;
    ControlDaemon& control;
    NetworkDaemon& network;
    MetadataService& metadata;
};

struct ConsoleAnswer {
    bool done;
    std::string text;  // what was asked for, or why not
};

ConsoleAnswer executeConsoleCommand(const Roles& roles, const std::vector<std::string>& words);

// Answers kzcamctl.
class Console {
  public:
    Console(EventLoop& loop, const Roles& roles);

  private:
    RecordServer m_server;
};

}  // namespace kzsim
