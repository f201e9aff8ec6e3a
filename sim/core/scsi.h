#pragma once
// The SCSI side of the emulated host: the kernel's view of the LUNs behind each target remote
// port (scsi_device entries and the names of their sg, sd, sr and st nodes), and the targets'
// answers to SCSI commands. The command emulation is pure (no bed, no caller memory), so it is
// unit-tested on its own; drv_scsi.cpp carries it over SG_IO.
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "model.h"

namespace kvosim {

// The LUN as the kernel numbers it (H:C:T:L): the first level of the 8-byte LUN read as
// (byte0 << 8) | byte1, the address method bits kept. A LUN below 256 uses peripheral device
// addressing (the same number); 256..16383 uses flat space (0x4000 | lun).
uint32_t linux_lun(uint64_t lun);
// The 8-byte LUN in wire order, as REPORT LUNS lists it.
std::array<uint8_t, 8> lun_wire(uint64_t lun);

// SCSI peripheral device type of a model LUN type (0 disk, 1 tape, 8 changer, 0xd enclosure,
// 0xc raid, 5 cdrom).
int peripheral_type(const std::string& type);
// Name space of the upper-level driver node: "sd", "sr", "st" or "" (sg only).
const char* upper_driver(const std::string& type);
// The kernel's disk names: 0 sda, 25 sdz, 26 sdaa, 701 sdzz, 702 sdaaa.
std::string disk_name(const std::string& prefix, int index);

// The device number of a SCSI node name ("sg3", "sdb", "sr0", "st0", "nst0"), as the sg, sd, sr
// and st drivers give them; false for any other name. `block` tells block from character nodes.
bool scsi_node_number(const std::string& name, bool& block, unsigned& major, unsigned& minor);

// One scsi_device of the host, with everything the emulated sysfs and nodes need.
struct ScsiDev {
    Function* fn = nullptr;
    RemotePort* rp = nullptr;
    Lun* lun = nullptr;
    int host = 0;
    uint32_t target = 0;
    uint32_t hlun = 0;  // linux_lun
    std::string hctl() const;
};

// Whether the function's host registered (a nohost fault says it did not).
bool host_registered(const Host& h, const Function& f);
// Every LUN of every target remote port of a registered storage host, in H:C:T:L order;
// `present_only` keeps those with a scsi_device.
std::vector<ScsiDev> scsi_devices(Host& h, bool present_only);

// Names for the present LUNs that have none, in H:C:T:L order, each the lowest free number
// of its name space (as the kernel's sg and sd index allocators do); a LUN that is not present
// keeps none. Returns true when a name changed.
bool assign_scsi_names(Host& h);

// The driver's LUN masking: whether the function's host may see the LUN of that remote port
// (LUN 0 always; with masking enabled only the LUNs in the function's mask table).
bool lun_visible(const Function& f, const RemotePort& rp, const Lun& l);

// ---- the targets' answers ----------------------------------------------------------------

struct Sense {
    uint8_t key = 0, asc = 0, ascq = 0;
};

struct ScsiAnswer {
    uint8_t status = 0;         // 0 GOOD, 2 CHECK CONDITION
    std::vector<uint8_t> data;  // data-in, already cut to the allocation length
    Sense sense;                // with CHECK CONDITION
};

// What the target answers.
struct TargetView {
    const RemotePort* rp = nullptr;
    const Lun* lun = nullptr;   // the addressed LUN
    bool absent = false;        // the LUN is not there (or the driver masks it)
};

// Fixed-format sense data (18 bytes, response code 0x70).
std::vector<uint8_t> fixed_sense(const Sense& s);
// Name of an opcode for the log ("INQUIRY", "READ_CAPACITY_16", "0xd7").
std::string opcode_name(const uint8_t* cdb, size_t len);
// The allocation length of the commands that carry one (INQUIRY, REPORT LUNS, READ
// CAPACITY(16)) in a CDB of `len` bytes; -1 for the others.
long allocation_length(const uint8_t* cdb, size_t len);
// The target's answer to a CDB of `len` bytes; data-in at most `max_in` bytes (the caller's
// transfer length; READ(10) stops there).
ScsiAnswer scsi_execute(const TargetView& t, const uint8_t* cdb, size_t len, uint32_t max_in);

}  // namespace kvosim
