// genostat-fqgen: writes a deterministic FASTQ file (see fqgen.h and --help).
#include <cstdio>
#include <string>
#include <vector>

#include "fqgen.h"
#include "platform/program_entry.h"

int genostat::programMain(const std::vector<std::string>& args) {
  namespace fq = genostat::fqgen;
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--help" || args[i] == "-h") {
      std::fputs(fq::usageText(), stdout);
      return 0;
    }
  }
  std::vector<const char*> argv;
  for (const std::string& arg : args) argv.push_back(arg.c_str());
  fq::Options options;
  std::string error;
  if (!fq::parseOptions(static_cast<int>(argv.size()), argv.data(), options, error)) {
    std::fprintf(stderr, "genostat-fqgen: error: %s\n%s", error.c_str(), fq::usageText());
    return 64;
  }
  if (!fq::writeFastq(options, error)) {
    std::fprintf(stderr, "genostat-fqgen: error: %s\n", error.c_str());
    return 73;
  }
  return 0;
}
