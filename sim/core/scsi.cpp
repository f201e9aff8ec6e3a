// The kernel's view of the SCSI devices behind the emulated remote ports, and the targets'
// answers to SCSI commands.
#include "scsi.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>
#include <tuple>

namespace kvosim {

uint32_t linux_lun(uint64_t lun) {
    return lun < 256 ? static_cast<uint32_t>(lun) : 0x4000u | static_cast<uint32_t>(lun & 0x3FFF);
}

std::array<uint8_t, 8> lun_wire(uint64_t lun) {
    const uint32_t l = linux_lun(lun);
    return {static_cast<uint8_t>(l >> 8), static_cast<uint8_t>(l), 0, 0, 0, 0, 0, 0};
}

int peripheral_type(const std::string& type) {
    if (type == "tape") return 1;
    if (type == "changer") return 8;
    if (type == "enclosure") return 0xd;
    if (type == "raid") return 0xc;
    if (type == "cdrom") return 5;
    return 0;
}

const char* upper_driver(const std::string& type) {
    if (type == "disk") return "sd";
    if (type == "cdrom") return "sr";
    if (type == "tape") return "st";
    return "";
}

std::string disk_name(const std::string& prefix, int index) {
    if (prefix != "sd") return prefix + std::to_string(index);
    // Bijective base 26, as the sd driver names its disks.
    std::string s;
    long n = index;
    do {
        s.insert(s.begin(), static_cast<char>('a' + n % 26));
        n = n / 26 - 1;
    } while (n >= 0);
    return prefix + s;
}

namespace {

bool all_digits(const std::string& s, size_t from, unsigned& v) {
    if (s.size() <= from || s.size() > from + 6) return false;
    v = 0;
    for (size_t i = from; i < s.size(); i++) {
        if (s[i] < '0' || s[i] > '9') return false;
        v = v * 10 + static_cast<unsigned>(s[i] - '0');
    }
    return true;
}

}  // namespace

bool scsi_node_number(const std::string& name, bool& block, unsigned& major, unsigned& minor) {
    unsigned n = 0;
    block = false;
    if (name.rfind("sg", 0) == 0 && all_digits(name, 2, n)) {
        major = 21;
        minor = n;
        return true;
    }
    if (name.rfind("nst", 0) == 0 && all_digits(name, 3, n)) {
        major = 9;
        minor = 128 + n;
        return true;
    }
    if (name.rfind("st", 0) == 0 && all_digits(name, 2, n)) {
        major = 9;
        minor = n;
        return true;
    }
    block = true;
    if (name.rfind("sr", 0) == 0 && all_digits(name, 2, n)) {
        major = 11;
        minor = n;
        return true;
    }
    if (name.rfind("sd", 0) != 0 || name.size() < 3 || name.size() > 6) return false;
    // Inverse of disk_name: bijective base 26.
    long idx = 0;
    for (size_t i = 2; i < name.size(); i++) {
        if (name[i] < 'a' || name[i] > 'z') return false;
        idx = idx * 26 + (name[i] - 'a' + 1);
    }
    const unsigned i = static_cast<unsigned>(idx - 1);
    // 16 minors per disk over majors 8, 65-71, 128-135, then the extended minors.
    const unsigned m = (i & 0xF0) >> 4;
    major = m == 0 ? 8 : m < 8 ? 64 + m : 128 + m - 8;
    minor = (i & 0xF) << 4 | (i & 0xFFF00) << 12;
    return true;
}

std::string ScsiDev::hctl() const {
    char b[48];
    snprintf(b, sizeof b, "%d:0:%u:%u", host, target, hlun);
    return b;
}

bool host_registered(const Host& h, const Function& f) {
    if (f.driver != Driver::kvo || f.host < 0) return false;
    for (const Fault& x : h.faults)
        if (x.kind == "nohost" && x.path == f.pci) return false;
    return true;
}

std::vector<ScsiDev> scsi_devices(Host& h, bool present_only) {
    std::vector<ScsiDev> out;
    for (Adapter& a : h.adapters)
        for (Port& p : a.ports)
            for (Function& f : p.functions) {
                if (!host_registered(h, f)) continue;
                for (RemotePort& rp : f.rports) {
                    if (rp.role != "target") continue;
                    for (Lun& l : rp.luns) {
                        if (present_only && !l.present) continue;
                        out.push_back(ScsiDev{&f, &rp, &l, f.host, rp.target, linux_lun(l.lun)});
                    }
                }
            }
    std::sort(out.begin(), out.end(), [](const ScsiDev& a, const ScsiDev& b) {
        return std::tie(a.host, a.target, a.hlun) < std::tie(b.host, b.target, b.hlun);
    });
    return out;
}

namespace {

int lowest_free(const std::set<int>& used) {
    int n = 0;
    for (int u : used) {
        if (u != n) break;
        n++;
    }
    return n;
}

}  // namespace

bool assign_scsi_names(Host& h) {
    std::vector<ScsiDev> devs = scsi_devices(h, false);
    std::set<int> sg;
    std::set<int> upper[3];  // sd, sr, st
    auto space = [](const Lun& l) -> int {
        std::string u = upper_driver(l.type);
        return u == "sd" ? 0 : u == "sr" ? 1 : u == "st" ? 2 : -1;
    };
    bool changed = false;
    for (ScsiDev& d : devs) {
        Lun& l = *d.lun;
        if (!l.present || l.no_sg) {
            changed |= l.sg >= 0;
            l.sg = -1;
        }
        if (!l.present || space(l) < 0) {
            changed |= l.dev >= 0;
            l.dev = -1;
        }
        if (l.sg >= 0) sg.insert(l.sg);
        if (l.dev >= 0) upper[space(l)].insert(l.dev);
    }
    for (ScsiDev& d : devs) {
        Lun& l = *d.lun;
        if (!l.present) continue;
        if (l.sg < 0 && !l.no_sg) {
            l.sg = lowest_free(sg);
            sg.insert(l.sg);
            changed = true;
        }
        if (l.dev < 0 && space(l) >= 0) {
            l.dev = lowest_free(upper[space(l)]);
            upper[space(l)].insert(l.dev);
            changed = true;
        }
    }
    return changed;
}

bool lun_visible(const Function& f, const RemotePort& rp, const Lun& l) {
    if (l.lun == 0) return true;
    auto m = f.ext.find("lunmask");
    if (m == f.ext.end() || !m->is_object() || m->value("status", 0) != 1) return true;
    auto es = m->find("entries");
    if (es == m->end() || !es->is_array()) return false;
    char lun[24];
    const auto w = lun_wire(l.lun);
    snprintf(lun, sizeof lun, "%02x%02x-%02x%02x-%02x%02x-%02x%02x", w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
    const std::string lp = wwn_str(f.pwwn), r = wwn_str(rp.pwwn);
    for (const json& e : *es)
        if (e.is_object() && e.value("lp", "") == lp && e.value("rp", "") == r && e.value("lun", "") == lun) return true;
    return false;
}

// ---- the targets' answers ----------------------------------------------------------------

std::vector<uint8_t> fixed_sense(const Sense& s) {
    std::vector<uint8_t> b(18, 0);
    b[0] = 0x70;
    b[2] = s.key;
    b[7] = 10;  // additional sense length
    b[12] = s.asc;
    b[13] = s.ascq;
    return b;
}

std::string opcode_name(const uint8_t* cdb, size_t len) {
    if (len == 0) return "none";
    switch (cdb[0]) {
    case 0x00: return "TEST_UNIT_READY";
    case 0x12: return "INQUIRY";
    case 0x25: return "READ_CAPACITY_10";
    case 0x28: return "READ_10";
    case 0xA0: return "REPORT_LUNS";
    case 0x9E: return len > 1 && (cdb[1] & 0x1F) == 0x10 ? "READ_CAPACITY_16" : "SERVICE_ACTION_IN_16";
    default: break;
    }
    char b[8];
    snprintf(b, sizeof b, "0x%02x", cdb[0]);
    return b;
}

namespace {

uint32_t be(const uint8_t* p, int n) {
    uint32_t v = 0;
    for (int i = 0; i < n; i++) v = v << 8 | p[i];
    return v;
}

}  // namespace

long allocation_length(const uint8_t* cdb, size_t len) {
    if (len >= 6 && cdb[0] == 0x12) return be(cdb + 3, 2);
    if (len >= 12 && cdb[0] == 0xA0) return be(cdb + 6, 4);
    if (len >= 16 && cdb[0] == 0x9E && (cdb[1] & 0x1F) == 0x10) return be(cdb + 10, 4);
    return -1;
}

namespace {

constexpr uint8_t kGood = 0, kCheck = 2;
constexpr uint8_t kNotReady = 0x02, kIllegal = 0x05;
constexpr uint8_t kAscLbaRange = 0x21, kAscInvalidOp = 0x20, kAscInvalidField = 0x24, kAscNoLun = 0x25,
                  kAscNoMedium = 0x3A;

ScsiAnswer check(uint8_t key, uint8_t asc, uint8_t ascq = 0) {
    ScsiAnswer a;
    a.status = kCheck;
    a.sense = {key, asc, ascq};
    return a;
}

void put_be(std::vector<uint8_t>& b, size_t at, uint64_t v, int n) {
    for (int i = 0; i < n; i++) b[at + i] = static_cast<uint8_t>(v >> (8 * (n - 1 - i)));
}

void put_padded(std::vector<uint8_t>& b, size_t at, const std::string& s, size_t n) {
    for (size_t i = 0; i < n; i++) b[at + i] = i < s.size() ? static_cast<uint8_t>(s[i]) : ' ';
}

void cut(std::vector<uint8_t>& d, size_t alloc) {
    if (d.size() > alloc) d.resize(alloc);
}

std::string serial_of(const TargetView& t) {
    if (!t.lun->serial.empty()) return t.lun->serial;
    char b[32];
    snprintf(b, sizeof b, "TV%08X%04X", static_cast<unsigned>(t.rp->pwwn & 0xFFFFFFFF),
             static_cast<unsigned>(t.lun->lun));
    return b;
}

ScsiAnswer inquiry(const TargetView& t, const uint8_t* cdb) {
    const size_t alloc = be(cdb + 3, 2);
    if (cdb[1] & 0x02) return check(kIllegal, kAscInvalidField);  // CmdDt is obsolete
    ScsiAnswer a;
    if (!(cdb[1] & 0x01)) {
        if (cdb[2] != 0) return check(kIllegal, kAscInvalidField);
        std::vector<uint8_t>& d = a.data;
        d.assign(36, 0);
        if (t.absent) {
            d[0] = 0x7F;  // peripheral qualifier 3: no logical unit here
        } else {
            const Lun& l = *t.lun;
            d[0] = static_cast<uint8_t>(peripheral_type(l.type));
            d[1] = l.type == "tape" || l.type == "cdrom" ? 0x80 : 0;  // removable medium
        }
        d[2] = 0x06;  // SPC-4
        d[3] = 0x12;  // HiSup, response data format 2
        d[4] = 31;    // additional length
        d[7] = 0x02;  // CmdQue
        if (!t.absent) {
            put_padded(d, 8, t.lun->vendor, 8);
            put_padded(d, 16, t.lun->product, 16);
            put_padded(d, 32, t.lun->rev, 4);
        }
        cut(d, alloc);
        return a;
    }
    if (t.absent) return check(kIllegal, kAscNoLun);
    std::vector<uint8_t>& d = a.data;
    const uint8_t pt = static_cast<uint8_t>(peripheral_type(t.lun->type));
    switch (cdb[2]) {
    case 0x00:  // supported pages
        d = {pt, 0x00, 0x00, 3, 0x00, 0x80, 0x83};
        break;
    case 0x80: {  // unit serial number
        const std::string s = serial_of(t);
        d.assign(4 + s.size(), 0);
        d[0] = pt;
        d[1] = 0x80;
        put_be(d, 2, s.size(), 2);
        put_padded(d, 4, s, s.size());
        break;
    }
    case 0x83: {  // device identification: one NAA 6 designator of the logical unit
        d.assign(4 + 4 + 16, 0);
        d[0] = pt;
        d[1] = 0x83;
        put_be(d, 2, 20, 2);
        d[4] = 0x01;  // binary
        d[5] = 0x03;  // associated with the LU, NAA
        d[7] = 16;
        const uint64_t hi = 0x600e1f2000000000ULL | (t.rp->pwwn & 0xFFFFFFFFFULL);
        put_be(d, 8, hi, 8);
        put_be(d, 16, t.lun->lun, 8);
        break;
    }
    default: return check(kIllegal, kAscInvalidField);
    }
    cut(d, alloc);
    return a;
}

bool has_capacity(const Lun& l) { return l.type == "disk" || l.type == "cdrom"; }

ScsiAnswer read_capacity(const TargetView& t, const uint8_t* cdb, bool sixteen) {
    const Lun& l = *t.lun;
    if (!has_capacity(l)) return check(kIllegal, kAscInvalidOp);
    if (sixteen && (cdb[1] & 0x1F) != 0x10) return check(kIllegal, kAscInvalidField);
    if (l.blocks == 0) return check(kNotReady, kAscNoMedium);
    const uint64_t last = l.blocks - 1;
    ScsiAnswer a;
    if (!sixteen) {
        a.data.assign(8, 0);
        put_be(a.data, 0, last > 0xFFFFFFFEULL ? 0xFFFFFFFFULL : last, 4);
        put_be(a.data, 4, l.block_size, 4);
        return a;
    }
    a.data.assign(32, 0);
    put_be(a.data, 0, last, 8);
    put_be(a.data, 8, l.block_size, 4);
    cut(a.data, be(cdb + 10, 4));
    return a;
}

ScsiAnswer report_luns(const TargetView& t, const uint8_t* cdb) {
    const uint32_t alloc = be(cdb + 6, 4);
    if (alloc < 4 || cdb[2] > 2) return check(kIllegal, kAscInvalidField);
    std::vector<uint64_t> luns;
    if (cdb[2] != 1)  // select report 1 lists well-known LUNs only: there are none
        for (const Lun& l : t.rp->luns) luns.push_back(l.lun);
    std::sort(luns.begin(), luns.end());
    ScsiAnswer a;
    // The list length is the whole list's, however little of it fits the allocation length.
    const size_t full = 8 + 8 * luns.size();
    a.data.assign(std::min<size_t>(full, alloc), 0);
    std::vector<uint8_t> head(8, 0);
    put_be(head, 0, 8 * luns.size(), 4);
    for (size_t i = 0; i < a.data.size() && i < 8; i++) a.data[i] = head[i];
    for (size_t k = 0; k < luns.size(); k++) {
        const auto w = lun_wire(luns[k]);
        for (size_t i = 0; i < 8; i++) {
            size_t at = 8 + 8 * k + i;
            if (at >= a.data.size()) return a;
            a.data[at] = w[i];
        }
    }
    return a;
}

ScsiAnswer read10(const TargetView& t, const uint8_t* cdb, uint32_t max_in) {
    const Lun& l = *t.lun;
    if (!has_capacity(l)) return check(kIllegal, kAscInvalidOp);
    if (l.blocks == 0) return check(kNotReady, kAscNoMedium);
    const uint64_t lba = be(cdb + 2, 4);
    const uint64_t n = be(cdb + 7, 2);
    if (lba + n > l.blocks) return check(kIllegal, kAscLbaRange);
    ScsiAnswer a;
    // Each block starts with its own LBA (big-endian, 8 bytes); the rest is zero.
    const uint64_t bytes = std::min<uint64_t>(n * l.block_size, max_in);
    a.data.assign(bytes, 0);
    for (uint64_t b = 0; b < n; b++) {
        const uint64_t at = b * l.block_size;
        if (at >= bytes) break;
        for (int i = 0; i < 8 && at + i < bytes; i++) a.data[at + i] = static_cast<uint8_t>((lba + b) >> (56 - 8 * i));
    }
    return a;
}

}  // namespace

ScsiAnswer scsi_execute(const TargetView& t, const uint8_t* cdb, size_t len, uint32_t max_in) {
    if (len < 6) return check(kIllegal, kAscInvalidOp);
    const uint8_t op = cdb[0];
    // The command's own length (group code): a CDB shorter than its opcode needs is refused.
    const size_t need = op < 0x20 ? 6 : op < 0x60 ? 10 : op >= 0xA0 && op < 0xC0 ? 12 : op >= 0x80 && op < 0xA0 ? 16 : 6;
    if (len < need) return check(kIllegal, kAscInvalidField);
    if (op == 0x12) return inquiry(t, cdb);
    if (op == 0xA0) return report_luns(t, cdb);
    if (t.absent) return check(kIllegal, kAscNoLun);
    ScsiAnswer a;
    switch (op) {
    case 0x00: return a;
    case 0x25: return read_capacity(t, cdb, false);
    case 0x9E:
        if ((cdb[1] & 0x1F) == 0x10) return read_capacity(t, cdb, true);
        return check(kIllegal, kAscInvalidField);
    case 0x28: return read10(t, cdb, max_in);
    default: return check(kIllegal, kAscInvalidOp);
    }
}

}  // namespace kvosim
