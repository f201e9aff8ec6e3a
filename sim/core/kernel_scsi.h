#pragma once
// Beds whose SCSI side is the real kernel's ("scsi": "kernel"): the SCSI classes, /sys/bus/scsi,
// /sys/block and the sg, sd, sr, st and nst nodes are the kernel's, the adapter and its driver
// stay emulated.
#include <cstdint>
#include <string>

#include "model.h"

namespace kvosim {

// A SCSI device's sysfs name H:C:T:L, as the kernel spells it.
struct KernelHctl {
    int host = 0;
    uint32_t channel = 0, target = 0;
    uint64_t lun = 0;
};
bool parse_hctl(const std::string& name, KernelHctl& out);

// Makes the model's SCSI side the kernel's whose sysfs is mounted at `sys` ("/sys"): the storage
// functions, in probe order, take the scsi_debug hosts in number order (more functions than
// hosts is an error); each function's remote ports become one target per SCSI target id of its
// host, with made-up names, listing the LUNs the kernel has (flat-space LUNs without their
// address method bits). False with `why` for a kernel the model cannot stand for.
bool adopt_kernel_scsi(Host& h, const std::string& sys, std::string& why);

}  // namespace kvosim
