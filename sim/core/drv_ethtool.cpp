// The Ethernet driver's ethtool requests on an emulated interface: flash a firmware file from
// the firmware directory, and read or write the flash image as the interface's EEPROM.
#include <linux/ethtool.h>
#include <net/if.h>

#include <cerrno>
#include <cstdarg>
#include <cinttypes>
#include <cstdio>
#include <vector>

#include "drv.h"
#include "emu.h"
#include "flash.h"

namespace kvosim {

namespace {

constexpr size_t kMaxEeprom = 64u << 20;

struct Ctx {
    State& st;
    std::string ifname;
    FnRef fn;
    std::string line;  // "ethtool <if> <CMD>"
};

int bad(Ctx& c, const std::string& why) {
    append_log(c.st.dir, "BAD ethtool " + c.ifname + " " + why);
    errno = EINVAL;
    return -1;
}

// Logs the outcome: "<line> <what> -> ok|errno=E[ (note)]".
int done(Ctx& c, const std::string& what, const std::string& note = "", int err = 0) {
    std::string tail = note.empty() ? "" : " (" + note + ")";
    if (err != 0) {
        const char* n = errno_name(err);
        append_log(c.st.dir, c.line + " " + what + " -> errno=" + (n ? n : std::to_string(err)) + tail);
        errno = err;
        return -1;
    }
    append_log(c.st.dir, c.line + " " + what + " -> ok" + tail);
    return 0;
}

int flashdev(Ctx& c, uint64_t addr) {
    c.line += " FLASHDEV";
    kvol_ethtool_flash req;
    if (!read_user(&req, addr, sizeof req)) return bad(c, "FLASHDEV: request is not readable");
    if (memchr(req.data, 0, sizeof req.data) == nullptr) return bad(c, "FLASHDEV: file name is not terminated");
    const std::string file = req.data;
    if (req.region != 2) return bad(c, fmt("FLASHDEV: region %u, expected 2 (firmware)", req.region));
    if (file.empty() || file.find('/') != std::string::npos || file == "." || file == "..")
        return bad(c, "FLASHDEV: \"" + file + "\" is not a file name in the firmware directory");
    const std::string what = "file=" + file + " region=2";
    std::string image;
    // The driver loads the file from the firmware directory (the bed's copy).
    if (!read_file(c.st.root() + "/lib/firmware/" + file, image)) return done(c, what, "", ENOENT);
    Adapter& a = *c.fn.adapter;
    FlashPart* p = flash_find(a, KVO_FLASH_PART_FWIMG, 0);
    if (p == nullptr) return done(c, what, "no firmware partition", ENODEV);
    std::string why;
    kvo_status_t s = flash_part_write(c.st.dir, a, *p, image.data(), image.size(), why);
    if (s == KVO_STATUS_FLASH_BAD_LEN) return done(c, what, why, EFBIG);
    if (s != KVO_STATUS_OK) return done(c, what, why, EIO);
    c.st.dirty = true;
    return done(c, what, fmt("%zu bytes", image.size()));
}

int eeprom(Ctx& c, uint64_t addr, bool write) {
    c.line += write ? " SEEPROM" : " GEEPROM";
    const char* cmd = write ? "SEEPROM" : "GEEPROM";
    ethtool_eeprom e;
    if (!read_user(&e, addr, sizeof e)) return bad(c, std::string(cmd) + ": request is not readable");
    Adapter& a = *c.fn.adapter;
    const uint32_t magic = static_cast<uint32_t>(a.device_id) << 16 | a.vendor_id;
    if (e.magic != magic) return bad(c, fmt("%s: magic 0x%08X, expected 0x%08X", cmd, e.magic, magic));
    if (e.len == 0 || e.len > kMaxEeprom) return bad(c, fmt("%s: length %u", cmd, e.len));
    if (uint64_t{e.offset} + e.len > a.flash_size)
        return bad(c, fmt("%s: offset 0x%X length %u leave the flash (%u bytes)", cmd, e.offset, e.len, a.flash_size));
    const uint64_t data_addr = addr + sizeof(ethtool_eeprom);
    std::vector<uint8_t> buf(e.len);
    std::string why;
    const std::string what = fmt("offset=0x%X len=%u", e.offset, e.len);
    if (!write) {
        if (!flash_read(c.st.dir, a, e.offset, buf.data(), buf.size(), why)) return done(c, what, why, EIO);
        if (!write_user(data_addr, buf.data(), buf.size())) return bad(c, "GEEPROM: data buffer is not writable");
        return done(c, what);
    }
    // A write carries the image length ahead of the image; the image belongs at the start of
    // the partition that follows that word (or at offset 0 for the first partition).
    if (!read_user(buf.data(), data_addr, buf.size())) return bad(c, "SEEPROM: data buffer is not readable");
    if (e.len < 4) return bad(c, fmt("SEEPROM: length %u has no room for the length word", e.len));
    uint32_t n;
    memcpy(&n, buf.data(), 4);
    if (n != e.len - 4) return bad(c, fmt("SEEPROM: length word %u, but %u data bytes follow", n, e.len - 4));
    const uint32_t start = e.offset == 0 ? 0 : e.offset + 4;
    FlashPart* p = flash_at(a, start);
    if (p == nullptr) return bad(c, fmt("SEEPROM: no partition starts at 0x%X", start));
    kvo_status_t s = flash_part_write(c.st.dir, a, *p, buf.data() + 4, n, why);
    if (s == KVO_STATUS_FLASH_BAD_LEN) return done(c, what, why, EFBIG);
    if (s != KVO_STATUS_OK) return done(c, what, why, EIO);
    c.st.dirty = true;
    return done(c, what, fmt("%u bytes to partition type %u", n, p->type));
}

}  // namespace

bool ethtool_ioctl(void* arg, int* rc) try {
    ifreq ifr;
    if (!read_user(&ifr, reinterpret_cast<uintptr_t>(arg), sizeof ifr)) return false;
    if (memchr(ifr.ifr_name, 0, sizeof ifr.ifr_name) == nullptr) return false;
    const std::string ifname = ifr.ifr_name;
    bool mine = false;
    int err = 0;
    with_state(env_bed(), [&](State& st) {
        FnRef f = st.by_eth_name(ifname);
        if (f.fn == nullptr) return;
        mine = true;
        Ctx c{st, ifname, f, "ethtool " + ifname};
        const uint64_t addr = reinterpret_cast<uintptr_t>(ifr.ifr_data);
        uint32_t cmd = 0;
        if (!read_user(&cmd, addr, sizeof cmd)) {
            *rc = bad(c, "ifr_data is not readable");
        } else if (cmd == KVO_ETHTOOL_FLASHDEV) {
            *rc = flashdev(c, addr);
        } else if (cmd == KVO_ETHTOOL_GEEPROM || cmd == KVO_ETHTOOL_SEEPROM) {
            *rc = eeprom(c, addr, cmd == KVO_ETHTOOL_SEEPROM);
        } else {
            append_log(st.dir, fmt("UNHANDLED ethtool %s command %u -> errno=EOPNOTSUPP", ifname.c_str(), cmd));
            errno = EOPNOTSUPP;
            *rc = -1;
        }
        err = errno;
    });
    if (mine) errno = err;
    return mine;
} catch (const std::exception& e) {
    if (!env_bed().empty()) append_log(env_bed(), std::string("BAD sim: ethtool: ") + e.what());
    errno = EIO;
    *rc = -1;
    return true;
}

}  // namespace kvosim
