// The command line of genostat-qc:
//   genostat-qc [--adapter NONE|ILLUMINA|NEXTERA|CUSTOM] [--custom-sequence SEQ] [--threads N]
//               [--progress] [--leave-out-damaged] --output OUT.csv FILE...
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "genostat/engine.h"
#include "genostat/input_error.h"

namespace genostat {

// Exit codes (sysexits values the analysis script maps to its own).
enum ExitCode : int {
  kExitOk = 0,
  kExitUsage = 64,
  kExitMalformedInput = 65,
  kExitNoInput = 66,
  kExitInternal = 70,
  kExitCannotWrite = 73,
  kExitOutOfMemory = 75,
  kExitPermission = 77,
};

// Runs the program on `args` (without the program name). Help goes to `out`; progress lines
// ("progress <file> <bytes-done> <bytes-total> <reads-per-second>", file numbered from 1) and
// errors go to `err`, and with --leave-out-damaged "genostat-qc: left out: <path>: <message>" for
// each file whose content was refused (in input order, after the run). On failure the last line
// written to `err` is "genostat-qc: error: <path>: <message>", <path> being the input file, the
// output file, or for a usage error the offending option.
// `configure`, when given, may adjust the engine's options before the run (tests use it to make
// a worker fail).
int runCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
           const std::function<void(EngineOptions&)>& configure = {});

// The exit code for an input error of the given kind.
int exitCodeFor(InputErrorKind kind);

}  // namespace genostat
