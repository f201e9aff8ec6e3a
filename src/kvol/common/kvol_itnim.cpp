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

kvo_status_t kvol_itnim_get_itnstats(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                     const kvol_stats_t** table, kvo_itnim_stats_t* stats) {
    if (table == nullptr || stats == nullptr) return KVO_STATUS_EINVAL;
    kvo_ioctl_itnim_itnstats_t req{};
    name_nexus(req, vf_id, lpwwn, rpwwn);
    kvo_status_t rc = kvol_request<KVO_IOCMD_ITNIM_GET_ITNSTATS>(h, req);
    if (rc != KVO_STATUS_OK) return rc;
    *stats = req.itnstats;
    *table = &kvol_kvo_itnim_stats;
    return KVO_STATUS_OK;
}

kvo_status_t kvol_itnim_get_iostats(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                    const kvol_stats_t** table, kvo_itnim_iostats_t* iostats) {
    if (table == nullptr || iostats == nullptr) return KVO_STATUS_EINVAL;
    kvol_heap_record<kvo_ioctl_itnim_iostats_t> req;
    if (!req) return KVO_STATUS_ENOMEM;
    name_nexus(*req, vf_id, lpwwn, rpwwn);
    kvo_status_t rc = kvol_request<KVO_IOCMD_ITNIM_GET_IOSTATS>(h, *req);
    if (rc != KVO_STATUS_OK) return rc;
    *iostats = req->iostats;
    *table = &kvol_kvo_itnim_iostats;
    return KVO_STATUS_OK;
}

// The counters are found by their names in the table, so the sum follows the table, not a
// layout assumed here. A counter the table lacks counts 0; the sum wraps at 32 bits.
uint32_t kvol_itnim_get_iothroughput(const kvol_stats_t* table, const kvo_itnim_iostats_t* iostats) {
    if (table == nullptr || iostats == nullptr) return 0;
    static constexpr const char* kNames[] = {"Read data transferred in bytes",
                                             "Write data transferred in bytes"};
    uint32_t sum = 0;
    int found = 0;
    for (int i = 0; i < table->count && found < 2; ++i) {
        const kvol_stats_desc_t& row = table->desc[i];
        for (const char* name : kNames) {
            if (strncmp(row.desc, name, sizeof(row.desc)) != 0) continue;
            if (row.type != KVOL_UINT32 || row.offset + sizeof(uint32_t) > sizeof(*iostats)) continue;
            uint32_t v = 0;
            memcpy(&v, reinterpret_cast<const uint8_t*>(iostats) + row.offset, sizeof(v));
            sum += v;
            ++found;
        }
    }
    return sum;
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
