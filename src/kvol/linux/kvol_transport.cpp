// The driver command channel on Linux: ioctl on the drivers' control nodes, vendor requests
// on the FC transport's bsg nodes, SCSI generic and FC pass-through, and ethtool for the flash
// of Ethernet functions.
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "kvol_linux.h"

namespace {

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

kvo_status_t fc_path(kvol_t* h, uint32_t cmd, void* rec, size_t buf_len) {
    uint32_t code = cmd;
    const bool bsg = kvol_devpath_is_bsg(h->devpath);
    if (bsg && kvol_map_opensrc_iocmd_codes(&code) != 0) return KVO_STATUS_CMD_NOTSUPP;
    if (buf_len == 0) buf_len = KVOL_IOCTL_DEFAULT_LEN;

    if (cmd == KVO_IOCMD_SCSI_PASSTHRU) return kvol_scsi_passthru(h, static_cast<kvo_ioctl_scsi_t*>(rec));
    if (is_trace_cmd(cmd)) return debugfs_trace_read(h, cmd, rec);
    if (is_reg_cmd(cmd)) return debugfs_reg_read(h, cmd, rec);
    if (cmd == KVO_IOCMD_VPORT_CREATE || cmd == KVO_IOCMD_VPORT_DELETE)
        return vport_request(h, cmd, rec);

    if (cmd == KVO_IOCMD_FCPT) {
        // The pass-through node was opened by kvol_fcpt.
        if (bsg) return kvol_fcpt_bsg(h, static_cast<kvo_ioctl_fcpt_t*>(rec));
        if (ioctl(h->sg_fd, cmd, rec) < 0) return kvol_errno_to_status(errno);
        return KVO_STATUS_OK;
    }

    kvol_fd fd;
    if (bsg) {
        sg_io_v4 hdr;
        uint8_t req[KVO_BSG_REQUEST_LEN];
        kvo_bsg_reply_s reply{};
        if (kvol_bsg_vendor_frame(&hdr, req, code, rec, buf_len, &reply) != KVO_STATUS_OK)
            return KVO_STATUS_FAILED;
        kvo_status_t st = kvol_open_node(h->devpath, fd);
        if (st != KVO_STATUS_OK) return st;
        if (ioctl(fd.get(), SG_IO, &hdr) < 0) return kvol_errno_to_status(errno);
        // A driver that sent back less than the whole record has not answered it.
        if (hdr.din_resid != 0) return KVO_STATUS_EIO;
        return KVO_STATUS_OK;
    }
    kvo_status_t st = kvol_open_node(h->devpath, fd);
    if (st != KVO_STATUS_OK) return st;
    if (ioctl(fd.get(), cmd, rec) < 0) return kvol_errno_to_status(errno);
    return KVO_STATUS_OK;
}

}  // namespace

// ---- Nodes and framing -------------------------------------------------------------------------

bool kvol_node_exists(const char* path) {
    struct stat st{};
    return stat(path, &st) == 0;
}

kvo_status_t kvol_open_node(const char* path, kvol_fd& out) {
    int fd = open(path, O_RDWR | O_NONBLOCK);
    if (fd < 0) {
        kvol_set_last_error(KVO_STATUS_NO_DRIVER);
        return KVO_STATUS_NO_DRIVER;
    }
    out.reset(fd);
    return KVO_STATUS_OK;
}

bool kvol_devpath_is_bsg(const char* devpath) {
    return strstr(devpath, "/dev/kvo") == nullptr;
}

uint32_t kvol_eth_ioctl_code(uint32_t cmd) { return (cmd & ~0xFF00u) | (KVOL_ETH_IOC_TYPE << 8); }

uint32_t kvol_eeprom_offset(uint32_t part_off, bool write) {
    return (write && part_off != 0) ? part_off - 4 : part_off;
}

void kvol_bsg_frame(sg_io_v4* hdr, uint8_t (&req)[32], const kvol_fc_bsg_request& r,
                    uint64_t dout, uint32_t dout_len, uint64_t din, uint32_t din_len,
                    kvo_bsg_reply_s* reply) {
    memset(hdr, 0, sizeof(*hdr));
    memset(req, 0, sizeof(req));
    memcpy(req, &r, sizeof(r));
    hdr->guard = 'Q';
    hdr->protocol = BSG_PROTOCOL_SCSI;
    hdr->subprotocol = BSG_SUB_PROTOCOL_SCSI_TRANSPORT;
    hdr->request_len = KVO_BSG_REQUEST_LEN;
    hdr->request = reinterpret_cast<uintptr_t>(req);
    hdr->dout_xfer_len = dout_len;
    hdr->dout_xferp = dout;
    hdr->din_xfer_len = din_len;
    hdr->din_xferp = din;
    hdr->max_response_len = sizeof(*reply);
    hdr->response = reinterpret_cast<uintptr_t>(reply);
    hdr->timeout = KVOL_BSG_TIMEOUT_MS;
}

kvo_status_t kvol_bsg_vendor_frame(sg_io_v4* hdr, uint8_t (&req)[32], uint32_t vendor_cmd,
                                   void* rec, size_t len, kvo_bsg_reply_s* reply) {
    if (len > UINT32_MAX) return KVO_STATUS_FAILED;
    kvol_fc_bsg_request r{};
    r.msgcode = KVO_BSG_HST_VENDOR;
    r.rqst_data.h_vendor.vendor_id = KVO_PCI_VENDOR_ID;
    r.rqst_data.h_vendor.vendor_cmd[0] = vendor_cmd;
    const uint64_t at = reinterpret_cast<uintptr_t>(rec);
    kvol_bsg_frame(hdr, req, r, at, static_cast<uint32_t>(len), at, static_cast<uint32_t>(len), reply);
    return KVO_STATUS_OK;
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
    kvol_heap<uint8_t> buf(static_cast<uint8_t*>(std::calloc(1, room)));
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
    kvol_fd sock(socket(AF_INET, SOCK_DGRAM, 0));
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
            std::unique_ptr<FILE, int (*)(FILE*)> f(fopen(path, "w"), fclose);
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
        kvol_heap<uint8_t> buf(static_cast<uint8_t*>(std::calloc(1, alloc)));
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

