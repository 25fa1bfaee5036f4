// POSIX helpers for tests that need real processes: a sleeping process, a three-level tree whose
// ids are reported back through a pipe, and waiting for a process to end.
#pragma once

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "platform/posix/process_tree.h"

namespace process_test {

// Starts `script` with /bin/sh, optionally as the leader of a new process group (as the launcher
// of an analysis is), its standard output going to `outFd` when that is not -1.
inline pid_t startShell(const char* script, bool ownGroup, int outFd = -1) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (ownGroup) ::setpgid(0, 0);
    if (outFd >= 0) ::dup2(outFd, STDOUT_FILENO);
    ::execl("/bin/sh", "sh", "-c", script, static_cast<char*>(nullptr));
    ::_exit(127);
  }
  // Set on both sides, so the group exists before either goes on.
  if (pid > 0 && ownGroup) ::setpgid(pid, pid);
  return pid;
}

// True once `pid` has ended (gone, or a zombie) within `seconds`.
inline bool endsWithin(pid_t pid, double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    if (!genostat::platform::posix::processAlive(pid)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return !genostat::platform::posix::processAlive(pid);
}

// Reaps a child of the test process; returns its wait status.
inline int reap(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

// launcher -> child -> grandchild, every level a `sleep` once started. The launcher is a child
// of the test process; the other two are found through the ids the shells print.
struct Tree {
  pid_t launcher = -1;
  pid_t child = -1;
  pid_t grandchild = -1;
};

inline Tree startTree(bool launcherLeadsGroup) {
  Tree tree;
  int fds[2];
  if (::pipe(fds) != 0) return tree;
  tree.launcher = startShell(
      "sh -c 'sleep 600 & echo G $!; exec sleep 600' & echo C $!; exec sleep 600",
      launcherLeadsGroup, fds[1]);
  ::close(fds[1]);
  FILE* in = ::fdopen(fds[0], "r");
  char line[64];
  while ((tree.child < 0 || tree.grandchild < 0) && in != nullptr && std::fgets(line, sizeof line, in) != nullptr) {
    long id = 0;
    if (std::sscanf(line, "C %ld", &id) == 1) tree.child = static_cast<pid_t>(id);
    if (std::sscanf(line, "G %ld", &id) == 1) tree.grandchild = static_cast<pid_t>(id);
  }
  if (in != nullptr) std::fclose(in);
  return tree;
}

// The parent id /proc shows for `pid`, or -1.
inline pid_t parentOf(pid_t pid) {
  FILE* f = std::fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "r");
  if (f == nullptr) return -1;
  char buffer[512] = {};
  const size_t n = std::fread(buffer, 1, sizeof buffer - 1, f);
  std::fclose(f);
  buffer[n] = '\0';
  const char* close = std::strrchr(buffer, ')');
  long parent = -1;
  if (close == nullptr || std::sscanf(close + 2, "%*c %ld", &parent) != 1) return -1;
  return static_cast<pid_t>(parent);
}

// Best-effort clean-up for a test that failed half way: nothing of the tree survives the test.
inline void killTree(const Tree& tree) {
  for (pid_t pid : {tree.grandchild, tree.child, tree.launcher}) {
    if (pid > 1) ::kill(pid, SIGKILL);
  }
  if (tree.launcher > 1) reap(tree.launcher);
}

}  // namespace process_test

