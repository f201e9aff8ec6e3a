// root/: the emulated sysfs, device nodes, configuration and firmware directories, written from
// the model. Device nodes are plain files: what makes them nodes is that the preload library
// answers ioctl on descriptors opened on them.
#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <filesystem>

#include "bed.h"

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
    bool file(const std::string& vpath, const std::string& content) {
        std::string path = root_ + vpath;
        std::string old;
        if (read_file(path, old) && old == content) return true;
        std::string w;
        if (!write_file(path, content, w)) return failed(vpath, w);
        return true;
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
    snprintf(pid, sizeof pid, "0x%06x\n", online ? 0x010000u | (static_cast<unsigned>(f.host) & 0xFF) << 8 : 0u);
    w.file(fc + "/port_id", pid);
    w.file(fc + "/port_state", online ? "Online\n" : "Linkdown\n");
    w.file(fc + "/port_type", online ? "NPort (fabric via point-to-point)\n" : "Unknown\n");
    w.file(fc + "/speed", std::string(online ? link_speed(a.max_speed) : "unknown") + "\n");
    w.file(fc + "/supported_speeds", f.ioc_type == 2 ? "10 Gbit\n" : "4 Gbit, 8 Gbit, 16 Gbit\n");
    w.file(fc + "/supported_classes", "Class 3\n");
    w.file(fc + "/fabric_name", hex64(online ? 0x100000051e000001ULL + static_cast<unsigned>(f.host) : 0));
    w.file(fc + "/symbolic_name", a.manufacturer + " " + a.model + " FW:v" + a.fw_ver + " DVR:v" +
                                      h.driver_ver + "\n");
    w.file(fc + "/tgtid_bind_type", "wwpn (World Wide Port Name)\n");
    w.file(fc + "/max_npiv_vports", "255\n");
    w.file(fc + "/npiv_vports_inuse", "0\n");
    w.file(fc + "/issue_lip", "");
    w.file(fc + "/vport_create", "");
    w.file(fc + "/vport_delete", "");

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

    if (f.node == "bsg") w.file("/dev/bsg/fc_" + hn, "");
    else if (f.node == "fc_host") w.file("/dev/fc_" + hn, "");
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

}  // namespace

bool materialise(State& st, bool create, std::string& why) {
    const std::string root = st.root();
    Writer w(root);
    w.dir("/sys/bus/pci/drivers");
    w.dir("/sys/class/fc_host");
    w.dir("/sys/class/scsi_host");
    w.dir("/sys/class/scsi_device");
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
    for (const Fault& f : h.faults) {
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
            }
        }
    }
    return true;
}

}  // namespace kvosim
