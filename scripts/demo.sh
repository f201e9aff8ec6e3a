#!/usr/bin/env bash
# Builds qmx and runs it on the bundled demo host: an FC HBA with targets and LUNs and a CNA.
#   scripts/demo.sh                      -> qmx adapter --list
#   scripts/demo.sh port --list          -> any other qmx command line
#   scripts/demo.sh shell                -> the interactive shell
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target qmx kvosim kvosim_preload >/dev/null
bed=${QMX_DEMO_BED:-/tmp/qmx-demo}
[ -f "$bed/state.json" ] || build/sim/kvosim create "$bed" --preset demo --sg-to-from read >/dev/null
[ $# -gt 0 ] || set -- adapter --list
exec build/sim/kvosim run "$bed" -- build/qmx "$@"
