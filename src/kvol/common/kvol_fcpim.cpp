// Function-wide settings of the FCP initiator: the path time-out (persisted) and the I/O
// throttle (the driver keeps it; a new value takes effect at the driver's next start).
#include "kvol.h"
#include "kvol_config.h"
#include "kvol_ioc_priv.h"

kvo_status_t kvol_fcpim_fast_failover(kvol_t* h, uint16_t tov) {
    if (tov > KVO_FCPIM_PATHTOV_MAX) return KVO_STATUS_EINVAL_TOV;
    kvo_ioctl_fcpim_t req{};
    req.path_tov = tov;
    kvo_status_t rc = kvol_request<KVO_IOCMD_FCPIM_FAST_FAILOVER>(h, req);
    if (rc != KVO_STATUS_OK) return rc;
    const char* path = kvol_get_cfg_path();
    rc = kvol_config_load(path);
    if (rc != KVO_STATUS_OK) return rc;
    kvol_config_fcpim(h, tov);
    kvol_config_sync(path);
    return KVO_STATUS_OK;
}

kvo_status_t kvol_fcpim_throttle_query(kvol_t* h, kvo_fcpim_throttle_s* throttle) {
    if (throttle == nullptr) return KVO_STATUS_EINVAL;
    kvo_ioctl_fcpim_throttle_t req{};
    kvo_status_t rc = kvol_request<KVO_IOCMD_FCPIM_THROTTLE_QUERY>(h, req);
    if (rc == KVO_STATUS_OK) *throttle = req.throttle;
    return rc;
}

kvo_status_t kvol_fcpim_throttle_set(kvol_t* h, uint16_t value) {
    kvo_ioctl_fcpim_throttle_t req{};
    req.throttle.cfg_value = value;
    return kvol_request<KVO_IOCMD_FCPIM_THROTTLE_SET>(h, req);
}
