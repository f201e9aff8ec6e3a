// FC pass-through: one ELS or CT frame to a remote port or to a fabric service, carried as an
// FC transport bsg request on the remote port's node or the function's own node.
#include <fcntl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kvol_linux.h"

uint32_t kvol_fcpt_msgcode(const kvo_ioctl_fcpt_t* rec) {
    const uint8_t type = rec->fchs[8];  // TYPE field of the frame header
    const bool to_rport = rec->nport_nexus_needed != 0;
    if (type == KVO_FC_TYPE_ELS) return to_rport ? KVO_BSG_RPT_ELS : KVO_BSG_HST_ELS_NOLOGIN;
    if (type == KVO_FC_TYPE_CT) return to_rport ? KVO_BSG_RPT_CT : KVO_BSG_HST_CT;
    return 0;
}

kvo_status_t kvol_fcpt_frame(sg_io_v4* hdr, uint8_t (&req)[32], const kvo_ioctl_fcpt_t* rec,
                             kvo_bsg_reply_s* reply) {
    const uint32_t msgcode = kvol_fcpt_msgcode(rec);
    if (msgcode == 0) return KVO_STATUS_FAILED;
    const auto* payload = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(rec->reqbuf_ptr));
    uint32_t preamble[3] = {0, 0, 0};
    if (payload != nullptr && rec->reqsz >= sizeof(preamble)) memcpy(preamble, payload, sizeof(preamble));
    const uint8_t first = (payload != nullptr && rec->reqsz > 0) ? payload[0] : 0;

    kvol_fc_bsg_request r{};
    r.msgcode = msgcode;
    switch (msgcode) {
    case KVO_BSG_RPT_ELS:
        r.rqst_data.r_els.els_code = first;
        break;
    case KVO_BSG_RPT_CT:
        memcpy(r.rqst_data.r_ct.preamble_word, preamble, sizeof(preamble));
        break;
    case KVO_BSG_HST_ELS_NOLOGIN:
        r.rqst_data.h_els.command_code = first;
        memcpy(r.rqst_data.h_els.port_id, &rec->fchs[1], 3);  // D_ID
        break;
    default:  // KVO_BSG_HST_CT
        memcpy(r.rqst_data.h_ct.port_id, &rec->fchs[1], 3);
        memcpy(r.rqst_data.h_ct.preamble_word, preamble, sizeof(preamble));
        break;
    }
    kvol_bsg_frame(hdr, req, r, rec->reqbuf_ptr, rec->reqsz, rec->rspbuf_ptr, rec->rspsz, reply);
    return KVO_STATUS_OK;
}

kvo_status_t kvol_fcpt_bsg(kvol_t* h, kvo_ioctl_fcpt_t* r) {
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

    kvol_fd node;
    if (rwwn != 0) {
        uint32_t host = 0, bus = 0, target = 0;
        kvo_status_t st = kvol_rport_get_scsi_address(h, vf_id, lwwn, rwwn, &host, &bus, &target);
        if (st != KVO_STATUS_OK) return st;
        char path[64];
        snprintf(path, sizeof(path), "/dev/bsg/rport-%u:%u-%u", host, bus, target);
        if (!kvol_node_exists(path)) snprintf(path, sizeof(path), "/dev/rport-%u:%u-%u", host, bus, target);
        int fd = open(path, O_RDWR | O_NONBLOCK);
        if (fd < 0) {
            printf("Opening file %s failed\n", path);
            return KVO_STATUS_FAILED;
        }
        node.reset(fd);
    } else {
        kvo_status_t st = kvol_open_node(h->devpath, node);
        if (st != KVO_STATUS_OK) return st;
    }

    const size_t total = sizeof(kvo_ioctl_fcpt_t) + *rsp_len;
    kvol_heap<uint8_t> buf(static_cast<uint8_t*>(std::calloc(1, total)));
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
