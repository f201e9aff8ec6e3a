// Logical and remote ports: the lists the driver keeps of them and a remote port's attributes
// and SCSI address.
#include "kvol_ioc_priv.h"

namespace {

// Sends a list request whose record names the caller's area; copies what the driver wrote.
// The driver writes at most the area's capacity; a larger count only says how many it has.
template <uint32_t Code, class Rec>
kvo_status_t kvol_get_wwn_list(kvol_t* h, Rec& req, uint64_t Rec::*area, uint32_t Rec::*count,
                               wwn_t* out, uint32_t room, uint32_t* total) {
    if (total == nullptr || (out == nullptr && room > 0)) return KVO_STATUS_EINVAL;
    req.*area = reinterpret_cast<uintptr_t>(out);
    req.*count = room;
    kvo_status_t rc = kvol_request<Code>(h, req);
    if (rc != KVO_STATUS_OK) return rc;
    *total = req.*count;
    return KVO_STATUS_OK;
}

}  // namespace

kvo_status_t kvol_fabric_get_lports(kvol_t* h, uint16_t vf_id, wwn_t* lports, uint32_t room,
                                    uint32_t* total) {
    kvo_ioctl_fabric_get_lports_t req{};
    req.vf_id = vf_id;
    return kvol_get_wwn_list<KVO_IOCMD_FABRIC_GET_LPORTS>(
        h, req, &kvo_ioctl_fabric_get_lports_t::buf_ptr, &kvo_ioctl_fabric_get_lports_t::nports,
        lports, room, total);
}

kvo_status_t kvol_lport_get_rports(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t* rports,
                                   uint32_t room, uint32_t* total) {
    kvo_ioctl_lport_get_rports_t req{};
    req.vf_id = vf_id;
    req.pwwn = lpwwn;
    return kvol_get_wwn_list<KVO_IOCMD_LPORT_GET_RPORTS>(
        h, req, &kvo_ioctl_lport_get_rports_t::rbuf_ptr, &kvo_ioctl_lport_get_rports_t::nrports,
        rports, room, total);
}

kvo_status_t kvol_rport_get_attr(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                 kvo_rport_attr_s* attr) {
    if (attr == nullptr) return KVO_STATUS_EINVAL;
    kvol_heap_record<kvo_ioctl_rport_attr_t> req;
    if (!req) return KVO_STATUS_ENOMEM;
    req->vf_id = vf_id;
    req->lpwwn = lpwwn;
    req->rpwwn = rpwwn;
    kvo_status_t rc = kvol_request<KVO_IOCMD_RPORT_GET_ATTR_BY_QUALIFIER>(h, *req);
    if (rc != KVO_STATUS_OK) return rc;
    *attr = req->attr;
    attr->symname[KVO_RPORT_SYMNAME_LEN - 1] = '\0';
    return KVO_STATUS_OK;
}

kvo_status_t kvol_rport_get_scsi_address(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                         uint32_t* host, uint32_t* bus, uint32_t* target) {
    if (host == nullptr || bus == nullptr || target == nullptr) return KVO_STATUS_EINVAL;
    kvo_rport_scsi_addr_t req{};
    req.vf_id = vf_id;
    req.pwwn = lpwwn;
    req.rpwwn = rpwwn;
    kvo_status_t rc = kvol_request<KVO_IOCMD_RPORT_GET_SCSI_ADDRESS>(h, req);
    if (rc != KVO_STATUS_OK) return rc;
    *host = req.host;
    *bus = req.bus;
    *target = req.target;
    return KVO_STATUS_OK;
}
