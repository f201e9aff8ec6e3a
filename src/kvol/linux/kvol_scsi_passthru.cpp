// SCSI pass-through through the SCSI generic driver: a version-3 SG_IO header around the
// record's CDB, data and sense buffers.
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
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
    if (ioctl(h->sg_fd, SG_IO, &hdr) < 0) return kvol_errno_to_status(errno);
    rec->status = (hdr.host_status == 0 && hdr.driver_status == 0) ? 0 : 1;
    rec->scsi_status = hdr.status;
    close(h->sg_fd);
    h->sg_fd = -1;
    return KVO_STATUS_OK;
}
