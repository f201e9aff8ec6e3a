// The emulated drivers' front door: decodes and strictly validates each transport's framing,
// resolves kvod_num to a function, applies fault rules, runs the code's handler and logs one
// line per request. A malformed request fails with EINVAL and a log line starting with "BAD".
#include <linux/bsg.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include "bsg_cmds.h"
#include "drv.h"
#include "emu.h"

// Link-time table of handler families (see KVOSIM_HANDLERS).
extern "C" const kvosim::HandlerFamily* const __start_kvosim_handlers[];
extern "C" const kvosim::HandlerFamily* const __stop_kvosim_handlers[];

namespace kvosim {

namespace {

constexpr unsigned long kSgIo = 0x2285;
constexpr uint32_t kBsgTimeoutMs = 60000;

std::string errno_text(int e) {
    const char* n = errno_name(e);
    return n ? std::string(n) : std::to_string(e);
}

bool copy_via_pipe(void* dst, const void* src, size_t n) {
    // Fallback where process_vm_* is refused: the kernel checks both ends of a pipe transfer.
    int p[2];
    if (pipe(p) != 0) return false;
    bool ok = true;
    const char* s = static_cast<const char*>(src);
    char* d = static_cast<char*>(dst);
    while (n > 0 && ok) {
        size_t chunk = n < 4096 ? n : 4096;
        ok = write(p[1], s, chunk) == static_cast<ssize_t>(chunk) &&
             read(p[0], d, chunk) == static_cast<ssize_t>(chunk);
        s += chunk;
        d += chunk;
        n -= chunk;
    }
    close(p[0]);
    close(p[1]);
    return ok;
}

}  // namespace

bool read_user(void* dst, uint64_t addr, size_t n) {
    if (n == 0) return true;
    if (addr == 0) return false;
    iovec local{dst, n};
    iovec remote{reinterpret_cast<void*>(static_cast<uintptr_t>(addr)), n};
    ssize_t r = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
    if (r == static_cast<ssize_t>(n)) return true;
    if (r < 0 && (errno == EPERM || errno == ENOSYS))
        return copy_via_pipe(dst, reinterpret_cast<const void*>(static_cast<uintptr_t>(addr)), n);
    return false;
}

bool write_user(uint64_t addr, const void* src, size_t n) {
    if (n == 0) return true;
    if (addr == 0) return false;
    iovec local{const_cast<void*>(src), n};
    iovec remote{reinterpret_cast<void*>(static_cast<uintptr_t>(addr)), n};
    ssize_t r = process_vm_writev(getpid(), &local, 1, &remote, 1, 0);
    if (r == static_cast<ssize_t>(n)) return true;
    if (r < 0 && (errno == EPERM || errno == ENOSYS))
        return copy_via_pipe(reinterpret_cast<void*>(static_cast<uintptr_t>(addr)), src, n);
    return false;
}

const char* transport_name(Transport t) {
    switch (t) {
    case Transport::bsg: return "bsg";
    case Transport::ioctl: return "ioctl";
    case Transport::tqe: return "tqe";
    case Transport::ethtool: return "ethtool";
    }
    return "?";
}

void Req::bad_record_type(size_t have) const {
    throw std::logic_error(fmt("handler reads a %zu-byte record as a %zu-byte type", data.size(), have));
}

const HandlerEntry* find_handler(uint32_t code) {
    for (auto* f = __start_kvosim_handlers; f != __stop_kvosim_handlers; ++f)
        for (size_t i = 0; i < (*f)->count; i++)
            if ((*f)->entries[i].code == code) return &(*f)->entries[i];
    return nullptr;
}

namespace {

// The family of a second handler for the code, or nullptr: a code has one handler.
const char* second_family(uint32_t code) {
    const char* first = nullptr;
    for (auto* f = __start_kvosim_handlers; f != __stop_kvosim_handlers; ++f)
        for (size_t i = 0; i < (*f)->count; i++) {
            if ((*f)->entries[i].code != code) continue;
            if (first != nullptr) return (*f)->family;
            first = (*f)->family;
        }
    return nullptr;
}

}  // namespace

const HandlerEntry* find_handler_by_name(const std::string& name) {
    for (auto* f = __start_kvosim_handlers; f != __stop_kvosim_handlers; ++f)
        for (size_t i = 0; i < (*f)->count; i++)
            if (name == (*f)->entries[i].name) return &(*f)->entries[i];
    return nullptr;
}

wwn_t wire_wwn(uint64_t w) {
    wwn_t out;
    uint8_t b[8];
    for (int i = 0; i < 8; i++) b[i] = static_cast<uint8_t>(w >> (56 - 8 * i));
    memcpy(&out, b, 8);
    return out;
}

mac_t wire_mac(const Mac& m) {
    mac_t out;
    memcpy(out.mac, m.data(), 6);
    return out;
}

namespace {

// One request on its way through the dispatcher.
struct Call {
    State& st;
    Transport transport;
    const std::string& node;
    std::string bad;      // set: the request is malformed
    std::string unhandled;
};

struct Decoded {
    uint32_t code = 0;
    int vcmd = -1;        // bsg vendor command number
    uint64_t rec_addr = 0;
    std::vector<uint8_t> rec;
    int kvod = -1;
    int inst = -1;        // bsg: the node's instance, when kvod_num names another
    FnRef target{nullptr, nullptr, nullptr};
    size_t reply_len = 0; // bytes of the record the driver sent back (a short reply: fewer)
};

std::string head(Transport t, const std::string& node) {
    return std::string(transport_name(t)) + " " + node;
}

int reject(State& st, Transport t, const std::string& node, const std::string& why) {
    append_log(st.dir, "BAD " + head(t, node) + " " + why);
    errno = EINVAL;
    return -1;
}

// Reads the record and its kvod_num.
bool load_record(Decoded& d, std::string& why) {
    d.rec.resize(kvo_ioc_size(d.code));
    if (d.rec.size() < 8) {
        why = fmt("record of %zu bytes is too short", d.rec.size());
        return false;
    }
    if (!read_user(d.rec.data(), d.rec_addr, d.rec.size())) {
        why = fmt("record at 0x%" PRIx64 " (%zu bytes) is not readable", d.rec_addr, d.rec.size());
        return false;
    }
    uint16_t k;
    memcpy(&k, d.rec.data() + 4, 2);
    d.kvod = k;
    return true;
}

// A fault rule for this request, consumed when it has a count.
const Fault* take_fault(State& st, uint32_t code, int kvod, Fault& copy) {
    for (size_t i = 0; i < st.host.faults.size(); i++) {
        Fault& f = st.host.faults[i];
        if (f.kind != "request" || f.code != code) continue;
        if (f.instance >= 0 && f.instance != kvod) continue;
        if (f.skip > 0) {
            --f.skip;
            st.dirty = true;
            return nullptr;
        }
        copy = f;
        if (f.times > 0) {
            if (--f.times == 0) st.host.faults.erase(st.host.faults.begin() + static_cast<long>(i));
            st.dirty = true;
        }
        return &copy;
    }
    return nullptr;
}

// A driver that answers without doing the work: a status word of 0, then either every byte
// after kvod_num set (counts and lengths at their maximum, text without a terminator) or
// nothing more sent back at all. The bsg transport reports the short reply as a residual; on a
// control node it cannot be told from a record left as it was sent.
int broken_reply(State& st, const std::string& line, Decoded& d, bool short_reply) {
    const size_t head = 6;  // the status word and kvod_num
    memset(d.rec.data(), 0, 4);
    if (short_reply) d.reply_len = 4;
    else memset(d.rec.data() + head, 0xFF, d.rec.size() - head);
    if (!write_user(d.rec_addr, d.rec.data(), d.reply_len)) {
        append_log(st.dir, line + "errno=EFAULT (record not writable)");
        errno = EFAULT;
        return -1;
    }
    append_log(st.dir, line + (short_reply ? fmt("status=0 (fault: short reply, %zu of %zu bytes)", d.reply_len, d.rec.size())
                                           : std::string("status=0 (fault: garbage reply)")));
    return 0;
}

// Runs the handler (or the fault) on a decoded, validated request; writes the record back.
int answer(State& st, Transport t, const std::string& node, Decoded& d) {
    const char* name = code_name(d.code);
    std::string line = head(t, node) + " " + (name ? name : fmt("0x%08X", d.code));
    if (d.vcmd >= 0) line += fmt(" vcmd=%d", d.vcmd);
    line += fmt(" kvod=%d", d.kvod);
    if (d.inst >= 0) line += fmt(" inst=%d", d.inst);
    line += " -> ";

    d.reply_len = d.rec.size();
    Fault fc;
    if (const Fault* f = take_fault(st, d.code, d.kvod, fc)) {
        if (!f->reply.empty()) return broken_reply(st, line, d, f->reply == "short");
        if (!f->has_status) {
            append_log(st.dir, line + "errno=" + errno_text(f->err) + " (fault)");
            errno = f->err;
            return -1;
        }
        uint32_t s = f->status;
        memcpy(d.rec.data(), &s, 4);
        if (!write_user(d.rec_addr, d.rec.data(), 4)) {
            append_log(st.dir, line + "errno=EFAULT");
            errno = EFAULT;
            return -1;
        }
        append_log(st.dir, line + fmt("status=%u (fault)", s));
        return 0;
    }

    const HandlerEntry* h = find_handler(d.code);
    if (h == nullptr) {
        append_log(st.dir, "UNHANDLED " + line + "errno=EOPNOTSUPP");
        errno = EOPNOTSUPP;
        return -1;
    }
    if (const char* dup = second_family(d.code)) {
        append_log(st.dir, "BAD " + head(t, node) + " " + h->name + " has a second handler in family " + dup);
        errno = EINVAL;
        return -1;
    }
    Req r{st, t, node, d.code, h->name, d.kvod, d.target, std::span<uint8_t>(d.rec), 0, {}};
    kvo_status_t status;
    try {
        status = h->fn(r);
    } catch (const std::exception& e) {
        append_log(st.dir, "BAD " + head(t, node) + " handler of " + h->name + " failed: " + e.what());
        errno = EIO;
        return -1;
    }
    std::string note = r.note.empty() ? "" : " (" + r.note + ")";
    if (r.err != 0) {
        append_log(st.dir, line + "errno=" + errno_text(r.err) + note);
        errno = r.err;
        return -1;
    }
    uint32_t s = static_cast<uint32_t>(status);
    memcpy(d.rec.data(), &s, 4);
    if (!write_user(d.rec_addr, d.rec.data(), d.rec.size())) {
        append_log(st.dir, line + "errno=EFAULT (record not writable)");
        errno = EFAULT;
        return -1;
    }
    append_log(st.dir, line + fmt("status=%u", s) + note);
    return 0;
}

int plain_ioctl(State& st, const NodeRef& node, unsigned long request, void* arg) {
    const bool tqe = node.kind == NodeKind::tqe;
    const Transport t = tqe ? Transport::tqe : Transport::ioctl;
    if (request > 0xFFFFFFFFul)
        return reject(st, t, node.path, fmt("request 0x%lx is wider than 32 bits", request));
    Decoded d;
    d.code = static_cast<uint32_t>(request);
    if (tqe) {
        if (kvo_ioc_type(d.code) != 0x44)
            return reject(st, t, node.path,
                          fmt("request 0x%08X: type byte 0x%02X, expected 0x44 ('D')", d.code, kvo_ioc_type(d.code)));
        d.code = (d.code & ~0xFF00u) | 0x4300u;
    }
    if (code_name(d.code) == nullptr)
        return reject(st, t, node.path, fmt("unknown request code 0x%08X", d.code));
    if ((d.code >> 30) != 3)
        return reject(st, t, node.path, fmt("request 0x%08X is not a read-write request", d.code));
    d.rec_addr = reinterpret_cast<uintptr_t>(arg);
    std::string why;
    if (!load_record(d, why)) return reject(st, t, node.path, code_name(d.code) + std::string(": ") + why);
    const HandlerEntry* h = find_handler(d.code);
    bool no_kvod = h != nullptr && (h->flags & KVOSIM_NO_KVOD);
    if (node.kind == NodeKind::ipfc) {
        d.target = st.storage_instance(0);
    } else if (tqe) {
        d.target = no_kvod ? st.eth_instance(0) : st.eth_instance(d.kvod);
        if (d.target.fn == nullptr)
            return reject(st, t, node.path,
                          fmt("%s: kvod_num %d names no Ethernet instance (%zu instances)",
                              code_name(d.code), d.kvod, st.inst.eth.size()));
    } else {
        d.target = no_kvod ? st.storage_instance(0) : st.storage_instance(d.kvod);
        if (d.target.fn == nullptr)
            return reject(st, t, node.path,
                          fmt("%s: kvod_num %d names no storage instance (%zu instances)",
                              code_name(d.code), d.kvod, st.inst.storage.size()));
    }
    if (no_kvod) d.kvod = -1;
    return answer(st, t, node.path, d);
}

bool fcpt_msgcode(uint32_t m) {
    return m == 0x40000001 || m == 0x40000002 || m == 0x80000003 || m == 0x80000004;
}

int bsg_ioctl(State& st, const NodeRef& node, unsigned long request, void* arg) {
    const Transport t = Transport::bsg;
    const std::string& np = node.path;
    if (request != kSgIo) return reject(st, t, np, fmt("ioctl 0x%lx is not SG_IO", request));
    sg_io_v4 hdr;
    const uint64_t hdr_addr = reinterpret_cast<uintptr_t>(arg);
    if (!read_user(&hdr, hdr_addr, sizeof hdr)) return reject(st, t, np, "sg_io_v4 header is not readable");
    if (hdr.guard != 'Q') return reject(st, t, np, fmt("guard 0x%x, expected 'Q'", static_cast<unsigned>(hdr.guard)));
    if (hdr.protocol != BSG_PROTOCOL_SCSI) return reject(st, t, np, fmt("protocol %u, expected 0 (SCSI)", hdr.protocol));
    if (hdr.subprotocol != BSG_SUB_PROTOCOL_SCSI_TRANSPORT)
        return reject(st, t, np, fmt("subprotocol %u, expected 2 (SCSI transport)", hdr.subprotocol));
    if (hdr.request_len != KVO_BSG_REQUEST_LEN)
        return reject(st, t, np, fmt("request_len %u, expected %u", hdr.request_len, KVO_BSG_REQUEST_LEN));
    uint8_t fc_req[KVO_BSG_REQUEST_LEN];
    if (!read_user(fc_req, hdr.request, sizeof fc_req)) return reject(st, t, np, "request buffer is not readable");
    kvo_bsg_vendor_req_s vreq;
    memcpy(&vreq, fc_req, sizeof vreq);
    // A remote port's node takes pass-through frames only; the host's node also vendor requests.
    if (node.kind == NodeKind::bsg_rport || node.kind == NodeKind::rport || fcpt_msgcode(vreq.msgcode))
        return fc_passthru(st, node, hdr, hdr_addr, fc_req);
    if (vreq.msgcode != KVO_BSG_HST_VENDOR)
        return reject(st, t, np, fmt("msgcode 0x%08X, expected 0x%08X", vreq.msgcode, KVO_BSG_HST_VENDOR));
    if (vreq.vendor_id != KVO_PCI_VENDOR_ID)
        return reject(st, t, np, fmt("vendor_id 0x%" PRIx64 ", expected 0x%X", static_cast<uint64_t>(vreq.vendor_id),
                                     KVO_PCI_VENDOR_ID));
    const uint32_t vcmd = vreq.vendor_cmd[0];
    bool known = false;
    Decoded d;
    d.vcmd = static_cast<int>(vcmd);
    for (const BsgCommand& m : bsg_commands) {
        if (m.number == 0 || m.number != vcmd) continue;
        known = true;
        if (kvo_ioc_size(m.code) == hdr.dout_xfer_len) d.code = m.code;
    }
    if (!known) return reject(st, t, np, fmt("vendor command %u is not a driver command", vcmd));
    if (hdr.dout_iovec_count != 0 || hdr.din_iovec_count != 0)
        return reject(st, t, np, fmt("vendor command %u: iovec transfers (%u/%u), expected flat buffers", vcmd,
                                     hdr.dout_iovec_count, hdr.din_iovec_count));
    if (hdr.dout_xfer_len != hdr.din_xfer_len)
        return reject(st, t, np, fmt("vendor command %u: dout_xfer_len %u != din_xfer_len %u", vcmd,
                                     hdr.dout_xfer_len, hdr.din_xfer_len));
    if (d.code == 0)
        return reject(st, t, np, fmt("vendor command %u: transfer length %u matches no record of that command", vcmd,
                                     hdr.dout_xfer_len));
    if (hdr.dout_xferp != hdr.din_xferp || hdr.din_xferp == 0)
        return reject(st, t, np, fmt("%s: data-out and data-in must both point at the record", code_name(d.code)));
    if (hdr.timeout != kBsgTimeoutMs)
        return reject(st, t, np, fmt("%s: timeout %u ms, expected %u", code_name(d.code), hdr.timeout, kBsgTimeoutMs));
    d.rec_addr = hdr.din_xferp;
    std::string why;
    if (!load_record(d, why)) return reject(st, t, np, code_name(d.code) + std::string(": ") + why);
    // The node belongs to one function: the request is served for it whatever kvod_num says,
    // as the FC transport hands it to that host's driver instance. The log keeps the number
    // the caller sent, and the instance when the two differ.
    FnRef own = st.by_host(node.host);
    if (own.fn == nullptr) return reject(st, t, np, fmt("no storage function has SCSI host %d", node.host));
    const int inst = st.instance_of(*own.fn);
    if (inst < 0) return reject(st, t, np, fmt("host %d (%s) has no driver instance", node.host, own.fn->pci.c_str()));
    const HandlerEntry* h = find_handler(d.code);
    if (h != nullptr && (h->flags & KVOSIM_NO_KVOD)) d.kvod = -1;
    else if (d.kvod != inst) d.inst = inst;
    d.target = own;
    int rc = answer(st, t, np, d);
    if (rc != 0) return rc;
    // Completion as the FC transport reports it: no errors, the reply in the response buffer.
    hdr.driver_status = 0;
    hdr.transport_status = 0;
    hdr.device_status = 0;
    hdr.din_resid = static_cast<int32_t>(d.rec.size() - d.reply_len);
    hdr.dout_resid = 0;
    hdr.response_len = 0;
    kvo_bsg_reply_s reply{0, static_cast<uint32_t>(d.reply_len)};
    if (hdr.response != 0 && hdr.max_response_len >= sizeof reply && write_user(hdr.response, &reply, sizeof reply))
        hdr.response_len = sizeof reply;
    if (!write_user(hdr_addr, &hdr, sizeof hdr)) {
        errno = EFAULT;
        return -1;
    }
    return 0;
}

}  // namespace

namespace {

// The entry points are called from C: nothing may escape them.
int node_ioctl_unguarded(const NodeRef& node, unsigned long request, void* arg) {
    int rc = -1;
    int err = 0;
    std::string why;
    bool ok = with_state(env_bed(), [&](State& st) {
        switch (node.kind) {
        case NodeKind::kvo:
        case NodeKind::tqe:
        case NodeKind::ipfc: rc = plain_ioctl(st, node, request, arg); break;
        case NodeKind::bsg_host:
        case NodeKind::fc_host:
        case NodeKind::bsg_rport:
        case NodeKind::rport: rc = bsg_ioctl(st, node, request, arg); break;
        case NodeKind::scsi: rc = scsi_node_ioctl(st, node, request, arg); break;
        default:
            append_log(st.dir, fmt("UNHANDLED %s ioctl 0x%lx -> errno=EOPNOTSUPP", node.path.c_str(), request));
            errno = EOPNOTSUPP;
            rc = -1;
            break;
        }
        err = errno;
    }, &why);
    if (!ok) {
        if (!env_bed().empty()) append_log(env_bed(), "BAD sim: " + why);
        errno = EIO;
        return -1;
    }
    errno = err;
    return rc;
}

}  // namespace

int node_ioctl(const NodeRef& node, unsigned long request, void* arg) {
    try {
        return node_ioctl_unguarded(node, request, arg);
    } catch (const std::exception& e) {
        if (!env_bed().empty()) append_log(env_bed(), std::string("BAD sim: ") + e.what());
        errno = EIO;
        return -1;
    }
}

int open_fault(const std::string& vpath, bool* hash_listing) try {
    int err = 0;
    bool ok = with_state(env_bed(), [&](State& st) {
        if (hash_listing != nullptr) *hash_listing = st.host.hash_order && sysfs_path(vpath);
        for (size_t i = 0; i < st.host.faults.size(); i++) {
            Fault& f = st.host.faults[i];
            if (f.kind != "open" || f.path != vpath) continue;
            err = f.err;
            append_log(st.dir, "open " + vpath + " -> errno=" + errno_text(err) + " (fault)");
            if (f.times > 0) {
                if (--f.times == 0) st.host.faults.erase(st.host.faults.begin() + static_cast<long>(i));
                st.dirty = true;
            }
            break;
        }
    });
    // A bed that cannot be loaded has no emulated files at all.
    if (!ok) return ENOENT;
    return err;
} catch (const std::exception&) {
    return EIO;
}

bool hash_listing(const std::string& vpath) try {
    bool hash = false;
    with_state(env_bed(), [&](State& st) { hash = st.host.hash_order && sysfs_path(vpath); });
    return hash;
} catch (const std::exception&) {
    return false;
}

}  // namespace kvosim
