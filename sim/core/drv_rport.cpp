// The storage driver's logical and remote ports: the logical ports of a function, the remote
// ports of a logical port, a remote port's attributes and its SCSI address.
//
// A function's logical ports are its own port WWN and its NPIV ports (ext.vports, see
// drv_iostats.cpp). The remote ports of its own port are the model's remote ports of the
// function other than fabric services, in model order; an NPIV port has none here. A remote
// port's ext.rport may set {"state": 0..9} (default 3, online); its SCSI function follows its
// role (target 2, initiator 1). The SCSI address is the function's SCSI host, bus 0 and the
// remote port's target id; an initiator has none (UNKNOWN_RWWN), nor has a function whose host
// did not register (CMD_NOTSUPP).
#include <algorithm>
#include <cerrno>

#include "drv.h"
#include "kvo_rport.h"
#include "scsi.h"

namespace kvosim {

namespace {

constexpr uint32_t kRportOnline = 3;

std::string wwn_note(wwn_t w) { return wwn_str(wire_wwn(w)); }

kvo_status_t check_lport(Req& r, wwn_t lpwwn) {
    if (r.fn().driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    return wire_wwn(r.fn().pwwn) == lpwwn ? KVO_STATUS_OK : KVO_STATUS_UNKNOWN_LWWN;
}

RemotePort* find_rport(Function& f, wwn_t rpwwn) {
    for (RemotePort& rp : f.rports)
        if (rp.role != "fabric" && wire_wwn(rp.pwwn) == rpwwn) return &rp;
    return nullptr;
}

// Writes the list into the caller's area: at most its capacity, and says how many there are.
kvo_status_t put_wwn_list(Req& r, const std::vector<wwn_t>& list, uint64_t area, uint32_t& count) {
    const size_t n = std::min<size_t>(list.size(), count);
    if (n > 0 && !write_user(area, list.data(), n * sizeof(wwn_t)))
        return r.fail_errno(EFAULT, "list area not writable");
    r.note += fmt("%zu of %zu", n, list.size());
    count = static_cast<uint32_t>(list.size());
    return KVO_STATUS_OK;
}

kvo_status_t fabric_get_lports(Req& r) {
    auto& rec = r.rec<kvo_ioctl_fabric_get_lports_t>();
    if (r.fn().driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    if (rec.vf_id != 0) return KVO_STATUS_UNKNOWN_VFID;
    return put_wwn_list(r, logical_ports(r.fn()), rec.buf_ptr, rec.nports);
}

kvo_status_t lport_get_rports(Req& r) {
    auto& rec = r.rec<kvo_ioctl_lport_get_rports_t>();
    r.note = "lpwwn " + wwn_note(rec.pwwn) + " ";
    if (r.fn().driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    const std::vector<wwn_t> lports = logical_ports(r.fn());
    if (std::find(lports.begin(), lports.end(), rec.pwwn) == lports.end()) return KVO_STATUS_UNKNOWN_LWWN;
    std::vector<wwn_t> list;
    if (rec.pwwn == wire_wwn(r.fn().pwwn))
        for (const RemotePort& rp : r.fn().rports)
            if (rp.role != "fabric") list.push_back(wire_wwn(rp.pwwn));
    return put_wwn_list(r, list, rec.rbuf_ptr, rec.nrports);
}

kvo_status_t rport_get_attr(Req& r) {
    auto& rec = r.rec<kvo_ioctl_rport_attr_t>();
    r.note = "lpwwn " + wwn_note(rec.lpwwn) + " rpwwn " + wwn_note(rec.rpwwn);
    kvo_status_t st = check_lport(r, rec.lpwwn);
    if (st != KVO_STATUS_OK) return st;
    RemotePort* rp = find_rport(r.fn(), rec.rpwwn);
    if (rp == nullptr) return KVO_STATUS_UNKNOWN_RWWN;
    kvo_rport_attr_s& a = rec.attr;
    a = {};
    a.pwwn = wire_wwn(rp->pwwn);
    a.nwwn = wire_wwn(rp->nwwn);
    a.pid = rp->port_id;
    a.state = rp->ext.value("rport", json::object()).value("state", kRportOnline);
    a.cos = 3;
    a.scsi_function = rp->role == "target" ? KVO_RPORT_TARGET : KVO_RPORT_INITIATOR;
    a.df_sz = 2112;
    a.curr_speed = r.adapter().max_speed;
    a.assigned_speed = 0;
    put_str(a.symname, rp->ext.value("symname", std::string()));
    return KVO_STATUS_OK;
}

kvo_status_t rport_get_scsi_address(Req& r) {
    auto& rec = r.rec<kvo_rport_scsi_addr_t>();
    r.note = "lpwwn " + wwn_note(rec.pwwn) + " rpwwn " + wwn_note(rec.rpwwn);
    kvo_status_t st = check_lport(r, rec.pwwn);
    if (st != KVO_STATUS_OK) return st;
    RemotePort* rp = find_rport(r.fn(), rec.rpwwn);
    if (rp == nullptr || rp->role != "target") return KVO_STATUS_UNKNOWN_RWWN;
    if (r.fn().host < 0 || !host_registered(r.st.host, r.fn())) return KVO_STATUS_CMD_NOTSUPP;
    rec.host = static_cast<uint32_t>(r.fn().host);
    rec.bus = 0;
    rec.target = rp->target;
    rec.lun = 0;
    r.note += fmt(" -> %u:0:%u", rec.host, rec.target);
    return KVO_STATUS_OK;
}

constexpr HandlerEntry rport_handlers[] = {
    {KVO_IOCMD_FABRIC_GET_LPORTS, "FABRIC_GET_LPORTS", fabric_get_lports, 0},
    {KVO_IOCMD_LPORT_GET_RPORTS, "LPORT_GET_RPORTS", lport_get_rports, 0},
    {KVO_IOCMD_RPORT_GET_ATTR_BY_QUALIFIER, "RPORT_GET_ATTR_BY_QUALIFIER", rport_get_attr, 0},
    {KVO_IOCMD_RPORT_GET_SCSI_ADDRESS, "RPORT_GET_SCSI_ADDRESS", rport_get_scsi_address, 0},
};

}  // namespace

KVOSIM_HANDLERS(rport, rport_handlers);

}  // namespace kvosim
