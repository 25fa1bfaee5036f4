// genostat-qc: computes the quality-control columns of FASTQ files into a CSV file.
#include <iostream>
#include <string>
#include <vector>

#include "genostat/cli.h"

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  std::vector<std::string> args(argv + 1, argv + argc);
  return genostat::runCli(args, std::cout, std::cerr);
}
