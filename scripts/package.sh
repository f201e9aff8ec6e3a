#!/usr/bin/env bash
# Builds the Debian package from the plain build (build/), checks it with lintian (no errors
# allowed), installs it with apt as an administrator would, checks that `qmx --help`, the manual
# page and the completion work from the installed files, and removes it again.
#   scripts/package.sh          (after scripts/test.sh, or on its own: it builds what it needs)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
b=build
cmake -S . -B "$b" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$b" -j"$(nproc)" --target qmx qmxdocs qmxchangelog
warnings=$(groff -man -ww -z "$b/doc/qmx.8" 2>&1)
if [ -n "$warnings" ]; then
  echo "groff warns about qmx.8:" >&2
  echo "$warnings" >&2
  exit 1
fi
rm -f "$b"/qmx_*.deb
(cd "$b" && cpack -G DEB >/dev/null 2>&1)
deb=$(ls "$b"/qmx_*.deb)
echo "package: $deb"

report=$(lintian --tag-display-limit 0 "$deb" 2>&1 | grep -v 'running with root privileges' || true)
[ -n "$report" ] && echo "$report"
if grep -q '^E: ' <<<"$report"; then
  echo "lintian reports errors" >&2
  exit 1
fi

if dpkg-deb -c "$deb" | grep -q ' \./etc/'; then
  echo "the package ships files in /etc (qmx writes /etc/kvo.conf itself)" >&2
  exit 1
fi

if dpkg-query -W -f='${Status}' qmx 2>/dev/null | grep -q 'install ok installed'; then
  echo "a qmx package is already installed; not touching it" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get install -y -qq "./$deb" >/dev/null
trap 'apt-get remove -y -qq qmx >/dev/null' EXIT
fail() { echo "installed package: $*" >&2; exit 1; }
[ "$(command -v qmx)" = /usr/sbin/qmx ] || fail "qmx is not /usr/sbin/qmx"
qmx --help | grep -q 'Available command options are:' || fail "qmx --help"
MANPAGER=cat man qmx 2>/dev/null | grep -q 'qmx - manage Torvane' || fail "man qmx"
words=$(bash -c 'source /usr/share/bash-completion/completions/qmx
  COMP_WORDS=(qmx fcpim --lunl); COMP_CWORD=2; _qmx; echo "${COMPREPLY[*]}"')
[ "$words" = --lunlist ] || fail "completion of 'qmx fcpim --lunl' gave '$words'"
echo "package installs, runs, shows its manual page and completes; removed again"
