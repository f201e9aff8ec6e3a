#!/usr/bin/env bash
# Installs what the build needs when it is missing (Debian packages; run as root).
#   scripts/setup.sh          the build, the tests and the package
#   scripts/setup.sh --fuzz   also clang and its libFuzzer and sanitizer runtimes (fuzz/)
set -euo pipefail
pkgs=(g++ cmake make libgtest-dev googletest nlohmann-json3-dev util-linux tar coreutils lsscsi sg3-utils
      dpkg-dev lintian man-db)
if [ "${1:-}" = --fuzz ]; then
  pkgs+=(clang libclang-rt-14-dev)
fi
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq "${missing[@]}" >/dev/null
fi
