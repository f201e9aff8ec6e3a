// The FCP initiator of the storage driver: I-T nexus attributes and statistics reset, the path
// time-out, the I/O throttle and the target reset list.
//
// State (in each storage function's ext.fcpim, created with defaults on first use):
//   path_tov                      seconds, 0..60 (default 0)
//   throttle {max, cur, cfg}      cur is in force; cfg takes effect at the driver's next start
//   trs [[lpwwn, rpwwn], ...]     nexuses whose target reset is disabled, at most 16
// A nexus is (the function's port WWN, a remote port of the function). A remote port's
// ext.itnim may set the attributes: {"state": 0..7, "retry": 0|1, "rec": 0|1,
// "task_retry_id": 0|1, "conf_comp": 0|1}; the driver keeps its statistics reset there
// ("reset_clock", "resets").
//
// Emulated I/O (drv_iostats.cpp): a remote port's ext.io sets the rates of its nexus, whose
// counters cover the bed's I/O clock since the nexus's last statistics reset.
#include <cstdio>

#include "drv.h"
#include "kvo_fcpim.h"
#include "kvo_stats.h"

namespace kvosim {

namespace {

constexpr uint16_t kDefaultPathTov = 0;  // the driver default: no line in the file
constexpr uint16_t kDefaultThrottle = 2000;
constexpr size_t kTrsMax = KVO_TRS_LIST_MAX;

json& fcpim_state(Function& f) {
    json& s = f.ext["fcpim"];
    if (!s.is_object()) s = json::object();
    if (!s.contains("path_tov")) s["path_tov"] = kDefaultPathTov;
    if (!s.contains("throttle"))
        s["throttle"] = {{"max", kDefaultThrottle}, {"cur", kDefaultThrottle}, {"cfg", kDefaultThrottle}};
    if (!s.contains("trs")) s["trs"] = json::array();
    return s;
}

std::string nexus_note(wwn_t l, wwn_t r) {
    return "lpwwn " + wwn_str(wire_wwn(l)) + " rpwwn " + wwn_str(wire_wwn(r));
}

// The remote port of the nexus (lpwwn, rpwwn) seen from the addressed function, or the status
// that says which half is unknown.
kvo_status_t find_nexus(Req& r, wwn_t lpwwn, wwn_t rpwwn, RemotePort** out) {
    r.note = nexus_note(lpwwn, rpwwn);
    Function& f = r.fn();
    if (f.driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    if (wire_wwn(f.pwwn) != lpwwn) return KVO_STATUS_UNKNOWN_LWWN;
    for (RemotePort& rp : f.rports) {
        if (wire_wwn(rp.pwwn) == rpwwn && rp.role != "fabric") {
            *out = &rp;
            return KVO_STATUS_OK;
        }
    }
    return KVO_STATUS_UNKNOWN_RWWN;
}

bool on_trs_list(json& s, wwn_t l, wwn_t r) {
    for (const json& e : s["trs"])
        if (e.at(0).get<uint64_t>() == l && e.at(1).get<uint64_t>() == r) return true;
    return false;
}

uint8_t flag(const json& o, const char* key, uint8_t dflt) {
    return o.contains(key) ? static_cast<uint8_t>(o[key].get<int>() != 0) : dflt;
}

kvo_status_t itnim_get_attr(Req& r) {
    auto& rec = r.rec<kvo_ioctl_itnim_attr_t>();
    RemotePort* rp = nullptr;
    kvo_status_t st = find_nexus(r, rec.lpwwn, rec.rpwwn, &rp);
    if (st != KVO_STATUS_OK) return st;
    const json& it = rp->ext.contains("itnim") ? rp->ext["itnim"] : json::object();
    rec.attr = {};
    rec.attr.state = rp->role == "initiator" ? KVO_ITNIM_INITIATIOR
                                              : it.value("state", static_cast<uint32_t>(KVO_ITNIM_ONLINE));
    rec.attr.retry = flag(it, "retry", 1);
    rec.attr.task_retry_id = flag(it, "task_retry_id", 0);
    rec.attr.rec_support = flag(it, "rec", 1);
    rec.attr.conf_comp = flag(it, "conf_comp", 0);
    rec.attr.trs_blocked = on_trs_list(fcpim_state(r.fn()), rec.lpwwn, rec.rpwwn) ? 1 : 0;
    return KVO_STATUS_OK;
}

json& itnim_state(RemotePort& rp) {
    json& it = rp.ext["itnim"];
    if (!it.is_object()) it = json::object();
    return it;
}

// Seconds of emulated I/O the nexus's counters cover: since its last reset.
uint64_t io_seconds(const Host& h, RemotePort& rp) {
    const uint64_t since = itnim_state(rp).value("reset_clock", static_cast<uint64_t>(0));
    const uint64_t now = io_clock(h);
    return now > since ? now - since : 0;
}

kvo_status_t itnim_get_itnstats(Req& r) {
    auto& rec = r.rec<kvo_ioctl_itnim_itnstats_t>();
    RemotePort* rp = nullptr;
    kvo_status_t st = find_nexus(r, rec.lpwwn, rec.rpwwn, &rp);
    if (st != KVO_STATUS_OK) return st;
    kvo_itnim_stats_t& s = rec.itnstats;
    s = {};
    // A reset clears the history of logins; a nexus that never was reset has logged in once
    // (and, if it is not online now, gone offline once).
    if (!itnim_state(*rp).contains("reset_clock")) {
        const json& it = itnim_state(*rp);
        const uint32_t state = it.value("state", static_cast<uint32_t>(KVO_ITNIM_ONLINE));
        s.prli_sent = 1;
        s.prli_rsp_acc = rp->role == "initiator" ? 0 : 1;
        s.initiator = rp->role == "initiator" ? 1 : 0;
        s.onlines = 1;
        s.offlines = state == KVO_ITNIM_ONLINE || rp->role == "initiator" ? 0 : 1;
    }
    return KVO_STATUS_OK;
}

kvo_status_t itnim_get_iostats(Req& r) {
    auto& rec = r.rec<kvo_ioctl_itnim_iostats_t>();
    RemotePort* rp = nullptr;
    kvo_status_t st = find_nexus(r, rec.lpwwn, rec.rpwwn, &rp);
    if (st != KVO_STATUS_OK) return st;
    rec.iostats = {};
    const uint64_t t = io_seconds(r.st.host, *rp);
    add_io(rec.iostats, rp->ext.value("io", json::object()), t);
    r.note = fmt("t=%llu", static_cast<unsigned long long>(t));
    return KVO_STATUS_OK;
}

kvo_status_t itnim_reset_stats(Req& r) {
    auto& rec = r.rec<kvo_ioctl_itnim_reset_stats_t>();
    RemotePort* rp = nullptr;
    kvo_status_t st = find_nexus(r, rec.lpwwn, rec.rpwwn, &rp);
    if (st != KVO_STATUS_OK) return st;
    json& it = itnim_state(*rp);
    it["reset_clock"] = io_clock(r.st.host);
    it["resets"] = it.value("resets", 0) + 1;
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t fast_failover(Req& r) {
    auto& rec = r.rec<kvo_ioctl_fcpim_t>();
    r.note = fmt("path_tov %u", rec.path_tov);
    if (r.fn().driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    if (rec.path_tov > KVO_FCPIM_PATHTOV_MAX) return KVO_STATUS_EINVAL_TOV;
    fcpim_state(r.fn())["path_tov"] = rec.path_tov;
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t throttle_query(Req& r) {
    auto& rec = r.rec<kvo_ioctl_fcpim_throttle_t>();
    if (r.fn().driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    const json& t = fcpim_state(r.fn())["throttle"];
    rec.throttle.max_value = t["max"].get<uint16_t>();
    rec.throttle.cur_value = t["cur"].get<uint16_t>();
    rec.throttle.cfg_value = t["cfg"].get<uint16_t>();
    rec.throttle.rsvd = 0;
    r.changed();  // the defaults, once created, are kept
    return KVO_STATUS_OK;
}

// The value waits for the driver's next start (kvosim restart).
kvo_status_t throttle_set(Req& r) {
    auto& rec = r.rec<kvo_ioctl_fcpim_throttle_t>();
    r.note = fmt("cfg %u", rec.throttle.cfg_value);
    if (r.fn().driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    json& t = fcpim_state(r.fn())["throttle"];
    if (rec.throttle.cfg_value == 0 || rec.throttle.cfg_value > t["max"].get<uint16_t>())
        return KVO_STATUS_EINVAL;
    t["cfg"] = rec.throttle.cfg_value;
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t trs_change(Req& r, bool disable) {
    auto& rec = r.rec<kvo_ioctl_itnim_trs_t>();
    RemotePort* rp = nullptr;
    kvo_status_t st = find_nexus(r, rec.lpwwn, rec.rpwwn, &rp);
    if (st != KVO_STATUS_OK) return st;
    json& list = fcpim_state(r.fn())["trs"];
    const bool listed = on_trs_list(fcpim_state(r.fn()), rec.lpwwn, rec.rpwwn);
    if (disable && !listed) {
        if (list.size() >= kTrsMax) return KVO_STATUS_MAX_ENTRY_REACHED;
        list.push_back({rec.lpwwn, rec.rpwwn});
    } else if (!disable && listed) {
        json kept = json::array();
        for (const json& e : list)
            if (!(e.at(0).get<uint64_t>() == rec.lpwwn && e.at(1).get<uint64_t>() == rec.rpwwn))
                kept.push_back(e);
        list = kept;
    }
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t trs_enable(Req& r) { return trs_change(r, false); }
kvo_status_t trs_disable(Req& r) { return trs_change(r, true); }

kvo_status_t trs_clear(Req& r) {
    if (r.fn().driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    fcpim_state(r.fn())["trs"] = json::array();
    r.changed();
    return KVO_STATUS_OK;
}

// The entries go to the caller's list area (16 entries at most), the count into the head.
kvo_status_t trs_query(Req& r) {
    auto& rec = r.rec<kvo_ioctl_itnim_trs_cfg_t>();
    if (r.fn().driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    const json& list = fcpim_state(r.fn())["trs"];
    std::vector<kvo_trs_list_t> out;
    for (const json& e : list) out.push_back({e.at(0).get<uint64_t>(), e.at(1).get<uint64_t>()});
    if (out.size() > kTrsMax) out.resize(kTrsMax);
    if (!out.empty() && !write_user(rec.trs_list, out.data(), out.size() * sizeof(kvo_trs_list_t)))
        return r.fail_errno(EFAULT, "list area not writable");
    rec.trs_count = static_cast<uint16_t>(out.size());
    r.note = fmt("%zu entries", out.size());
    return KVO_STATUS_OK;
}

constexpr HandlerEntry fcpim_handlers[] = {
    {KVO_IOCMD_ITNIM_GET_ATTR, "ITNIM_GET_ATTR", itnim_get_attr, 0},
    {KVO_IOCMD_ITNIM_GET_ITNSTATS, "ITNIM_GET_ITNSTATS", itnim_get_itnstats, 0},
    {KVO_IOCMD_ITNIM_GET_IOSTATS, "ITNIM_GET_IOSTATS", itnim_get_iostats, 0},
    {KVO_IOCMD_ITNIM_RESET_STATS, "ITNIM_RESET_STATS", itnim_reset_stats, 0},
    {KVO_IOCMD_FCPIM_FAST_FAILOVER, "FCPIM_FAST_FAILOVER", fast_failover, 0},
    {KVO_IOCMD_FCPIM_THROTTLE_QUERY, "FCPIM_THROTTLE_QUERY", throttle_query, 0},
    {KVO_IOCMD_FCPIM_THROTTLE_SET, "FCPIM_THROTTLE_SET", throttle_set, 0},
    {KVO_IOCMD_ITNIM_TRS_ENABLE, "ITNIM_TRS_ENABLE", trs_enable, 0},
    {KVO_IOCMD_ITNIM_TRS_DISABLE, "ITNIM_TRS_DISABLE", trs_disable, 0},
    {KVO_IOCMD_ITNIM_TRS_CLEAR, "ITNIM_TRS_CLEAR", trs_clear, 0},
    {KVO_IOCMD_ITNIM_TRS_QUERY, "ITNIM_TRS_QUERY", trs_query, 0},
};

}  // namespace

KVOSIM_HANDLERS(fcpim, fcpim_handlers);

void fcpim_driver_start(Host& h) {
    for (FnRef r : all_functions(h)) {
        if (r.fn->driver != Driver::kvo) continue;
        json& t = fcpim_state(*r.fn)["throttle"];
        t["cur"] = t["cfg"];
    }
}

}  // namespace kvosim
