// genostat-fqgen: writes a deterministic FASTQ file (see fqgen.h and --help).
#include <cstdio>
#include <cstring>
#include <string>

#include "fqgen.h"

int main(int argc, char** argv) {
  namespace fq = genostat::fqgen;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
      std::fputs(fq::usageText(), stdout);
      return 0;
    }
  }
  fq::Options options;
  std::string error;
  if (!fq::parseOptions(argc, argv, options, error)) {
    std::fprintf(stderr, "genostat-fqgen: error: %s\n%s", error.c_str(), fq::usageText());
    return 64;
  }
  if (!fq::writeFastq(options, error)) {
    std::fprintf(stderr, "genostat-fqgen: error: %s\n", error.c_str());
    return 73;
  }
  return 0;
}
