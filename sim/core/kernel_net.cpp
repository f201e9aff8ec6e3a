// The emulated kernel's network side: socket ioctls that address a network interface, and the
// ethtool layer between such a request and the Ethernet driver. While a bed is active none of
// them reaches the machine: an interface the bed has is answered here, any other is refused.
//
// The ethtool layer does what the kernel's does before a driver sees anything: it copies the
// request from the caller, checks an EEPROM range against the driver's EEPROM length (EINVAL
// for an empty, wrapping or too long range), and hands the driver at most one page at a time
// with advancing offsets, copying each page to or from the caller. A read reports back how much
// was done; a write reports nothing.
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <vector>

#include "drv.h"
#include "emu.h"
#include "ethtool_ops.h"

namespace kvosim {

namespace {

constexpr uint32_t kPage = 4096;

std::string errno_text(int e) {
    const char* n = errno_name(e);
    return n ? std::string(n) : std::to_string(e);
}

// Logs one driver call as the driver saw it; returns its result.
int piece(NetDev& dev, const char* op, const ethtool_eeprom& ee, int rc, const DrvNote& note) {
    const std::string what = fmt("%s offset=0x%X len=%u", op, ee.offset, ee.len);
    if (note.bad) {
        append_log(dev.st.dir, "BAD tqe " + dev.ifname + " " + what + ": " + note.text);
        return rc;
    }
    const std::string tail = note.text.empty() ? "" : " (" + note.text + ")";
    append_log(dev.st.dir, "tqe " + dev.ifname + " " + what + " -> " + (rc == 0 ? "ok" : "errno=" + errno_text(-rc)) + tail);
    return rc;
}

int bad_request(NetDev& dev, const std::string& cmd, const std::string& why, int err) {
    append_log(dev.st.dir, "BAD ethtool " + dev.ifname + " " + cmd + ": " + why);
    return -err;
}

// The request's line once it is over: "ethtool <if> <CMD> <what> -> ok|errno=E (note)".
int request_done(NetDev& dev, const std::string& cmd, const std::string& what, int rc, const std::string& note) {
    const std::string tail = note.empty() ? "" : " (" + note + ")";
    append_log(dev.st.dir, "ethtool " + dev.ifname + " " + cmd + " " + what + " -> " +
                               (rc == 0 ? "ok" : "errno=" + errno_text(-rc)) + tail);
    return rc;
}

int flash_device(NetDev& dev, const EthtoolOps& ops, uint64_t useraddr) {
    ethtool_flash req;
    if (!read_user(&req, useraddr, sizeof req)) return bad_request(dev, "FLASHDEV", "request is not readable", EFAULT);
    req.data[ETHTOOL_FLASH_MAX_FILENAME - 1] = '\0';
    if (ops.flash_device == nullptr) return request_done(dev, "FLASHDEV", "", -EOPNOTSUPP, "");
    DrvNote note;
    int rc = ops.flash_device(dev, req, note);
    if (note.bad) return bad_request(dev, "FLASHDEV", note.text, -rc);
    return request_done(dev, "FLASHDEV", fmt("file=%s region=%u", req.data, req.region), rc, note.text);
}

// GEEPROM and SEEPROM.
int eeprom(NetDev& dev, const EthtoolOps& ops, uint64_t useraddr, bool write) {
    const std::string cmd = write ? "SEEPROM" : "GEEPROM";
    const uint32_t total = ops.get_eeprom_len ? ops.get_eeprom_len(dev) : 0;
    if ((write ? ops.set_eeprom == nullptr : ops.get_eeprom == nullptr) || total == 0)
        return request_done(dev, cmd, "", -EOPNOTSUPP, "no EEPROM");
    ethtool_eeprom ee;
    if (!read_user(&ee, useraddr, sizeof ee)) return bad_request(dev, cmd, "request is not readable", EFAULT);
    const std::string what = fmt("offset=0x%X len=%u", ee.offset, ee.len);
    // 32-bit arithmetic, as the kernel checks it: an empty range and one that wraps fail alike.
    if (static_cast<uint32_t>(ee.offset + ee.len) <= ee.offset)
        return bad_request(dev, cmd, what + ": empty or wrapping range", EINVAL);
    if (ee.offset + ee.len > total)
        return bad_request(dev, cmd, what + fmt(": beyond the EEPROM (%u bytes)", total), EINVAL);

    std::vector<uint8_t> page(kPage, 0);  // one zeroed page, reused for every piece
    uint64_t user = useraddr + sizeof ee;
    uint32_t left = ee.len;
    std::string note;  // the driver's word on the last piece, for the request's line
    int rc = 0;
    while (left > 0) {
        ee.len = std::min(left, kPage);
        DrvNote dn;
        if (write) {
            if (!read_user(page.data(), user, ee.len)) {
                rc = bad_request(dev, cmd, fmt("data at offset 0x%X is not readable", ee.offset), EFAULT);
                break;
            }
            rc = piece(dev, "set_eeprom", ee, ops.set_eeprom(dev, ee, page.data(), dn), dn);
        } else {
            const uint32_t asked = ee.len;
            rc = piece(dev, "get_eeprom", ee, ops.get_eeprom(dev, ee, page.data(), dn), dn);
            ee.len = std::min(ee.len, asked);
            if (rc == 0 && ee.len == 0) rc = -EIO;
            if (rc == 0 && !write_user(user, page.data(), ee.len))
                rc = bad_request(dev, cmd, fmt("data buffer at offset 0x%X is not writable", ee.offset), EFAULT);
        }
        note = dn.text;
        if (rc != 0) break;
        user += ee.len;
        ee.offset += ee.len;
        left -= ee.len;
    }
    if (!write) {
        // The caller learns how much was read, from where, and the driver's magic.
        ee.len = static_cast<uint32_t>(user - (useraddr + sizeof ee));
        ee.offset -= ee.len;
        if (!write_user(useraddr, &ee, sizeof ee) && rc == 0) rc = -EFAULT;
    } else if (rc == 0 && ops.unfinished != nullptr) {
        // The kernel and the driver took every piece; the emulator still flags a write whose
        // length word promised more than the request brought.
        const std::string why = ops.unfinished(dev);
        if (!why.empty()) bad_request(dev, cmd, what + ": " + why, EINVAL);
    }
    return request_done(dev, cmd, what, rc, note);
}

// The kernel's ethtool entry for one interface of the bed.
int dev_ethtool(NetDev& dev, uint64_t useraddr) {
    const EthtoolOps& ops = tqe_ethtool_ops();
    uint32_t cmd = 0;
    if (!read_user(&cmd, useraddr, sizeof cmd)) {
        append_log(dev.st.dir, "BAD ethtool " + dev.ifname + " ifr_data is not readable");
        return -EFAULT;
    }
    switch (cmd) {
    case ETHTOOL_FLASHDEV: return flash_device(dev, ops, useraddr);
    case ETHTOOL_GEEPROM: return eeprom(dev, ops, useraddr, false);
    case ETHTOOL_SEEPROM: return eeprom(dev, ops, useraddr, true);
    default:
        append_log(dev.st.dir, fmt("UNHANDLED ethtool %s command %u -> errno=EOPNOTSUPP", dev.ifname.c_str(), cmd));
        return -EOPNOTSUPP;
    }
}

// The interface a request names, when its first bytes are an interface name; "" otherwise.
std::string named_interface(uint64_t addr) {
    char name[IFNAMSIZ];
    if (!read_user(name, addr, sizeof name) || memchr(name, 0, sizeof name) == nullptr || name[0] == '\0') return "";
    for (const char* p = name; *p != '\0'; ++p)
        if (*p <= ' ' || *p > '~' || *p == '/') return "";
    return name;
}

std::string request_text(unsigned long request) {
    return request == SIOCETHTOOL ? "SIOCETHTOOL" : fmt("ioctl 0x%04lx", request);
}

}  // namespace

bool netdev_request(unsigned long request) {
    // Routing, interface, ARP, bridge, bonding, VLAN and device-private requests, and the
    // wireless ones; a socket's own requests (owner, timestamps, queue sizes) are not among them.
    if (request == SIOCOUTQNSD || request == SIOCGSKNS) return false;
    return (request >= SIOCADDRT && request <= 0x89FF) || (request >= 0x8B00 && request <= 0x8BFF);
}

int net_ioctl(unsigned long request, void* arg) try {
    const uint64_t addr = reinterpret_cast<uintptr_t>(arg);
    const std::string ifname = named_interface(addr);
    int rc = -ENODEV;
    std::string why;
    bool ok = with_state(env_bed(), [&](State& st) {
        FnRef f = ifname.empty() ? FnRef{nullptr, nullptr, nullptr} : st.by_eth_name(ifname);
        if (f.fn == nullptr) {
            append_log(st.dir, "BAD host " + (ifname.empty() ? std::string("socket") : ifname) + " " +
                                   request_text(request) + " -> errno=ENODEV (" +
                                   (ifname.empty() ? "network configuration of the machine" : "not an interface of the bed") +
                                   ")");
            rc = -ENODEV;
            return;
        }
        if (request != SIOCETHTOOL) {
            append_log(st.dir, "UNHANDLED net " + ifname + " " + request_text(request) + " -> errno=EOPNOTSUPP");
            rc = -EOPNOTSUPP;
            return;
        }
        ifreq ifr;
        if (!read_user(&ifr, addr, sizeof ifr)) {
            append_log(st.dir, "BAD ethtool " + ifname + " ifreq is not readable");
            rc = -EFAULT;
            return;
        }
        NetDev dev{st, ifname, f, {}};
        rc = dev_ethtool(dev, reinterpret_cast<uintptr_t>(ifr.ifr_data));
    }, &why);
    if (!ok) {
        // No bed to answer from: still nothing reaches the machine.
        if (!env_bed().empty()) append_log(env_bed(), "BAD sim: " + why);
        rc = -ENODEV;
    }
    if (rc == 0) return 0;
    errno = -rc;
    return -1;
} catch (const std::exception& e) {
    if (!env_bed().empty()) append_log(env_bed(), std::string("BAD sim: network ioctl: ") + e.what());
    errno = EIO;
    return -1;
}

}  // namespace kvosim
