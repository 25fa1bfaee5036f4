#include "platform/test_platform.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace genostat::testing {
namespace {

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

class ModeZeroFile final : public UnreadableFile {
 public:
  ModeZeroFile(std::string path, mode_t mode) : path_(std::move(path)), mode_(mode) {}
  ~ModeZeroFile() override { ::chmod(path_.c_str(), mode_); }

 private:
  std::string path_;
  mode_t mode_;
};

class Fifo final : public SlowPipe {
 public:
  Fifo(std::string path, std::string text, std::size_t pause, std::chrono::milliseconds delay)
      : path_(std::move(path)) {
    if (::mkfifo(path_.c_str(), 0600) != 0) throw std::runtime_error("mkfifo failed: " + path_);
    writer_ = std::thread([this, text = std::move(text), pause, delay] {
      std::ofstream pipe(path_, std::ios::binary);  // waits for the reader
      pipe << text.substr(0, pause) << std::flush;
      std::this_thread::sleep_for(delay);
      pipe << text.substr(pause);
    });
  }
  ~Fifo() override { writer_.join(); }
  const std::string& path() const override { return path_; }

 private:
  std::string path_;
  std::thread writer_;
};

}  // namespace

ProgramOutcome runProgram(const std::string& program, const std::vector<std::string>& args,
                          const std::string& scratchFolder) {
  const std::string outPath = scratchFolder + "/program-stdout";
  const std::string errPath = scratchFolder + "/program-stderr";
  std::vector<std::string> argv{program};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> pointers;
  for (auto& arg : argv) pointers.push_back(arg.data());
  pointers.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    const int in = ::open("/dev/null", O_RDONLY);
    const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in < 0 || out < 0 || err < 0) ::_exit(126);
    ::dup2(in, 0);
    ::dup2(out, 1);
    ::dup2(err, 2);
    ::execv(program.c_str(), pointers.data());
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
  }
  ProgramOutcome outcome;
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  outcome.out = readAll(outPath);
  outcome.err = readAll(errPath);
  return outcome;
}

bool isRunnableFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

void setEnvironment(const std::string& name, const std::string& value) {
  if (::setenv(name.c_str(), value.c_str(), 1) != 0) throw std::runtime_error("setenv failed");
}

void unsetEnvironment(const std::string& name) {
  if (::unsetenv(name.c_str()) != 0) throw std::runtime_error("unsetenv failed");
}

std::unique_ptr<UnreadableFile> makeUnreadable(const std::string& path) {
  if (::geteuid() == 0) return nullptr;  // root reads whatever the mode says
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || ::chmod(path.c_str(), 0) != 0) {
    throw std::runtime_error("cannot change the mode of " + path);
  }
  return std::make_unique<ModeZeroFile>(path, info.st_mode & 07777);
}

std::unique_ptr<SlowPipe> slowPipe(const std::string& folder, const std::string& text,
                                   std::size_t pause, std::chrono::milliseconds delay) {
  return std::make_unique<Fifo>(folder + "/slow.fastq", text, pause, delay);
}

}  // namespace genostat::testing
