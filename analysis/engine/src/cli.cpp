#include "genostat/cli.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <thread>

#include "genostat/csv.h"
#include "genostat/engine.h"
#include "genostat/input_error.h"
#include "genostat/metrics.h"

namespace genostat {
namespace {

constexpr const char* kUsage =
    "usage: genostat-qc [--adapter NONE|ILLUMINA|NEXTERA|CUSTOM] [--custom-sequence SEQ]\n"
    "                   [--threads N] [--progress] --output OUT.csv FILE...\n";

// Beyond this, more threads only cost memory: every busy file holds its buffers.
constexpr unsigned kMaxThreads = 256;

struct Failure {
  int code;
  std::string path;
  std::string message;
};

struct Arguments {
  MetricsOptions metrics;
  unsigned threads = 0;
  bool progress = false;
  std::optional<std::string> output;
  std::optional<std::string> customSequence;
  std::vector<std::string> files;
};

Failure usage(const std::string& what, const std::string& message) {
  return Failure{kExitUsage, what, message};
}

std::optional<AdapterSetting> parseAdapter(const std::string& value) {
  if (value == "NONE") return AdapterSetting::None;
  if (value == "ILLUMINA") return AdapterSetting::Illumina;
  if (value == "NEXTERA") return AdapterSetting::Nextera;
  if (value == "CUSTOM") return AdapterSetting::Custom;
  return std::nullopt;
}

std::optional<unsigned> parseThreads(const std::string& value) {
  if (value.empty() || value.size() > 4) return std::nullopt;
  unsigned n = 0;
  for (char c : value) {
    if (c < '0' || c > '9') return std::nullopt;
    n = n * 10 + static_cast<unsigned>(c - '0');
  }
  if (n < 1 || n > kMaxThreads) return std::nullopt;
  return n;
}

// Fills `args`; returns a usage failure, or nothing when the command line is good. `help` is set
// when --help was asked for.
std::optional<Failure> parseArguments(const std::vector<std::string>& argv, Arguments& args,
                                      bool& help) {
  bool optionsEnded = false;
  for (std::size_t i = 0; i < argv.size(); ++i) {
    const std::string& arg = argv[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      args.files.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (arg == "--help" || arg == "-h") {
      help = true;
      return std::nullopt;
    }
    if (arg == "--progress") {
      args.progress = true;
      continue;
    }
    // Options with a value, as "--name value" or "--name=value".
    std::string name = arg;
    std::optional<std::string> value;
    const std::size_t equals = arg.find('=');
    if (equals != std::string::npos) {
      name = arg.substr(0, equals);
      value = arg.substr(equals + 1);
    }
    if (name != "--adapter" && name != "--custom-sequence" && name != "--threads" &&
        name != "--output") {
      return usage(arg, "unknown option");
    }
    if (!value) {
      if (i + 1 >= argv.size()) return usage(name, "needs a value");
      value = argv[++i];
    }
    if (name == "--adapter") {
      const auto adapter = parseAdapter(*value);
      if (!adapter) {
        return usage(name, "must be NONE, ILLUMINA, NEXTERA or CUSTOM, not '" + *value + "'");
      }
      args.metrics.adapter = *adapter;
    } else if (name == "--custom-sequence") {
      args.customSequence = *value;
    } else if (name == "--threads") {
      const auto threads = parseThreads(*value);
      if (!threads) {
        return usage(name, "must be a whole number from 1 to " + std::to_string(kMaxThreads) +
                               ", not '" + *value + "'");
      }
      args.threads = *threads;
    } else {
      if (value->empty()) return usage(name, "needs a file name");
      args.output = *value;
    }
  }
  if (!args.output) return usage("--output", "missing (where to write the CSV)");
  if (args.files.empty()) return usage("FILE", "no input file given");
  if (args.metrics.adapter == AdapterSetting::Custom) {
    if (!args.customSequence) return usage("--custom-sequence", "needed with --adapter CUSTOM");
    std::string sequence = *args.customSequence;
    for (char& c : sequence) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    if (sequence.empty() || sequence.find_first_not_of("ACGT") != std::string::npos) {
      return usage("--custom-sequence", "must be a non-empty sequence of A, C, G and T, not '" +
                                            *args.customSequence + "'");
    }
    args.metrics.customSequence = sequence;
  }
  // A custom sequence given with another adapter setting is not used.
  return std::nullopt;
}

}  // namespace

int exitCodeFor(InputErrorKind kind) {
  switch (kind) {
    case InputErrorKind::Malformed:
      return kExitMalformedInput;
    case InputErrorKind::PermissionDenied:
      return kExitPermission;
    case InputErrorKind::NotFound:
    case InputErrorKind::ReadFailed:
      break;
  }
  return kExitNoInput;
}

namespace {

std::string systemError(const char* what) {
  return std::string(what) + ": " + std::strerror(errno);
}

// The output file, created before the work so an unwritable path fails at once, and removed
// again when the run fails so no partial CSV is left behind (only when it is a regular file: a
// device such as /dev/null or /dev/full is never unlinked).
class OutputFile {
 public:
  explicit OutputFile(std::string path) : path_(std::move(path)) {}
  ~OutputFile() {
    if (fd_ >= 0) ::close(fd_);
    if (regularFile_ && !committed_) ::unlink(path_.c_str());
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Refuses an output that is one of the inputs (it would be emptied before being read).
  std::optional<Failure> open(const std::vector<std::string>& inputs) {
    struct stat existing {};
    if (::stat(path_.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) {
      for (const std::string& input : inputs) {
        struct stat info {};
        if (::stat(input.c_str(), &info) == 0 && info.st_dev == existing.st_dev &&
            info.st_ino == existing.st_ino) {
          return Failure{kExitCannotWrite, path_, "is also an input file; not overwritten"};
        }
      }
    }
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd_ < 0) return Failure{kExitCannotWrite, path_, systemError("cannot write")};
    struct stat info {};
    regularFile_ = ::fstat(fd_, &info) == 0 && S_ISREG(info.st_mode);
    return std::nullopt;
  }

  std::optional<Failure> writeAndClose(const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
      const ssize_t n = ::write(fd_, text.data() + done, text.size() - done);
      if (n < 0) {
        if (errno == EINTR) continue;
        return Failure{kExitCannotWrite, path_, systemError("cannot write")};
      }
      done += static_cast<std::size_t>(n);
    }
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) return Failure{kExitCannotWrite, path_, systemError("cannot write")};
    committed_ = true;
    return std::nullopt;
  }

 private:
  std::string path_;
  int fd_ = -1;
  bool regularFile_ = false;
  bool committed_ = false;
};

// The cores this process may run on (its affinity mask, which containers and taskset narrow),
// at most kMaxThreads.
unsigned usableCores() {
  unsigned cores = std::thread::hardware_concurrency();
#ifdef __linux__
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof set, &set) == 0) cores = static_cast<unsigned>(CPU_COUNT(&set));
#endif
  return std::clamp(cores, 1u, kMaxThreads);
}

int report(std::ostream& err, const Failure& failure) {
  err << "genostat-qc: error: " << failure.path << ": " << failure.message << '\n';
  err.flush();
  return failure.code;
}

}  // namespace

int runCli(const std::vector<std::string>& argv, std::ostream& out, std::ostream& err,
           const std::function<void(EngineOptions&)>& configure) {
  Arguments args;
  bool help = false;
  if (auto failure = parseArguments(argv, args, help)) {
    err << kUsage;
    return report(err, *failure);
  }
  if (help) {
    out << kUsage;
    return kExitOk;
  }
  std::string currentPath = *args.output;
  try {
    OutputFile output(*args.output);
    if (auto failure = output.open(args.files)) return report(err, *failure);

    EngineOptions options;
    options.metrics = args.metrics;
    options.threads = args.threads != 0 ? args.threads : usableCores();
    std::mutex progressMutex;
    if (args.progress) {
      options.progress = [&err, &progressMutex](std::size_t file, std::uint64_t done,
                                                std::uint64_t total, std::uint64_t perSecond) {
        std::lock_guard<std::mutex> lock(progressMutex);
        err << "progress " << (file + 1) << ' ' << done << ' ' << total << ' ' << perSecond << '\n';
        err.flush();
      };
    }
    if (configure) configure(options);
    const auto rows = runEngine(args.files, options);
    if (auto failure = output.writeAndClose(csvDocument(csvColumnNames(), rows))) {
      return report(err, *failure);
    }
    return kExitOk;
  } catch (const InputError& error) {
    return report(err, Failure{exitCodeFor(error.kind()), error.path(), error.message()});
  } catch (const WorkerFailure& failure) {
    if (failure.outOfMemory()) {
      return report(err, Failure{kExitOutOfMemory, failure.path(), "out of memory"});
    }
    return report(err, Failure{kExitInternal, failure.path(),
                               std::string("internal failure: ") + failure.what()});
  } catch (const std::bad_alloc&) {
    return report(err, Failure{kExitOutOfMemory, currentPath, "out of memory"});
  } catch (const std::exception& error) {
    return report(
        err, Failure{kExitInternal, currentPath, std::string("internal failure: ") + error.what()});
  }
}

}  // namespace genostat
