#include "jobs.h"

#include <cerrno>
#include <cstdlib>

#include "syntax.h"

namespace zorv {

TrackedJob& JobTracker::queued(const std::string& name) {
  jobs_.push_back(TrackedJob());
  jobs_.back().name = name;
  return jobs_.back();
}

TrackedJob& JobTracker::started(const std::string& name, std::chrono::steady_clock::time_point now) {
  for (auto& job : jobs_) {
    if (job.name == name && job.state == JobState::Queued) {
      job.state = JobState::Started;
      job.startedAt = now;
      return job;
    }
  }
  TrackedJob& job = queued(name);
  job.state = JobState::Started;
  job.startedAt = now;
  return job;
}

TrackedJob* JobTracker::ended(const std::string& name) {
  for (auto& job : jobs_) {
    if (job.name == name && job.state != JobState::Ended) {
      job.state = JobState::Ended;
      return &job;
    }
  }
  return nullptr;
}

bool JobTracker::anyOpen() const {
  for (const auto& job : jobs_) {
    if (job.state != JobState::Ended) return true;
  }
  return false;
}

std::vector<TrackedJob*> JobTracker::open() {
  std::vector<TrackedJob*> out;
  for (auto& job : jobs_) {
    if (job.state != JobState::Ended) out.push_back(&job);
  }
  return out;
}

namespace {

bool isWordChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '@' || c == '#' || c == '$' || c == '.' || static_cast<unsigned char>(c) >= 0x80;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

std::string upper(std::string s) {
  for (char& c : s) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  }
  return s;
}

// The command's words outside quoted literals, each with what follows it: "=" when an equals sign
// comes next (blanks skipped), the word's text and the text after '=' up to the next blank.
struct Scan {
  bool hasPrint = false;
  bool hasMessage = false;
  std::string messageValue;
};

Scan scanCommand(const std::string& text) {
  Scan scan;
  size_t i = 0, n = text.size();
  while (i < n) {
    char c = text[i];
    if (c == '\'' || c == '"') {  // a literal; a doubled quote stands for itself
      ++i;
      while (i < n) {
        if (text[i] == c) {
          if (i + 1 < n && text[i + 1] == c) {
            i += 2;
            continue;
          }
          ++i;
          break;
        }
        ++i;
      }
      continue;
    }
    if (c == '/') {
      size_t j = i + 1;
      while (j < n && isBlank(text[j])) ++j;
      size_t start = j;
      while (j < n && isWordChar(text[j])) ++j;
      if (upper(text.substr(start, j - start)) == "PRINT") scan.hasPrint = true;
      i = j;
      continue;
    }
    if (isWordChar(c)) {
      size_t start = i;
      while (i < n && isWordChar(text[i])) ++i;
      std::string word = upper(text.substr(start, i - start));
      if (word != "MESSAGE" || scan.hasMessage) continue;
      size_t j = i;
      while (j < n && isBlank(text[j])) ++j;
      if (j >= n || text[j] != '=') continue;
      ++j;
      while (j < n && isBlank(text[j])) ++j;
      size_t v = j;
      while (j < n && !isBlank(text[j]) && text[j] != '/') ++j;
      scan.hasMessage = true;
      scan.messageValue = text.substr(v, j - v);
      i = j;
      continue;
    }
    ++i;
  }
  return scan;
}

}  // namespace

bool messageCodeOf(const std::string& syntax, int32_t& code) {
  for (const auto& command : splitSyntax(syntax)) {
    if (commandNameOf(command.text) != "GENOSTAT") continue;
    Scan scan = scanCommand(command.text);
    if (!scan.hasPrint || !scan.hasMessage) continue;
    const std::string& v = scan.messageValue;
    if (v.empty()) return false;
    errno = 0;
    char* end = nullptr;
    long long value = std::strtoll(v.c_str(), &end, 10);
    bool digitsOnly = v.find_first_not_of("+-0123456789") == std::string::npos;
    if (!digitsOnly || end != v.c_str() + v.size() || errno == ERANGE || value < INT32_MIN ||
        value > INT32_MAX) {
      return false;
    }
    code = static_cast<int32_t>(value);
    return true;
  }
  return false;
}

}  // namespace zorv
