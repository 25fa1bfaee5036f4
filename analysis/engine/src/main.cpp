// genostat-qc: computes the quality-control columns of FASTQ files into a CSV file.
#include <iostream>
#include <string>
#include <vector>

#include "genostat/cli.h"
#include "platform/program_entry.h"

int genostat::programMain(const std::vector<std::string>& args) {
  std::ios::sync_with_stdio(false);
  return runCli(std::vector<std::string>(args.begin() + (args.empty() ? 0 : 1), args.end()),
                std::cout, std::cerr);
}
