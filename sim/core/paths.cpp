// The fixed list of emulated paths. Everything under these prefixes lives in the bed's root/,
// so nothing a test runs can reach a real device or driver file of the machine.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "bed.h"
#include "emu.h"
#include "scsi.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace kvosim {

bool normalise_path(const char* path, std::string& out) {
    if (path == nullptr || path[0] != '/') return false;
    std::vector<std::string_view> parts;
    std::string_view p(path);
    size_t i = 0;
    while (i < p.size()) {
        while (i < p.size() && p[i] == '/') i++;
        size_t j = i;
        while (j < p.size() && p[j] != '/') j++;
        std::string_view comp = p.substr(i, j - i);
        if (comp.empty() || comp == ".") {
        } else if (comp == "..") {
            if (!parts.empty()) parts.pop_back();
        } else {
            parts.push_back(comp);
        }
        i = j;
    }
    std::string r;
    r.reserve(p.size() + 1);
    for (std::string_view c : parts) {
        r.push_back('/');
        r.append(c.data(), c.size());
    }
    if (r.empty() || p.back() == '/') r.push_back('/');
    out.swap(r);
    return true;
}

namespace {

// Directory prefixes: the path itself or anything below it.
constexpr const char* dir_prefixes[] = {
    "/sys/bus/pci/drivers/kvo", "/sys/bus/pci/drivers/tqe", "/sys/class/scsi_device",
    "/sys/class/scsi_host",     "/sys/class/fc_host",       "/sys/kernel/debug",
    "/dev/kvo",                 "/dev/tqe",                 "/dev/kvoipfc",
    "/dev/bsg",                 "/etc/kvo.conf",            "/lib/firmware",
    // What the SCSI mid-layer, its upper-level drivers and the FC transport show.
    "/sys/bus/scsi",            "/sys/class/scsi_generic",  "/sys/class/scsi_disk",
    "/sys/class/scsi_tape",     "/sys/block",               "/sys/class/fc_remote_ports",
    "/sys/class/fc_transport",
};

// Name prefixes directly in /dev: /dev/fc_host*, /dev/rport-*, /dev/sg*.
constexpr const char* dev_name_prefixes[] = {"/dev/fc_host", "/dev/rport-", "/dev/sg"};

// The SCSI disk, CD-ROM and tape nodes: /dev/sd<letters>[<partition>], /dev/sr<n>,
// /dev/st<n>[lma], /dev/nst<n>[lma]. Not /dev/stdin, /dev/stdout, /dev/stderr.
bool scsi_block_or_tape(std::string_view p) {
    if (p.compare(0, 5, "/dev/") != 0 || p.find('/', 5) != std::string_view::npos) return false;
    std::string_view n = p.substr(5);
    auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    auto is_lower = [](char c) { return c >= 'a' && c <= 'z'; };
    if (n.size() > 2 && n.compare(0, 2, "sd") == 0) return is_lower(n[2]);
    if (n.size() > 2 && (n.compare(0, 2, "sr") == 0 || n.compare(0, 2, "st") == 0)) return is_digit(n[2]);
    if (n.size() > 3 && n.compare(0, 3, "nst") == 0) return is_digit(n[3]);
    return false;
}

bool under(std::string_view path, std::string_view dir) {
    if (path.size() < dir.size() || path.compare(0, dir.size(), dir) != 0) return false;
    return path.size() == dir.size() || path[dir.size()] == '/';
}

}  // namespace

bool emulated_path(const std::string& vpath) {
    for (const char* d : dir_prefixes)
        if (under(vpath, d)) return true;
    for (const char* d : dev_name_prefixes)
        if (vpath.compare(0, strlen(d), d) == 0) return true;
    return scsi_block_or_tape(vpath);
}

bool kernel_scsi_path(const std::string& vpath) {
    static const char* const kernel_dirs[] = {"/sys/class/scsi_device", "/sys/class/scsi_host", "/sys/class/scsi_generic",
                                              "/sys/class/scsi_disk",   "/sys/class/scsi_tape", "/sys/bus/scsi",
                                              "/sys/block"};
    for (const char* d : kernel_dirs)
        if (under(vpath, d)) return true;
    return vpath.compare(0, 7, "/dev/sg") == 0 || scsi_block_or_tape(vpath);
}

bool scsi_generic_request(unsigned long request) {
    return (request & ~0xFFul) == 0x2200 || (request >= 0x5380 && request <= 0x538F);
}

bool sysfs_path(const std::string& vpath) {
    return under(vpath, "/sys") && !under(vpath, "/sys/kernel/debug");
}

std::string bed_file(const std::string& vpath) {
    const std::string& bed = env_bed();
    if (bed.empty()) return std::string();
    return bed + "/root" + vpath;
}

std::string virtual_of(const std::string& real) {
    const std::string& bed = env_bed();
    if (bed.empty()) return std::string();
    const std::string root = bed + "/root";
    if (!under(real, root)) return std::string();
    std::string v = real.substr(root.size());
    return v.empty() ? "/" : v;
}

bool node_identity(const std::string& vpath, mode_t& type, dev_t& rdev) {
    if (vpath.rfind("/dev/", 0) != 0 || vpath.find('/', 5) != std::string::npos) return false;
    bool block = false;
    unsigned major = 0, minor = 0;
    if (!scsi_node_number(vpath.substr(5), block, major, minor)) return false;
    type = block ? S_IFBLK : S_IFCHR;
    rdev = makedev(major, minor);
    return true;
}

NodeRef classify_node(const std::string& vpath) {
    NodeRef n;
    n.path = vpath;
    auto number_after = [&](const char* prefix, int& out) {
        size_t l = strlen(prefix);
        if (vpath.compare(0, l, prefix) != 0 || vpath.size() == l || vpath.size() > l + 9) return false;
        for (size_t i = l; i < vpath.size(); i++)
            if (vpath[i] < '0' || vpath[i] > '9') return false;
        out = atoi(vpath.c_str() + l);
        return true;
    };
    if (vpath == "/dev/kvo") n.kind = NodeKind::kvo;
    else if (vpath == "/dev/tqe") n.kind = NodeKind::tqe;
    else if (vpath == "/dev/kvoipfc") n.kind = NodeKind::ipfc;
    else if (number_after("/dev/bsg/fc_host", n.host)) n.kind = NodeKind::bsg_host;
    else if (number_after("/dev/fc_host", n.host)) n.kind = NodeKind::fc_host;
    else if (vpath.rfind("/dev/bsg/rport-", 0) == 0) n.kind = NodeKind::bsg_rport;
    else if (vpath.rfind("/dev/rport-", 0) == 0) n.kind = NodeKind::rport;
    else if (vpath.rfind("/dev/sg", 0) == 0 || scsi_block_or_tape(vpath)) n.kind = NodeKind::scsi;
    else if (vpath.rfind("/dev/bsg/", 0) == 0 && vpath.size() > 9) n.kind = NodeKind::sg;
    if (n.kind == NodeKind::bsg_rport || n.kind == NodeKind::rport) {
        // rport-H:C-N
        unsigned h = 0, c = 0, r = 0;
        int end = 0;
        const char* name = vpath.c_str() + vpath.rfind('/') + 1;
        if (sscanf(name, "rport-%u:%u-%u%n", &h, &c, &r, &end) == 3 && name[end] == '\0' && c == 0 &&
            h <= 0xFFFFFF && r <= 0xFFFFFF) {
            n.host = static_cast<int>(h);
            n.rport = static_cast<int>(r);
        }
    }
    return n;
}

}  // namespace kvosim
