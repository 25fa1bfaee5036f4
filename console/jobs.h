// The jobs zorv has submitted, in submission order, as their client messages tell of them; and the
// message code a job's end syntax carries.
//
// Names identify messages, not jobs: they may repeat (a name is free again once its job has
// ended) or be empty. A start message with `started` false adds a job; a later message of that name
// belongs to the oldest job of that name that has not yet reached the state the message brings.
//
// Threads: the console's main thread only.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace zorv {

enum class JobState { Queued, Started, Ended };
enum class JobOutcome { Open, Succeeded, Failed, Cancelled, Dropped };

struct TrackedJob {
  std::string name;
  JobState state = JobState::Queued;
  JobOutcome outcome = JobOutcome::Open;
  int32_t messageCode = 0;  // from the end syntax's /PRINT, once ended with a syntax
  std::chrono::steady_clock::time_point startedAt{};
};

class JobTracker {
 public:
  // A job entered the queue: a new job at the end of the list.
  TrackedJob& queued(const std::string& name);
  // The worker began a job: the oldest queued job of that name (a new one when zorv saw no queued
  // message for it, e.g. a job of an earlier client).
  TrackedJob& started(const std::string& name, std::chrono::steady_clock::time_point now);
  // A job ended: the oldest open job of that name, marked Ended (its outcome is the caller's);
  // null when no job of that name is open (a repeated end message).
  TrackedJob* ended(const std::string& name);

  bool anyOpen() const;
  // The open jobs, oldest first. The pointers stay valid while the tracker lives.
  std::vector<TrackedJob*> open();
  const std::deque<TrackedJob>& all() const { return jobs_; }

 private:
  std::deque<TrackedJob> jobs_;  // a deque: references stay valid as jobs are added
};

// Reads N from the first GENOSTAT command of `syntax` that has a /PRINT subcommand and a
// MESSAGE=N keyword (blanks allowed around '=', any case, quoted literals skipped). False when
// there is none or N is not an integer of 32 bits.
bool messageCodeOf(const std::string& syntax, int32_t& code);

}  // namespace zorv
