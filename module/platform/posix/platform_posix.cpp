// POSIX implementation of the platform interface: stat-based path queries, the input-file check,
// the clock and the process-tree kill through /proc.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/posix/process_tree.h"

namespace genostat::platform {

namespace {

std::atomic<ClockFunction> g_clock{nullptr};
std::atomic<posix::SignalSender> g_signalSender{nullptr};

int sendSignal(pid_t pid, int signal) {
  posix::SignalSender sender = g_signalSender.load();
  return sender != nullptr ? sender(pid, signal) : ::kill(pid, signal);
}

// The fields of /proc/<pid>/stat after the command name. The name sits in parentheses and may
// itself hold blanks and parentheses, so parsing starts after the LAST ')'.
struct ProcStat {
  char state = '?';
  pid_t parent = 0;
};

bool readProcStat(pid_t pid, ProcStat& out) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!in || !std::getline(in, line)) return false;
  const std::string::size_type close = line.rfind(')');
  if (close == std::string::npos || close + 2 >= line.size()) return false;
  const char* rest = line.c_str() + close + 2;  // "<state> <ppid> ..."
  out.state = rest[0];
  char* end = nullptr;
  const long parent = std::strtol(rest + 1, &end, 10);
  if (end == rest + 1) return false;
  out.parent = static_cast<pid_t>(parent);
  return true;
}

bool numericName(const char* name) {
  if (*name == '\0') return false;
  for (const char* p = name; *p != '\0'; ++p) {
    if (*p < '0' || *p > '9') return false;
  }
  return true;
}

// Children first, each subtree before its root, as the Windows snapshot walk does. `visited`
// stops a walk that /proc's changing picture could otherwise send round in a circle.
void killSubtree(pid_t pid, std::set<pid_t>& visited) {
  if (pid <= 1 || !visited.insert(pid).second) return;
  for (pid_t child : posix::childProcesses(pid)) {
    killSubtree(child, visited);
  }
  sendSignal(pid, SIGKILL);
}

}  // namespace

PathAttributes pathAttributes(const std::string& path) {
  PathAttributes attributes;
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0) {
    attributes.exists = true;
    attributes.directory = S_ISDIR(info.st_mode);
  }
  return attributes;
}

InputFileCheck checkInputFile(const std::string& utf8Path) {
  const int fd = ::open(utf8Path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return InputFileCheck::CannotOpen;
  struct stat info {};
  InputFileCheck result = InputFileCheck::Readable;
  if (::fstat(fd, &info) != 0) {
    result = InputFileCheck::EmptyOrNoSize;
  } else if (S_ISDIR(info.st_mode)) {
    // open() happily opens a folder for reading on POSIX; the Windows open refuses it, and a
    // folder named as an input file must be refused the same way on both.
    result = InputFileCheck::CannotOpen;
  } else if (info.st_size <= 0) {
    result = InputFileCheck::EmptyOrNoSize;
  }
  ::close(fd);
  return result;
}

int64_t currentTimeSeconds() {
  const ClockFunction clock = g_clock.load();
  if (clock != nullptr) return clock();
  return static_cast<int64_t>(std::time(nullptr));
}

ClockFunction setClock(ClockFunction clock) { return g_clock.exchange(clock); }

char pathSeparator() { return '/'; }

bool killProcessTree(int pid) {
  // kill(0) would hit our own process group, kill(-1) every process of the user, and 1 is init.
  if (pid <= 1) return false;
  const pid_t root = static_cast<pid_t>(pid);
  // The group must be read while the root is still alive: once it is killed and reaped, the id no
  // longer tells which group it led.
  const bool leadsOwnGroup = ::getpgid(root) == root;
  // A zombie has ended already: signalling it succeeds but terminates nothing.
  const bool rootAlive = posix::processAlive(root);

  std::set<pid_t> visited{root};
  for (pid_t child : posix::childProcesses(root)) {
    killSubtree(child, visited);
  }
  const bool rootKilled = sendSignal(root, SIGKILL) == 0 && rootAlive;
  // A grandchild whose parent died earlier has been handed to init and is no longer found
  // through the parent links, but it is still in the launcher's group.
  if (leadsOwnGroup) sendSignal(-root, SIGKILL);
  return rootKilled;
}

namespace posix {

std::vector<pid_t> childProcesses(pid_t pid) {
  std::vector<pid_t> children;
  DIR* proc = ::opendir("/proc");
  if (proc == nullptr) return children;
  while (const dirent* entry = ::readdir(proc)) {
    if (!numericName(entry->d_name)) continue;
    const pid_t id = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
    ProcStat stat;
    if (readProcStat(id, stat) && stat.parent == pid && stat.state != 'Z' && stat.state != 'X') {
      children.push_back(id);
    }
  }
  ::closedir(proc);
  return children;
}

bool processAlive(pid_t pid) {
  ProcStat stat;
  return readProcStat(pid, stat) && stat.state != 'Z' && stat.state != 'X';
}

SignalSender setSignalSender(SignalSender sender) { return g_signalSender.exchange(sender); }

}  // namespace posix

}  // namespace genostat::platform
