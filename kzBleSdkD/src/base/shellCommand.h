// Shell commands: as system(3), in a world that does not depend on who started the daemon, and for a bounded time.
#pragma once

// Runs the command with /bin/sh, on a fixed PATH and with umask 077, and waits for it. What it leaves in the background
// goes on. Returns its wait status, or -1 with errno when it could not be started. One that still runs after five
// seconds is killed with its group: then errno is ETIMEDOUT.
//
// The umask belongs to the whole process, so no other thread may make files meanwhile.
int RunShellCommand(const char* command);
