// The two counts read from a finished job's result CSV.
#include <fstream>
#include <sstream>
#include <string>

#include "jobs/GenoStatAlgoManager.h"

// The split is deliberately plain: quotes are not honoured, a trailing comma adds no field, and
// any line that is not empty counts as a sample (blanks or a lone carriage return included). The
// analysis run subtracts the two non-variable columns from the header count itself.
bool GenoStatAlgoManager::parseCSVForCounts(const std::string& path, int32_t& samples,
                                            int32_t& variables) {
  // std::ifstream takes no lock on the file, so the script or the host may hold it open meanwhile.
  // Binary, so a line holding only a carriage return is the same non-empty line on every system:
  // Windows' text mode would fold its CR LF into an empty line that no longer counts.
  std::ifstream in(path, std::ios::binary);
  if (!in.is_open()) return false;

  samples = 0;
  variables = 0;

  std::string line;
  if (std::getline(in, line)) {
    // Binary mode leaves a CRLF header's CR on its last field, which would count "a,b,\r" as
    // three fields and an empty CRLF line as one; data lines keep theirs (see above).
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::istringstream header(line);
    std::string field;
    while (std::getline(header, field, ',')) ++variables;
    while (std::getline(in, line)) {
      if (!line.empty()) ++samples;
    }
  }
  return true;
}
