#!/usr/bin/env bash
# Installs everything the build, the tests and the main job need, from Debian's archive.
# Idempotent: packages already present are left alone, and apt is skipped when nothing is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  clang libclang-rt-14-dev          # libFuzzer and the sanitizer runtimes for the fuzz build
  python3
  rapidjson-dev                     # JSON in the module and the reference host
  libeigen3-dev libboost-math-dev   # the reference host's statistics: linear algebra, distributions
  libedit-dev                       # line editing and history at zorv's prompt
  libgtest-dev libgmock-dev         # unit tests
  zlib1g-dev libisal-dev libbz2-dev # the engine's decompressors
  pigz                              # gzip/BGZF-style test inputs for the engine
  bzip2                             # the benchmark's bzip2 copy and its bzcat floor
  time                              # peak memory figures of the benchmark
  isal tabix                        # the benchmark's igzip floor and its BGZF copy (bgzip)
  chromium                          # the output page checked in a real browser (headless)
  # The Windows build: MinGW-w64 (posix threads), zlib for MinGW, GoogleTest's sources for the
  # target, and 64-bit Wine to run its tests (no wine32: a 64-bit prefix needs only wine64).
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix libz-mingw-w64-dev googletest
  wine wine64
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  if [[ $(id -u) -ne 0 ]]; then
    echo "setup-deps: missing packages (${missing[*]}); run this script as root" >&2
    exit 1
  fi
  echo "setup-deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
