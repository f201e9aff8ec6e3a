// The storage driver's LUN masking: one table per storage function (port), in the function's
// ext.lunmask:
//   status     0 disabled (the default), 1 enabled, 255 uninitialized (a host description may
//              set it; enable and disable set 0 or 1)
//   entries    16 slots, each null (free) or {"lp", "rp", "lun", "rp_tag"}: WWNs as written,
//              the LUN as its wire bytes "0001-0000-0000-0000"
// Add fills the lowest free slot; delete frees the entry's slot; clear frees every slot and
// leaves the status as it was. A duplicate add is ENTRY_EXISTS, a delete of an entry that is
// not there ENTRY_NOT_EXISTS, a 17th entry MAX_ENTRY_REACHED. The local WWN must be the port's
// own (0 means that one; the driver writes it back) or the status is UNKNOWN_LWWN; the remote
// WWN must name a target remote port of the function, else UNKNOWN_RWWN. The driver does not
// check that the LUN exists. While enabled, the host sees LUN 0 and the masked-in LUNs only:
// a rescan skips the others and SCSI commands to them find no LUN (scsi.cpp, lun_visible).
#include <cstdio>

#include "drv.h"
#include "kvo_lunmask.h"

namespace kvosim {

namespace {

json& table(Function& f) {
    json& t = f.ext["lunmask"];
    if (!t.is_object()) t = json::object();
    if (!t.contains("status")) t["status"] = KVO_LUNMASK_DISABLED;
    json& e = t["entries"];
    if (!e.is_array()) e = json::array();
    while (e.size() < KVO_LUNMASK_ENTRIES_MAX) e.push_back(nullptr);
    return t;
}

uint64_t host_wwn(wwn_t w) {
    uint8_t b[8];
    memcpy(b, &w, 8);
    uint64_t v = 0;
    for (uint8_t x : b) v = v << 8 | x;
    return v;
}

std::string lun_text(lun_t l) {
    uint8_t b[8];
    memcpy(b, &l, 8);
    char s[24];
    snprintf(s, sizeof s, "%02x%02x-%02x%02x-%02x%02x-%02x%02x", b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7]);
    return s;
}

lun_t lun_wire_of(const std::string& text) {
    uint8_t b[8] = {};
    unsigned v[8] = {};
    if (sscanf(text.c_str(), "%2x%2x-%2x%2x-%2x%2x-%2x%2x", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7]) == 8)
        for (int i = 0; i < 8; i++) b[i] = static_cast<uint8_t>(v[i]);
    lun_t l;
    memcpy(&l, b, 8);
    return l;
}

kvo_status_t simple(Req& r, int status) {
    json& t = table(r.fn());
    if (status >= 0) t["status"] = status;
    else t["entries"] = json::array();
    table(r.fn());
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t lunmask_enable(Req& r) { return simple(r, KVO_LUNMASK_ENABLED); }
kvo_status_t lunmask_disable(Req& r) { return simple(r, KVO_LUNMASK_DISABLED); }
kvo_status_t lunmask_clear(Req& r) { return simple(r, -1); }

kvo_status_t lunmask_query(Req& r) {
    auto& rec = r.rec<kvo_ioctl_fcpim_lunmask_query_t>();
    const json& t = table(r.fn());
    rec.lun_mask = {};
    rec.lun_mask.status = static_cast<uint8_t>(t.value("status", 0));
    const json& es = t["entries"];
    for (size_t i = 0; i < KVO_LUNMASK_ENTRIES_MAX && i < es.size(); i++) {
        const json& e = es[i];
        if (!e.is_object()) continue;
        kvo_lun_mask_s& m = rec.lun_mask.lun_list[i];
        uint64_t lp = 0, rp = 0;
        parse_wwn(e.value("lp", ""), lp);
        parse_wwn(e.value("rp", ""), rp);
        m.lp_wwn = wire_wwn(lp);
        m.rp_wwn = wire_wwn(rp);
        m.lun = lun_wire_of(e.value("lun", ""));
        m.rp_tag = static_cast<uint16_t>(e.value("rp_tag", 0));
        m.lp_tag = 0;
        m.state = KVO_LUNMASK_ENTRY_ACTIVE;
    }
    return KVO_STATUS_OK;
}

// Checks the nexus of an add or delete; fills in the port's WWN when the caller gave 0.
kvo_status_t nexus(Req& r, kvo_ioctl_fcpim_lunmask_t& rec, size_t& rp_index) {
    Function& f = r.fn();
    if (rec.pwwn == 0) rec.pwwn = wire_wwn(f.pwwn);
    r.note = "lpwwn " + wwn_str(host_wwn(rec.pwwn)) + " rpwwn " + wwn_str(host_wwn(rec.rpwwn)) + " lun " +
             lun_text(rec.lun);
    if (host_wwn(rec.pwwn) != f.pwwn) return KVO_STATUS_UNKNOWN_LWWN;
    for (size_t i = 0; i < f.rports.size(); i++)
        if (f.rports[i].role == "target" && f.rports[i].pwwn == host_wwn(rec.rpwwn)) {
            rp_index = i;
            return KVO_STATUS_OK;
        }
    return KVO_STATUS_UNKNOWN_RWWN;
}

int find_entry(const json& es, const std::string& lp, const std::string& rp, const std::string& lun) {
    for (size_t i = 0; i < es.size(); i++) {
        const json& e = es[i];
        if (e.is_object() && e.value("lp", "") == lp && e.value("rp", "") == rp && e.value("lun", "") == lun)
            return static_cast<int>(i);
    }
    return -1;
}

kvo_status_t lunmask_add(Req& r) {
    auto& rec = r.rec<kvo_ioctl_fcpim_lunmask_t>();
    size_t rp_index = 0;
    kvo_status_t s = nexus(r, rec, rp_index);
    if (s != KVO_STATUS_OK) return s;
    json& es = table(r.fn())["entries"];
    const std::string lp = wwn_str(host_wwn(rec.pwwn)), rp = wwn_str(host_wwn(rec.rpwwn)), lun = lun_text(rec.lun);
    if (find_entry(es, lp, rp, lun) >= 0) return KVO_STATUS_ENTRY_EXISTS;
    for (size_t i = 0; i < es.size(); i++) {
        if (es[i].is_object()) continue;
        json e(json::value_t::object);
        e["lp"] = lp;
        e["rp"] = rp;
        e["lun"] = lun;
        e["rp_tag"] = rp_index;
        es[i] = e;
        r.note += fmt(" slot %zu", i);
        r.changed();
        return KVO_STATUS_OK;
    }
    return KVO_STATUS_MAX_ENTRY_REACHED;
}

kvo_status_t lunmask_delete(Req& r) {
    auto& rec = r.rec<kvo_ioctl_fcpim_lunmask_t>();
    size_t rp_index = 0;
    kvo_status_t s = nexus(r, rec, rp_index);
    if (s != KVO_STATUS_OK) return s;
    json& es = table(r.fn())["entries"];
    int i = find_entry(es, wwn_str(host_wwn(rec.pwwn)), wwn_str(host_wwn(rec.rpwwn)), lun_text(rec.lun));
    if (i < 0) return KVO_STATUS_ENTRY_NOT_EXISTS;
    es[static_cast<size_t>(i)] = nullptr;
    r.note += fmt(" slot %d", i);
    r.changed();
    return KVO_STATUS_OK;
}

constexpr HandlerEntry lunmask_handlers[] = {
    {KVO_IOCMD_FCPIM_LUNMASK_ENABLE, "FCPIM_LUNMASK_ENABLE", lunmask_enable, 0},
    {KVO_IOCMD_FCPIM_LUNMASK_DISABLE, "FCPIM_LUNMASK_DISABLE", lunmask_disable, 0},
    {KVO_IOCMD_FCPIM_LUNMASK_CLEAR, "FCPIM_LUNMASK_CLEAR", lunmask_clear, 0},
    {KVO_IOCMD_FCPIM_LUNMASK_QUERY, "FCPIM_LUNMASK_QUERY", lunmask_query, 0},
    {KVO_IOCMD_FCPIM_LUNMASK_ADD, "FCPIM_LUNMASK_ADD", lunmask_add, 0},
    {KVO_IOCMD_FCPIM_LUNMASK_DELETE, "FCPIM_LUNMASK_DELETE", lunmask_delete, 0},
};

}  // namespace

KVOSIM_HANDLERS(lunmask, lunmask_handlers);

}  // namespace kvosim
