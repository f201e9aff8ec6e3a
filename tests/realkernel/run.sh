#!/usr/bin/env bash
# The real-kernel tier of the SCSI paths: boots a Debian kernel under qemu with scsi_debug, runs
# guest.sh there (qmx and SCSI tools on beds whose SCSI side is that kernel's), and compares what
# the guest printed on its serial console with expected-SUITE.txt.
#
#   run.sh QMX KVOSIM WORKDIR SUITE   (libkvosim.so next to KVOSIM; WORKDIR keeps the kernel cache;
#                                      SUITE: the Debian release whose kernel boots, e.g. bookworm)
#
# Exit status: 0 passed, 1 failed, 77 skipped (no qemu or kernel to be had, or the guest did not
# boot): a skip always says why. The kernel is fetched with apt-get download (from the suite's
# package lists, kept in WORKDIR apart from the machine's) and unpacked with dpkg -x into WORKDIR,
# never installed; missing tools are installed from Debian when run as root.
set -euo pipefail
export PATH=$PATH:/usr/sbin:/sbin LC_ALL=C
here=$(cd "$(dirname "$0")" && pwd)
[ $# -eq 4 ] || { echo "usage: $0 QMX KVOSIM WORKDIR SUITE" >&2; exit 2; }
qmx=$(realpath "$1") kvosim=$(realpath "$2") work=$(mkdir -p "$3" && realpath "$3") suite=$4
expected=$here/expected-$suite.txt
[ -f "$expected" ] || { echo "no $expected" >&2; exit 2; }
lib=$(dirname "$kvosim")/libkvosim.so probe=$(dirname "$kvosim")/kvosim_probe
tools=(lsscsi sg_luns)
skip() { echo "SKIP: $*"; exit 77; }
started=$(date +%s)

# ---- tools ------------------------------------------------------------------------------------
static_busybox() { command -v busybox >/dev/null && ! ldd "$(command -v busybox)" >/dev/null 2>&1; }
missing=()
command -v qemu-system-x86_64 >/dev/null || missing+=(qemu-system-x86)
static_busybox || missing+=(busybox-static)
command -v depmod >/dev/null || missing+=(kmod)
command -v cpio >/dev/null || missing+=(cpio)
command -v lsscsi >/dev/null || missing+=(lsscsi)
command -v sg_luns >/dev/null || missing+=(sg3-utils)
apt_install() {
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >"$work/apt.log" 2>&1 ||
    { apt-get update -qq >>"$work/apt.log" 2>&1 &&
      DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >>"$work/apt.log" 2>&1; }
}
if [ ${#missing[@]} -gt 0 ]; then
  [ "$(id -u)" -eq 0 ] || skip "missing ${missing[*]} (run as root to have them installed)"
  echo "installing ${missing[*]}"
  apt_install "${missing[@]}" || skip "could not install ${missing[*]}: $(tail -1 "$work/apt.log")"
fi

# ---- the kernel: the package the suite's linux-image-amd64 depends on, unpacked into the cache --
aptdir=$work/apt
mkdir -p "$aptdir/lists/partial" "$aptdir/cache/archives/partial"
echo "deb http://deb.debian.org/debian $suite main" >"$aptdir/sources.list"
apt_opts=(-o "Dir::Etc::SourceList=$aptdir/sources.list" -o "Dir::Etc::SourceParts=/nonexistent"
  -o "Dir::State::Lists=$aptdir/lists" -o "Dir::Cache=$aptdir/cache")
kernel_pkg() {
  apt-cache "${apt_opts[@]}" depends linux-image-amd64 2>/dev/null |
    awk '$1 == "Depends:" && $2 ~ /^linux-image-[0-9]/ { print $2; exit }'
}
pkg=$(kernel_pkg) || true
[ -n "$pkg" ] || { apt-get "${apt_opts[@]}" update -qq >"$work/apt-update.log" 2>&1 || true; pkg=$(kernel_pkg) || true; }
[ -n "$pkg" ] || skip "no kernel package for $suite: $(tail -1 "$work/apt-update.log")"
kdir=$work/cache/$pkg
if [ ! -f "$kdir/kver" ]; then
  echo "fetching $pkg"
  tmp=$(mktemp -d "$work/fetch.XXXXXX")
  trap 'rm -rf "$tmp"' EXIT
  (cd "$tmp" && apt-get "${apt_opts[@]}" download -qq "$pkg" >"$tmp/log" 2>&1) || skip "apt-get download $pkg failed: $(tail -1 "$tmp/log")"
  dpkg -x "$tmp"/*.deb "$tmp/x" && kver=$(ls "$tmp/x/lib/modules") && [ -f "$tmp/x/boot/vmlinuz-$kver" ] ||
    skip "$pkg: no kernel and modules in the package"
  depmod -b "$tmp/x" "$kver"
  rm -rf "$kdir" && mkdir -p "$kdir/lib/modules/$kver"
  # The SCSI modules and what they need (6.1's crc64_rocksoft_generic is asked for by name at run
  # time).
  mods=(sd_mod sg st scsi_debug)
  [ -z "$(find "$tmp/x/lib/modules/$kver" -name 'crc64_rocksoft_generic.ko*')" ] || mods+=(crc64_rocksoft_generic)
  modprobe -d "$tmp/x" -S "$kver" --show-depends -a "${mods[@]}" |
    awk '$1 == "insmod" { print $2 }' | sort -u | while read -r m; do
      rel=${m#"$tmp/x/"}
      mkdir -p "$kdir/$(dirname "$rel")" && cp "$m" "$kdir/$rel"
    done
  cp "$tmp"/x/lib/modules/"$kver"/modules.{order,builtin,builtin.modinfo} "$kdir/lib/modules/$kver/"
  cp "$tmp/x/boot/vmlinuz-$kver" "$kdir/vmlinuz"
  echo "$kver" >"$kdir/kver"
  rm -rf "$tmp"
  trap - EXIT
fi
kver=$(cat "$kdir/kver")

# ---- the initramfs --------------------------------------------------------------------------------
root=$work/initramfs
rm -rf "$root"
mkdir -p "$root"/{bin,sbin,usr/bin,usr/sbin,proc,sys,dev,tmp,rk,lib/modules}
cp "$(command -v busybox)" "$root/bin/busybox"
cp -a "$kdir/lib/modules/$kver" "$root/lib/modules/"
depmod -b "$root" "$kver"
cp "$qmx" "$kvosim" "$lib" "$probe" "$here/guest.sh" "$here/host.json" "$root/rk/"
for t in "${tools[@]}"; do cp "$(command -v "$t")" "$root/usr/bin/"; done
# The libraries the dynamic programs need, at the paths the loader looks for them.
for f in "$root"/rk/qmx "$root"/rk/kvosim "$root"/rk/libkvosim.so "$root"/rk/kvosim_probe "${tools[@]/#/$root/usr/bin/}"; do
  ldd "$f" | awk '$2 == "=>" && $3 ~ /^\// { print $3 } $1 ~ /^\// { print $1 }'
done | sort -u | while read -r l; do
  mkdir -p "$root$(dirname "$l")" && cp -L "$l" "$root$l"
done
cat >"$root/init" <<'EOF'
#!/bin/busybox sh
/bin/busybox --install -s
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mount -t tmpfs tmpfs /tmp
dmesg -n 1
echo "@@@ guest up"
if modprobe sd_mod && modprobe sg && modprobe st; then sh /rk/guest.sh; else echo "@@@ the SCSI modules did not load"; fi
echo "@@@ guest done"
poweroff -f
EOF
chmod +x "$root/init" "$root/rk/guest.sh"
(cd "$root" && find . | cpio -o -H newc --quiet) >"$work/initrd"

# ---- the boot -----------------------------------------------------------------------------------
log=$work/serial.log
rm -f "$log"
boot=$(date +%s)
qemu_rc=0
timeout 600 qemu-system-x86_64 -accel tcg -m 1024 -nodefaults -display none -no-reboot \
  -serial "file:$log" -kernel "$kdir/vmlinuz" -initrd "$work/initrd" \
  -append "console=ttyS0 panic=-1 quiet scsi_mod.scan=sync" >"$work/qemu.out" 2>&1 || qemu_rc=$?
now=$(date +%s)
[ -f "$log" ] || skip "qemu did not start (status $qemu_rc): $(tail -1 "$work/qemu.out")"
tr -d '\r' <"$log" >"$log.txt"
if ! grep -q '^@@@ guest up$' "$log.txt"; then
  tail -20 "$log.txt" "$work/qemu.out"
  skip "the guest did not boot (qemu status $qemu_rc; serial log in $log)"
fi
echo "kernel $kver: boot and checks $((now - boot)) s, whole tier $((now - started)) s"
if ! grep -q '^@@@ guest done$' "$log.txt"; then
  tail -40 "$log.txt"
  echo "FAIL: the guest stopped before its checks were done (qemu status $qemu_rc; serial log in $log)"
  exit 1
fi
sed -n '/^@@@ guest up/,/^@@@ guest done/p' "$log.txt" | sed '1d;$d' >"$work/actual.txt"
if ! diff -u "$expected" "$work/actual.txt"; then
  echo "FAIL: the guest's output differs from $(basename "$expected") (above; serial log in $log)"
  exit 1
fi
echo "PASS"
