// POSIX-only parts of the process-tree kill that tests need to see: the children lookup through
// /proc and a replaceable signal sender, so a test can record which ids would be signalled without
// risking a kill of anything it did not start.
#pragma once

#include <sys/types.h>

#include <vector>

namespace genostat::platform::posix {

// Ids of the live processes whose parent is `pid`, read from /proc/<id>/stat, in directory order.
std::vector<pid_t> childProcesses(pid_t pid);

// True when /proc shows `pid` as a process that has not ended (zombies count as ended).
bool processAlive(pid_t pid);

// The function killProcessTree sends its signals through (::kill unless replaced). Passing null
// restores ::kill; the previous sender is returned. Thread-safe.
using SignalSender = int (*)(pid_t pid, int signal);
SignalSender setSignalSender(SignalSender sender);

}  // namespace genostat::platform::posix
