#!/bin/sh
# Runs one fuzz target from its seed corpus:
#   fuzz/run.sh BUILD_DIR TARGET [libFuzzer options...]
# e.g. fuzz/run.sh build-fuzz config -runs=20000, or -max_total_time=3600 for a long run.
# Inputs that add coverage go to a scratch directory removed afterwards, so the corpus in the
# repository changes only by hand; a crashing input is kept as BUILD_DIR/fuzz/crash-<target>-*.
set -eu
build=$(cd "$1" && pwd) target=$2
shift 2
here=$(cd "$(dirname "$0")" && pwd)
case $target in
  config) max_len=8192 ;;
  boot) max_len=16384 ;;
  *) max_len=4096 ;;
esac
dict=
[ -f "$here/dict/$target.dict" ] && dict=-dict=$here/dict/$target.dict
work=$(mktemp -d "${TMPDIR:-/tmp}/qmx-fuzz-$target.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
"$build/fuzz/fuzz_$target" -max_len=$max_len $dict -print_final_stats=1 \
  -artifact_prefix="$build/fuzz/crash-$target-" "$@" "$work" "$here/corpus/$target"
