// The hand on the camera: commands of kzcamctl, one table row each, done on the model and the roles, and taken back
// again.
#pragma once

#include "consoleCommand.h"
#include "localSocket.h"
#include "undoLog.h"

namespace kzsim {

// Answers kzcamctl.
class Console {
  public:
    Console(EventLoop& loop, const Roles& roles);

  private:
    ConsoleAnswer execute(const Words& words);
    ConsoleAnswer executeRow(const Words& words);

    Roles m_roles;
    UndoLog m_undo;
    RecordServer m_server;
};

}  // namespace kzsim
