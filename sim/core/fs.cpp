// root/: the emulated sysfs, device nodes, configuration and firmware directories, written from
// the model. Device nodes are plain files: what makes them nodes is that the preload library
// answers ioctl on descriptors opened on them.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include "bed.h"
#include "scsi.h"

namespace kvosim {

namespace {

std::string hex16(unsigned v) {
    char b[16];
    snprintf(b, sizeof b, "0x%04x\n", v);
    return b;
}

std::string hex64(uint64_t v) {
    char b[32];
    snprintf(b, sizeof b, "0x%016" PRIx64 "\n", v);
    return b;
}

class Writer {
public:
    explicit Writer(std::string root) : root_(std::move(root)) {}
    bool dir(const std::string& vpath) {
        if (!make_dirs(root_ + vpath)) return failed(vpath, "cannot create directory");
        return true;
    }
    // Writes only when the content differs, so a refresh leaves untouched files alone.
    bool file(const std::string& vpath, const std::string& content, bool fresh = false) {
        std::string path = root_ + vpath;
        std::string old;
        if (!fresh && read_file(path, old) && old == content) return true;
        std::string w;
        if (!write_file(path, content, w)) return failed(vpath, w);
        return true;
    }
    // A symbolic link; an entry of another kind or target is replaced.
    bool link(const std::string& vpath, const std::string& target, bool fresh = false) {
        std::string path = root_ + vpath;
        if (fresh && symlink(target.c_str(), path.c_str()) == 0) return true;
        char buf[512];
        ssize_t n = readlink(path.c_str(), buf, sizeof buf);
        if (n >= 0 && target.compare(0, std::string::npos, buf, static_cast<size_t>(n)) == 0) return true;
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
        if (symlink(target.c_str(), path.c_str()) != 0) return failed(vpath, "cannot create link");
        return true;
    }
    bool exists(const std::string& vpath) const {
        struct stat sb;
        return lstat((root_ + vpath).c_str(), &sb) == 0;
    }
    bool ok() const { return why_.empty(); }
    const std::string& why() const { return why_; }

private:
    bool failed(const std::string& vpath, const std::string& what) {
        if (why_.empty()) why_ = vpath + ": " + what;
        return false;
    }
    std::string root_;
    std::string why_;
};

const char* link_speed(uint32_t gbps) {
    switch (gbps) {
    case 4: return "4 Gbit";
    case 8: return "8 Gbit";
    case 10: return "10 Gbit";
    case 16: return "16 Gbit";
    case 32: return "32 Gbit";
    default: return "unknown";
    }
}

void pci_dir(Writer& w, const std::string& d, const Adapter& a, const Function& f, bool storage) {
    w.dir(d);
    w.file(d + "/vendor", hex16(a.vendor_id));
    w.file(d + "/device", hex16(a.device_id));
    w.file(d + "/subsystem_vendor", hex16(a.ssvid));
    w.file(d + "/subsystem_device", hex16(a.ssid));
    w.file(d + "/class", storage ? "0x0c0400\n" : "0x020000\n");
    w.file(d + "/revision", "0x01\n");
    w.file(d + "/enable", "1\n");
    w.file(d + "/numa_node", "-1\n");
    w.file(d + "/irq", std::to_string(32 + pci_function(f.pci)) + "\n");
    w.file(d + "/current_link_width", std::to_string(a.pcie_lanes) + "\n");
    w.file(d + "/uevent", std::string("DRIVER=") + (storage ? "kvo" : "tqe") + "\nPCI_SLOT_NAME=" +
                              f.pci + "\n");
}

void driver_dir(Writer& w, const std::string& d, const std::string& version) {
    w.dir(d);
    w.file(d + "/bind", "");
    w.file(d + "/unbind", "");
    w.file(d + "/new_id", "");
    w.file(d + "/remove_id", "");
    w.file(d + "/uevent", "");
    w.dir(d + "/module");
    w.file(d + "/module/version", version + "\n");
    w.file(d + "/module/refcnt", "0\n");
}

// The FC transport's bsg node of the function's i-th remote port, "" when it has none. The
// transport names it by the port's number on the host, as its fc_remote_ports entry, not by
// its SCSI target id; the fabric's own ports have none, nor has a function without FC host node.
std::string rport_node(const Function& f, size_t i) {
    if (f.rports[i].role == "fabric") return "";
    const std::string name = "rport-" + std::to_string(f.host) + ":0-" + std::to_string(i);
    if (f.node == "bsg") return "/dev/bsg/" + name;
    if (f.node == "fc_host") return "/dev/" + name;
    return "";
}

void storage_function(Writer& w, const Host& h, const Adapter& a, const Function& f) {
    const std::string hn = "host" + std::to_string(f.host);
    const std::string d = "/sys/bus/pci/drivers/kvo/" + f.pci;
    pci_dir(w, d, a, f, true);
    w.dir(d + "/" + hn);
    w.file(d + "/" + hn + "/uevent", "DEVTYPE=scsi_host\n");

    const bool online = f.state == 6;
    const std::string fc = "/sys/class/fc_host/" + hn;
    w.dir(fc);
    w.file(fc + "/port_name", hex64(f.pwwn));
    w.file(fc + "/node_name", hex64(f.nwwn));
    char pid[16];
    snprintf(pid, sizeof pid, "0x%06x\n", fc_port_id(f));
    w.file(fc + "/port_id", pid);
    w.file(fc + "/port_state", online ? "Online\n" : "Linkdown\n");
    w.file(fc + "/port_type", online ? "NPort (fabric via point-to-point)\n" : "Unknown\n");
    w.file(fc + "/speed", std::string(online ? link_speed(a.max_speed) : "unknown") + "\n");
    w.file(fc + "/supported_speeds", f.ioc_type == 2 ? "10 Gbit\n" : "4 Gbit, 8 Gbit, 16 Gbit\n");
    w.file(fc + "/supported_classes", "Class 3\n");
    w.file(fc + "/fabric_name", hex64(fabric_wwn(f)));
    w.file(fc + "/symbolic_name", a.manufacturer + " " + a.model + " FW:v" + a.fw_ver + " DVR:v" +
                                      h.driver_ver + "\n");
    w.file(fc + "/tgtid_bind_type", "wwpn (World Wide Port Name)\n");
    w.file(fc + "/max_npiv_vports", "255\n");
    w.file(fc + "/npiv_vports_inuse", "0\n");
    w.file(fc + "/issue_lip", "");
    w.file(fc + "/vport_create", "");
    w.file(fc + "/vport_delete", "");

    if (f.node == "bsg") w.file("/dev/bsg/fc_" + hn, "");
    else if (f.node == "fc_host") w.file("/dev/fc_" + hn, "");
    for (size_t i = 0; i < f.rports.size(); i++) {
        const std::string node = rport_node(f, i);
        if (!node.empty()) w.file(node, "");
    }

    if (h.kernel_scsi) return;  // the SCSI host is the kernel's
    const std::string sh = "/sys/class/scsi_host/" + hn;
    w.dir(sh);
    w.file(sh + "/proc_name", "kvo\n");
    w.file(sh + "/unique_id", std::to_string(f.host) + "\n");
    w.file(sh + "/state", "running\n");
    w.file(sh + "/scan", "");
    w.file(sh + "/host_busy", "0\n");
    w.file(sh + "/can_queue", "2048\n");
    w.file(sh + "/cmd_per_lun", "3\n");
    w.file(sh + "/sg_tablesize", "256\n");
    w.file(sh + "/active_mode", "Initiator\n");
    w.file(sh + "/supported_mode", "Initiator\n");
}

void eth_function(Writer& w, const Adapter& a, const Function& f) {
    const std::string d = "/sys/bus/pci/drivers/tqe/" + f.pci;
    pci_dir(w, d, a, f, false);
    const std::string n = d + "/net/" + f.eth_name;
    w.dir(n);
    w.file(n + "/address", mac_str(f.current_mac) + "\n");
    w.file(n + "/operstate", f.state == 6 ? "up\n" : "down\n");
}

bool remove_path(const std::string& path) {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
    return !ec;
}

// ---- the SCSI side: scsi_device entries, their sg/sd/sr/st children, the FC remote ports ----

constexpr const char* kScsiDevices = "/sys/bus/scsi/devices/";

std::string dev_pair(unsigned major, unsigned minor) { return std::to_string(major) + ":" + std::to_string(minor) + "\n"; }

// The node's device number, as its `dev` attribute shows it.
std::string node_dev(const std::string& name) {
    bool block = false;
    unsigned major = 0, minor = 0;
    scsi_node_number(name, block, major, minor);
    return dev_pair(major, minor);
}

std::string padded(const std::string& s, size_t n) {
    std::string r = s.substr(0, n);
    r.resize(n, ' ');
    return r + "\n";
}

std::string upper_name(const Lun& l) {
    const std::string u = upper_driver(l.type);
    return u.empty() || l.dev < 0 ? std::string() : disk_name(u, l.dev);
}

// The directory of the block, generic or tape child, and the link to it from the device.
void child_link(Writer& w, bool fresh, const std::string& dev, const std::string& kind, const std::string& name,
                const std::string& old_home) {
    w.link(dev + "/" + kind + ":" + name, "../../../.." + old_home.substr(4), fresh);
}

void scsi_device_files(Writer& w, const Host& h, const ScsiDev& d) {
    const Lun& l = *d.lun;
    const bool old = h.old_layout;
    const std::string x = d.hctl();
    const std::string D = kScsiDevices + x;
    const int pt = peripheral_type(l.type);
    char t[16];
    snprintf(t, sizeof t, "%d\n", pt);
    // A device written before keeps what it has unless an attribute differs; a new one is
    // written without looking (thousands of devices on a large host).
    const bool fresh = !w.exists(D);
    auto file = [&](const std::string& p, const std::string& c) { w.file(p, c, fresh); };
    auto link = [&](const std::string& p, const std::string& target) { w.link(p, target, fresh); };
    w.dir(D);
    file(D + "/type", t);
    file(D + "/vendor", padded(l.vendor, 8));
    file(D + "/model", padded(l.product, 16));
    file(D + "/rev", padded(l.rev, 4));
    file(D + "/scsi_level", "7\n");
    file(D + "/state", nexus_online(*d.rp) ? "running\n" : "transport-offline\n");
    file(D + "/delete", "");
    char wwid[64];
    snprintf(wwid, sizeof wwid, "naa.600e1f20%09llx%016llx\n",
             static_cast<unsigned long long>(d.rp->pwwn & 0xFFFFFFFFFULL), static_cast<unsigned long long>(l.lun));
    file(D + "/wwid", wwid);
    const std::string up = upper_driver(l.type);

    // scsi_device class
    if (old) {
        const std::string c = "/sys/class/scsi_device/" + x;
        w.dir(c);
        link(c + "/device", "../../../bus/scsi/devices/" + x);
        child_link(w, fresh, D, "scsi_device", x, c);
    } else {
        w.dir(D + "/scsi_device/" + x);
        link(D + "/scsi_device/" + x + "/device", "../..");
        link("/sys/class/scsi_device/" + x, "../../bus/scsi/devices/" + x + "/scsi_device/" + x);
    }
    // A class device of the device: its directory (under the device, or in the class on the
    // old layout), its attributes, the class entry and the device's link to it.
    auto child = [&](const std::string& cls_dir, const std::string& kind, const std::string& name,
                     const std::vector<std::pair<std::string, std::string>>& attrs) {
        std::string home;
        if (old) {
            home = cls_dir + name;
            w.dir(home);
            link(home + "/device", cls_dir == "/sys/block/" ? "../../bus/scsi/devices/" + x
                                                              : "../../../bus/scsi/devices/" + x);
            child_link(w, fresh, D, kind, name, home);
        } else {
            home = D + "/" + kind + "/" + name;
            w.dir(home);
            link(home + "/device", "../..");
            link(cls_dir + name, (cls_dir == "/sys/block/" ? "../bus/scsi/devices/" : "../../bus/scsi/devices/") + x +
                                       "/" + kind + "/" + name);
        }
        for (const auto& [k, v] : attrs) file(home + "/" + k, v);
        return home;
    };
    if (l.sg >= 0) {
        const std::string sg = "sg" + std::to_string(l.sg);
        child("/sys/class/scsi_generic/", "scsi_generic", sg, {{"dev", node_dev(sg)}});
        // The sg driver links its node from the device as "generic".
        link(D + "/generic", old ? "../../../../class/scsi_generic/" + sg : "scsi_generic/" + sg);
        file("/dev/" + sg, "");
    }
    const std::string name = upper_name(l);
    if (name.empty()) return;
    const std::string size = std::to_string(l.blocks * l.block_size / 512) + "\n";
    if (up == "sd") {
        child("/sys/block/", "block", name,
              {{"dev", node_dev(name)}, {"size", size}, {"removable", "0\n"}});
        child("/sys/class/scsi_disk/", "scsi_disk", x, {});
        file("/dev/" + name, "");
    } else if (up == "sr") {
        child("/sys/block/", "block", name,
              {{"dev", node_dev(name)}, {"size", size}, {"removable", "1\n"}});
        file("/dev/" + name, "");
    } else if (up == "st") {
        const std::string nst = "n" + name;
        child("/sys/class/scsi_tape/", "scsi_tape", name, {{"dev", node_dev(name)}});
        child("/sys/class/scsi_tape/", "scsi_tape", nst, {{"dev", node_dev(nst)}});
        // The st driver links its first node from the device as "tape", on both layouts.
        link(D + "/tape", old ? "../../../../class/scsi_tape/" + name : "scsi_tape/" + name);
        file("/dev/" + name, "");
        file("/dev/" + nst, "");
    }
}

void fc_rport_files(Writer& w, const Function& f, size_t index, const RemotePort& rp) {
    const std::string hn = std::to_string(f.host);
    const std::string r = "/sys/class/fc_remote_ports/rport-" + hn + ":0-" + std::to_string(index);
    const bool tgt = rp.role == "target";
    w.dir(r);
    w.file(r + "/port_name", hex64(rp.pwwn));
    w.file(r + "/node_name", hex64(rp.nwwn));
    char pid[16];
    snprintf(pid, sizeof pid, "0x%06x\n", rp.port_id);
    w.file(r + "/port_id", pid);
    w.file(r + "/roles", tgt ? "FCP Target\n" : rp.role == "initiator" ? "FCP Initiator\n" : "Fabric\n");
    w.file(r + "/port_state", nexus_online(rp) ? "Online\n" : "Blocked\n");
    w.file(r + "/scsi_target_id", tgt ? std::to_string(rp.target) + "\n" : "-1\n");
    w.file(r + "/supported_classes", "Class 3\n");
    w.file(r + "/dev_loss_tmo", "30\n");
    if (!tgt) return;
    const std::string t = "/sys/class/fc_transport/target" + hn + ":0:" + std::to_string(rp.target);
    w.dir(t);
    w.file(t + "/port_name", hex64(rp.pwwn));
    w.file(t + "/node_name", hex64(rp.nwwn));
    w.file(t + "/port_id", pid);
}

bool is_scsi_node(const char* n) {
    auto digits = [](const char* p) {
        if (*p == '\0') return false;
        for (; *p; p++)
            if (*p < '0' || *p > '9') return false;
        return true;
    };
    auto letters = [](const char* p) {
        if (*p == '\0') return false;
        for (; *p; p++)
            if (*p < 'a' || *p > 'z') return false;
        return true;
    };
    if (strncmp(n, "sg", 2) == 0 || strncmp(n, "st", 2) == 0 || strncmp(n, "sr", 2) == 0) return digits(n + 2);
    if (strncmp(n, "nst", 3) == 0) return digits(n + 3);
    if (strncmp(n, "sd", 2) == 0) return letters(n + 2);
    return false;
}

// Removes the entries of a directory of root/ that are not in `keep` (and pass `mine`).
void prune(const std::string& real_dir, const std::set<std::string>& keep, bool (*mine)(const char*)) {
    DIR* d = opendir(real_dir.c_str());
    if (d == nullptr) return;
    std::vector<std::string> gone;
    while (dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
        if (mine != nullptr && !mine(e->d_name)) continue;
        if (keep.count(e->d_name) == 0) gone.push_back(e->d_name);
    }
    closedir(d);
    for (const std::string& g : gone) remove_path(real_dir + "/" + g);
}

}  // namespace

bool scsi_materialise(State& st, const std::set<std::string>* only, std::string& why) {
    Writer w(st.root());
    Host& h = st.host;
    w.dir("/sys/class/fc_remote_ports");
    w.dir("/sys/class/fc_transport");
    if (!h.kernel_scsi)
        for (const char* d : {"/sys/bus/scsi/devices", "/sys/class/scsi_generic", "/sys/class/scsi_disk",
                              "/sys/class/scsi_tape", "/sys/block", "/sys/class/scsi_device"})
            w.dir(d);
    std::vector<ScsiDev> devs = scsi_devices(h, true);
    // What the host has now: everything else of the SCSI classes and nodes goes.
    std::set<std::string> hctl, sg, disk, tape, block, nodes, rports, targets;
    for (const ScsiDev& d : devs) {
        const Lun& l = *d.lun;
        hctl.insert(d.hctl());
        if (l.sg >= 0) {
            sg.insert("sg" + std::to_string(l.sg));
            nodes.insert("sg" + std::to_string(l.sg));
        }
        const std::string name = upper_name(l);
        if (name.empty()) continue;
        nodes.insert(name);
        const std::string up = upper_driver(l.type);
        if (up == "sd") disk.insert(d.hctl());
        if (up == "st") {
            tape.insert(name);
            tape.insert("n" + name);
            nodes.insert("n" + name);
        } else {
            block.insert(name);
        }
    }
    for (Adapter& a : h.adapters)
        for (Port& p : a.ports)
            for (Function& f : p.functions) {
                if (!host_registered(h, f)) continue;
                for (size_t i = 0; i < f.rports.size(); i++) {
                    if (f.rports[i].role == "fabric") continue;
                    rports.insert("rport-" + std::to_string(f.host) + ":0-" + std::to_string(i));
                    if (f.rports[i].role == "target")
                        targets.insert("target" + std::to_string(f.host) + ":0:" + std::to_string(f.rports[i].target));
                }
            }
    const std::string root = st.root();
    prune(root + "/sys/bus/scsi/devices", hctl, nullptr);
    prune(root + "/sys/class/scsi_device", hctl, nullptr);
    prune(root + "/sys/class/scsi_generic", sg, nullptr);
    prune(root + "/sys/class/scsi_disk", disk, nullptr);
    prune(root + "/sys/class/scsi_tape", tape, nullptr);
    prune(root + "/sys/block", block, nullptr);
    prune(root + "/dev", nodes, is_scsi_node);
    prune(root + "/sys/class/fc_remote_ports", rports, nullptr);
    prune(root + "/sys/class/fc_transport", targets, nullptr);
    for (const ScsiDev& d : devs)
        if (only == nullptr || only->count(d.hctl()) != 0) scsi_device_files(w, h, d);
    if (only == nullptr)
        for (Adapter& a : h.adapters)
            for (Port& p : a.ports)
                for (Function& f : p.functions) {
                    if (!host_registered(h, f)) continue;
                    for (size_t i = 0; i < f.rports.size(); i++)
                        if (f.rports[i].role != "fabric") fc_rport_files(w, f, i, f.rports[i]);
                }
    if (!w.ok()) {
        why = w.why();
        return false;
    }
    return true;
}

bool materialise(State& st, bool create, std::string& why) {
    const std::string root = st.root();
    Writer w(root);
    w.dir("/sys/bus/pci/drivers");
    w.dir("/sys/class/fc_host");
    if (!st.host.kernel_scsi) {
        w.dir("/sys/class/scsi_host");
        w.dir("/sys/class/scsi_device");
    }
    w.dir("/sys/kernel/debug");
    w.dir("/dev/bsg");
    w.dir("/etc");
    w.dir("/lib/firmware");
    const Host& h = st.host;
    if (h.kvo_loaded) {
        driver_dir(w, "/sys/bus/pci/drivers/kvo", h.driver_ver);
        w.file("/dev/kvo", "");
        if (h.ipfc_node) w.file("/dev/kvoipfc", "");
    }
    if (h.tqe_loaded) {
        driver_dir(w, "/sys/bus/pci/drivers/tqe", h.driver_ver);
        w.file("/dev/tqe", "");
    }
    for (const Adapter& a : h.adapters)
        for (const Port& p : a.ports)
            for (const Function& f : p.functions) {
                if (f.driver == Driver::kvo) storage_function(w, h, a, f);
                else eth_function(w, a, f);
            }
    if (create && h.has_conf) w.file("/etc/kvo.conf", h.kvo_conf);
    if (!w.ok()) {
        why = w.why();
        return false;
    }
    // A host with thousands of LUNs gets its SCSI part at the first access to a SCSI path
    // (ensure_scsi_fs), so that beds which never look at it do not pay for it.
    if (scsi_devices(st.host, true).size() <= kEagerScsiDevices || scsi_built(st.dir)) {
        if (!scsi_materialise(st, nullptr, why)) return false;
        if (!write_file(st.dir + "/scsi-built", "", why)) return false;
    }
    apply_missing(st);
    return true;
}

bool scsi_built(const std::string& dir) {
    struct stat sb;
    return stat((dir + "/scsi-built").c_str(), &sb) == 0;
}

void apply_missing(State& st) {
    const std::string root = st.root();
    for (const Fault& f : st.host.faults) {
        if (f.kind == "missing") {
            remove_path(root + f.path);
        } else if (f.kind == "nohost") {
            FnRef r = st.by_pci(f.path);
            if (r.fn != nullptr && r.fn->driver == Driver::kvo) {
                // An attach that failed registered no SCSI host, so no FC host node either.
                const std::string hn = std::to_string(r.fn->host);
                remove_path(root + "/sys/bus/pci/drivers/kvo/" + f.path + "/host" + hn);
                remove_path(root + "/dev/bsg/fc_host" + hn);
                remove_path(root + "/dev/fc_host" + hn);
                for (size_t i = 0; i < r.fn->rports.size(); i++) {
                    const std::string node = rport_node(*r.fn, i);
                    if (!node.empty()) remove_path(root + node);
                }
            }
        }
    }
}

}  // namespace kvosim
