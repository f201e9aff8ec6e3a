#!/usr/bin/env bash
# Builds qmx, the emulator and the benchmark runner in build-bench, then runs the benchmarks
# twice: with the beds on the disk (/tmp) and on tmpfs (/dev/shm). Extra arguments go to
# qmxbench, e.g. bench/run.sh --reps 3 --beds a1,a16,large
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
b=build-bench
cmake -S . -B "$b" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQMX_SANITIZE=OFF >/dev/null
cmake --build "$b" -j"$(nproc)" --target qmx kvosim kvosim_preload qmxbench >/dev/null

run() {  # run NAME DIR
  local fstype
  fstype=$(stat -f -c %T "$(dirname "$2")")
  echo "## Beds in $2 ($fstype), $(nproc) cores, $(date -u '+%Y-%m-%d %H:%M UTC')"
  echo
  "$b/bench/qmxbench" --work "$2" --markdown "$b/bench/results-$1.md" --csv "$b/bench/results-$1.csv" "${@:3}"
  echo
}
run disk "${QMXBENCH_DISK:-/tmp/qmxbench}" "$@"
if [ -d /dev/shm ]; then run tmpfs "${QMXBENCH_TMPFS:-/dev/shm/qmxbench}" "$@"; fi
