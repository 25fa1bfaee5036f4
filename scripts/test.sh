#!/usr/bin/env bash
# The project's test command: installs the dependencies, then builds and runs every test
#   1. a RelWithDebInfo build with warnings as errors: the whole suite;
#   2. AddressSanitizer + UndefinedBehaviorSanitizer: the whole suite;
#   3. ThreadSanitizer: the tests that exercise threads (CTest label "threads");
#   4. libFuzzer (clang): short runs of the command parser and the FASTQ reader from their seed corpora;
#   5. Windows: the whole project cross-compiled with MinGW-w64 (warnings as errors), its unit tests
#      and the module's job tests run under 64-bit Wine, each with a time limit.
# Build trees live under build/ (reused when present). Exit status 0 only when every step passed.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
"$root/scripts/setup-deps.sh"

jobs=$(nproc)
# A compiler cache, where the machine has one, makes rebuilds of a fresh clone cheap; nothing needs it.
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
: "${GENOSTAT_FUZZ_SECONDS:=60}"
failures=()
summary=()

configure_and_build() {  # <dir> <cmake args...> [-- <targets...>]
  local dir=$1
  shift
  local args=() targets=()
  while (($#)); do
    if [[ $1 == -- ]]; then
      shift
      targets=("$@")
      break
    fi
    args+=("$1")
    shift
  done
  cmake -S "$root" -B "$root/build/$dir" -G Ninja "${launcher[@]}" "${args[@]}" >/dev/null
  if ((${#targets[@]})); then
    cmake --build "$root/build/$dir" -j "$jobs" --target "${targets[@]}"
  else
    cmake --build "$root/build/$dir" -j "$jobs"
  fi
}

run_ctest() {  # <name> <dir> <ctest args...>
  local name=$1 dir=$2
  shift 2
  echo "== $name"
  if ctest --test-dir "$root/build/$dir" --output-on-failure -j "$jobs" --timeout 600 "$@"; then
    summary+=("$name: passed")
  else
    summary+=("$name: FAILED")
    failures+=("$name")
  fi
}

echo "== build: release, warnings as errors"
configure_and_build release -DCMAKE_BUILD_TYPE=RelWithDebInfo -DGENOSTAT_WERROR=ON
run_ctest "tests (release)" release

echo "== build: address + undefined sanitizers"
configure_and_build asan -DCMAKE_BUILD_TYPE=Debug -DGENOSTAT_WERROR=ON \
  -DGENOSTAT_SANITIZE=address,undefined
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_ctest "tests (address,undefined)" asan

echo "== build: thread sanitizer"
configure_and_build tsan -DCMAKE_BUILD_TYPE=Debug -DGENOSTAT_WERROR=ON -DGENOSTAT_SANITIZE=thread
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 run_ctest "threaded tests (thread)" tsan -L threads

echo "== build: fuzzers (clang, libFuzzer)"
configure_and_build fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DBUILD_TESTING=OFF -DGENOSTAT_FUZZ=ON -DGENOSTAT_SANITIZE=address,undefined \
  -- fuzz_parser fuzz_fastq_reader fuzz_bgzf fuzz_bzip2_codec fuzz_output
fuzz() {  # <binary> <seed corpus dir> <seconds> [libFuzzer flags...]
  local bin=$1 seeds=$2 seconds=$3
  shift 3
  local work="$root/build/fuzz/corpus-$(basename "$bin")"
  mkdir -p "$work"
  echo "== fuzz: $(basename "$bin"), ${seconds}s from $seeds"
  # The scratch corpus comes first so that new inputs land there, not in the source tree.
  if "$root/build/fuzz/bin/$bin" -max_total_time="$seconds" -print_final_stats=1 \
       -artifact_prefix="$work/" "$@" "$work" "$seeds" \
       >"$root/build/fuzz/$bin.log" 2>&1; then
    summary+=("fuzz $bin: passed (${seconds}s)")
  else
    tail -n 60 "$root/build/fuzz/$bin.log"
    summary+=("fuzz $bin: FAILED")
    failures+=("fuzz $bin")
  fi
}
fuzz fuzz_parser "$root/refhost/parser/fuzz-corpus" "$GENOSTAT_FUZZ_SECONDS" -max_len=4096 -timeout=10
fuzz fuzz_bzip2_codec "$root/analysis/engine/fuzz/bzip2-corpus" 30 -rss_limit_mb=1024 -timeout=10
fuzz fuzz_fastq_reader "$root/analysis/engine/fuzz/corpus" 30 -rss_limit_mb=1024
fuzz fuzz_bgzf "$root/analysis/engine/fuzz/bgzf-corpus" 30 -rss_limit_mb=1024 -timeout=10
fuzz fuzz_output "$root/refhost/output/fuzz/corpus" 20

echo "== build: Windows (MinGW-w64 cross build, tests under Wine)"
# A prefix of the test command's own; only its server is stopped at the end.
export WINEPREFIX="${WINEPREFIX:-${TMPDIR:-/tmp}/wine-$(id -u)-genostat}"
trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
configure_and_build windows -DCMAKE_BUILD_TYPE=Release -DGENOSTAT_WERROR=ON \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw64-posix.cmake"
windows_start=$SECONDS
run_ctest "Windows tests (Wine)" windows --timeout 120
summary[-1]+=" in $((SECONDS - windows_start)) s"

echo
echo "== summary"
printf '  %s\n' "${summary[@]}"
if ((${#failures[@]})); then
  echo "FAILED: ${failures[*]}"
  exit 1
fi
echo "all test steps passed"
