#!/usr/bin/env bash
# Builds qmx, the emulator and the benchmark runners in build-bench, then runs the benchmarks:
#   bench/run.sh [ARGS]        qmxbench with the beds on the disk (/tmp) and on tmpfs (/dev/shm),
#                              then qmxconfbench on the disk; ARGS go to qmxbench,
#                              e.g. bench/run.sh --reps 3 --beds a1,a16,large
#   bench/run.sh conf [ARGS]   qmxconfbench only; ARGS go to it, e.g. --kills 20 --batches 2
#   bench/run.sh scsi [ARGS]   qmxscsibench only: fcpim --lunlist against lsscsi and sg3_utils;
#                              ARGS go to it, e.g. --reps 3 --beds l16,large
# With QMXBENCH_BASELINE=REV (a commit, e.g. f3ed623), qmxconfbench also runs the qmx built from
# that commit (in build-bench/baseline), on the same emulator, for a before/after comparison.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
b=build-bench
cmake -S . -B "$b" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQMX_SANITIZE=OFF >/dev/null
cmake --build "$b" -j"$(nproc)" --target qmx kvosim kvosim_preload qmxbench qmxconfbench qmxscsibench >/dev/null

run() {  # run NAME DIR
  local fstype
  fstype=$(stat -f -c %T "$(dirname "$2")")
  echo "## Beds in $2 ($fstype), $(nproc) cores, $(date -u '+%Y-%m-%d %H:%M UTC')"
  echo
  "$b/bench/qmxbench" --work "$2" --markdown "$b/bench/results-$1.md" --csv "$b/bench/results-$1.csv" "${@:3}"
  echo
}

conf() {  # conf ARGS...
  local work=${QMXBENCH_DISK:-/tmp/qmxbench}-conf
  if [ -n "${QMXBENCH_BASELINE:-}" ]; then
    local src="$b/baseline/src"
    rm -rf "$b/baseline"
    mkdir -p "$src"
    git archive "$QMXBENCH_BASELINE" | tar -x -C "$src"
    cmake -S "$src" -B "$b/baseline/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQMX_SANITIZE=OFF >/dev/null
    cmake --build "$b/baseline/build" -j"$(nproc)" --target qmx >/dev/null
    echo "## /etc/kvo.conf, qmx of $QMXBENCH_BASELINE, $(nproc) cores, $(date -u '+%Y-%m-%d %H:%M UTC')"
    echo
    "$b/bench/qmxconfbench" --work "$work" --qmx "$b/baseline/build/qmx" --label "$QMXBENCH_BASELINE" \
      --markdown "$b/bench/results-conf-baseline.md" "$@"
    echo
  fi
  echo "## /etc/kvo.conf, this tree's qmx, $(nproc) cores, $(date -u '+%Y-%m-%d %H:%M UTC')"
  echo
  "$b/bench/qmxconfbench" --work "$work" --label "this tree" --markdown "$b/bench/results-conf.md" "$@"
}

scsi() {  # scsi ARGS...
  echo "## fcpim --lunlist against lsscsi and sg3_utils, beds in ${QMXBENCH_DISK:-/tmp/qmxbench}-scsi, $(nproc) cores, $(date -u '+%Y-%m-%d %H:%M UTC')"
  echo
  "$b/bench/qmxscsibench" --work "${QMXBENCH_DISK:-/tmp/qmxbench}-scsi" --markdown "$b/bench/results-scsi.md" "$@"
}

if [ "${1:-}" = scsi ]; then
  shift
  scsi "$@"
  exit
fi
if [ "${1:-}" = conf ]; then
  shift
  conf "$@"
  exit
fi
run disk "${QMXBENCH_DISK:-/tmp/qmxbench}" "$@"
if [ -d /dev/shm ]; then run tmpfs "${QMXBENCH_TMPFS:-/dev/shm/qmxbench}" "$@"; fi
conf
scsi
