// Emulated I/O and the storage driver's I/O statistics above the single nexus: a function's
// (FCPIM_GET_MODSTATS) and a logical port's (LPORT_GET_IOSTATS).
//
// I/O runs at rates ({"read_iops": R, "write_iops": W, "io_size": bytes per I/O, default 4096})
// for as long as the bed's I/O clock says (host ext.io_clock, whole seconds): the same clock
// gives the same counters. Rates are set where a driver would count the I/O:
//   a remote port's ext.io        its nexus (and so its logical port and its function);
//   a function's ext.lport_io     its own logical port beyond its present nexuses (I/O of
//                                 nexuses gone since);
//   ext.vports [{"pwwn", "io"}]   NPIV ports of the function: further logical ports, with no
//                                 remote ports of their own here, counting their own I/O;
//   a function's ext.io           the function beyond its present logical ports.
// A logical port counts from clock 0 (a nexus statistics reset does not clear it), the function
// sums its logical ports and its own rates. Counters are 32 bits wide and wrap, as the driver's.
//
// The clock moves with `kvosim io DIR SECONDS`, and, on a bed whose "sleep" is "io_clock", with
// every sleep of a process on it (the preload's sleep wrappers): a monitor that samples every
// few seconds then samples at once, and sees exactly its interval's worth of I/O.
#include "drv.h"
#include "emu.h"
#include "kvo_stats.h"

namespace kvosim {

uint64_t io_clock(const Host& h) { return h.ext.value("io_clock", static_cast<uint64_t>(0)); }

void advance_io_clock(Host& h, uint64_t seconds) { h.ext["io_clock"] = io_clock(h) + seconds; }

void add_io(kvo_itnim_iostats_t& s, const json& io, uint64_t seconds) {
    if (!io.is_object()) return;
    const uint64_t reads = io.value("read_iops", static_cast<uint64_t>(0)) * seconds;
    const uint64_t writes = io.value("write_iops", static_cast<uint64_t>(0)) * seconds;
    const uint64_t size = io.value("io_size", static_cast<uint64_t>(4096));
    const auto u32 = [](uint64_t v) { return static_cast<uint32_t>(v); };
    s.input_reqs += u32(reads);
    s.output_reqs += u32(writes);
    s.total_ios += u32(reads + writes);
    s.io_comps += u32(reads + writes);
    s.rd_throughput += u32(reads * size);
    s.wr_throughput += u32(writes * size);
    uint32_t& bucket = size <= 512     ? s.ios_le_512
                       : size <= 4096  ? s.ios_le_4k
                       : size <= 65536 ? s.ios_le_64k
                                       : s.ios_gt_64k;
    bucket += u32(reads + writes);
    s.lat_le_1ms += u32(reads + writes);
}

namespace {

// An NPIV port's WWN in wire order; a description without a valid one fails the request.
wwn_t vport_wwn(const json& v) {
    uint64_t w = 0;
    if (!parse_wwn(v.at("pwwn").get<std::string>(), w)) throw std::runtime_error("ext.vports: bad pwwn");
    return wire_wwn(w);
}

}  // namespace

std::vector<wwn_t> logical_ports(const Function& f) {
    std::vector<wwn_t> out{wire_wwn(f.pwwn)};
    for (const json& v : f.ext.value("vports", json::array())) out.push_back(vport_wwn(v));
    return out;
}

namespace {

// The counters of logical port lpwwn (wire order) of f; false when f has no such port.
bool lport_counters(const Host& h, const Function& f, wwn_t lpwwn, kvo_itnim_iostats_t& s) {
    const uint64_t t = io_clock(h);
    if (lpwwn == wire_wwn(f.pwwn)) {
        for (const RemotePort& rp : f.rports)
            if (rp.role != "fabric") add_io(s, rp.ext.value("io", json::object()), t);
        add_io(s, f.ext.value("lport_io", json::object()), t);
        return true;
    }
    for (const json& v : f.ext.value("vports", json::array())) {
        if (vport_wwn(v) != lpwwn) continue;
        add_io(s, v.value("io", json::object()), t);
        return true;
    }
    return false;
}

kvo_status_t fcpim_get_modstats(Req& r) {
    auto& rec = r.rec<kvo_ioctl_fcpim_modstats_t>();
    const Function& f = r.fn();
    if (f.driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    if (rec.vf_id != 0) return KVO_STATUS_UNKNOWN_VFID;
    kvo_itnim_iostats_t& s = rec.modstats;
    s = {};
    for (wwn_t lp : logical_ports(f)) lport_counters(r.st.host, f, lp, s);
    add_io(s, f.ext.value("io", json::object()), io_clock(r.st.host));
    r.note = fmt("t=%llu", static_cast<unsigned long long>(io_clock(r.st.host)));
    return KVO_STATUS_OK;
}

kvo_status_t lport_get_iostats(Req& r) {
    auto& rec = r.rec<kvo_ioctl_lport_iostats_t>();
    r.note = "lpwwn " + wwn_str(wire_wwn(rec.pwwn));
    const Function& f = r.fn();
    if (f.driver != Driver::kvo) return KVO_STATUS_CMD_NOTSUPP;
    if (rec.vf_id != 0) return KVO_STATUS_UNKNOWN_VFID;
    rec.iostats = {};
    if (!lport_counters(r.st.host, f, rec.pwwn, rec.iostats)) return KVO_STATUS_UNKNOWN_LWWN;
    r.note += fmt(" t=%llu", static_cast<unsigned long long>(io_clock(r.st.host)));
    return KVO_STATUS_OK;
}

constexpr HandlerEntry iostats_handlers[] = {
    {KVO_IOCMD_FCPIM_GET_MODSTATS, "FCPIM_GET_MODSTATS", fcpim_get_modstats, 0},
    {KVO_IOCMD_LPORT_GET_IOSTATS, "LPORT_GET_IOSTATS", lport_get_iostats, 0},
};

}  // namespace

KVOSIM_HANDLERS(iostats, iostats_handlers);

bool sleep_on_io_clock(uint64_t nanoseconds) {
    const std::string& dir = env_bed();
    if (dir.empty()) return false;
    bool done = false;
    with_state(dir, [&](State& st) {
        if (!st.host.sleep_on_io_clock) return;
        done = true;
        const uint64_t seconds = nanoseconds / 1000000000ULL;  // the clock counts whole seconds
        if (seconds == 0) return;
        advance_io_clock(st.host, seconds);
        st.dirty = true;
        append_log(dir, fmt("sleep %llu s -> io_clock=%llu", static_cast<unsigned long long>(seconds),
                            static_cast<unsigned long long>(io_clock(st.host))));
    });
    return done;
}

}  // namespace kvosim
