// IOC requests every command needs (information, attributes, enable, disable) and the pieces of
// the driver channel that do not depend on the platform: the request-code map of the bsg
// vendor interface, the framing of bsg and SCSI generic headers, and the reading of the
// driver's identity reply into an IOC record.
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>

#include "kvol.h"
#include "kvol_ioc_priv.h"

namespace {

// The channel's verdict first, then the driver's own status in the record.
kvo_status_t verdict(kvo_status_t rc, uint32_t rec_status) {
    if (rc != KVO_STATUS_OK) return rc;
    return static_cast<kvo_status_t>(rec_status);
}

kvo_status_t gen_request(kvol_t* h, uint32_t cmd) {
    if (h == nullptr) return KVO_STATUS_EINVAL;
    kvo_gen_t req{};
    req.kvod_num = static_cast<uint16_t>(h->instance);
    kvo_status_t rc = kvol_ioctl(h, cmd, &req, sizeof(req), sizeof(req), sizeof(req));
    return verdict(rc, req.status);
}

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

// ---- IOC requests ---------------------------------------------------------------------------

// The identity of the function (serial, PCI addresses, names, WWNs, MACs, type, SCSI host).
kvo_status_t kvol_ioc_get_info(kvol_t* h, kvo_ioc_info_t* info) {
    if (h == nullptr || info == nullptr) return KVO_STATUS_EINVAL;
    memset(info, 0, sizeof(*info));
    info->kvod_num = static_cast<uint16_t>(h->instance);
    kvo_status_t rc =
        kvol_ioctl(h, KVO_IOCMD_IOC_GET_INFO, info, sizeof(*info), sizeof(*info), sizeof(*info));
    return verdict(rc, info->status);
}

// The function's attributes: state, port, adapter and PCI attributes, versions.
kvo_status_t kvol_ioc_get_attr(kvol_t* h, kvo_ioc_attr_t* attr) {
    if (h == nullptr || attr == nullptr) return KVO_STATUS_EINVAL;
    memset(attr, 0, sizeof(*attr));
    attr->kvod_num = static_cast<uint16_t>(h->instance);
    kvo_status_t rc =
        kvol_ioctl(h, KVO_IOCMD_IOC_GET_ATTR, attr, sizeof(*attr), sizeof(*attr), sizeof(*attr));
    return verdict(rc, attr->status);
}

kvo_status_t kvol_ioc_enable(kvol_t* h) { return gen_request(h, KVO_IOCMD_IOC_ENABLE); }

kvo_status_t kvol_ioc_disable(kvol_t* h) { return gen_request(h, KVO_IOCMD_IOC_DISABLE); }

// Host, bus and target of a remote port; the outputs are written only on success.
kvo_status_t kvol_rport_get_scsi_address(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                         uint32_t* host, uint32_t* bus, uint32_t* target) {
    if (h == nullptr || host == nullptr || bus == nullptr || target == nullptr)
        return KVO_STATUS_EINVAL;
    kvo_rport_scsi_addr_t req{};
    req.kvod_num = static_cast<uint16_t>(h->instance);
    req.vf_id = vf_id;
    req.pwwn = lpwwn;
    req.rpwwn = rpwwn;
    kvo_status_t rc = kvol_ioctl(h, KVO_IOCMD_RPORT_GET_SCSI_ADDRESS, &req, sizeof(req),
                                 sizeof(req), sizeof(req));
    rc = verdict(rc, req.status);
    if (rc != KVO_STATUS_OK) return rc;
    *host = req.host;
    *bus = req.bus;
    *target = req.target;
    return KVO_STATUS_OK;
}

// ---- Request-code map ------------------------------------------------------------------------

// Replaces a request code by the vendor command number the storage driver's bsg interface
// knows. Codes served by their own transport pass unchanged. Returns 0 when the code is
// mapped or passes, 1 when the bsg interface does not know it.
int kvol_map_opensrc_iocmd_codes(uint32_t* cmd) {
    if (cmd == nullptr) return 1;
    for (const kvo_bsg_cmd_map_s& m : kvo_bsg_cmd_map) {
        if (m.code != *cmd) continue;
        if (m.vendor_cmd != 0) *cmd = m.vendor_cmd;
        return 0;
    }
    return 1;
}

// ---- Channel helpers ---------------------------------------------------------------------------

bool kvol_is_storage_ioc(const kvol_t* h) {
    return h->ioc_type == KVO_IOC_TYPE_FC || h->ioc_type == KVO_IOC_TYPE_FCoE;
}

bool kvol_devpath_is_bsg(const char* devpath) {
    return strstr(devpath, "/dev/kvo") == nullptr;
}

uint32_t kvol_eth_ioctl_code(uint32_t cmd) { return (cmd & ~0xFF00u) | (KVOL_ETH_IOC_TYPE << 8); }

kvo_status_t kvol_bsg_vendor_frame(sg_io_v4* hdr, uint8_t (&req)[32], uint32_t vendor_cmd,
                                   void* rec, size_t len, kvo_bsg_reply_s* reply) {
    if (len > UINT32_MAX) return KVO_STATUS_FAILED;
    memset(hdr, 0, sizeof(*hdr));
    memset(req, 0, sizeof(req));
    kvol_fc_bsg_request r{};
    r.msgcode = KVO_BSG_HST_VENDOR;
    r.rqst_data.h_vendor.vendor_id = KVO_PCI_VENDOR_ID;
    r.rqst_data.h_vendor.vendor_cmd[0] = vendor_cmd;
    memcpy(req, &r, sizeof(r));
    hdr->guard = 'Q';
    hdr->protocol = BSG_PROTOCOL_SCSI;
    hdr->subprotocol = BSG_SUB_PROTOCOL_SCSI_TRANSPORT;
    hdr->request_len = KVO_BSG_REQUEST_LEN;
    hdr->request = reinterpret_cast<uintptr_t>(req);
    hdr->dout_xfer_len = static_cast<uint32_t>(len);
    hdr->dout_xferp = reinterpret_cast<uintptr_t>(rec);
    hdr->din_xfer_len = static_cast<uint32_t>(len);
    hdr->din_xferp = reinterpret_cast<uintptr_t>(rec);
    hdr->max_response_len = sizeof(*reply);
    hdr->response = reinterpret_cast<uintptr_t>(reply);
    hdr->timeout = KVOL_BSG_TIMEOUT_MS;
    return KVO_STATUS_OK;
}

uint32_t kvol_fcpt_msgcode(const kvo_ioctl_fcpt_t* rec) {
    const uint8_t type = rec->fchs[8];  // TYPE field of the frame header
    const bool to_rport = rec->nport_nexus_needed != 0;
    if (type == KVO_FC_TYPE_ELS) return to_rport ? KVO_BSG_RPT_ELS : KVO_BSG_HST_ELS_NOLOGIN;
    if (type == KVO_FC_TYPE_CT) return to_rport ? KVO_BSG_RPT_CT : KVO_BSG_HST_CT;
    return 0;
}

kvo_status_t kvol_fcpt_frame(sg_io_v4* hdr, uint8_t (&req)[32], const kvo_ioctl_fcpt_t* rec,
                             kvo_bsg_reply_s* reply) {
    const uint32_t msgcode = kvol_fcpt_msgcode(rec);
    if (msgcode == 0) return KVO_STATUS_FAILED;
    memset(hdr, 0, sizeof(*hdr));
    memset(req, 0, sizeof(req));
    const auto* payload = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(rec->reqbuf_ptr));
    uint32_t preamble[3] = {0, 0, 0};
    if (payload != nullptr && rec->reqsz >= sizeof(preamble)) memcpy(preamble, payload, sizeof(preamble));
    const uint8_t first = (payload != nullptr && rec->reqsz > 0) ? payload[0] : 0;

    kvol_fc_bsg_request r{};
    r.msgcode = msgcode;
    switch (msgcode) {
    case KVO_BSG_RPT_ELS:
        r.rqst_data.r_els.els_code = first;
        break;
    case KVO_BSG_RPT_CT:
        memcpy(r.rqst_data.r_ct.preamble_word, preamble, sizeof(preamble));
        break;
    case KVO_BSG_HST_ELS_NOLOGIN:
        r.rqst_data.h_els.command_code = first;
        memcpy(r.rqst_data.h_els.port_id, &rec->fchs[1], 3);  // D_ID
        break;
    default:  // KVO_BSG_HST_CT
        memcpy(r.rqst_data.h_ct.port_id, &rec->fchs[1], 3);
        memcpy(r.rqst_data.h_ct.preamble_word, preamble, sizeof(preamble));
        break;
    }
    memcpy(req, &r, sizeof(r));
    hdr->guard = 'Q';
    hdr->protocol = BSG_PROTOCOL_SCSI;
    hdr->subprotocol = BSG_SUB_PROTOCOL_SCSI_TRANSPORT;
    hdr->request_len = KVO_BSG_REQUEST_LEN;
    hdr->request = reinterpret_cast<uintptr_t>(req);
    hdr->dout_xfer_len = rec->reqsz;
    hdr->dout_xferp = rec->reqbuf_ptr;
    hdr->din_xfer_len = rec->rspsz;
    hdr->din_xferp = rec->rspbuf_ptr;
    hdr->max_response_len = sizeof(*reply);
    hdr->response = reinterpret_cast<uintptr_t>(reply);
    hdr->timeout = KVOL_BSG_TIMEOUT_MS;
    return KVO_STATUS_OK;
}

void kvol_scsi_sg_hdr(sg_io_hdr_t* hdr, kvo_ioctl_scsi_t* rec) {
    memset(hdr, 0, sizeof(*hdr));
    hdr->interface_id = 'S';
    hdr->cmd_len = sizeof(rec->cdb.scsi_cdb);  // always the whole field, whatever the opcode
    hdr->cmdp = rec->cdb.scsi_cdb;
    switch (rec->cdb.scsi_cdb[0]) {
    case 0x0A:  // WRITE(6)
    case 0x10:  // WRITE FILEMARKS
    case 0x2A:  // WRITE(10)
    case 0x8A:  // WRITE(16)
    case 0xAA:  // WRITE(12)
        hdr->dxfer_direction = SG_DXFER_TO_DEV;
        break;
    default:
        hdr->dxfer_direction = SG_DXFER_TO_FROM_DEV;
        break;
    }
    hdr->dxfer_len = rec->iosz;
    hdr->dxferp = reinterpret_cast<void*>(static_cast<uintptr_t>(rec->iobuf_ptr));
    hdr->sbp = reinterpret_cast<unsigned char*>(static_cast<uintptr_t>(rec->snsbuf_pt));
    hdr->mx_sb_len = static_cast<unsigned char>(rec->snssz & 0xFF);
    hdr->timeout = KVOL_SG_TIMEOUT_MS;
}

uint32_t kvol_eeprom_offset(uint32_t part_off, bool write) {
    return (write && part_off != 0) ? part_off - 4 : part_off;
}

// ---- Discovery helpers -----------------------------------------------------------------------

int kvol_pci_regex_compile(regex_t* re) {
    // The dot is deliberately unescaped: it matches any character.
    return regcomp(re, "[a-f0-9]{4}:[a-f0-9]{2}:[a-f0-9]{2}.[a-f0-9]", REG_EXTENDED | REG_NOSUB);
}

bool kvol_pci_name_matches(const regex_t* re, const char* name) {
    return regexec(re, name, 0, nullptr, 0) == 0;
}

int kvol_sysfs_host_num(const char* entry_name) {
    if (strstr(entry_name, "host") == nullptr) return -1;
    long v = 0;
    for (const char* p = entry_name + 4; isdigit(static_cast<unsigned char>(*p)); ++p) {
        v = v * 10 + (*p - '0');
        if (v > INT_MAX) return -1;
    }
    return static_cast<int>(v);
}

void kvol_fc_devpath(uint32_t host, bool (*exists)(const char*), char* out, size_t size) {
    snprintf(out, size, "/dev/bsg/fc_host%u", host);
    if (exists(out)) return;
    snprintf(out, size, "/dev/fc_host%u", host);
    if (exists(out)) return;
    snprintf(out, size, "/dev/kvo");
}

int kvol_parse_pcifn(const char* hwpath, size_t size) {
    const size_t len = strnlen(hwpath, size);
    const char* dot = nullptr;
    for (size_t i = 0; i < len; ++i)
        if (hwpath[i] == '.') dot = hwpath + i;
    if (dot == nullptr) return -1;
    const char* end = hwpath + len;
    int v = 0;
    int digits = 0;
    for (const char* p = dot + 1; p < end && hex_value(*p) >= 0; ++p) {
        if (++digits > 2) return -1;  // a function number is one byte at most
        v = v * 16 + hex_value(*p);
    }
    return digits == 0 ? -1 : v;
}

void kvol_ioc_fill_from_info(kvol_t* rec, const kvo_ioc_info_t* info) {
    kvol_copy_str(rec->serialnum, info->serialnum, sizeof(info->serialnum));
    kvol_copy_str(rec->ioc_hwpath, info->hwpath, sizeof(info->hwpath));
    kvol_copy_str(rec->adapter_hwpath, info->adapter_hwpath, sizeof(info->adapter_hwpath));
    kvol_copy_str(rec->name, info->name, sizeof(info->name));
    kvol_copy_str(rec->port_name, info->port_name, sizeof(info->port_name));
    // The interface name is what ethtool requests and name lookups address the function by.
    kvol_copy_str(rec->eth_name, info->eth_name, sizeof(info->eth_name));
    rec->ioc_type = static_cast<kvo_ioc_type_e>(info->ioc_type);
    rec->pcifn_id = kvol_parse_pcifn(info->hwpath, sizeof(info->hwpath));
    if (kvol_is_storage_ioc(rec)) {
        rec->pwwn = info->pwwn;
        rec->nwwn = info->nwwn;
        rec->factorypwwn = info->factorypwwn;
        rec->factorynwwn = info->factorynwwn;
        if (rec->ioc_type == KVO_IOC_TYPE_FCoE) {
            rec->mac = info->mac;
            rec->factory_mac = info->factory_mac;
        }
    } else {
        rec->pwwn = 0;
        rec->nwwn = 0;
        rec->mac = info->mac;
        rec->factory_mac = info->factory_mac;
        rec->current_mac = info->current_mac;
    }
}
