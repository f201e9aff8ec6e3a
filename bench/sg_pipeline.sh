#!/usr/bin/env bash
# What an administrator runs without qmx for the columns of `qmx fcpim --lunlist <pcifn> -v`:
# for every target of SCSI host H, the LUN list from sg_luns on the target's LUN 0, then sg_inq
# and sg_readcap on each LUN's generic node and the LUN's block or tape name from sysfs. Prints
# one line per LUN: H:C:T:L, vendor, product, revision, blocks x block size, device name.
#   sg_pipeline.sh H
set -u
h=$1
for t0 in /sys/class/scsi_device/"$h":0:*:0; do
  [ -e "$t0" ] || continue
  hct=${t0##*/}
  hct=${hct%:0}
  sg0=("$t0"/device/scsi_generic/*)
  sg0=${sg0[0]##*/}
  for wire in $(sg_luns -q "/dev/$sg0"); do
    lun=$(( (16#${wire:0:2} << 8) | 16#${wire:2:2} ))
    dev=/sys/class/scsi_device/$hct:$lun/device
    sg=("$dev"/scsi_generic/*)
    [ -e "${sg[0]}" ] && sg=${sg[0]##*/} || sg=$sg0
    vendor= product= rev=
    while IFS=: read -r key val; do
      case $key in
        *"Vendor identification") vendor=${val# } ;;
        *"Product identification") product=${val# } ;;
        *"Product revision level") rev=${val# } ;;
      esac
    done < <(sg_inq -o "/dev/$sg")
    size=-
    while read -r line; do size=$line; done < <(sg_readcap -b "/dev/$sg" 2>/dev/null)  # last line
    name=-
    disk=("$dev"/block/*)
    if [ -e "${disk[0]}" ]; then
      name=/dev/${disk[0]##*/}
    elif [ -L "$dev/tape" ]; then
      tape=$(readlink "$dev/tape")
      name=/dev/${tape##*/}
    fi
    echo "$hct:$lun $vendor $product $rev $size $name"
  done
done
