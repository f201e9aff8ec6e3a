// SCSI pass-through through the SCSI generic driver: finding the sg node of a LUN in sysfs,
// opening it for one command, and the version-3 SG_IO header around the record's CDB, data and
// sense buffers.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kvol_linux.h"

void kvol_scsi_sg_hdr(sg_io_hdr_t* hdr, kvo_ioctl_scsi_t* rec) {
    memset(hdr, 0, sizeof(*hdr));
    hdr->interface_id = 'S';
    hdr->cmd_len = sizeof(rec->cdb.scsi_cdb);  // always the whole field, whatever the opcode
    hdr->cmdp = rec->cdb.scsi_cdb;
    switch (rec->cdb.scsi_cdb[0]) {
    case 0x0A:  // WRITE(6)
    case 0x10:  // WRITE FILEMARKS
    case 0x2A:  // WRITE(10)
    case 0x8A:  // WRITE(16)
    case 0xAA:  // WRITE(12)
        hdr->dxfer_direction = SG_DXFER_TO_DEV;
        break;
    default:
        hdr->dxfer_direction = SG_DXFER_TO_FROM_DEV;
        break;
    }
    hdr->dxfer_len = rec->iosz;
    hdr->dxferp = reinterpret_cast<void*>(static_cast<uintptr_t>(rec->iobuf_ptr));
    hdr->sbp = reinterpret_cast<unsigned char*>(static_cast<uintptr_t>(rec->snsbuf_pt));
    hdr->mx_sb_len = static_cast<unsigned char>(rec->snssz & 0xFF);
    hdr->timeout = KVOL_SG_TIMEOUT_MS;
}

kvo_status_t kvol_scsi_passthru(kvol_t* h, kvo_ioctl_scsi_t* rec) {
    sg_io_hdr_t hdr;
    kvol_scsi_sg_hdr(&hdr, rec);
    const int rc = ioctl(h->sg_fd, SG_IO, &hdr);
    const int err = errno;
    kvol_scsi_passthru_end(h);
    if (rc < 0) return kvol_errno_to_status(err);
    rec->status = (hdr.host_status == 0 && hdr.driver_status == 0) ? 0 : 1;
    rec->scsi_status = hdr.status;
    return KVO_STATUS_OK;
}

void kvol_scsi_passthru_end(kvol_t* h) {
    if (h->sg_fd >= 0) close(h->sg_fd);
    h->sg_fd = -1;
}

// ---- The SCSI generic node of a LUN -----------------------------------------------------------

namespace {

// "/dev/<name>" into path; false when it does not fit.
bool dev_node(char (&path)[KVOL_SCSI_PATH_LEN], const char* name) {
    const int n = snprintf(path, sizeof(path), "/dev/%s", name);
    return n > 0 && static_cast<size_t>(n) < sizeof(path);
}

}  // namespace

int kvol_check_sg_node_presence(int host, int bus, int target, int lun,
                                char (&path)[KVOL_SCSI_PATH_LEN]) {
    char dir[KVOL_SCSI_PATH_LEN];
    snprintf(dir, sizeof(dir), "/sys/class/scsi_device/%d:%d:%d:%d/device/scsi_generic", host, bus,
             target, lun);
    kvol_dir_scan r = kvol_dir_find(dir, [&](const char* name) {
        return strstr(name, "sg") != nullptr && dev_node(path, name);
    });
    if (r != kvol_dir_scan::unreadable) return r == kvol_dir_scan::found ? 0 : 1;
    // Older sysfs links the node from the device itself: scsi_generic:sg3.
    snprintf(dir, sizeof(dir), "/sys/class/scsi_device/%d:%d:%d:%d/device", host, bus, target, lun);
    static constexpr char link_kind[] = "scsi_generic:";
    r = kvol_dir_find(dir, [&](const char* name) {
        const char* at = strstr(name, "scsi_generic:sg");
        return at != nullptr && dev_node(path, at + sizeof(link_kind) - 1);
    });
    return r == kvol_dir_scan::found ? 0 : 1;
}

int kvol_get_rport_lun_sg(int host, int bus, int target, int lun,
                          char (&path)[KVOL_SCSI_PATH_LEN]) {
    char entry[KVOL_SCSI_PATH_LEN];
    snprintf(entry, sizeof(entry), "/sys/class/scsi_device/%d:%d:%d:%d", host, bus, target, lun);
    if (kvol_node_exists(entry) && kvol_check_sg_node_presence(host, bus, target, lun, path) == 0)
        return 0;

    // Another LUN of the same target will do: the node only carries the command to the target.
    // The expression is not anchored, so host 1 also matches the entries of host 11; the LUN
    // found is then looked up under the host asked for.
    char expr[KVOL_SCSI_PATH_LEN];
    snprintf(expr, sizeof(expr), "%d:%d:%d:[0-9]{1,5}", host, bus, target);
    regex_t re;
    const int rc = regcomp(&re, expr, REG_EXTENDED | REG_NOSUB);
    if (rc != 0) return rc == REG_ESPACE ? KVO_STATUS_ENOMEM : KVO_STATUS_FAILED;
    const kvol_dir_scan r = kvol_dir_find("/sys/class/scsi_device", [&](const char* name) {
        if (regexec(&re, name, 0, nullptr, 0) != 0) return false;
        const char* colon = strrchr(name, ':');
        char* end = nullptr;
        errno = 0;
        const long other = strtol(colon + 1, &end, 10);
        if (end == colon + 1 || errno != 0 || other < 0 || other > INT_MAX) return false;
        return kvol_check_sg_node_presence(host, bus, target, static_cast<int>(other), path) == 0;
    });
    regfree(&re);
    return r == kvol_dir_scan::found ? 0 : 1;
}

kvo_status_t kvol_prep_scsi_passthru_sg(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                        lun_t lun) {
    kvol_heap_record<kvo_itnim_attr_s> attr;
    if (!attr) {
        printf("Memory allocation for INTIM attr failed\n");
        return static_cast<kvo_status_t>(-12);
    }
    kvo_status_t st = kvol_itnim_get_attr(h, vf_id, lpwwn, rpwwn, attr.p);
    if (st != KVO_STATUS_OK) return st;
    if (attr->state != KVO_ITNIM_ONLINE) return KVO_STATUS_NO_FCPIM_NEXUS;
    uint32_t host = 0, bus = 0, target = 0;
    st = kvol_rport_get_scsi_address(h, vf_id, lpwwn, rpwwn, &host, &bus, &target);
    if (st != KVO_STATUS_OK) return st;
    // The kernel's LUN number: the first level with its address method kept.
    uint8_t wire[8];
    memcpy(wire, &lun, sizeof(wire));
    const int hlun = wire[0] << 8 | wire[1];
    char path[KVOL_SCSI_PATH_LEN];
    const int found = kvol_get_rport_lun_sg(static_cast<int>(host), static_cast<int>(bus),
                                            static_cast<int>(target), hlun, path);
    if (found != 0) return static_cast<kvo_status_t>(found);
    const int fd = open(path, O_RDWR | O_NONBLOCK);
    if (fd < 0) {
        printf("Opening file %s failed\n", path);
        return KVO_STATUS_FAILED;
    }
    kvol_scsi_passthru_end(h);
    h->sg_fd = fd;
    return KVO_STATUS_OK;
}
