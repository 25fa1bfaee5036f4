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
#include <map>
#include <mutex>
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
  // lstat: a dangling link is a name that exists. stat would follow it, report a free name, and the
  // script would then write its result through the link.
  if (::lstat(path.c_str(), &info) == 0) {
    attributes.exists = true;
    attributes.directory = S_ISDIR(info.st_mode);
  }
  return attributes;
}

InputFileCheck checkInputFile(const std::string& utf8Path) {
  // Non-blocking: opening a FIFO for reading would otherwise wait on the host's command thread
  // until some writer appeared.
  const int fd = ::open(utf8Path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return InputFileCheck::CannotOpen;
  struct stat info {};
  InputFileCheck result = InputFileCheck::Readable;
  if (::fstat(fd, &info) != 0) {
    result = InputFileCheck::EmptyOrNoSize;
  } else if (S_ISDIR(info.st_mode)) {
    // open() happily opens a folder for reading on POSIX; the Windows open refuses it, and a
    // folder named as an input file must be refused the same way on both.
    result = InputFileCheck::CannotOpen;
  } else if (!S_ISREG(info.st_mode)) {
    // A FIFO, a device or a socket has no size to check and may never end (/dev/zero): the
    // analysis would wait or read forever, so it is refused as a file without content.
    result = InputFileCheck::EmptyOrNoSize;
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

CommandLineLimits commandLineLimits() {
  // MAX_ARG_STRLEN on Linux; the whole of ARG_MAX is shared with the environment, so half of it.
  constexpr size_t kArgument = 32 * 4096 - 1;
  const long total = ::sysconf(_SC_ARG_MAX);
  return {kArgument, total > 0 ? static_cast<size_t>(total) / 2 : kArgument};
}

// How the analysis is supervised. The module must not depend on the host's handling of SIGCHLD:
// a host that ignores it (SIG_IGN or SA_NOCLDWAIT) has its children reaped by the kernel, and a
// host with its own waitpid(-1) reaper takes their exit status first; either way a plain waitid
// on the launcher fails and a good run would count as failed. So the module's direct child is a
// small waiter process that sets SIGCHLD to its default, starts the launcher as ITS child, and
// reports through a pipe: first the launcher's id, then its exit code. It keeps the ended
// launcher a zombie (its id taken, so a cancel can never kill a stranger that inherits it) until
// the module closes the release pipe. What the module needs from its host: nothing about SIGCHLD;
// only that it may fork. The waiter itself may be reaped by the host or by the kernel: its status
// is never read.
namespace {

struct Supervised {
  pid_t waiter = -1;
  int statusFd = -1;   // launcher id, then its exit code (int each); EOF if the waiter died
  int releaseFd = -1;  // closed by reapProcess: the waiter then reaps the launcher and ends
  bool ended = false;
  int exitCode = -1;
};

std::mutex g_supervisedMutex;
std::map<pid_t, Supervised> g_supervised;  // by launcher id

bool readInt(int fd, int& value) {
  char* p = reinterpret_cast<char*>(&value);
  size_t got = 0;
  while (got < sizeof value) {
    const ssize_t n = ::read(fd, p + got, sizeof value - got);
    if (n > 0) {
      got += static_cast<size_t>(n);
    } else if (n == 0 || errno != EINTR) {
      return false;
    }
  }
  return true;
}

// Async-signal-safe: the waiter runs between fork and _exit in a copy of a threaded process.
void writeInt(int fd, int value) {
  const char* p = reinterpret_cast<const char*>(&value);
  size_t put = 0;
  while (put < sizeof value) {
    const ssize_t n = ::write(fd, p + put, sizeof value - put);
    if (n > 0) {
      put += static_cast<size_t>(n);
    } else if (n < 0 && errno != EINTR) {
      return;
    }
  }
}

void closeFrom(int first, long maxFd) {
#ifdef SYS_close_range
  if (::syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U) == 0) return;
#endif
  for (long fd = first; fd < maxFd; ++fd) ::close(static_cast<int>(fd));
}

[[noreturn]] void runWaiter(const char* program, char* const* argv, long maxFd, int statusFd, int releaseFd) {
  // Only the two pipe ends stay open, as 3 and 4: the host's descriptors must not live on for as
  // long as the job runs. F_DUPFD first, so that neither end is overwritten by the other's dup2.
  const int status = ::fcntl(statusFd, F_DUPFD, 10);
  const int release = ::fcntl(releaseFd, F_DUPFD, 10);
  if (status < 0 || release < 0 || ::dup2(status, 3) != 3 || ::dup2(release, 4) != 4) ::_exit(1);
  closeFrom(5, maxFd);
  struct sigaction child {};
  child.sa_handler = SIG_DFL;  // neither SIG_IGN nor SA_NOCLDWAIT: the launcher's status is kept
  ::sigaction(SIGCHLD, &child, nullptr);
  // Every signal stays blocked here (the caller blocked them before the fork), so none of the
  // host's handlers ever runs in the waiter.
  const pid_t launcher = ::fork();
  if (launcher == 0) execChild(program, argv, maxFd);
  if (launcher < 0) {
    writeInt(3, -1);
    ::_exit(1);
  }
  // Set from both sides, so the group exists before the module learns the id.
  ::setpgid(launcher, launcher);
  writeInt(3, static_cast<int>(launcher));
  siginfo_t info{};
  int code = -1;
  for (;;) {
    if (::waitid(P_PID, static_cast<id_t>(launcher), &info, WEXITED | WNOWAIT) == 0) {
      if (info.si_code == CLD_EXITED) code = info.si_status;
      if (info.si_code == CLD_KILLED || info.si_code == CLD_DUMPED) code = 128 + info.si_status;
      break;
    }
    if (errno != EINTR) break;
  }
  writeInt(3, code);
  char byte;
  while (::read(4, &byte, 1) < 0 && errno == EINTR) {
  }
  int ignored = 0;
  while (::waitpid(launcher, &ignored, 0) < 0 && errno == EINTR) {
  }
  ::_exit(0);
}

}  // namespace

int startProcess(const std::string& program, const std::vector<std::string>& args) {
  // Everything the children need is built before the fork; they may not allocate.
  std::vector<char*> argv;
  argv.reserve(args.size() + 2);
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  long maxFd = ::sysconf(_SC_OPEN_MAX);
  if (maxFd < 0 || maxFd > (1L << 20)) maxFd = 1L << 20;  // only for kernels without close_range

  int status[2];
  int release[2];
  if (::pipe2(status, O_CLOEXEC) != 0) return -1;
  if (::pipe2(release, O_CLOEXEC) != 0) {
    ::close(status[0]);
    ::close(status[1]);
    return -1;
  }
  // No signal may run one of the host's handlers in a child before exec has replaced them.
  sigset_t all;
  sigset_t previous;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &previous);
  const pid_t waiter = ::fork();
  if (waiter == 0) runWaiter(program.c_str(), argv.data(), maxFd, status[1], release[0]);
  ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  ::close(status[1]);
  ::close(release[0]);
  int launcher = -1;
  if (waiter < 0 || !readInt(status[0], launcher) || launcher <= 1) {
    ::close(status[0]);
    ::close(release[1]);
    int ignored = 0;
    if (waiter > 0) ::waitpid(waiter, &ignored, 0);
    return -1;
  }
  std::lock_guard<std::mutex> lock(g_supervisedMutex);
  Supervised& entry = g_supervised[static_cast<pid_t>(launcher)];
  entry.waiter = waiter;
  entry.statusFd = status[0];
  entry.releaseFd = release[1];
  return launcher;
}

int waitForExitKeepingId(int pid) {
  if (pid <= 0) return -1;
  int fd = -1;
  {
    std::lock_guard<std::mutex> lock(g_supervisedMutex);
    const auto found = g_supervised.find(static_cast<pid_t>(pid));
    if (found == g_supervised.end()) return -1;
    if (found->second.ended) return found->second.exitCode;
    fd = found->second.statusFd;
  }
  // Blocks unlocked: a cancel on another thread kills the launcher meanwhile, which ends this.
  int code = -1;
  if (!readInt(fd, code)) code = -1;  // the waiter died before it could tell
  std::lock_guard<std::mutex> lock(g_supervisedMutex);
  Supervised& entry = g_supervised[static_cast<pid_t>(pid)];
  entry.ended = true;
  entry.exitCode = code;
  return code;
}

void reapProcess(int pid) {
  if (pid <= 0) return;
  Supervised entry;
  {
    std::lock_guard<std::mutex> lock(g_supervisedMutex);
    const auto found = g_supervised.find(static_cast<pid_t>(pid));
    if (found == g_supervised.end()) return;
    entry = found->second;
    g_supervised.erase(found);
  }
  ::close(entry.releaseFd);  // the waiter reaps the launcher now, and ends
  // The waiter's end of the status pipe closes as it exits: after EOF it is gone or going.
  char byte;
  while (::read(entry.statusFd, &byte, 1) != 0 && errno == EINTR) {
  }
  ::close(entry.statusFd);
  // Never a blocking wait: when the host reaped the waiter itself (or the kernel did, SIGCHLD being
  // ignored), its id may already belong to another child of the host, whose status is not ours.
  for (int i = 0; i < 200; ++i) {
    int ignored = 0;
    const pid_t r = ::waitpid(entry.waiter, &ignored, WNOHANG);
    if (r == entry.waiter || (r < 0 && errno != EINTR)) break;
    if (r == 0) ::usleep(5000);
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
