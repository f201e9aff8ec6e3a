// LUN masking: the driver's mask table of a port, and the host's SCSI devices kept in line with
// it.
#include "kvo_lunmask.h"
#include "kvol_ioc_priv.h"

kvo_status_t kvol_fcpim_lunmask_query(kvol_t* h, kvo_ioctl_fcpim_lunmask_query_t* out) {
    if (out == nullptr) return KVO_STATUS_EINVAL;
    kvol_heap_record<kvo_ioctl_fcpim_lunmask_query_t> q;
    if (!q) return KVO_STATUS_ENOMEM;
    kvo_status_t rc = kvol_request<KVO_IOCMD_FCPIM_LUNMASK_QUERY>(h, *q);
    if (rc != KVO_STATUS_OK) return rc;
    *out = *q;
    return KVO_STATUS_OK;
}
