#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: once in a plain build and once with
# AddressSanitizer and UndefinedBehaviorSanitizer; runs each fuzz target for a fixed number of
# executions; then builds, checks and installs the package.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --fuzz
jobs=$(nproc)

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DQMX_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs"

# The fuzz targets (clang, libFuzzer, ASan and UBSan), each from its seed corpus for the runs
# fuzz/CMakeLists.txt gives it. README, "Fuzzing": the long runs.
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQMX_FUZZ=ON >/dev/null
cmake --build build-fuzz --target fuzz -j"$jobs"
ctest --test-dir build-fuzz -L fuzz --output-on-failure -j"$jobs"

# The Debian package from the plain build: lintian, install, --help, man page, completion.
scripts/package.sh
