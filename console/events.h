// zorv's event stream (--events): one compact JSON object per line for every command error and
// every job message, flushed line by line so that a program reading the other end of a pipe sees
// each event as it happens.
//
//   {"event":"error","command":"GENOSTAT","text":"..."}
//   {"event":"job_start","job":"...","started":false}
//   {"event":"job_end","job":"...","syntax":"...","csv":"...","workbook":-1,"paragraph":-1}
//   {"event":"dataset","name":"...","cases":3,"variables":27}
//   {"event":"table",...}  (zorvhost::tableEventJson)
//
// Texts are written as UTF-8; bytes that are not UTF-8 (a Latin-1 path, say) become U+FFFD, so
// that every line stays valid JSON.
//
// Threads: the console's main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "zorvhost/client.h"

namespace zorv {

std::string errorEvent(const std::string& command, const std::string& text);
std::string jobStartEvent(const std::string& job, bool started);
std::string jobEndEvent(const std::string& job, const std::string& syntax, const std::string& csv,
                        int32_t workbook, int32_t paragraph);
std::string datasetEvent(const std::string& name, size_t cases, size_t variables);
// {"event":"dataset_values","name":...,"variables":[...],"cases":[[...],...]}: a job's dataset
// as values, one array per case (numbers as numbers, missing as null, strings as strings).
std::string datasetValuesEvent(const std::string& name, const zorvhost::DatasetData& data);
// {"event":"chart","procedure":...,"title":...}: a chart went to the HTML page.
std::string chartEvent(const std::string& procedure, const std::string& title);

class EventLog {
 public:
  EventLog() = default;
  // Takes ownership of `out` (null: events are dropped).
  explicit EventLog(std::FILE* out) : out_(out) {}
  ~EventLog();
  EventLog(const EventLog&) = delete;
  EventLog& operator=(const EventLog&) = delete;

  bool enabled() const { return out_ != nullptr; }
  // Writes `line` and a line break, then flushes.
  void write(const std::string& line);

 private:
  std::FILE* out_ = nullptr;
};

}  // namespace zorv
