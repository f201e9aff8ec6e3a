// The SCSI nodes of the emulated host (/dev/sgN, /dev/sdX, /dev/srN, /dev/stN, /dev/nstN) and
// the SCSI sysfs files the kernel acts on when written (a device's `delete`, a host's `scan`).
//
// SG_IO (version 3, interface 'S') is checked as the sg driver and the block layer check it,
// then the addressed LUN's target answers (scsi.cpp); the results come back in the header as
// the kernel fills it. The usual sg ioctls answer with the kernel's values; anything else is
// ENOTTY and an UNHANDLED line.
#include <scsi/scsi.h>
#include <scsi/sg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <atomic>
#include <map>
#include <mutex>

#include "drv.h"
#include "emu.h"
#include "scsi.h"

namespace kvosim {

namespace {

constexpr unsigned long kBlkGetSize64 = 0x80081272;  // _IOR(0x12, 114, size_t)
constexpr unsigned long kBlkSszGet = 0x1268;         // _IO(0x12, 104)
constexpr int kSgVersion = 30536;                     // the sg driver
constexpr int kBlockSgVersion = 30527;                // SG_IO on a block or tape node
constexpr int kUserHz = 100;
constexpr int kDefaultTimeoutTicks = 60 * kUserHz;    // 60 s
constexpr int kDefaultReserved = 32768;
constexpr int kMaxReserved = 1 << 20;                 // the queue's max_sectors_kb (1 MiB)
constexpr unsigned kMaxTransfer = 1u << 28;
constexpr uint16_t kDidNoConnect = 0x01;
constexpr uint16_t kDriverSense = 0x08;
constexpr int kDxferUnknown = -5;  // SG_DXFER_UNKNOWN

// Settings of one open file of a node, as the sg driver keeps them per file descriptor.
struct FdSettings {
    int timeout_ticks = kDefaultTimeoutTicks;
    int reserved = kDefaultReserved;
};

std::mutex fd_mu;
std::map<int, FdSettings>& fd_settings() {
    static auto* m = new std::map<int, FdSettings>;
    return *m;
}

FdSettings settings_of(int fd) {
    std::lock_guard<std::mutex> g(fd_mu);
    return fd_settings()[fd];
}

void set_settings(int fd, const FdSettings& s) {
    std::lock_guard<std::mutex> g(fd_mu);
    fd_settings()[fd] = s;
}

enum class NodeType { sg, block, tape };

struct Found {
    ScsiDev dev;
    NodeType type = NodeType::sg;
    bool ok = false;
};

// The device behind a node name, among the present devices.
Found find_node(State& st, const std::string& path) {
    Found r;
    const std::string name = path.substr(path.rfind('/') + 1);
    for (const ScsiDev& d : scsi_devices(st.host, true)) {
        const Lun& l = *d.lun;
        if (l.sg >= 0 && name == "sg" + std::to_string(l.sg)) {
            r.type = NodeType::sg;
        } else if (l.dev >= 0 && *upper_driver(l.type) != '\0') {
            const std::string n = disk_name(upper_driver(l.type), l.dev);
            if (name == n) r.type = l.type == "tape" ? NodeType::tape : NodeType::block;
            else if (l.type == "tape" && name == "n" + n) r.type = NodeType::tape;
            else continue;
        } else {
            continue;
        }
        r.dev = d;
        r.ok = true;
        return r;
    }
    return r;
}

std::string errno_word(int e) {
    const char* n = errno_name(e);
    return n ? n : std::to_string(e);
}

int fail(int e) {
    errno = e;
    return -1;
}

int bad(State& st, const std::string& node, int e, const std::string& why) {
    append_log(st.dir, "BAD scsi " + node + " " + why + " -> errno=" + errno_word(e));
    return fail(e);
}

template <class T>
int put(State& st, const std::string& node, void* arg, const T& v, const char* what) {
    if (!write_user(reinterpret_cast<uintptr_t>(arg), &v, sizeof v))
        return bad(st, node, EFAULT, std::string(what) + ": argument not writable");
    return 0;
}

int sg_io(State& st, const NodeRef& node, const Found& f, void* arg) {
    const std::string& np = node.path;
    const bool sg = f.type == NodeType::sg;
    sg_io_hdr_t h;
    const uint64_t at = reinterpret_cast<uintptr_t>(arg);
    if (!read_user(&h, at, sizeof h)) return bad(st, np, EFAULT, "SG_IO: header not readable");
    // The sg driver answers a foreign interface id with ENOSYS, the block layer with EINVAL.
    if (h.interface_id != 'S')
        return bad(st, np, sg ? ENOSYS : EINVAL, fmt("SG_IO: interface_id 0x%x, expected 'S'", static_cast<unsigned>(h.interface_id)));
    if (h.cmdp == nullptr || h.cmd_len < 6 || h.cmd_len > 16)
        return bad(st, np, sg ? EMSGSIZE : EINVAL, fmt("SG_IO: command length %u (6..16 with a command)", h.cmd_len));
    if (h.dxfer_direction > SG_DXFER_NONE || h.dxfer_direction < kDxferUnknown)
        return bad(st, np, EINVAL, fmt("SG_IO: dxfer_direction %d", h.dxfer_direction));
    if (h.iovec_count != 0) return bad(st, np, EINVAL, fmt("SG_IO: %u iovec entries (not emulated)", h.iovec_count));
    if (h.dxfer_len > kMaxTransfer) return bad(st, np, EINVAL, fmt("SG_IO: dxfer_len %u", h.dxfer_len));
    uint8_t cdb[16] = {};
    if (!read_user(cdb, reinterpret_cast<uintptr_t>(h.cmdp), h.cmd_len))
        return bad(st, np, EFAULT, "SG_IO: command not readable");
    // Kernels from 6.1 on fail the copy-in of a to-and-from transfer on sg (the request never
    // reaches the target); earlier ones copy the buffer in and read into it. The block layer's
    // SG_IO maps the buffer instead and takes it as a read.
    if (sg && h.dxfer_direction == SG_DXFER_TO_FROM_DEV && h.dxfer_len > 0 && !st.host.sg_to_from_read)
        return bad(st, np, ENOMEM, "SG_IO: to-and-from transfer (refused from kernel 6.1 on)");

    const ScsiDev& d = f.dev;
    std::string line = "scsi " + np + " " + opcode_name(cdb, h.cmd_len) + " " + d.hctl();
    if (const long alloc = allocation_length(cdb, h.cmd_len); alloc >= 0) line += fmt(" alloc=%ld", alloc);
    line += " -> ";
    h.status = h.masked_status = h.msg_status = h.sb_len_wr = 0;
    h.host_status = h.driver_status = 0;
    h.resid = 0;
    h.duration = 0;
    h.info = SG_INFO_OK;
    auto itnim = d.rp->ext.find("itnim");
    const bool online = itnim == d.rp->ext.end() || !itnim->is_object() || itnim->value("state", 5) == 5;
    std::string note;
    if (!online) {
        // The remote port is gone: the command never reaches a target.
        h.host_status = kDidNoConnect;
        h.resid = static_cast<int>(h.dxfer_len);
        note = "host_status=1 (nexus offline)";
    } else {
        TargetView tv{d.rp, d.lun, !lun_visible(*d.fn, *d.rp, *d.lun)};
        const bool data_in = h.dxfer_direction == SG_DXFER_FROM_DEV || h.dxfer_direction == SG_DXFER_TO_FROM_DEV ||
                             h.dxfer_direction == kDxferUnknown;
        ScsiAnswer a = scsi_execute(tv, cdb, h.cmd_len, data_in ? h.dxfer_len : 0);
        size_t n = data_in ? std::min<size_t>(a.data.size(), h.dxfer_len) : 0;
        if (n > 0 && !write_user(reinterpret_cast<uintptr_t>(h.dxferp), a.data.data(), n))
            return bad(st, np, EFAULT, "SG_IO: data buffer not writable");
        h.resid = static_cast<int>(h.dxfer_len - n);
        h.status = a.status;
        h.masked_status = static_cast<uint8_t>((a.status >> 1) & 0x7F);
        note = fmt("status=%u", a.status);
        if (a.status == 2) {
            std::vector<uint8_t> s = fixed_sense(a.sense);
            size_t sn = std::min<size_t>(s.size(), h.mx_sb_len);
            if (sn > 0 && !write_user(reinterpret_cast<uintptr_t>(h.sbp), s.data(), sn))
                return bad(st, np, EFAULT, "SG_IO: sense buffer not writable");
            h.sb_len_wr = static_cast<uint8_t>(sn);
            h.driver_status = kDriverSense;
            note += fmt(" (sense %x/%02x/%02x)", a.sense.key, a.sense.asc, a.sense.ascq);
        } else if (tv.absent && cdb[0] == 0x12) {
            note += " (no LUN)";
        }
    }
    if (h.status != 0 || h.host_status != 0 || h.driver_status != 0) h.info = SG_INFO_CHECK;
    if (!write_user(at, &h, sizeof h)) return bad(st, np, EFAULT, "SG_IO: header not writable");
    append_log(st.dir, line + note);
    return 0;
}

int read_int(State& st, const std::string& np, void* arg, int& v, const char* what) {
    if (!read_user(&v, reinterpret_cast<uintptr_t>(arg), sizeof v)) {
        bad(st, np, EFAULT, std::string(what) + ": argument not readable");
        return -1;
    }
    return 0;
}

}  // namespace

void scsi_fd_opened(int fd) {
    std::lock_guard<std::mutex> g(fd_mu);
    fd_settings()[fd] = FdSettings{};
}

int scsi_node_ioctl(State& st, const NodeRef& node, unsigned long request, void* arg) {
    const std::string& np = node.path;
    Found f = find_node(st, np);
    if (!f.ok) {
        // The device was removed while the node was open.
        append_log(st.dir, fmt("scsi %s ioctl 0x%lx -> errno=ENODEV (no such device)", np.c_str(), request));
        return fail(ENODEV);
    }
    const bool sg = f.type == NodeType::sg;
    const ScsiDev& d = f.dev;
    FdSettings fs = settings_of(node.fd);
    switch (request) {
    case SG_IO: return sg_io(st, node, f, arg);
    case SG_GET_VERSION_NUM: return put(st, np, arg, sg ? kSgVersion : kBlockSgVersion, "SG_GET_VERSION_NUM");
    case SG_GET_TIMEOUT: return fs.timeout_ticks;  // the ioctl's value, in USER_HZ ticks
    case SG_SET_TIMEOUT: {
        int v;
        if (read_int(st, np, arg, v, "SG_SET_TIMEOUT") != 0) return -1;
        if (v < 0) return fail(EIO);
        fs.timeout_ticks = v;
        set_settings(node.fd, fs);
        return 0;
    }
    case SG_GET_RESERVED_SIZE: return put(st, np, arg, fs.reserved, "SG_GET_RESERVED_SIZE");
    case SG_SET_RESERVED_SIZE: {
        int v;
        if (read_int(st, np, arg, v, "SG_SET_RESERVED_SIZE") != 0) return -1;
        if (v < 0) return fail(EINVAL);
        fs.reserved = std::min(v, kMaxReserved);
        set_settings(node.fd, fs);
        return 0;
    }
    case SG_EMULATED_HOST: return put(st, np, arg, 0, "SG_EMULATED_HOST");
    case SCSI_IOCTL_GET_BUS_NUMBER: return put(st, np, arg, d.host, "SCSI_IOCTL_GET_BUS_NUMBER");
    case SCSI_IOCTL_GET_IDLUN: {
        struct {
            int dev_id;
            int host_unique_id;
        } v{static_cast<int>((d.target & 0xFF) | (d.hlun & 0xFF) << 8 | (static_cast<unsigned>(d.host) & 0xFF) << 24),
            d.host};
        return put(st, np, arg, v, "SCSI_IOCTL_GET_IDLUN");
    }
    default: break;
    }
    if (sg && request == SG_GET_SCSI_ID) {
        struct sg_scsi_id v{};
        v.host_no = d.host;
        v.channel = 0;
        v.scsi_id = static_cast<int>(d.target);
        v.lun = static_cast<int>(d.hlun);
        v.scsi_type = peripheral_type(d.lun->type);
        v.h_cmd_per_lun = 3;
        v.d_queue_depth = 32;
        return put(st, np, arg, v, "SG_GET_SCSI_ID");
    }
    if (sg && request == SG_GET_SG_TABLESIZE) return put(st, np, arg, 256, "SG_GET_SG_TABLESIZE");
    if (f.type == NodeType::block && request == kBlkGetSize64) {
        uint64_t bytes = d.lun->blocks * d.lun->block_size;
        return put(st, np, arg, bytes, "BLKGETSIZE64");
    }
    if (f.type == NodeType::block && request == kBlkSszGet) {
        int bs = static_cast<int>(d.lun->block_size);
        return put(st, np, arg, bs, "BLKSSZGET");
    }
    append_log(st.dir, fmt("UNHANDLED scsi %s ioctl 0x%lx -> errno=ENOTTY", np.c_str(), request));
    return fail(ENOTTY);
}

// ---- sysfs files the kernel acts on ----------------------------------------------------------

namespace {

std::string names_of(const Lun& l) {
    std::string s;
    if (l.sg >= 0) s += "sg" + std::to_string(l.sg);
    if (l.dev >= 0 && *upper_driver(l.type) != '\0') s += (s.empty() ? "" : " ") + disk_name(upper_driver(l.type), l.dev);
    return s;
}

// "- - -", "0 3 -", ...: channel, target and LUN, each a number or "-" for all.
bool parse_scan(const std::string& text, long v[3]) {
    char a[3][16];
    char junk;
    if (sscanf(text.c_str(), "%15s %15s %15s %c", a[0], a[1], a[2], &junk) != 3) return false;
    for (int i = 0; i < 3; i++) {
        if (strcmp(a[i], "-") == 0) {
            v[i] = -1;
            continue;
        }
        char* end = nullptr;
        errno = 0;
        v[i] = strtol(a[i], &end, 10);
        if (errno != 0 || *end != '\0' || v[i] < 0 || v[i] > UINT_MAX) return false;
    }
    return true;
}

std::string quoted(std::string t) {
    while (!t.empty() && (t.back() == '\n' || t.back() == ' ')) t.pop_back();
    return "'" + t + "'";
}

void act_delete(State& st, const std::string& vpath, const std::string& hctl, const std::string& text) {
    for (const ScsiDev& d : scsi_devices(st.host, true)) {
        if (d.hctl() != hctl) continue;
        const std::string names = names_of(*d.lun);
        d.lun->present = false;
        assign_scsi_names(st.host);
        st.dirty = true;
        std::string why;
        std::set<std::string> none;
        if (!scsi_materialise(st, &none, why)) append_log(st.dir, "BAD sim: " + why);
        append_log(st.dir, "sysfs " + vpath + " " + quoted(text) + " -> removed " + hctl + " (" + names + ")");
        return;
    }
    append_log(st.dir, "sysfs " + vpath + " " + quoted(text) + " -> errno=ENODEV (no device " + hctl + ")");
}

void act_scan(State& st, const std::string& vpath, int host, const std::string& text) {
    long v[3];
    if (!parse_scan(text, v)) {
        append_log(st.dir, "BAD sysfs " + vpath + " " + quoted(text) + " -> errno=EINVAL (expected \"C T L\")");
        return;
    }
    FnRef fr = st.by_host(host);
    if (fr.fn == nullptr || !host_registered(st.host, *fr.fn)) return;
    if (v[0] > 0) {
        append_log(st.dir, "BAD sysfs " + vpath + " " + quoted(text) + " -> errno=EINVAL (channel beyond 0)");
        return;
    }
    std::set<std::string> added;
    for (RemotePort& rp : fr.fn->rports) {
        if (rp.role != "target" || (v[1] >= 0 && rp.target != static_cast<unsigned long>(v[1]))) continue;
        for (Lun& l : rp.luns) {
            if (l.present || (v[2] >= 0 && linux_lun(l.lun) != static_cast<unsigned long>(v[2]))) continue;
            if (!lun_visible(*fr.fn, rp, l)) continue;  // the driver hides it: INQUIRY finds no LUN
            l.present = true;
            added.insert(ScsiDev{fr.fn, &rp, &l, host, rp.target, linux_lun(l.lun)}.hctl());
        }
    }
    std::string what;
    if (!added.empty()) {
        assign_scsi_names(st.host);
        st.dirty = true;
        std::string why;
        if (!scsi_materialise(st, &added, why)) append_log(st.dir, "BAD sim: " + why);
        for (const ScsiDev& d : scsi_devices(st.host, true))
            if (added.count(d.hctl()) != 0) what += (what.empty() ? "" : ", ") + d.hctl() + " (" + names_of(*d.lun) + ")";
    }
    append_log(st.dir, "sysfs " + vpath + " " + quoted(text) + " -> " + (what.empty() ? "nothing new" : "added " + what));
}

}  // namespace

bool scsi_fs_path(const std::string& vpath) {
    static const char* const dirs[] = {"/sys/bus/scsi", "/sys/class/scsi_device", "/sys/class/scsi_generic",
                                       "/sys/class/scsi_disk", "/sys/class/scsi_tape", "/sys/block",
                                       "/sys/class/fc_remote_ports", "/sys/class/fc_transport"};
    for (const char* d : dirs) {
        const size_t n = strlen(d);
        if (vpath.compare(0, n, d) == 0 && (vpath.size() == n || vpath[n] == '/')) return true;
    }
    return classify_node(vpath).kind == NodeKind::scsi;
}

void ensure_scsi_fs() try {
    static std::atomic<bool> ready{false};
    if (ready.load() || env_bed().empty()) return;
    if (scsi_built(env_bed())) {
        ready = true;
        return;
    }
    with_state(env_bed(), [&](State& st) {
        if (scsi_built(st.dir)) return;
        std::string why;
        if (!scsi_materialise(st, nullptr, why) || !write_file(st.dir + "/scsi-built", "", why)) {
            append_log(st.dir, "BAD sim: " + why);
            return;
        }
        apply_missing(st);
    });
    ready = scsi_built(env_bed());
} catch (const std::exception& e) {
    append_log(env_bed(), std::string("BAD sim: ") + e.what());
}

bool sysfs_action_file(const std::string& vpath) {
    if (!sysfs_path(vpath)) return false;
    const size_t slash = vpath.rfind('/');
    const std::string base = vpath.substr(slash + 1);
    return base == "delete" || base == "scan";
}

void sysfs_written(const std::string& vpath) try {
    const std::string real = bed_file(vpath);
    if (real.empty()) return;
    with_state(env_bed(), [&](State& st) {
        std::string text;
        if (!read_file(real, text) || text.empty()) return;
        std::string why;
        write_file(real, "", why);  // the attribute reads empty again
        // The file the caller named, through whatever class links it took.
        char* resolved = realpath(real.c_str(), nullptr);
        std::string canon = resolved ? virtual_of(resolved) : std::string();
        free(resolved);
        const std::string base = vpath.substr(vpath.rfind('/') + 1);
        const std::string dev_prefix = "/sys/bus/scsi/devices/";
        const std::string host_prefix = "/sys/class/scsi_host/host";
        if (base == "delete" && canon.rfind(dev_prefix, 0) == 0) {
            std::string rest = canon.substr(dev_prefix.size());
            act_delete(st, vpath, rest.substr(0, rest.find('/')), text);
        } else if (base == "scan" && canon.rfind(host_prefix, 0) == 0) {
            act_scan(st, vpath, atoi(canon.c_str() + host_prefix.size()), text);
        }
    });
} catch (const std::exception& e) {
    if (!env_bed().empty()) append_log(env_bed(), std::string("BAD sim: ") + e.what());
}

}  // namespace kvosim
