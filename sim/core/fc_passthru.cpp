// FC pass-through on the FC transport's bsg nodes: an ELS or CT frame to a remote port (on its
// rport node) or, without a login, to an address (on the host's own node). The transport checks
// the request and hands it to the driver, which sends the frame; what comes back is what the
// fabric and its ports would answer:
//   - ECHO, ADISC and RNID are accepted by every port: the remote ports (targets, initiators
//     and the fabric's own ports of the model) and the fabric at its well-known addresses
//     (0xFFFFF0 and above); any other ELS gets LS_RJT "command not supported".
//   - The name server (CT to 0xFFFFFC, GS type 0xFC subtype 0x02) accepts GID_FT for FC-4 type
//     FCP (the function's port and its target and initiator remote ports, by address) and
//     GPN_ID; other commands, and CT to any other port, are rejected "command not supported".
//   - A frame to an address where no port is fails with EIO (the driver's login fails), and so
//     does one to a remote port whose nexus is offline (Blocked) or from a port that is down.
// Request kinds a node does not take fail as the kernel fails them (EBADR), requests without both
// payloads with EINVAL; framing the kernel would pass but that makes no sense of the frame (an ELS
// command code that is not the payload's, CT preamble words that are not the payload's, an iovec
// transfer, a time-out other than the host software's 60 s) is refused too. All are BAD lines.
#include <linux/bsg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "drv.h"
#include "emu.h"
#include "scsi.h"

namespace kvosim {

namespace {

constexpr uint32_t kRportEls = 0x40000001, kRportCt = 0x40000002;
constexpr uint32_t kHostEls = 0x80000003, kHostCt = 0x80000004;
constexpr uint32_t kTimeoutMs = 60000;
constexpr uint32_t kMaxPayload = 65536;
constexpr uint32_t kWellKnown = 0xFFFFF0;  // the fabric's addresses
constexpr uint32_t kNameServer = 0xFFFFFC;

constexpr uint8_t kLsRjt = 0x01, kLsAcc = 0x02, kEcho = 0x10, kAdisc = 0x52, kRnid = 0x78;
constexpr uint16_t kCtRjt = 0x8001, kCtAcc = 0x8002, kGidFt = 0x0171, kGpnId = 0x0112;
constexpr uint8_t kTypeFcp = 0x08;
constexpr size_t kCtPreamble = 16;
// Reason codes: ELS and CT "command not supported", CT "unable to perform" and "invalid size".
constexpr uint8_t kNotSupported = 0x0B, kUnable = 0x09, kBadSize = 0x04;

// The kernel's fc_bsg_reply with its ELS/CT part.
struct FcBsgReply {
    uint32_t result;
    uint32_t reply_payload_rcv_len;
    uint32_t ctels_status;  // 0 accepted, 1 rejected (LS_RJT)
    uint8_t action, reason, explanation, vendor;
};

// A port that answers frames.
struct Peer {
    uint64_t pwwn, nwwn;
    uint32_t id;
};

struct Answer {
    std::vector<uint8_t> payload;
    std::string what;  // for the log
    bool ls_rjt = false;
};

void put_be(std::vector<uint8_t>& b, size_t at, uint64_t v, size_t n) {
    for (size_t i = 0; i < n; i++) b[at + i] = static_cast<uint8_t>(v >> (8 * (n - 1 - i)));
}

uint32_t be24(const uint8_t* p) { return static_cast<uint32_t>(p[0]) << 16 | p[1] << 8 | p[2]; }

Answer els_answer(const Peer& p, const std::vector<uint8_t>& rq) {
    Answer a;
    a.what = "LS_ACC";
    switch (rq[0]) {
    case kEcho:
        a.payload = rq;
        std::fill_n(a.payload.begin(), 4, 0);
        break;
    case kAdisc:
        a.payload.assign(28, 0);
        put_be(a.payload, 8, p.pwwn, 8);
        put_be(a.payload, 16, p.nwwn, 8);
        put_be(a.payload, 25, p.id, 3);
        break;
    case kRnid:  // common identification data only (format 0)
        a.payload.assign(24, 0);
        a.payload[5] = 16;
        put_be(a.payload, 8, p.pwwn, 8);
        put_be(a.payload, 16, p.nwwn, 8);
        break;
    default:
        a.payload.assign(8, 0);
        a.payload[0] = kLsRjt;
        a.payload[5] = kNotSupported;
        a.what = fmt("LS_RJT reason=0x%02x", kNotSupported);
        a.ls_rjt = true;
        return a;
    }
    a.payload[0] = kLsAcc;
    return a;
}

// A CT response: the request's preamble with the response code, then the body.
Answer ct_response(const std::vector<uint8_t>& rq, uint16_t code, uint8_t reason = 0, uint8_t explanation = 0,
                   const std::vector<uint8_t>& body = {}) {
    Answer a;
    a.payload.resize(kCtPreamble + body.size());
    for (size_t i = 0; i < kCtPreamble; i++) a.payload[i] = rq[i];
    for (size_t i = 0; i < body.size(); i++) a.payload[kCtPreamble + i] = body[i];
    put_be(a.payload, 8, code, 2);
    put_be(a.payload, 10, 0, 2);
    a.payload[12] = 0;
    a.payload[13] = reason;
    a.payload[14] = explanation;
    a.payload[15] = 0;
    a.what = code == kCtAcc ? "CT_ACC" : fmt("CT_RJT reason=0x%02x explanation=0x%02x", reason, explanation);
    return a;
}

// The ports the name server knows for the function's fabric: its own and its remote ports'.
std::vector<Peer> registered(const Function& f) {
    std::vector<Peer> out;
    if (fc_port_id(f) != 0) out.push_back({f.pwwn, f.nwwn, fc_port_id(f)});
    for (const RemotePort& rp : f.rports)
        if (rp.role != "fabric" && rp.port_id != 0) out.push_back({rp.pwwn, rp.nwwn, rp.port_id});
    std::sort(out.begin(), out.end(), [](const Peer& a, const Peer& b) { return a.id < b.id; });
    return out;
}

Answer name_server(const Function& f, const std::vector<uint8_t>& rq) {
    const uint16_t cmd = static_cast<uint16_t>(rq[8] << 8 | rq[9]);
    if (rq[4] != 0xFC || rq[5] != 0x02 || (cmd != kGidFt && cmd != kGpnId)) return ct_response(rq, kCtRjt, kNotSupported);
    if (rq.size() < kCtPreamble + 4) return ct_response(rq, kCtRjt, kBadSize);
    const std::vector<Peer> ports = registered(f);
    std::vector<uint8_t> body;
    if (cmd == kGidFt) {
        if (rq[kCtPreamble + 3] != kTypeFcp || ports.empty()) return ct_response(rq, kCtRjt, kUnable, 0x07);
        body.assign(4 * ports.size(), 0);
        for (size_t i = 0; i < ports.size(); i++) put_be(body, 4 * i + 1, ports[i].id, 3);
        body[4 * (ports.size() - 1)] = 0x80;  // the last entry
        return ct_response(rq, kCtAcc, 0, 0, body);
    }
    const uint32_t id = be24(&rq[kCtPreamble + 1]);
    for (const Peer& p : ports)
        if (p.id == id) {
            body.assign(8, 0);
            put_be(body, 0, p.pwwn, 8);
            return ct_response(rq, kCtAcc, 0, 0, body);
        }
    return ct_response(rq, kCtRjt, kUnable, 0x01);
}

const char* els_name(uint8_t c) {
    switch (c) {
    case kEcho: return "ECHO";
    case kAdisc: return "ADISC";
    case kRnid: return "RNID";
    default: return nullptr;
    }
}

const char* ct_name(uint16_t c) { return c == kGidFt ? "GID_FT" : c == kGpnId ? "GPN_ID" : nullptr; }

int refuse(State& st, const std::string& node, int err, const std::string& why) {
    append_log(st.dir, "BAD bsg " + node + " " + why + " -> errno=" + errno_name(err));
    errno = err;
    return -1;
}

}  // namespace

int fc_passthru(State& st, const NodeRef& node, sg_io_v4& hdr, uint64_t hdr_addr,
                const uint8_t (&request)[KVO_BSG_REQUEST_LEN]) {
    const std::string& np = node.path;
    uint32_t msgcode;
    memcpy(&msgcode, request, 4);
    const bool rport_node = node.kind == NodeKind::bsg_rport || node.kind == NodeKind::rport;
    const bool els = msgcode == kRportEls || msgcode == kHostEls;
    if (rport_node ? msgcode != kRportEls && msgcode != kRportCt : msgcode != kHostEls && msgcode != kHostCt)
        return refuse(st, np, EBADR, fmt("msgcode 0x%08X is not a %s request", msgcode,
                                         rport_node ? "remote port's" : "host's pass-through"));
    FnRef own = st.by_host(node.host);
    if (own.fn == nullptr || !host_registered(st.host, *own.fn))
        return refuse(st, np, ENODEV, fmt("no storage function has SCSI host %d", node.host));
    const Function& f = *own.fn;
    const RemotePort* rp = nullptr;
    if (rport_node) {
        if (node.rport < 0 || static_cast<size_t>(node.rport) >= f.rports.size() ||
            f.rports[static_cast<size_t>(node.rport)].role == "fabric")
            return refuse(st, np, ENODEV, "no such remote port");
        rp = &f.rports[static_cast<size_t>(node.rport)];
    }
    if (hdr.dout_iovec_count != 0 || hdr.din_iovec_count != 0)
        return refuse(st, np, EINVAL, fmt("iovec transfers (%u/%u), expected flat buffers", hdr.dout_iovec_count,
                                          hdr.din_iovec_count));
    if (hdr.dout_xfer_len == 0 || hdr.din_xfer_len == 0 || hdr.dout_xferp == 0 || hdr.din_xferp == 0)
        return refuse(st, np, EINVAL, fmt("a frame needs a request and a response payload (dout %u, din %u bytes)",
                                          hdr.dout_xfer_len, hdr.din_xfer_len));
    if (hdr.timeout != kTimeoutMs) return refuse(st, np, EINVAL, fmt("timeout %u ms, expected %u", hdr.timeout, kTimeoutMs));
    if (hdr.dout_xfer_len > kMaxPayload)
        return refuse(st, np, EINVAL, fmt("request payload of %u bytes, at most %u", hdr.dout_xfer_len, kMaxPayload));
    std::vector<uint8_t> rq(hdr.dout_xfer_len);
    if (!read_user(rq.data(), hdr.dout_xferp, rq.size()))
        return refuse(st, np, EFAULT, "request payload is not readable");

    // What the request header says of the frame must be what the payload is.
    uint32_t d_id = 0;
    if (els) {
        const uint8_t code = request[4];
        if (rq.size() < 4 || code != rq[0])
            return refuse(st, np, EINVAL, fmt("ELS command 0x%02x in the request, 0x%02x in a %zu-byte payload", code,
                                              rq.empty() ? 0 : rq[0], rq.size()));
        if (!rport_node) d_id = be24(&request[5]);
    } else {
        const size_t preamble_at = rport_node ? 4 : 8;
        if (rq.size() < kCtPreamble || memcmp(&request[preamble_at], rq.data(), 12) != 0)
            return refuse(st, np, EINVAL, fmt("CT preamble words of the request are not the first 12 bytes of the "
                                              "%zu-byte payload", rq.size()));
        if (!rport_node) d_id = be24(&request[5]);
    }

    std::string line = "bsg " + np + (els ? " ELS " : " CT ");
    if (els) line += els_name(rq[0]) ? els_name(rq[0]) : fmt("0x%02x", rq[0]);
    else line += ct_name(static_cast<uint16_t>(rq[8] << 8 | rq[9])) ? ct_name(static_cast<uint16_t>(rq[8] << 8 | rq[9]))
                                                                     : fmt("0x%02x%02x", rq[8], rq[9]);
    if (!rport_node) line += fmt(" d_id=0x%06x", d_id);
    auto no_answer = [&](const std::string& why) {
        append_log(st.dir, line + " -> errno=EIO (" + why + ")");
        errno = EIO;
        return -1;
    };
    if (fc_port_id(f) == 0) return no_answer("the port is not online");
    std::optional<Peer> peer;
    if (rp != nullptr) {
        if (!nexus_online(*rp)) return no_answer("remote port blocked");
        peer = Peer{rp->pwwn, rp->nwwn, rp->port_id};
    } else if (d_id >= kWellKnown) {
        peer = Peer{fabric_wwn(f), fabric_wwn(f), d_id};
    } else {
        for (const RemotePort& r : f.rports)
            if (r.port_id != 0 && r.port_id == d_id) peer = Peer{r.pwwn, r.nwwn, r.port_id};
    }
    if (!peer) return no_answer(fmt("no port at 0x%06x", d_id));

    Answer a = els ? els_answer(*peer, rq)
             : d_id == kNameServer ? name_server(f, rq)
                                   : ct_response(rq, kCtRjt, kNotSupported);
    const size_t got = std::min<size_t>(a.payload.size(), hdr.din_xfer_len);
    if (!write_user(hdr.din_xferp, a.payload.data(), got)) return refuse(st, np, EFAULT, "response payload is not writable");

    // Completion as the FC transport reports it: the reply, and the residual of the response.
    FcBsgReply reply{0, static_cast<uint32_t>(got), a.ls_rjt ? 1u : 0u, 0, 0, 0, 0};
    if (a.ls_rjt) {
        reply.reason = a.payload[5];
        reply.explanation = a.payload[6];
    }
    hdr.driver_status = hdr.transport_status = hdr.device_status = 0;
    hdr.info = 0;
    hdr.dout_resid = 0;
    hdr.din_resid = static_cast<int32_t>(hdr.din_xfer_len - got);
    hdr.response_len = 0;
    const uint32_t room = std::min<uint32_t>(hdr.max_response_len, sizeof reply);
    if (hdr.response != 0 && room > 0 && write_user(hdr.response, &reply, room)) hdr.response_len = room;
    if (!write_user(hdr_addr, &hdr, sizeof hdr)) return refuse(st, np, EFAULT, "sg_io_v4 header is not writable");
    append_log(st.dir, line + " -> " + a.what + fmt(" len=%zu", got));
    return 0;
}

}  // namespace kvosim
