// I/O statistics above the single nexus: a function's, over all its nexuses, and one logical
// port's. The driver returns both in the nexus I/O statistics record, so the nexus table
// describes them (and finds their byte totals for kvol_itnim_get_iothroughput).
#include "kvol_ioc_priv.h"

kvo_status_t kvol_fcpim_get_modstats(kvol_t* h, uint16_t vf_id, const kvol_stats_t** table,
                                     kvo_itnim_iostats_t* modstats) {
    if (table == nullptr || modstats == nullptr) return KVO_STATUS_EINVAL;
    kvol_heap_record<kvo_ioctl_fcpim_modstats_t> req;
    if (!req) return KVO_STATUS_ENOMEM;
    req->vf_id = vf_id;
    kvo_status_t rc = kvol_request<KVO_IOCMD_FCPIM_GET_MODSTATS>(h, *req);
    if (rc != KVO_STATUS_OK) return rc;
    *modstats = req->modstats;
    *table = &kvol_kvo_itnim_iostats;
    return KVO_STATUS_OK;
}

kvo_status_t kvol_lport_get_iostats(kvol_t* h, uint16_t vf_id, wwn_t lpwwn,
                                    const kvol_stats_t** table, kvo_itnim_iostats_t* iostats) {
    if (table == nullptr || iostats == nullptr) return KVO_STATUS_EINVAL;
    kvol_heap_record<kvo_ioctl_lport_iostats_t> req;
    if (!req) return KVO_STATUS_ENOMEM;
    req->vf_id = vf_id;
    req->pwwn = lpwwn;
    kvo_status_t rc = kvol_request<KVO_IOCMD_LPORT_GET_IOSTATS>(h, *req);
    if (rc != KVO_STATUS_OK) return rc;
    *iostats = req->iostats;
    *table = &kvol_kvo_itnim_iostats;
    return KVO_STATUS_OK;
}
