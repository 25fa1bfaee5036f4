// Runs the metrics over a list of FASTQ files on a given number of threads. Files are spread over
// worker threads (one accumulator per file); a file read alone gets a decompression thread of its
// own when a thread is spare, or, when it is BGZF or bzip2, every spare thread decodes it. The rows
// do not depend on the thread count.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "genostat/byte_source.h"
#include "genostat/metrics.h"

namespace genostat {

// A worker's failure that is not the input's fault (InputError covers those), with the file it
// was reading: out of memory, or any other internal error.
class WorkerFailure : public std::runtime_error {
 public:
  WorkerFailure(std::string path, bool outOfMemory, const std::string& message)
      : std::runtime_error(message), path_(std::move(path)), outOfMemory_(outOfMemory) {}
  const std::string& path() const noexcept { return path_; }
  bool outOfMemory() const noexcept { return outOfMemory_; }

 private:
  std::string path_;
  bool outOfMemory_;
};

struct EngineOptions {
  MetricsOptions metrics;
  unsigned threads = 1;  // 0 counts as 1
  Inflater inflater = Inflater::Default;
  // Called from a reporting thread, at most about four times a second, while files are read:
  // file index (0-based), raw bytes read, file size, reads per second of that file.
  std::function<void(std::size_t, std::uint64_t, std::uint64_t, std::uint64_t)> progress;
  // Called on the worker thread as it starts each file (index 0-based), before opening it; an
  // exception it throws counts as that file's failure.
  std::function<void(std::size_t)> onFileStart;
  // When set, a file whose content is refused (damaged, truncated, a compression this build
  // cannot read) is left out instead of ending the run: it gets no row, the other rows are named
  // as if it had not been given, and this is called for it, in input order, once the run is over.
  // When every file is left out, the last one's error is thrown instead. Other errors (a missing
  // file, no permission, out of memory) still end the run.
  std::function<void(const InputError&)> leftOut;
};

// How the threads are used for `files` inputs: worker count, and the threads each file's read may
// use (from 2 on, the file is decoded ahead of its reader; a BGZF file is inflated on all of them).
struct ThreadPlan {
  unsigned workers = 1;
  unsigned threadsPerFile = 1;
};
ThreadPlan planThreads(unsigned threads, std::size_t files);

// One row of 27 fields per file (per file not left out), in input order, named by
// uniqueSampleNames. When several files fail, the error of the first failing file in input order
// is thrown, whatever the thread count: InputError for the input's fault, WorkerFailure for
// anything else.
std::vector<std::vector<std::string>> runEngine(const std::vector<std::string>& files,
                                                const EngineOptions& options);

}  // namespace genostat
