// POSIX implementation of the platform interface: stat-based path queries, the input-file check,
// the clock, starting and waiting for analysis processes, and the process-tree kill through /proc.
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
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

extern char** environ;
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

// The child's side of startProcess, between fork and exec: only async-signal-safe calls, since
// the parent may have had other threads holding locks at the fork.
[[noreturn]] void execChild(const char* program, char* const* argv, long maxFd) {
  ::setpgid(0, 0);
  // Handlers the host installed mean nothing in the child; ignored signals stay ignored, as exec
  // keeps them anyway.
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction current {};
    if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler != SIG_IGN &&
        current.sa_handler != SIG_DFL) {
      struct sigaction reset {};
      reset.sa_handler = SIG_DFL;
      ::sigaction(signal, &reset, nullptr);
    }
  }
  sigset_t none;
  ::sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
  // Only the standard streams go to the child: descriptors the host opened without close-on-exec
  // would otherwise stay open in the analysis for as long as it runs.
#ifdef SYS_close_range
  if (::syscall(SYS_close_range, 3U, ~0U, 0U) != 0)
#endif
  {
    for (long fd = 3; fd < maxFd; ++fd) ::close(static_cast<int>(fd));
  }
  ::execve(program, argv, environ);
  ::_exit(127);  // as a shell reports a command it cannot run
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

std::string launcherFileName() { return "statisticspython3"; }

int startProcess(const std::string& program, const std::vector<std::string>& args) {
  // Everything the child needs is built before the fork; the child may not allocate.
  std::vector<char*> argv;
  argv.reserve(args.size() + 2);
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  long maxFd = ::sysconf(_SC_OPEN_MAX);
  if (maxFd < 0 || maxFd > (1L << 20)) maxFd = 1L << 20;  // only for kernels without close_range

  // No signal may run one of the host's handlers in the child before exec has replaced them.
  sigset_t all;
  sigset_t previous;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &previous);
  const pid_t pid = ::fork();
  if (pid == 0) execChild(program.c_str(), argv.data(), maxFd);
  // Set from both sides, so the group exists before either goes on: a kill that reads the child's
  // group right after this call finds it. Fails harmlessly once the child has exec'd.
  if (pid > 0) ::setpgid(pid, pid);
  ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  return pid > 0 ? static_cast<int>(pid) : -1;
}

int waitForExitKeepingId(int pid) {
  if (pid <= 0) return -1;
  siginfo_t info{};
  // WNOWAIT leaves the ended child a zombie: its id stays taken until reapProcess.
  while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0) {
    if (errno != EINTR) return -1;
  }
  switch (info.si_code) {
    case CLD_EXITED:
      return info.si_status;
    case CLD_KILLED:
    case CLD_DUMPED:
      return 128 + info.si_status;
    default:
      return -1;
  }
}

void reapProcess(int pid) {
  if (pid <= 0) return;
  int status = 0;
  while (::waitpid(static_cast<pid_t>(pid), &status, 0) < 0 && errno == EINTR) {
  }
}

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
