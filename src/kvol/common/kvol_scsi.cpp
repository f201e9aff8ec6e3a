// SCSI commands to the LUNs behind a remote port: the CDBs of the commands the library sends, the
// common sender, REPORT LUNS with its one retry, and the LUN-mask filter of REPORT LUNS data.
// The node a command travels through is the platform's business (kvol_prep_scsi_passthru_sg
// and the channel's KVO_IOCMD_SCSI_PASSTHRU).
#include <algorithm>
#include <climits>

#include "kvol_ioc_priv.h"

namespace {

constexpr uint8_t SCSI_TEST_UNIT_READY = 0x00;
constexpr uint8_t SCSI_INQUIRY = 0x12;
constexpr uint8_t SCSI_READ_CAPACITY = 0x25;
constexpr uint8_t SCSI_READ_10 = 0x28;
constexpr uint8_t SCSI_SERVICE_ACTION_IN_16 = 0x9E;
constexpr uint8_t SAI_READ_CAPACITY_16 = 0x10;
constexpr uint8_t SCSI_REPORT_LUNS = 0xA0;
constexpr uint8_t SCSI_STATUS_GOOD = 0;
constexpr uint32_t RPL_HEADER_LEN = 8;
constexpr uint32_t RPL_ENTRY_LEN = 8;

void put_be(uint8_t* p, uint32_t v, int n) {
    for (int i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(v >> (8 * (n - 1 - i)));
}

uint32_t get_be32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}

bool masked_in(const kvo_lunmask_cfg_s& mask, wwn_t lpwwn, wwn_t rpwwn, lun_t lun) {
    for (const kvo_lun_mask_s& e : mask.lun_list)
        if (e.state == KVO_LUNMASK_ENTRY_ACTIVE && e.lun == lun && e.lp_wwn == lpwwn &&
            e.rp_wwn == rpwwn)
            return true;
    return false;
}

// True when the list the header announces is wholly in the buffer.
bool rpl_whole(const uint8_t* data, uint32_t size) {
    return size >= RPL_HEADER_LEN &&
           (size - RPL_HEADER_LEN) / RPL_ENTRY_LEN >= get_be32(data) / RPL_ENTRY_LEN;
}

}  // namespace

uint32_t kvol_scsi_rpl_count(const uint8_t* data, uint32_t size) {
    if (data == nullptr || size < RPL_HEADER_LEN) return 0;
    return std::min(get_be32(data) / RPL_ENTRY_LEN, (size - RPL_HEADER_LEN) / RPL_ENTRY_LEN);
}

int kvol_scsi_lm_filter_rpl(const kvo_lunmask_cfg_s& mask, wwn_t lpwwn, wwn_t rpwwn, uint8_t* data,
                            uint32_t size) {
    if (data == nullptr || !rpl_whole(data, size) || mask.status != KVO_LUNMASK_ENABLED) return 0;
    kvol_heap<uint8_t> out(static_cast<uint8_t*>(std::calloc(1, size)));
    if (!out) return 0;
    const uint32_t n = get_be32(data) / RPL_ENTRY_LEN;
    uint32_t kept = 0;
    for (uint32_t i = 0; i < n; ++i) {
        const uint8_t* entry = data + RPL_HEADER_LEN + i * RPL_ENTRY_LEN;
        lun_t lun;
        memcpy(&lun, entry, sizeof(lun));
        // LUN 0 always stays: the host needs it to reach the target at all.
        if (lun != 0 && !masked_in(mask, lpwwn, rpwwn, lun)) continue;
        memcpy(out.get() + RPL_HEADER_LEN + kept * RPL_ENTRY_LEN, entry, RPL_ENTRY_LEN);
        ++kept;
    }
    put_be(out.get(), kept * RPL_ENTRY_LEN, 4);
    memcpy(data, out.get(), size);
    return 1;
}

int kvol_scsi_lm_modify_rpl_payload(kvol_t* h, wwn_t lpwwn, wwn_t rpwwn, void* data,
                                    uint32_t size) {
    auto* d = static_cast<uint8_t*>(data);
    // A list cut short is left alone, and costs no table query.
    if (d == nullptr || !rpl_whole(d, size)) return 0;
    kvol_heap_record<kvo_ioctl_fcpim_lunmask_query_t> q;
    if (!q || kvol_fcpim_lunmask_query(h, q.p) != KVO_STATUS_OK) return 0;
    return kvol_scsi_lm_filter_rpl(q->lun_mask, lpwwn, rpwwn, d, size);
}

kvo_status_t kvol_scsi_cmnd(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                            scsi_cdb_t* cdb, int write, void* buf, uint32_t len,
                            uint8_t* scsi_status, void* sense, uint32_t* sense_len) {
    if (h == nullptr || cdb == nullptr || scsi_status == nullptr || sense_len == nullptr ||
        (buf == nullptr && len > 0) || (sense == nullptr && *sense_len > 0))
        return KVO_STATUS_EINVAL;
    if (!kvol_is_storage_ioc(h)) return KVO_STATUS_CMD_NOTSUPP;
    kvo_status_t st = kvol_prep_scsi_passthru_sg(h, vf_id, lpwwn, rpwwn, lun);
    if (st != KVO_STATUS_OK) return st;

    // The record travels with room for the data behind it, as the driver's pass-through wants.
    const size_t total = sizeof(kvo_ioctl_scsi_t) + len;
    kvol_heap<uint8_t> mem(static_cast<uint8_t*>(std::calloc(1, total)));
    if (!mem) {
        kvol_scsi_passthru_end(h);
        return KVO_STATUS_ENOMEM;
    }
    auto* rec = reinterpret_cast<kvo_ioctl_scsi_t*>(mem.get());
    rec->kvod_num = static_cast<uint16_t>(h->instance);
    rec->vf_id = vf_id;
    rec->lpwwn = lpwwn;
    rec->rpwwn = rpwwn;
    rec->lun = lun;
    rec->cdb = *cdb;
    rec->write = write;
    rec->iosz = len;
    rec->snssz = *sense_len;
    rec->iobuf_ptr = reinterpret_cast<uintptr_t>(buf);
    rec->snsbuf_pt = reinterpret_cast<uintptr_t>(sense);
    st = kvol_ioctl(h, KVO_IOCMD_SCSI_PASSTHRU, rec, total, total, sizeof(kvo_ioctl_scsi_t));
    kvol_scsi_passthru_end(h);
    if (st != KVO_STATUS_OK) return st;
    if (cdb->scsi_cdb[0] == SCSI_REPORT_LUNS && rec->scsi_status == SCSI_STATUS_GOOD)
        (void)kvol_scsi_lm_modify_rpl_payload(h, lpwwn, rpwwn, buf, len);
    *sense_len = rec->snssz;
    *scsi_status = rec->scsi_status;
    return static_cast<kvo_status_t>(rec->status);
}

kvo_status_t kvol_scsi_inquiry(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                               scsi_cdb_t* cdb, int write, void* buf, uint32_t len,
                               uint8_t* scsi_status, void* sense, uint32_t* sense_len) {
    if (cdb == nullptr) return KVO_STATUS_EINVAL;
    cdb->scsi_cdb[0] = SCSI_INQUIRY;
    put_be(&cdb->scsi_cdb[3], len, 2);
    return kvol_scsi_cmnd(h, vf_id, lpwwn, rpwwn, lun, cdb, write, buf, len, scsi_status, sense,
                          sense_len);
}

kvo_status_t kvol_scsi_readcapacity(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                                    scsi_cdb_t* cdb, int write, void* buf, uint32_t len,
                                    uint8_t* scsi_status, void* sense, uint32_t* sense_len) {
    if (cdb == nullptr) return KVO_STATUS_EINVAL;
    if (len < 8) return KVO_STATUS_EINVAL;
    cdb->scsi_cdb[0] = SCSI_READ_CAPACITY;
    return kvol_scsi_cmnd(h, vf_id, lpwwn, rpwwn, lun, cdb, write, buf, len, scsi_status, sense,
                          sense_len);
}

kvo_status_t kvol_scsi_readcapacity16(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                      lun_t lun, scsi_cdb_t* cdb, int write, void* buf,
                                      uint32_t len, uint8_t* scsi_status, void* sense,
                                      uint32_t* sense_len) {
    if (cdb == nullptr) return KVO_STATUS_EINVAL;
    cdb->scsi_cdb[0] = SCSI_SERVICE_ACTION_IN_16;
    cdb->scsi_cdb[1] = SAI_READ_CAPACITY_16;
    put_be(&cdb->scsi_cdb[10], len, 4);
    return kvol_scsi_cmnd(h, vf_id, lpwwn, rpwwn, lun, cdb, write, buf, len, scsi_status, sense,
                          sense_len);
}

kvo_status_t kvol_scsi_testunitready(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                     lun_t lun, scsi_cdb_t* cdb, int write, void* /*buf*/,
                                     uint32_t /*len*/, uint8_t* scsi_status, void* sense,
                                     uint32_t* sense_len) {
    if (cdb == nullptr) return KVO_STATUS_EINVAL;
    cdb->scsi_cdb[0] = SCSI_TEST_UNIT_READY;
    return kvol_scsi_cmnd(h, vf_id, lpwwn, rpwwn, lun, cdb, write, nullptr, 0, scsi_status, sense,
                          sense_len);
}

kvo_status_t kvol_scsi_read10(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                              scsi_cdb_t* cdb, int write, void* buf, uint32_t len,
                              uint8_t* scsi_status, void* sense, uint32_t* sense_len) {
    if (cdb == nullptr) return KVO_STATUS_EINVAL;
    cdb->scsi_cdb[0] = SCSI_READ_10;
    put_be(&cdb->scsi_cdb[7], 8, 2);  // 8 blocks from LBA 0
    return kvol_scsi_cmnd(h, vf_id, lpwwn, rpwwn, lun, cdb, write, buf, len, scsi_status, sense,
                          sense_len);
}

kvo_status_t kvol_scsi_reportluns(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                                  scsi_cdb_t* cdb, int write, uint8_t** buf, uint32_t* len,
                                  uint8_t* scsi_status, void* sense, uint32_t* sense_len) {
    if (cdb == nullptr || buf == nullptr || len == nullptr || scsi_status == nullptr)
        return KVO_STATUS_EINVAL;
    *buf = nullptr;
    *len = 0;
    uint32_t size = KVOL_SCSI_RPL_FIRST_LEN;
    kvol_heap<uint8_t> data(static_cast<uint8_t*>(std::calloc(1, size)));
    if (!data) return KVO_STATUS_ENOMEM;
    cdb->scsi_cdb[0] = SCSI_REPORT_LUNS;
    put_be(&cdb->scsi_cdb[6], size, 4);
    kvo_status_t st = kvol_scsi_cmnd(h, vf_id, lpwwn, rpwwn, lun, cdb, write, data.get(), size,
                                     scsi_status, sense, sense_len);
    if (st != KVO_STATUS_OK) return st;
    const uint64_t need = uint64_t{get_be32(data.get())} + RPL_HEADER_LEN;
    if (*scsi_status == SCSI_STATUS_GOOD && need > size) {
        // One more try with room for the list as the first answer gave it; what the second
        // answer says is taken as it comes.
        if (need > UINT32_MAX) return KVO_STATUS_ENOMEM;  // more than the CDB can ask for
        size = static_cast<uint32_t>(need);
        data.reset(static_cast<uint8_t*>(std::calloc(1, size)));
        if (!data) return KVO_STATUS_ENOMEM;
        put_be(&cdb->scsi_cdb[6], size, 4);
        st = kvol_scsi_cmnd(h, vf_id, lpwwn, rpwwn, lun, cdb, write, data.get(), size, scsi_status,
                            sense, sense_len);
        if (st != KVO_STATUS_OK) return st;
    }
    *buf = data.release();
    *len = size;
    return KVO_STATUS_OK;
}

kvo_status_t kvol_fcpim_get_luns(kvol_t* h, wwn_t lpwwn, wwn_t rpwwn,
                                 lun_t (&luns)[KVOL_FCPIM_MAX_LUNS], uint32_t* count) {
    if (count == nullptr) return KVO_STATUS_EINVAL;
    scsi_cdb_t cdb{};
    uint8_t* raw = nullptr;
    uint32_t size = 0;
    uint8_t status = 0;
    uint8_t sense[256];
    uint32_t sense_len = sizeof(sense);
    kvo_status_t st = kvol_scsi_reportluns(h, 0, lpwwn, rpwwn, 0, &cdb, 0, &raw, &size, &status,
                                           sense, &sense_len);
    kvol_heap<uint8_t> data(raw);
    if (st != KVO_STATUS_OK || status != SCSI_STATUS_GOOD) return st;
    const uint32_t n = std::min(kvol_scsi_rpl_count(data.get(), size), KVOL_FCPIM_MAX_LUNS);
    if (n > 0) memcpy(luns, data.get() + RPL_HEADER_LEN, size_t{n} * RPL_ENTRY_LEN);
    *count = n;
    return KVO_STATUS_OK;
}
