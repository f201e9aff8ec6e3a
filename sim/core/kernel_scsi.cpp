// Beds whose SCSI side is the real kernel's (scsi_debug under a test kernel): at creation the
// model takes its SCSI hosts, targets and LUNs from the kernel's sysfs; afterwards the preload
// passes the SCSI paths through and lets the SCSI generic requests reach the real nodes of the
// bed's hosts, while the adapter and its driver stay emulated.
#include "kernel_scsi.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "bed.h"
#include "emu.h"
#include "scsi.h"

namespace kvosim {

namespace {

std::vector<std::string> entries(const std::string& dir) {
    std::vector<std::string> out;
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return out;
    while (dirent* e = readdir(d))
        if (e->d_name[0] != '.') out.push_back(e->d_name);
    closedir(d);
    return out;
}

// An attribute without its line end and trailing blanks (vendor and model come blank-padded);
// false when it cannot be read.
bool attribute(const std::string& path, std::string& out) {
    if (!read_file(path, out)) return false;
    while (!out.empty() && (out.back() == '\n' || out.back() == ' ')) out.pop_back();
    return true;
}

// "host12" -> 12.
bool host_number(const std::string& name, int& n) {
    unsigned v;
    if (name.size() > 14 || sscanf(name.c_str(), "host%u", &v) != 1 || v > INT_MAX) return false;
    n = static_cast<int>(v);
    return name == "host" + std::to_string(n);  // nothing after the number, no sign or blank
}

const char* model_type(long t) {
    switch (t) {
    case 0: return "disk";
    case 1: return "tape";
    case 5: return "cdrom";
    case 8: return "changer";
    case 0xc: return "raid";
    case 0xd: return "enclosure";
    default: return nullptr;
    }
}

}  // namespace

bool parse_hctl(const std::string& name, KernelHctl& out) {
    unsigned h, c, t;
    unsigned long long l;
    int used = -1;
    if (name.size() > 64 || sscanf(name.c_str(), "%u:%u:%u:%llu%n", &h, &c, &t, &l, &used) != 4 ||
        used != static_cast<int>(name.size()) || h > INT_MAX)
        return false;
    out = {static_cast<int>(h), c, t, l};
    // Only the kernel's spelling: no sign, blank or leading zero that %u would let through.
    char canon[96];
    snprintf(canon, sizeof canon, "%u:%u:%u:%llu", h, c, t, l);
    return name == canon;
}

bool adopt_kernel_scsi(Host& h, const std::string& sys, std::string& why) {
    // The scsi_debug hosts, in number order.
    std::vector<int> hosts;
    for (const std::string& e : entries(sys + "/class/scsi_host")) {
        int n;
        std::string proc;
        if (host_number(e, n) && attribute(sys + "/class/scsi_host/" + e + "/proc_name", proc) && proc == "scsi_debug")
            hosts.push_back(n);
    }
    std::sort(hosts.begin(), hosts.end());
    // The storage functions in probe order.
    std::vector<Function*> fns;
    for (FnRef r : all_functions(h))
        if (r.fn->driver == Driver::kvo) fns.push_back(r.fn);
    std::sort(fns.begin(), fns.end(), [](const Function* a, const Function* b) { return a->pci < b->pci; });
    if (fns.size() > hosts.size()) {
        why = "the SCSI side is the kernel's, but the kernel has " + std::to_string(hosts.size()) +
              " scsi_debug host(s) for " + std::to_string(fns.size()) + " storage function(s)";
        return false;
    }
    std::map<int, Function*> by_host;
    for (size_t i = 0; i < fns.size(); i++) {
        fns[i]->host = hosts[i];
        fns[i]->rports.clear();
        by_host[hosts[i]] = fns[i];
    }
    // Their devices, each target id one target remote port with made-up names.
    std::map<std::pair<int, uint32_t>, RemotePort> targets;
    const std::string devs = sys + "/bus/scsi/devices/";
    for (const std::string& e : entries(devs)) {
        KernelHctl a;
        if (!parse_hctl(e, a) || by_host.count(a.host) == 0) continue;  // host0, target0:0:0, other hosts
        if (a.channel != 0) {
            why = e + ": channel " + std::to_string(a.channel) + ", but the storage driver's hosts have bus 0 only";
            return false;
        }
        if (a.target > 0xFFFF) {
            why = e + ": target id beyond 65535";
            return false;
        }
        Lun l;
        if (a.lun < 256) l.lun = a.lun;
        else if ((a.lun & ~0x3FFFull) == 0x4000) l.lun = a.lun & 0x3FFF;  // flat space
        else {
            why = e + ": LUN " + std::to_string(a.lun) + " is neither peripheral nor flat-space addressed";
            return false;
        }
        std::string type;
        char* end = nullptr;
        const long t = attribute(devs + e + "/type", type) ? strtol(type.c_str(), &end, 10) : -1;
        const char* mt = end != nullptr && end != type.c_str() && *end == '\0' ? model_type(t) : nullptr;
        if (mt == nullptr) {
            why = e + "/type: \"" + type + "\" is not a device type the model knows";
            return false;
        }
        l.type = mt;
        attribute(devs + e + "/vendor", l.vendor);
        attribute(devs + e + "/model", l.product);
        attribute(devs + e + "/rev", l.rev);
        l.vendor.resize(std::min<size_t>(l.vendor.size(), 8));
        l.product.resize(std::min<size_t>(l.product.size(), 16));
        l.rev.resize(std::min<size_t>(l.rev.size(), 4));
        RemotePort& rp = targets[{a.host, a.target}];
        if (rp.pwwn == 0) {
            const uint64_t id = static_cast<uint64_t>(a.host & 0xFF) << 16 | (a.target & 0xFFFF);
            rp.pwwn = 0x50000d5e00000000ULL | id;
            rp.nwwn = 0x50000d5e10000000ULL | id;
            rp.port_id = 0x0a0000u | static_cast<uint32_t>(a.host & 0xFF) << 8 | (a.target & 0xFF);
            rp.target = a.target;
        }
        rp.luns.push_back(std::move(l));
    }
    for (auto& [key, rp] : targets) {
        std::sort(rp.luns.begin(), rp.luns.end(), [](const Lun& a, const Lun& b) { return a.lun < b.lun; });
        auto twice = std::adjacent_find(rp.luns.begin(), rp.luns.end(),
                                        [](const Lun& a, const Lun& b) { return a.lun == b.lun; });
        if (twice != rp.luns.end()) {
            why = std::to_string(key.first) + ":0:" + std::to_string(key.second) + ": LUN " +
                  std::to_string(twice->lun) + " both peripheral and flat-space addressed";
            return false;
        }
        by_host[key.first]->rports.push_back(std::move(rp));
    }
    h.kernel_scsi = true;
    return true;
}

bool kernel_scsi_bed() {
    // Fixed when the bed is made: asked once per process.
    static std::atomic<int> mode{-1};
    int m = mode.load();
    if (m >= 0) return m == 1;
    if (env_bed().empty()) return false;
    bool kernel = false;
    try {
        if (!with_state(env_bed(), [&](State& st) { kernel = st.host.kernel_scsi; })) return false;
    } catch (const std::exception&) {
        return false;
    }
    mode = kernel ? 1 : 0;
    return kernel;
}

bool bed_scsi_node(mode_t type, dev_t rdev) {
    if (!kernel_scsi_bed()) return false;
    char link[64];
    snprintf(link, sizeof link, "/sys/dev/%s/%u:%u/device", S_ISBLK(type) ? "block" : "char", major(rdev), minor(rdev));
    char target[PATH_MAX];
    const ssize_t n = readlink(link, target, sizeof target - 1);
    if (n <= 0) return false;
    target[n] = '\0';
    const char* slash = strrchr(target, '/');
    KernelHctl a;
    if (!parse_hctl(slash ? slash + 1 : target, a)) return false;
    bool ours = false;
    try {
        with_state(env_bed(), [&](State& st) {
            FnRef r = st.by_host(a.host);
            ours = r.fn != nullptr && host_registered(st.host, *r.fn);
        });
    } catch (const std::exception&) {
        return false;
    }
    return ours;
}

}  // namespace kvosim
