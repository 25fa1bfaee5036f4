#include "genostat/cli.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <optional>

#include "genostat/csv.h"
#include "genostat/engine.h"
#include "genostat/input_error.h"
#include "genostat/metrics.h"
#include "platform/system.h"

namespace genostat {
namespace {

constexpr const char* kUsage =
    "usage: genostat-qc [--adapter NONE|ILLUMINA|NEXTERA|CUSTOM] [--custom-sequence SEQ]\n"
    "                   [--threads N] [--progress] [--leave-out-damaged] --output OUT.csv\n"
    "                   FILE...\n";

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
  bool leaveOutDamaged = false;
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
    if (arg == "--leave-out-damaged") {
      args.leaveOutDamaged = true;
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
    case InputErrorKind::Unsupported:  // the file cannot be taken as it is, like damaged data
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

Failure cannotWrite(const std::string& path, const platform::SystemError& error) {
  return Failure{kExitCannotWrite, path, "cannot write: " + error.text};
}

// The output file, created before the work so an unwritable path fails at once, and removed
// again when the run fails so no partial CSV is left behind (only when it is a regular file: a
// device such as /dev/null or NUL is never removed). Written in binary mode, so the CSV has the
// same bytes on every system.
class OutputFile {
 public:
  explicit OutputFile(std::string path) : path_(std::move(path)) {}
  ~OutputFile() {
    platform::SystemError ignored;
    if (fd_ >= 0) platform::closeFile(fd_, ignored);
    if (regularFile_ && !committed_) platform::removeFile(path_);
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Refuses an output that is one of the inputs (it would be emptied before being read).
  std::optional<Failure> open(const std::vector<std::string>& inputs) {
    if (const auto existing = platform::regularFileIdentity(path_)) {
      for (const std::string& input : inputs) {
        if (platform::regularFileIdentity(input) == existing) {
          return Failure{kExitCannotWrite, path_, "is also an input file; not overwritten"};
        }
      }
    }
    platform::SystemError error;
    fd_ = platform::createForWriting(path_, error);
    if (fd_ < 0) return cannotWrite(path_, error);
    platform::FileKind kind;
    regularFile_ = platform::describeOpenFile(fd_, kind, error) && kind.regular;
    return std::nullopt;
  }

  std::optional<Failure> writeAndClose(const std::string& text) {
    platform::SystemError error;
    if (!platform::writeAll(fd_, text.data(), text.size(), error)) return cannotWrite(path_, error);
    const int fd = fd_;
    fd_ = -1;
    if (!platform::closeFile(fd, error)) return cannotWrite(path_, error);
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
unsigned usableCores() { return std::clamp(platform::usableProcessors(), 1u, kMaxThreads); }

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
    if (args.leaveOutDamaged) {
      options.leftOut = [&err](const InputError& error) {
        err << "genostat-qc: left out: " << error.path() << ": " << error.message() << '\n';
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
