// The fixed list of emulated paths. Everything under these prefixes lives in the bed's root/,
// so nothing a test runs can reach a real device or driver file of the machine.
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "bed.h"
#include "emu.h"

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
};

// Name prefixes directly in /dev: /dev/fc_host*, /dev/rport-*, /dev/sg*.
constexpr const char* dev_name_prefixes[] = {"/dev/fc_host", "/dev/rport-", "/dev/sg"};

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
    return false;
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
    else if (vpath.rfind("/dev/sg", 0) == 0) n.kind = NodeKind::sg;
    else if (vpath.rfind("/dev/bsg/", 0) == 0 && vpath.size() > 9) n.kind = NodeKind::sg;
    return n;
}

}  // namespace kvosim
