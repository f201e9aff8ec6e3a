// IOC requests every command needs (information, attributes, enable, disable, a remote port's
// SCSI address), the request-code map of the bsg vendor interface, and the reading of the
// driver's identity reply into an IOC record. Nothing here depends on the platform.
#include <cstring>

#include "kvol.h"
#include "kvol_ioc_priv.h"

namespace {

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
    if (info == nullptr) return KVO_STATUS_EINVAL;
    *info = {};
    return kvol_request<KVO_IOCMD_IOC_GET_INFO>(h, *info);
}

// The function's attributes: state, port, adapter and PCI attributes, versions.
kvo_status_t kvol_ioc_get_attr(kvol_t* h, kvo_ioc_attr_t* attr) {
    if (attr == nullptr) return KVO_STATUS_EINVAL;
    *attr = {};
    return kvol_request<KVO_IOCMD_IOC_GET_ATTR>(h, *attr);
}

kvo_status_t kvol_ioc_enable(kvol_t* h) { return kvol_request_gen<KVO_IOCMD_IOC_ENABLE>(h); }

kvo_status_t kvol_ioc_disable(kvol_t* h) { return kvol_request_gen<KVO_IOCMD_IOC_DISABLE>(h); }

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

bool kvol_is_storage_ioc(const kvol_t* h) {
    return h->ioc_type == KVO_IOC_TYPE_FC || h->ioc_type == KVO_IOC_TYPE_FCoE;
}

// ---- Identity ------------------------------------------------------------------------------------

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
