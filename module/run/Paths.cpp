// Paths and file names of the analysis run: joining, folder parts, existence checks and the
// time-stamped name of a job's result CSV.
#include <cstdint>
#include <exception>
#include <string>

#include "jobs/GenoStatAlgoManager.h"
#include "platform/platform.h"

namespace {

bool isSeparator(char c) { return c == '/' || c == '\\'; }

// Candidates are the bare time stamp, then suffixes _1 to _999.
constexpr int kMaxNameCandidates = 1000;

}  // namespace

std::string GenoStatAlgoManager::joinPath(const std::string& base, const std::string& name) {
  std::string joined = base;
  // Either separator already at the end is accepted, whichever system we run on; what is added is
  // the system's own.
  if (!joined.empty() && !isSeparator(joined.back())) joined += genostat::platform::pathSeparator();
  joined += name;
  return joined;
}

std::string GenoStatAlgoManager::getFolderPath(const std::string& path) {
  const std::string::size_type last = path.find_last_of("/\\");
  if (last == std::string::npos) return std::string();
  return path.substr(0, last + 1);
}

bool GenoStatAlgoManager::fileExists(const std::string& path) {
  const genostat::platform::PathAttributes attributes = genostat::platform::pathAttributes(path);
  return attributes.exists && !attributes.directory;
}

bool GenoStatAlgoManager::directoryExists(const std::string& path) {
  const genostat::platform::PathAttributes attributes = genostat::platform::pathAttributes(path);
  return attributes.exists && attributes.directory;
}

// `hint` (the job's name) is part of the interface but plays no part in the name.
std::string GenoStatAlgoManager::generateUniqueFilename(const std::string& folder, std::string& /*hint*/) {
  try {
    if (!directoryExists(folder)) return std::string();
    // One reading of the clock: every candidate of this call shares the same stamp.
    const std::string stamp = std::to_string(genostat::platform::currentTimeSeconds());
    std::string candidate = joinPath(folder, stamp + ".csv");
    // Capped on purpose: when every candidate exists the last one is returned all the same.
    for (int n = 1; fileExists(candidate) && n < kMaxNameCandidates; ++n) {
      candidate = joinPath(folder, stamp + "_" + std::to_string(n) + ".csv");
    }
    return candidate;
  } catch (const std::exception&) {
    return std::string();
  }
}
