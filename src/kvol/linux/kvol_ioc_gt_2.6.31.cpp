// Discovery of the PCI functions of both drivers through sysfs, and the driver command channel:
// ioctl on the drivers' control nodes, vendor requests on the FC transport's bsg nodes, SCSI
// generic pass-through, and ethtool for the flash of Ethernet functions.
#include <dirent.h>
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kvol.h"
#include "kvol_ioc_priv.h"

namespace {

// ---- Owners of system resources --------------------------------------------------------------

class fd_owner {
public:
    explicit fd_owner(int fd = -1) : fd_(fd) {}
    ~fd_owner() {
        if (fd_ >= 0) close(fd_);
    }
    fd_owner(const fd_owner&) = delete;
    fd_owner& operator=(const fd_owner&) = delete;
    int get() const { return fd_; }
    void reset(int fd) {
        if (fd_ >= 0) close(fd_);
        fd_ = fd;
    }

private:
    int fd_;
};

struct dir_closer {
    void operator()(DIR* d) const { closedir(d); }
};
using dir_owner = std::unique_ptr<DIR, dir_closer>;

struct file_closer {
    void operator()(FILE* f) const { fclose(f); }
};

struct free_deleter {
    void operator()(void* p) const { std::free(p); }
};
template <class T>
using heap_owner = std::unique_ptr<T, free_deleter>;

class regex_owner {
public:
    regex_owner() { ok_ = kvol_pci_regex_compile(&re_) == 0; }
    ~regex_owner() {
        if (ok_) regfree(&re_);
    }
    regex_owner(const regex_owner&) = delete;
    regex_owner& operator=(const regex_owner&) = delete;
    bool ok() const { return ok_; }
    const regex_t* get() const { return &re_; }

private:
    regex_t re_{};
    bool ok_ = false;
};

// ---- Discovery state ---------------------------------------------------------------------------

struct scan_state {
    kvol_t* ioc_list = nullptr;
    int total = 0;
    int map_count = 0;
    int kvo_inst_cnt = 0;  // storage functions found
    std::array<heap_owner<kvol_pci_host_map>, KVOL_MAX_PCI_FN> map;
    // Descriptors a scan opens. The records only borrow them; the scan closes them when the
    // list goes (kvol_ioc_handles_close closes the Ethernet one early).
    int ipfc_fd = -1;
    int eth_fd = -1;
};
scan_state g_scan;

constexpr const char* KVO_PCI_DIR = "/sys/bus/pci/drivers/kvo";
constexpr const char* TQE_PCI_DIR = "/sys/bus/pci/drivers/tqe";

bool node_exists(const char* path) {
    struct stat st{};
    return stat(path, &st) == 0;
}

void close_ipfc() {
    if (g_scan.ipfc_fd < 0) return;
    for (kvol_t* h = g_scan.ioc_list; h != nullptr; h = h->next)
        if (h->ipfc_fd == g_scan.ipfc_fd) h->ipfc_fd = -1;
    close(g_scan.ipfc_fd);
    g_scan.ipfc_fd = -1;
}

// Records the PCI functions of one driver in the map.
kvo_status_t pci_scan(kvo_ioc_type_e kind) {
    regex_owner re;
    if (!re.ok()) return KVO_STATUS_FAILED;
    const bool storage = kind != KVO_IOC_TYPE_LL;
    dir_owner dir(opendir(storage ? KVO_PCI_DIR : TQE_PCI_DIR));
    if (!dir) return KVO_STATUS_NO_DRIVER;

    while (g_scan.map_count < KVOL_MAX_PCI_FN) {
        const dirent* e = readdir(dir.get());
        if (e == nullptr) break;
        if (!kvol_pci_name_matches(re.get(), e->d_name)) continue;
        heap_owner<kvol_pci_host_map> ent(kvol_calloc<kvol_pci_host_map>());
        if (!ent) return KVO_STATUS_ENOMEM;
        kvol_copy_str(ent->pci_name, e->d_name, sizeof(e->d_name));
        size_t len = strlen(ent->pci_name);
        if (len > 0 && ent->pci_name[len - 1] == '\n') ent->pci_name[len - 1] = '\0';

        if (!storage) {
            // Ethernet instances count from 0 after the storage functions.
            ent->instance = g_scan.map_count - g_scan.kvo_inst_cnt;
            g_scan.map[g_scan.map_count++] = std::move(ent);
            continue;
        }
        ent->instance = g_scan.map_count;
        std::string fn_dir = std::string(KVO_PCI_DIR) + "/" + ent->pci_name;
        dir_owner fn(opendir(fn_dir.c_str()));
        if (!fn) return KVO_STATUS_FAILED;
        int host = -1;
        while (const dirent* he = readdir(fn.get())) {
            host = kvol_sysfs_host_num(he->d_name);
            if (host >= 0) break;
        }
        // A function the SCSI midlayer has no host for is not usable: its slot is reused.
        if (host < 0) continue;
        ent->host_num = host;
        g_scan.map[g_scan.map_count++] = std::move(ent);
        g_scan.kvo_inst_cnt++;
    }
    return KVO_STATUS_OK;
}

// Scans one driver: PCI functions, then one IOC information request per function. Returns
// the number of IOCs appended, or -1 (the reason is left in the last-status cell).
int ioc_scan_cna(kvo_ioc_type_e kind) {
    // debugfs carries the driver and firmware traces; its mount may well exist already.
    if (system("mount -t debugfs debugfs /sys/kernel/debug/ 2>/dev/null") != 0) {
    }
    kvo_status_t st = pci_scan(kind);
    if (st != KVO_STATUS_OK) {
        kvol_set_last_error(st);
        return -1;
    }
    const bool storage = kind != KVO_IOC_TYPE_LL;
    int shared_fd = -1;
    int ipfc_fd = -1;
    if (!storage) {
        shared_fd = open("/dev/tqe", O_RDWR);
        if (shared_fd < 0) {
            kvol_set_last_error(KVO_STATUS_NO_DRIVER);
            return -1;
        }
        if (g_scan.eth_fd >= 0) close(g_scan.eth_fd);
        g_scan.eth_fd = shared_fd;
    } else {
        close_ipfc();
        ipfc_fd = open("/dev/kvoipfc", O_RDWR);  // IP over FC is optional
        g_scan.ipfc_fd = ipfc_fd;
    }

    int added = 0;
    const int first = storage ? 0 : g_scan.kvo_inst_cnt;
    for (int i = first; i < g_scan.map_count; ++i) {
        const kvol_pci_host_map& ent = *g_scan.map[i];
        char fc_path[sizeof(kvol_t::devpath)];
        if (storage)
            kvol_fc_devpath(static_cast<uint32_t>(ent.host_num), node_exists, fc_path,
                            sizeof(fc_path));
        else
            snprintf(fc_path, sizeof(fc_path), "/dev/kvo");

        kvol_t tmp{};
        tmp.fd = shared_fd;
        tmp.sg_fd = -1;
        tmp.ipfc_fd = ipfc_fd;
        tmp.host = static_cast<uint32_t>(ent.host_num);
        tmp.instance = ent.instance;
        tmp.ioc_type = kind;
        snprintf(tmp.devpath, sizeof(tmp.devpath), "%s", storage ? fc_path : "/dev/tqe");
        kvo_ioc_info_t info{};
        st = kvol_ioc_get_info(&tmp, &info);
        if (st != KVO_STATUS_OK) {
            kvol_set_last_error(st);
            close_ipfc();
            return -1;
        }

        kvol_t* rec = kvol_calloc<kvol_t>();
        if (rec == nullptr) {
            kvol_set_last_error(KVO_STATUS_ENOMEM);
            return -1;
        }
        rec->fd = shared_fd;
        rec->sg_fd = -1;
        rec->ipfc_fd = ipfc_fd;
        rec->instance = info.kvod_num;
        rec->host = info.host;
        rec->id = i;
        kvol_ioc_fill_from_info(rec, &info);
        snprintf(rec->devpath, sizeof(rec->devpath), "%s",
                 kvol_is_storage_ioc(rec) ? fc_path : "/dev/tqe");
        kvol_config_merge_ioc(rec);
        rec->next = nullptr;
        kvol_config_register_ioc(rec);
        kvol_ioc_list_push(rec);
        ++added;
    }
    return added;
}

// ---- Channel -----------------------------------------------------------------------------------

// The debugfs trace and register readers and the virtual port requests through the FC
// transport class serve the debug and vport commands, which this utility does not carry yet.
// Until they arrive these requests are refused instead of being sent to the driver.
kvo_status_t debugfs_trace_read(kvol_t*, uint32_t, void*) { return KVO_STATUS_CMD_NOTSUPP; }
kvo_status_t debugfs_reg_read(kvol_t*, uint32_t, void*) { return KVO_STATUS_CMD_NOTSUPP; }
kvo_status_t vport_request(kvol_t*, uint32_t, void*) { return KVO_STATUS_CMD_NOTSUPP; }

bool is_trace_cmd(uint32_t cmd) {
    return cmd == KVO_IOCMD_DEBUG_DRV_TRACE || cmd == KVO_IOCMD_DEBUG_FW_TRACE ||
           cmd == KVO_IOCMD_DEBUG_FW_TRACE2;
}
bool is_reg_cmd(uint32_t cmd) { return cmd == KVO_IOCMD_REG_READ || cmd == KVO_IOCMD_REG_WRITE; }

kvo_status_t open_node(const char* path, fd_owner& out) {
    int fd = open(path, O_RDWR | O_NONBLOCK);
    if (fd < 0) {
        kvol_set_last_error(KVO_STATUS_NO_DRIVER);
        return KVO_STATUS_NO_DRIVER;
    }
    out.reset(fd);
    return KVO_STATUS_OK;
}

kvo_status_t eth_path(kvol_t* h, uint32_t cmd, void* rec) {
    if (cmd == KVO_IOCMD_DEBUG_FW_TRACE || cmd == KVO_IOCMD_DEBUG_FW_TRACE2)
        return debugfs_trace_read(h, cmd, rec);
    if (is_reg_cmd(cmd)) return debugfs_reg_read(h, cmd, rec);
    if (cmd == KVO_IOCMD_FLASH_UPDATE_PART || cmd == KVO_IOCMD_FLASH_READ_PART) {
        int rc = kvol_send_flash_ethtool_cmd(h, cmd, static_cast<kvo_flash_req_t*>(rec));
        return rc < 0 ? KVO_STATUS_ENOMEM : static_cast<kvo_status_t>(rc);
    }
    if (ioctl(h->fd, kvol_eth_ioctl_code(cmd), rec) < 0) return kvol_errno_to_status(errno);
    return KVO_STATUS_OK;
}

kvo_status_t scsi_passthru(kvol_t* h, void* rec) {
    auto* r = static_cast<kvo_ioctl_scsi_t*>(rec);
    sg_io_hdr_t hdr;
    kvol_scsi_sg_hdr(&hdr, r);
    if (ioctl(h->sg_fd, SG_IO, &hdr) < 0) return kvol_errno_to_status(errno);
    r->status = (hdr.host_status == 0 && hdr.driver_status == 0) ? 0 : 1;
    r->scsi_status = hdr.status;
    close(h->sg_fd);
    h->sg_fd = -1;
    return KVO_STATUS_OK;
}

kvo_status_t fcpt_bsg(kvol_t* h, kvo_ioctl_fcpt_t* r) {
    sg_io_v4 hdr;
    uint8_t req[KVO_BSG_REQUEST_LEN];
    kvo_bsg_reply_s reply{};
    if (kvol_fcpt_frame(&hdr, req, r, &reply) != KVO_STATUS_OK) return KVO_STATUS_FAILED;
    if (ioctl(h->sg_fd, SG_IO, &hdr) < 0) return kvol_errno_to_status(errno);
    // The transport's result is 0 or a negated errno.
    const int32_t result = static_cast<int32_t>(reply.result);
    r->status = result == 0 ? KVO_STATUS_OK : kvol_errno_to_status(-result);
    const uint32_t resid = hdr.din_resid > 0 ? static_cast<uint32_t>(hdr.din_resid) : 0;
    r->rspsz = resid < r->rspsz ? r->rspsz - resid : 0;
    return KVO_STATUS_OK;
}

kvo_status_t fc_path(kvol_t* h, uint32_t cmd, void* rec, size_t buf_len) {
    uint32_t code = cmd;
    const bool bsg = kvol_devpath_is_bsg(h->devpath);
    if (bsg && kvol_map_opensrc_iocmd_codes(&code) != 0) return KVO_STATUS_CMD_NOTSUPP;
    if (buf_len == 0) buf_len = KVOL_IOCTL_DEFAULT_LEN;

    if (cmd == KVO_IOCMD_SCSI_PASSTHRU) return scsi_passthru(h, rec);
    if (is_trace_cmd(cmd)) return debugfs_trace_read(h, cmd, rec);
    if (is_reg_cmd(cmd)) return debugfs_reg_read(h, cmd, rec);
    if (cmd == KVO_IOCMD_VPORT_CREATE || cmd == KVO_IOCMD_VPORT_DELETE)
        return vport_request(h, cmd, rec);

    if (cmd == KVO_IOCMD_FCPT) {
        // The pass-through node was opened by kvol_fcpt.
        if (bsg) return fcpt_bsg(h, static_cast<kvo_ioctl_fcpt_t*>(rec));
        if (ioctl(h->sg_fd, cmd, rec) < 0) return kvol_errno_to_status(errno);
        return KVO_STATUS_OK;
    }

    fd_owner fd;
    if (bsg) {
        sg_io_v4 hdr;
        uint8_t req[KVO_BSG_REQUEST_LEN];
        kvo_bsg_reply_s reply{};
        if (kvol_bsg_vendor_frame(&hdr, req, code, rec, buf_len, &reply) != KVO_STATUS_OK)
            return KVO_STATUS_FAILED;
        kvo_status_t st = open_node(h->devpath, fd);
        if (st != KVO_STATUS_OK) return st;
        if (ioctl(fd.get(), SG_IO, &hdr) < 0) return kvol_errno_to_status(errno);
        return KVO_STATUS_OK;
    }
    kvo_status_t st = open_node(h->devpath, fd);
    if (st != KVO_STATUS_OK) return st;
    if (ioctl(fd.get(), cmd, rec) < 0) return kvol_errno_to_status(errno);
    return KVO_STATUS_OK;
}

}  // namespace

// ---- IOC list ----------------------------------------------------------------------------------

void kvol_ioc_list_push(kvol_t* rec) {
    kvol_list_append(reinterpret_cast<void**>(&g_scan.ioc_list), rec, KVOL_LIST_IOC);
}

void kvol_ioc_set_num(int n) { g_scan.total = n; }

int kvol_ioc_get_num() { return g_scan.total; }

kvol_t* kvol_ioc_get_list() { return g_scan.ioc_list; }

// Closes the driver descriptors the IOCs hold. The Ethernet descriptor is shared by every
// Ethernet IOC and closed once.
void kvol_ioc_handles_close() {
    std::vector<int> closed;
    for (kvol_t* h = g_scan.ioc_list; h != nullptr; h = h->next) {
        if (h->fd == -1) continue;
        if (std::find(closed.begin(), closed.end(), h->fd) == closed.end()) {
            close(h->fd);
            closed.push_back(h->fd);
        }
        h->fd = -1;
    }
    if (g_scan.eth_fd >= 0 &&
        std::find(closed.begin(), closed.end(), g_scan.eth_fd) == closed.end())
        close(g_scan.eth_fd);
    g_scan.eth_fd = -1;
}

void kvol_ioc_free() {
    kvol_ioc_handles_close();
    close_ipfc();
    kvol_list_free(reinterpret_cast<void**>(&g_scan.ioc_list), KVOL_LIST_IOC);
    g_scan.total = 0;
}

// Rebuilds the IOC list: storage functions first, in sysfs directory order, then Ethernet
// functions. A driver whose scan fails contributes no count (its appended IOCs stay listed).
int kvol_ioc_scan() {
    kvol_ioc_free();
    g_scan.total = 0;
    g_scan.kvo_inst_cnt = 0;
    g_scan.map_count = 0;
    int n = ioc_scan_cna(KVO_IOC_TYPE_FC);
    if (n != -1) g_scan.total = n;
    n = ioc_scan_cna(KVO_IOC_TYPE_LL);
    if (n != -1) g_scan.total += n;
    for (auto& ent : g_scan.map) ent.reset();
    return g_scan.total;
}

// ---- Channel entry points ------------------------------------------------------------------------

kvo_status_t kvol_errno_to_status(int err) {
    switch (err) {
    case ENOMEM: return KVO_STATUS_ENOMEM;
    case EINTR: return KVO_STATUS_EINTR;
    case EIO: return KVO_STATUS_EIO;
    case ENXIO: return KVO_STATUS_ENXIO;
    case EBADF: return KVO_STATUS_EBADF;
    case ENODEV: return KVO_STATUS_NODEV;
    case EINVAL: return KVO_STATUS_EINVAL;
    case ENOTTY: return KVO_STATUS_ENOTTY;
    case EOPNOTSUPP: return KVO_STATUS_CMD_NOTSUPP;
    default: return KVO_STATUS_FAILED;
    }
}

// Sends one request. Storage functions go to their bsg node (vendor request) or the driver's
// control node; Ethernet functions to the shared Ethernet node. 0 means the system call
// succeeded and the driver's verdict is in the record's status.
kvo_status_t kvol_ioctl(kvol_t* h, uint32_t cmd, void* rec, size_t in_len, size_t out_len,
                        size_t buf_len) {
    (void)in_len;
    (void)out_len;
    if (h == nullptr || rec == nullptr) return KVO_STATUS_EINVAL;
    if (kvol_is_storage_ioc(h)) return fc_path(h, cmd, rec, buf_len);
    return eth_path(h, cmd, rec);
}

// Sends a request from a private copy of the record, so the driver never sees (or writes
// past) the caller's memory beyond len bytes; the copy comes back whatever the outcome.
kvo_status_t kvol_ioctl_nomask(kvol_t* h, uint32_t cmd, void* rec, size_t len) {
    if (rec == nullptr && len > 0) return KVO_STATUS_EINVAL;
    size_t room = std::max<size_t>(len, kvo_ioc_size(cmd));
    if (len == 0) room = std::max(room, KVOL_IOCTL_DEFAULT_LEN);
    heap_owner<uint8_t> buf(static_cast<uint8_t*>(std::calloc(1, room)));
    if (!buf) return KVO_STATUS_ENOMEM;
    if (len > 0) memcpy(buf.get(), rec, len);
    kvo_status_t rc = kvol_ioctl(h, cmd, buf.get(), len, len, len);
    if (len > 0) memcpy(rec, buf.get(), len);
    return rc;
}

kvo_status_t kvol_ioctl_ipfc(kvol_t* h, uint32_t cmd, void* rec) {
    if (h == nullptr) return KVO_STATUS_EINVAL;
    if (ioctl(h->ipfc_fd, cmd, rec) < 0) return kvol_errno_to_status(errno);
    return KVO_STATUS_OK;
}

// Flash write or read of an Ethernet function through ethtool. The firmware image goes
// through a file in the firmware directory and the flash-device request; every other
// partition through the EEPROM requests at the partition's offset. The ethtool outcome is not
// reported by the driver; the record's status ends at 0. Returns -12 when the EEPROM request
// cannot be allocated.
int kvol_send_flash_ethtool_cmd(kvol_t* h, uint32_t cmd, kvo_flash_req_t* rec) {
    if (h == nullptr || rec == nullptr) return KVO_STATUS_EINVAL;
    auto* data = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(rec->buf_ptr));
    if (data == nullptr && rec->bufsz > 0) return KVO_STATUS_EINVAL;
    fd_owner sock(socket(AF_INET, SOCK_DGRAM, 0));
    if (sock.get() < 0) return kvol_errno_to_status(errno);

    kvo_flash_attr_s attr{};
    kvo_status_t st = kvol_flash_get_attr(h, &attr);
    if (st != KVO_STATUS_OK) return st;
    rec->status = 1;
    uint32_t part_off = 0;
    const uint32_t nparts = std::min<uint32_t>(attr.npart, KVO_FLASH_PART_MAX);
    for (uint32_t i = 0; i < nparts; ++i) {
        if (attr.part[i].part_type == rec->type) {
            part_off = attr.part[i].part_off;
            break;
        }
    }
    ifreq ifr{};
    kvol_copy_str(ifr.ifr_name, h->eth_name, sizeof(h->eth_name));

    const bool write = cmd == KVO_IOCMD_FLASH_UPDATE_PART;
    if (write && rec->type == KVO_FLASH_PART_FWIMG) {
        char fname[64];
        char path[128];
        snprintf(fname, sizeof(fname), "%d-tqe_tmpfw_e1f2.bin", h->ad_id);
        snprintf(path, sizeof(path), "/lib/firmware/%s", fname);
        remove(path);
        {
            std::unique_ptr<FILE, file_closer> f(fopen(path, "w"));
            if (!f) return KVO_STATUS_EFOPEN;
            bool ok = fwrite(data, 1, rec->bufsz, f.get()) == rec->bufsz;
            ok = fclose(f.release()) == 0 && ok;
            if (!ok) {
                remove(path);
                return KVO_STATUS_FAILED;
            }
        }
        kvol_ethtool_flash flash{};
        flash.cmd = KVO_ETHTOOL_FLASHDEV;
        flash.region = KVO_FLASH_PART_FWIMG;
        kvol_copy_str(flash.data, fname, sizeof(fname));
        ifr.ifr_data = reinterpret_cast<char*>(&flash);
        (void)ioctl(sock.get(), SIOCETHTOOL, &ifr);
        remove(path);
    } else {
        const size_t data_len = static_cast<size_t>(rec->bufsz) + (write ? 4 : 0);
        if (data_len > UINT32_MAX) return KVO_STATUS_EINVAL;
        const size_t alloc = sizeof(ethtool_eeprom) + data_len;
        heap_owner<uint8_t> buf(static_cast<uint8_t*>(std::calloc(1, alloc)));
        if (!buf) {
            printf("mem alloc failed for ethtool eeprom cmd\n");
            return -12;
        }
        auto* ee = reinterpret_cast<ethtool_eeprom*>(buf.get());
        uint8_t* payload = buf.get() + sizeof(ethtool_eeprom);
        ee->cmd = write ? KVO_ETHTOOL_SEEPROM : KVO_ETHTOOL_GEEPROM;
        ee->magic = (static_cast<uint32_t>(h->device_id) << 16) | h->vendor_id;
        ee->offset = kvol_eeprom_offset(part_off, write);
        ee->len = static_cast<uint32_t>(data_len);
        if (write) {
            memcpy(payload, &rec->bufsz, 4);  // the image's length word goes first
            if (rec->bufsz > 0) memcpy(payload + 4, data, rec->bufsz);
        }
        ifr.ifr_data = reinterpret_cast<char*>(ee);
        (void)ioctl(sock.get(), SIOCETHTOOL, &ifr);
        if (!write && rec->bufsz > 0) memcpy(data, payload, rec->bufsz);
    }
    rec->status = 0;
    return 0;
}

// FC pass-through of one ELS or CT frame. A frame for a remote port goes to that port's bsg
// node, a frame for a fabric service to the function's own node. The response is copied into
// rsp and its length returned in *rsp_len; the result is the record's status.
kvo_status_t kvol_fcpt(kvol_t* h, uint16_t vf_id, wwn_t lwwn, wwn_t rwwn, uint32_t cos,
                       uint32_t timeout, uint32_t count, const uint8_t* fchdr, void* req,
                       uint32_t req_len, void* rsp, uint32_t* rsp_len) {
    if (h == nullptr || fchdr == nullptr || rsp_len == nullptr) return KVO_STATUS_EINVAL;
    if ((req == nullptr && req_len > 0) || (rsp == nullptr && *rsp_len > 0))
        return KVO_STATUS_EINVAL;
    if (!kvol_is_storage_ioc(h)) return KVO_STATUS_CMD_NOTSUPP;

    fd_owner node;
    if (rwwn != 0) {
        uint32_t host = 0, bus = 0, target = 0;
        kvo_status_t st = kvol_rport_get_scsi_address(h, vf_id, lwwn, rwwn, &host, &bus, &target);
        if (st != KVO_STATUS_OK) return st;
        char path[64];
        snprintf(path, sizeof(path), "/dev/bsg/rport-%u:%u-%u", host, bus, target);
        if (!node_exists(path)) snprintf(path, sizeof(path), "/dev/rport-%u:%u-%u", host, bus, target);
        int fd = open(path, O_RDWR | O_NONBLOCK);
        if (fd < 0) {
            printf("Opening file %s failed\n", path);
            return KVO_STATUS_FAILED;
        }
        node.reset(fd);
    } else {
        kvo_status_t st = open_node(h->devpath, node);
        if (st != KVO_STATUS_OK) return st;
    }

    const size_t total = sizeof(kvo_ioctl_fcpt_t) + *rsp_len;
    heap_owner<uint8_t> buf(static_cast<uint8_t*>(std::calloc(1, total)));
    if (!buf) return KVO_STATUS_ENOMEM;
    auto* r = reinterpret_cast<kvo_ioctl_fcpt_t*>(buf.get());
    uint8_t* rsp_area = buf.get() + sizeof(kvo_ioctl_fcpt_t);
    r->kvod_num = static_cast<uint16_t>(h->instance);
    r->vf_id = vf_id;
    r->lpwwn = lwwn;
    r->dpwwn = rwwn;
    r->tsecs = timeout;
    r->cts = static_cast<int32_t>(count);
    r->cos = cos;
    memcpy(r->fchs, fchdr, sizeof(r->fchs));
    r->nport_nexus_needed = rwwn != 0 ? 1 : 0;
    r->reqsz = req_len;
    r->rspsz = *rsp_len;
    r->reqbuf_ptr = reinterpret_cast<uintptr_t>(req);
    r->rspbuf_ptr = reinterpret_cast<uintptr_t>(rsp_area);

    h->sg_fd = node.get();
    kvo_status_t rc = kvol_ioctl(h, KVO_IOCMD_FCPT, r, sizeof(*r), sizeof(*r), total);
    h->sg_fd = -1;  // node closes it
    if (rc != KVO_STATUS_OK) return rc;
    const uint32_t got = std::min(r->rspsz, *rsp_len);
    if (got > 0) memcpy(rsp, rsp_area, got);
    *rsp_len = got;
    return static_cast<kvo_status_t>(r->status);
}
