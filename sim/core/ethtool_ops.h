#pragma once
// Between the emulated kernel's ethtool layer (kernel_net.cpp) and the Ethernet driver's
// ethtool operations (drv_ethtool.cpp). The kernel layer copies requests in and out of the
// caller's memory, checks ranges and splits EEPROM transfers into pages; the driver sees only
// what a real driver's operations see: one interface and one kernel-side buffer at a time.
#include <linux/ethtool.h>

#include <cstdint>
#include <string>

#include "bed.h"

namespace kvosim {

// What the driver says about one call, for the log: a note, and whether the request was
// malformed (a BAD line) rather than merely failed.
struct DrvNote {
    std::string text;
    bool bad = false;
};

// An emulated network interface as the kernel hands it to its driver, for one request.
struct NetDev {
    State& st;
    std::string ifname;
    FnRef fn;
    // Driver-private: a flash write that arrives in pieces. It lives for one request: the host
    // software sends each write whole, in one request.
    struct EepromWrite {
        FlashPart* part = nullptr;  // set while a write is open
        uint32_t next = 0;          // EEPROM offset the next piece must start at
        uint32_t image_at = 0;      // where in the partition that piece's bytes go
        uint32_t announced = 0;     // the length word: bytes of the image
    } wr;
};

// The driver's operations; return 0 or a negative errno, as the kernel's do.
struct EthtoolOps {
    uint32_t (*get_eeprom_len)(NetDev& dev);
    int (*get_eeprom)(NetDev& dev, ethtool_eeprom& ee, uint8_t* data, DrvNote& note);
    int (*set_eeprom)(NetDev& dev, ethtool_eeprom& ee, const uint8_t* data, DrvNote& note);
    int (*flash_device)(NetDev& dev, const ethtool_flash& req, DrvNote& note);
    // Not a kernel hook: after each EEPROM write the emulator asks whether the driver was left
    // with a half-done transfer (a length word that promised more than came); "" when not.
    std::string (*unfinished)(NetDev& dev);
};

// The Ethernet (tqe) driver's operations.
const EthtoolOps& tqe_ethtool_ops();

}  // namespace kvosim
