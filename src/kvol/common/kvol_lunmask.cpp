// LUN masking: the driver's mask table of a port, and the host's SCSI devices kept in line with
// it. After an add the host rescans, so that the LUN let through gets its device; after a delete
// or a clear, the devices of the LUNs that left the mask are removed, but only while masking
// was in force (otherwise the host saw them all along) and never LUN 0, which the host always
// sees. Rescans and removals are best effort: they never change a call's result.
#include "kvo_lunmask.h"
#include "kvol_ioc_priv.h"

namespace {

// The kernel's number of a LUN: its first level, address method kept.
uint32_t host_lun(lun_t lun) {
    uint8_t b[sizeof(lun)];
    memcpy(b, &lun, sizeof(b));
    return static_cast<uint32_t>(b[0]) << 8 | b[1];
}

// Removes the OS device of a LUN of the nexus (lpwwn, rpwwn); LUN 0 stays.
void remove_os_device(kvol_t* h, wwn_t lpwwn, wwn_t rpwwn, lun_t lun) {
    uint32_t host = 0, bus = 0, target = 0;
    if (kvol_rport_get_scsi_address(h, 0, lpwwn, rpwwn, &host, &bus, &target) != KVO_STATUS_OK) return;
    const uint32_t l = host_lun(lun);
    if (l != 0) kvol_os_scsi_device_remove(host, bus, target, l);
}

// Sends an add or delete; a local WWN of 0 comes back as the one the driver used.
template <uint32_t Code>
kvo_status_t lunmask_edit(kvol_t* h, uint16_t vf_id, wwn_t* lpwwn, wwn_t rpwwn, lun_t lun) {
    if (lpwwn == nullptr) return KVO_STATUS_EINVAL;
    kvo_ioctl_fcpim_lunmask_t req{};
    req.vf_id = vf_id;
    req.pwwn = *lpwwn;
    req.rpwwn = rpwwn;
    req.lun = lun;
    kvo_status_t rc = kvol_request<Code>(h, req);
    if (*lpwwn == 0) *lpwwn = req.pwwn;
    return rc;
}

}  // namespace

kvo_status_t kvol_fcpim_lunmask_query(kvol_t* h, kvo_ioctl_fcpim_lunmask_query_t* out) {
    if (out == nullptr) return KVO_STATUS_EINVAL;
    kvol_heap_record<kvo_ioctl_fcpim_lunmask_query_t> q;
    if (!q) return KVO_STATUS_ENOMEM;
    kvo_status_t rc = kvol_request<KVO_IOCMD_FCPIM_LUNMASK_QUERY>(h, *q);
    if (rc != KVO_STATUS_OK) return rc;
    *out = *q;
    return KVO_STATUS_OK;
}

kvo_status_t kvol_fcpim_lunmask_enable(kvol_t* h) {
    return kvol_request_gen<KVO_IOCMD_FCPIM_LUNMASK_ENABLE>(h);
}

kvo_status_t kvol_fcpim_lunmask_disable(kvol_t* h) {
    return kvol_request_gen<KVO_IOCMD_FCPIM_LUNMASK_DISABLE>(h);
}

kvo_status_t kvol_fcpim_lunmask_add(kvol_t* h, uint16_t vf_id, wwn_t* lpwwn, wwn_t rpwwn, lun_t lun) {
    kvo_status_t rc = lunmask_edit<KVO_IOCMD_FCPIM_LUNMASK_ADD>(h, vf_id, lpwwn, rpwwn, lun);
    if (rc != KVO_STATUS_OK) return rc;
    uint32_t host = 0, bus = 0, target = 0;
    if (kvol_rport_get_scsi_address(h, 0, *lpwwn, rpwwn, &host, &bus, &target) == KVO_STATUS_OK)
        kvol_os_scsi_host_rescan(host);
    return KVO_STATUS_OK;
}

kvo_status_t kvol_fcpim_lunmask_delete(kvol_t* h, uint16_t vf_id, wwn_t* lpwwn, wwn_t rpwwn, lun_t lun) {
    kvo_status_t rc = lunmask_edit<KVO_IOCMD_FCPIM_LUNMASK_DELETE>(h, vf_id, lpwwn, rpwwn, lun);
    if (rc != KVO_STATUS_OK) return rc;
    kvo_ioctl_fcpim_lunmask_query_t q{};
    rc = kvol_fcpim_lunmask_query(h, &q);
    if (rc != KVO_STATUS_OK) return rc;
    if (q.lun_mask.status == KVO_LUNMASK_ENABLED) remove_os_device(h, *lpwwn, rpwwn, lun);
    return KVO_STATUS_OK;
}

// The table is read before it is cleared: its entries name the devices to remove.
kvo_status_t kvol_fcpim_lunmask_clear(kvol_t* h) {
    kvo_ioctl_fcpim_lunmask_query_t q{};
    kvo_status_t rc = kvol_fcpim_lunmask_query(h, &q);
    if (rc != KVO_STATUS_OK) return rc;
    rc = kvol_request_gen<KVO_IOCMD_FCPIM_LUNMASK_CLEAR>(h);
    if (rc != KVO_STATUS_OK || q.lun_mask.status != KVO_LUNMASK_ENABLED) return rc;
    for (const kvo_lun_mask_s& e : q.lun_mask.lun_list)
        if (e.state == KVO_LUNMASK_ENTRY_ACTIVE) remove_os_device(h, e.lp_wwn, e.rp_wwn, e.lun);
    return KVO_STATUS_OK;
}
