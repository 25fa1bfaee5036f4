// Worker threads take files in input order from a shared counter; each file has its own
// accumulator and its row goes to its own slot, so the rows do not depend on which thread read
// which file. When a file fails, files after it are abandoned; files before it are still finished,
// so the error reported is always that of the first failing file in input order.
#include "genostat/engine.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

#include "genostat/csv.h"
#include "genostat/input_error.h"
#include "genostat/reader.h"

namespace genostat {
namespace {

using Clock = std::chrono::steady_clock;

class MetricsSink final : public RecordSink {
 public:
  explicit MetricsSink(SampleMetrics& metrics) : metrics_(metrics) {}
  void onRecord(const FastqRecord& record) override { metrics_.add(record); }

 private:
  SampleMetrics& metrics_;
};

// What the progress reporter may read while a worker reads the file.
struct FileProgress {
  std::atomic<bool> active{false};
  std::atomic<std::uint64_t> bytesRead{0};
  std::atomic<std::uint64_t> size{0};
  std::atomic<std::uint64_t> records{0};
  std::atomic<std::int64_t> startNs{0};
  std::atomic<bool> cancel{false};
};

class Run {
 public:
  Run(const std::vector<std::string>& files, const EngineOptions& options)
      : files_(files),
        options_(options),
        plan_(planThreads(options.threads, files.size())),
        names_(uniqueSampleNames(files)),
        rows_(files.size()),
        errors_(files.size()),
        leftOut_(files.size()),
        progress_(std::make_unique<FileProgress[]>(files.size())),
        firstFailure_(files.size()) {}

  std::vector<std::vector<std::string>> execute() {
    std::thread reporter;
    if (options_.progress) reporter = std::thread([this] { report(); });
    if (plan_.workers <= 1) {
      work();
    } else {
      std::vector<std::thread> workers;
      for (unsigned i = 0; i < plan_.workers; ++i) workers.emplace_back([this] { work(); });
      for (auto& worker : workers) worker.join();
    }
    if (reporter.joinable()) {
      {
        std::lock_guard<std::mutex> lock(reportMutex_);
        finished_ = true;
      }
      reportWake_.notify_all();
      reporter.join();
    }
    const std::size_t failed = firstFailure_.load();
    if (failed < files_.size()) std::rethrow_exception(errors_[failed]);
    return keptRows();
  }

 private:
  void work() {
    // One accumulator per worker, reset between files: a small file does not pay for allocating
    // and zeroing the tables again.
    std::unique_ptr<SampleMetrics> metrics;
    for (;;) {
      const std::size_t index = next_.fetch_add(1);
      if (index >= files_.size() || index > firstFailure_.load()) return;
      try {
        if (metrics) {
          metrics->reset();
        } else {
          metrics = std::make_unique<SampleMetrics>(options_.metrics);
        }
        rows_[index] = readOne(index, *metrics);
      } catch (const ReadCancelled&) {
        // A file before this one failed; its error is the one reported.
      } catch (const InputError& error) {
        if (options_.leftOut && refusesContent(error)) {
          leftOut_[index] = std::make_unique<InputError>(error);
        } else {
          fail(index, std::current_exception());
        }
      } catch (const std::bad_alloc&) {
        fail(index, std::make_exception_ptr(WorkerFailure(files_[index], true, "out of memory")));
      } catch (const std::exception& error) {
        fail(index, std::make_exception_ptr(WorkerFailure(files_[index], false, error.what())));
      } catch (...) {
        fail(index, std::make_exception_ptr(
                        WorkerFailure(files_[index], false, "unknown internal failure")));
      }
      progress_[index].active.store(false);
    }
  }

  std::vector<std::string> readOne(std::size_t index, SampleMetrics& metrics) {
    FileProgress& progress = progress_[index];
    const std::string& path = files_[index];
    if (options_.onFileStart) options_.onFileStart(index);
    std::uint64_t size = 0;
    auto raw = openFileSource(path, &progress.bytesRead, &size);
    progress.size.store(size);
    progress.startNs.store(Clock::now().time_since_epoch().count());
    progress.active.store(true);
    auto source =
        openDecodedSource(std::move(raw), path, options_.inflater, nullptr, plan_.threadsPerFile);
    MetricsSink sink(metrics);
    ReadOptions readOptions;
    readOptions.cancel = &progress.cancel;
    readOptions.recordsRead = &progress.records;
    readFastq(*source, path, sink, readOptions);
    source.reset();  // stops the decompression thread before the row is built
    return metrics.finish(names_[index]);
  }

  static bool refusesContent(const InputError& error) {
    return error.kind() == InputErrorKind::Malformed || error.kind() == InputErrorKind::Unsupported;
  }

  // The rows of the files not left out, renamed as if the others had not been given (so a batch
  // names its rows as a second run without the refused files would).
  std::vector<std::vector<std::string>> keptRows() {
    std::vector<std::string> kept;
    std::vector<std::vector<std::string>> rows;
    const InputError* last = nullptr;
    for (std::size_t i = 0; i < files_.size(); ++i) {
      if (leftOut_[i]) {
        last = leftOut_[i].get();
        continue;
      }
      kept.push_back(files_[i]);
      rows.push_back(std::move(rows_[i]));
    }
    if (last == nullptr) return rows;
    if (rows.empty()) {
      for (std::size_t i = 0; i < files_.size(); ++i) {
        if (leftOut_[i].get() != last) options_.leftOut(*leftOut_[i]);
      }
      throw *last;
    }
    for (std::size_t i = 0; i < files_.size(); ++i) {
      if (leftOut_[i]) options_.leftOut(*leftOut_[i]);
    }
    const std::vector<std::string> names = uniqueSampleNames(kept);
    for (std::size_t k = 0; k < rows.size(); ++k) rows[k][0] = names[k];
    return rows;
  }

  void fail(std::size_t index, std::exception_ptr error) {
    std::lock_guard<std::mutex> lock(failMutex_);
    errors_[index] = std::move(error);
    if (index < firstFailure_.load()) {
      firstFailure_.store(index);
      for (std::size_t later = index + 1; later < files_.size(); ++later) {
        progress_[later].cancel.store(true);
      }
    }
  }

  // One progress line every quarter second, taking the files being read in turn.
  void report() {
    std::size_t turn = 0;
    std::unique_lock<std::mutex> lock(reportMutex_);
    while (
        !reportWake_.wait_for(lock, std::chrono::milliseconds(250), [this] { return finished_; })) {
      for (std::size_t step = 0; step < files_.size(); ++step) {
        const std::size_t index = (turn + step) % files_.size();
        FileProgress& progress = progress_[index];
        if (!progress.active.load()) continue;
        const std::int64_t elapsedNs =
            Clock::now().time_since_epoch().count() - progress.startNs.load();
        const std::uint64_t records = progress.records.load();
        const std::uint64_t perSecond =
            elapsedNs > 0 ? static_cast<std::uint64_t>(static_cast<double>(records) * 1e9 /
                                                       static_cast<double>(elapsedNs))
                          : 0;
        options_.progress(index, progress.bytesRead.load(), progress.size.load(), perSecond);
        turn = index + 1;
        break;
      }
    }
  }

  const std::vector<std::string>& files_;
  const EngineOptions& options_;
  const ThreadPlan plan_;
  const std::vector<std::string> names_;
  std::vector<std::vector<std::string>> rows_;  // slot i written only by the thread reading file i
  std::vector<std::exception_ptr> errors_;      // guarded by failMutex_
  std::vector<std::unique_ptr<InputError>> leftOut_;  // slot i written only by file i's thread
  std::unique_ptr<FileProgress[]> progress_;
  std::atomic<std::size_t> next_{0};
  std::atomic<std::size_t> firstFailure_;
  std::mutex failMutex_;
  std::mutex reportMutex_;
  std::condition_variable reportWake_;
  bool finished_ = false;  // guarded by reportMutex_
};

}  // namespace

ThreadPlan planThreads(unsigned threads, std::size_t files) {
  ThreadPlan plan;
  const unsigned available = std::max(1u, threads);
  const std::size_t wanted = std::max<std::size_t>(1, files);
  plan.workers = static_cast<unsigned>(std::min<std::size_t>(available, wanted));
  // A worker gets more threads for decoding only when every worker can have as many: the thread
  // count then bounds the busy threads.
  plan.threadsPerFile = available / plan.workers;
  return plan;
}

std::vector<std::vector<std::string>> runEngine(const std::vector<std::string>& files,
                                                const EngineOptions& options) {
  Run run(files, options);
  return run.execute();
}

}  // namespace genostat
