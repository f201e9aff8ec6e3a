#!/bin/sh
# Runs inside the test kernel (run.sh boots it): loads scsi_debug with each case's parameters,
# makes a bed whose SCSI side is this kernel's, and prints what qmx and the SCSI tools say on it
# between markers. run.sh compares the whole output with expected-SUITE.txt.
PATH=/rk:/usr/bin:/bin:/sbin:/usr/sbin
bed=/tmp/bed

# check NAME CMD...: the command's output (stdout and stderr together) and its exit status.
check() {
  name=$1
  shift
  echo "@@@ $name"
  "$@" 2>&1
  echo "@@@ rc=$?"
}

# Loads scsi_debug afresh with these parameters, waits (at most 20 s) until every device has
# its sg node and every disk and tape its block or tape device, and makes a new bed on it.
sdebug() {
  rmmod scsi_debug 2>/dev/null
  modprobe scsi_debug "$@" || echo "@@@ modprobe scsi_debug $* failed"
  i=0
  while [ $i -lt 200 ]; do
    ready=1
    for d in /sys/bus/scsi/devices/*:*:*:*; do
      [ -e "$d/scsi_generic" ] || ready=0
      case $(cat "$d/type" 2>/dev/null) in
      0) [ -e "$d/block" ] || ready=0 ;;
      1) [ -e "$d/scsi_tape" ] || ready=0 ;;
      esac
    done
    [ $ready = 1 ] && break
    sleep 0.1
    i=$((i + 1))
  done
  [ $ready = 1 ] || echo "@@@ scsi_debug $*: devices not ready"
  # The sd driver probes its disks in parallel, so their names come in no fixed order: bound
  # again one by one in H:C:T:L order, they are named in that order (by the kernel, as always).
  # Not worth it for the case with a hundred LUNs, whose names are not checked.
  disks=$(ls /sys/bus/scsi/drivers/sd | grep : | sort -t: -k1,1n -k2,2n -k3,3n -k4,4n)
  [ "$(echo "$disks" | wc -l)" -le 8 ] || disks=
  for d in $disks; do echo "$d" >/sys/bus/scsi/drivers/sd/unbind; done
  for d in $disks; do echo "$d" >/sys/bus/scsi/drivers/sd/bind; done
  rm -rf $bed
  kvosim create $bed --host /rk/host.json --scsi kernel >/dev/null
}

on_bed() { kvosim run $bed -- "$@"; }

# How many rows of a plain LUN list of target 0 name the disk the kernel has for their LUN.
same_disks() {
  grep '^ 0:' | while read -r tl wwn dev; do
    hex=${tl#0:}
    kernel=$(ls "/sys/class/scsi_device/0:0:0:$((0x${hex%%-*}))/device/block" 2>/dev/null)
    [ "$dev" = "/dev/$kernel" ] && echo same
  done | grep -c same
}

# What the bed's log holds beyond the requests the emulated drivers served: a refused or
# unemulated request would show here.
bad_lines() { kvosim log $bed | grep -E '^(BAD|UNHANDLED)' || true; }

# The status of a plain LUN list, its number of rows and of rows naming the kernel's disk.
list_all() {
  on_bed qmx fcpim --lunlist 1/0 >/tmp/lunlist
  echo "status $?"
  grep -c '^ 0:' /tmp/lunlist
  same_disks </tmp/lunlist
}

# One INQUIRY through SG_IO straight to the kernel (no bed): to and from the device on an sg node
# and on a disk's block node, then from the device on the sg node. The emulated sg answers as
# the kernel does here (sim/README.md, SCSI nodes).
sgio_directions() {
  kvosim_probe sgio /dev/sg0 dxfer_direction -4
  kvosim_probe sgio /dev/sda dxfer_direction -4
  kvosim_probe sgio /dev/sg0 dxfer_direction -3
}

# The REPORT LUNS commands scsi_debug logged (while its opts has bit 0, noise, set).
report_luns_seen() { dmesg | sed -n 's/.*scsi_debug: tag=[^,]*, cmd \(a0 .*[^ ]\) *$/\1/p'; }

# ---- two targets of two disks: the LUN list plain and verbose, and the kernel's view --------
sdebug num_tgts=2 max_luns=2 dev_size_mb=8
check "bed: the kernel's hosts, targets and LUNs" kvosim show $bed
check "lsscsi on the bed" on_bed lsscsi -g
check "lunlist" on_bed qmx fcpim --lunlist 1/0
check "lunlist -v" on_bed qmx fcpim --lunlist 1/0 -v
check "bad lines" bad_lines
check "SG_IO: to and from on sg and on sda, from on sg" sgio_directions

# ---- a disk over 2 TiB: READ CAPACITY(10) cannot say its size ---------------------------------
sdebug virtual_gb=3000 dev_size_mb=8
check "lunlist -v, 3000 GiB" on_bed qmx fcpim --lunlist 1/0 -v

# ---- more LUNs than the first REPORT LUNS takes (816 bytes: 101 LUNs) -------------------------
sdebug max_luns=110 dev_size_mb=8
check "LUNs the kernel has" sh -c 'ls -1 /sys/class/scsi_device | wc -l'
dmesg -c >/dev/null
echo 1 >/sys/bus/pseudo/drivers/scsi_debug/opts
check "lunlist, 110 LUNs: status, rows, rows naming the kernel's disk" list_all
echo 0 >/sys/bus/pseudo/drivers/scsi_debug/opts
check "REPORT LUNS as scsi_debug got them" report_luns_seen

# ---- flat-space LUNs ---------------------------------------------------------------------------
sdebug max_luns=3 lun_format=1 dev_size_mb=8
check "flat-space LUNs: the kernel's view" on_bed lsscsi
check "flat-space LUNs: lunlist -v" on_bed qmx fcpim --lunlist 1/0 -v

# ---- a tape --------------------------------------------------------------------------------------
sdebug ptype=1 dev_size_mb=8
check "tape: the kernel's view" on_bed lsscsi -g
check "tape: lunlist -v" on_bed qmx fcpim --lunlist 1/0 -v

# ---- LUN masking: a LUN deleted from an enabled mask leaves the kernel --------------------------
sdebug max_luns=3 dev_size_mb=8
rp=50:00:0d:5e:00:00:00:00
check "mask: enable" on_bed qmx fcpim --lunmaskenable 1/0
check "mask: add LUN 1" on_bed qmx fcpim --lunmaskadd 1/0 $rp 0001-0000-0000-0000
check "mask: the LUNs of the list" on_bed qmx fcpim --lunlist 1/0
check "mask: delete LUN 1" on_bed qmx fcpim --lunmaskdelete 1/0 $rp 0001-0000-0000-0000
check "mask: the kernel's devices" ls -1 /sys/class/scsi_device
# A real rescan knows no mask: after the next add the kernel has LUN 1 again.
check "mask: add LUN 2" on_bed qmx fcpim --lunmaskadd 1/0 $rp 0002-0000-0000-0000
check "mask: the kernel's devices" ls -1 /sys/class/scsi_device
check "mask: the LUNs of the list" on_bed qmx fcpim --lunlist 1/0
check "bad lines" bad_lines

# ---- a second host that is not the bed's ------------------------------------------------------
sdebug add_host=2 dev_size_mb=8
check "the bed's host" on_bed sg_luns /dev/sg0
check "another host" on_bed sg_luns /dev/sg1
check "bad lines" bad_lines
