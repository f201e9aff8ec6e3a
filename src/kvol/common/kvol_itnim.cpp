// The FCP initiator's I-T nexuses: attributes, statistics reset, and the target reset list,
// which the driver holds and the configuration file mirrors.
#include <cstring>

#include "kvol.h"
#include "kvol_config.h"
#include "kvol_ioc_priv.h"

namespace {

// A local port WWN of 0 stands for the function's own port.
kvo_status_t local_wwn(kvol_t* h, wwn_t* lpwwn) {
    if (*lpwwn != 0) return KVO_STATUS_OK;
    kvo_ioc_info_t info{};
    kvo_status_t rc = kvol_ioc_get_info(h, &info);
    if (rc == KVO_STATUS_OK) *lpwwn = info.pwwn;
    return rc;
}

template <class Rec>
void name_nexus(Rec& rec, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn) {
    rec.vf_id = vf_id;
    rec.lpwwn = lpwwn;
    rec.rpwwn = rpwwn;
}

// Runs one change of the configuration file in its own transaction; the load's failure, else
// the change's result.
template <class Change>
kvo_status_t persist(Change change) {
    const char* path = kvol_get_cfg_path();
    kvo_status_t rc = kvol_config_load(path);
    if (rc != KVO_STATUS_OK) return rc;
    rc = change();
    kvol_config_sync(path);
    return rc;
}

}  // namespace

kvo_status_t kvol_itnim_get_attr(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                 kvo_itnim_attr_s* attr) {
    if (attr == nullptr) return KVO_STATUS_EINVAL;
    kvo_ioctl_itnim_attr_t req{};
    name_nexus(req, vf_id, lpwwn, rpwwn);
    kvo_status_t rc = kvol_request<KVO_IOCMD_ITNIM_GET_ATTR>(h, req);
    if (rc == KVO_STATUS_OK) *attr = req.attr;
    return rc;
}

kvo_status_t kvol_itnim_reset_stats(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn) {
    kvo_ioctl_itnim_reset_stats_t req{};
    name_nexus(req, vf_id, lpwwn, rpwwn);
    return kvol_request<KVO_IOCMD_ITNIM_RESET_STATS>(h, req);
}

// ---- Target reset list ---------------------------------------------------------------------------

kvo_status_t kvol_itnim_trs_en_dis(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                   bool disable) {
    if (h == nullptr) return KVO_STATUS_EINVAL;
    kvo_status_t rc = local_wwn(h, &lpwwn);
    if (rc != KVO_STATUS_OK) return rc;
    kvo_ioctl_itnim_trs_t req{};
    name_nexus(req, vf_id, lpwwn, rpwwn);
    rc = disable ? kvol_request<KVO_IOCMD_ITNIM_TRS_DISABLE>(h, req)
                 : kvol_request<KVO_IOCMD_ITNIM_TRS_ENABLE>(h, req);
    if (rc != KVO_STATUS_OK) return rc;
    return persist([&] { return kvol_config_trs_update(h, vf_id, lpwwn, rpwwn, disable ? 1 : 0); });
}

kvo_status_t kvol_itnim_trs_enable(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn) {
    return kvol_itnim_trs_en_dis(h, vf_id, lpwwn, rpwwn, false);
}

kvo_status_t kvol_itnim_trs_disable(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn) {
    return kvol_itnim_trs_en_dis(h, vf_id, lpwwn, rpwwn, true);
}

// The driver writes the list into the area behind the head, which the head's trs_list names.
// A count above the area's capacity is a garbled reply and is cut to it.
kvo_status_t kvol_itnim_trs_query(kvol_t* h, uint16_t* count,
                                  kvo_trs_list_t (&entries)[KVO_TRS_LIST_MAX]) {
    if (count == nullptr) return KVO_STATUS_EINVAL;
    kvol_heap_record<kvo_itnim_trs_query_s> q;
    if (!q) return KVO_STATUS_ENOMEM;
    q->head.trs_list = reinterpret_cast<uintptr_t>(q->list);
    kvo_status_t rc = kvol_request_area<KVO_IOCMD_ITNIM_TRS_QUERY>(h, *q);
    if (rc != KVO_STATUS_OK) return rc;
    uint16_t n = q->head.trs_count;
    if (n > KVO_TRS_LIST_MAX) n = KVO_TRS_LIST_MAX;
    memcpy(entries, q->list, n * sizeof(kvo_trs_list_t));
    *count = n;
    return KVO_STATUS_OK;
}

kvo_status_t kvol_itnim_trs_clear(kvol_t* h) {
    kvo_status_t rc = kvol_request_gen<KVO_IOCMD_ITNIM_TRS_CLEAR>(h);
    if (rc != KVO_STATUS_OK) return rc;
    return persist([&] { return kvol_config_trs_clear(h); });
}
